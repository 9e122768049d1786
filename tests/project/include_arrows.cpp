// Says which includes go against the floors of the tree. Usage: include_arrows [--marked] ROOT
//
// A file stands in a family, a family on a floor. It includes from its own family, from lower
// floors, and from the few neighbours listed below; umbrella headers may gather what they are
// named for. Each fault is printed as `path:line: reason` and makes the exit status 1.
//
// With --marked the tree is a fixture: every faulty line carries `// wrong: reason`, and the status
// is 0 only if exactly the marked lines are found, each for the reason marked.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace {

namespace fs = std::filesystem;

// Lower floors first. What lies in tessarine/ itself and is no umbrella is the ground.
const std::vector<std::set<std::string>> floors = {
    {"ground"},
    {"values"},
    {"coding"},
    {"system"},
    {"preferences", "differencing", "animation", "scheduling", "web", "dates", "text", "codable",
     "collections", "platform"},
    {"everything"},
    {"tools", "examples"},
};

const std::map<std::string, std::set<std::string>> neighbours = {
    {"preferences", {"scheduling", "dates"}},
    {"platform", {"preferences", "text"}},
};

const std::set<std::string> system_folders = {"dispatch", "store", "time",   "text",
                                              "net",      "json",  "desktop"};

const std::set<std::string> standard_headers = {
    // C++20, with the C headers by their C++ names.
    "algorithm",
    "any",
    "array",
    "atomic",
    "barrier",
    "bit",
    "bitset",
    "charconv",
    "chrono",
    "codecvt",
    "compare",
    "complex",
    "concepts",
    "condition_variable",
    "coroutine",
    "deque",
    "exception",
    "execution",
    "filesystem",
    "format",
    "forward_list",
    "fstream",
    "functional",
    "future",
    "initializer_list",
    "iomanip",
    "ios",
    "iosfwd",
    "iostream",
    "istream",
    "iterator",
    "latch",
    "limits",
    "list",
    "locale",
    "map",
    "memory",
    "memory_resource",
    "mutex",
    "new",
    "numbers",
    "numeric",
    "optional",
    "ostream",
    "queue",
    "random",
    "ranges",
    "ratio",
    "regex",
    "scoped_allocator",
    "semaphore",
    "set",
    "shared_mutex",
    "source_location",
    "span",
    "sstream",
    "stack",
    "stdexcept",
    "stop_token",
    "streambuf",
    "string",
    "string_view",
    "syncstream",
    "system_error",
    "thread",
    "tuple",
    "type_traits",
    "typeindex",
    "typeinfo",
    "unordered_map",
    "unordered_set",
    "utility",
    "valarray",
    "variant",
    "vector",
    "version",
    "cassert",
    "cctype",
    "cerrno",
    "cfenv",
    "cfloat",
    "cinttypes",
    "climits",
    "clocale",
    "cmath",
    "csetjmp",
    "csignal",
    "cstdarg",
    "cstddef",
    "cstdint",
    "cstdio",
    "cstdlib",
    "cstring",
    "ctime",
    "cuchar",
    "cwchar",
    "cwctype"};

struct Place {
  std::string family;
  int floor = -1;  // -1: no folder of the tree
  bool umbrella = false;
  bool internal = false;
  bool library = false;
};

int floorOf(const std::string& family) {
  for (size_t i = 0; i < floors.size(); ++i) {
    if (floors[i].contains(family)) return static_cast<int>(i);
  }
  return -1;
}

// Where `path`, relative to the root, belongs.
Place placeOf(const std::string& path) {
  std::vector<std::string> parts;
  for (const auto& part : fs::path(path)) parts.push_back(part.string());
  Place place;
  place.library = parts[0] == "tessarine";
  place.internal = path.find("/internal/") != std::string::npos;
  if (!place.library) {
    place.family = parts[0];
  } else if (parts.size() == 2) {
    const auto stem = fs::path(path).stem().string();
    place.family = stem == "tessarine" ? "everything" : floorOf(stem) > 0 ? stem : "ground";
    place.umbrella = place.family != "ground";
  } else {
    place.family = parts[1];
    // Only named folders, so that a new one is a decision.
    if (parts[1] == "system" && (parts.size() == 3 || !system_folders.contains(parts[2]))) {
      return place;
    }
  }
  place.floor = floorOf(place.family);
  return place;
}

std::optional<std::string> faultOfAngle(const std::string& path, const Place& from,
                                        const std::string& name) {
  const bool is_public = from.library && !from.internal && path.ends_with(".hpp");
  if (name.starts_with("tessarine/")) return "tessarine/ headers are included with quotes";
  if (is_public && !standard_headers.contains(name)) {
    return "a public header includes standard headers only";
  }
  return std::nullopt;
}

std::optional<std::string> faultOfQuoted(const std::string& path, const Place& from,
                                         const std::string& name) {
  if (!name.starts_with("tessarine/")) {
    // Tools may keep headers of their own; the library names its headers in full.
    if (from.library) return "the library includes its own headers by their full names only";
    const auto first = name.substr(0, name.find('/'));
    if (first != from.family && floorOf(first) >= 0) return from.family + " includes " + first;
    return std::nullopt;
  }
  const Place to = placeOf(name);
  if (to.floor < 0) return "the header lies in no known folder";
  if (to.internal && !from.library) return from.family + " includes an internal header";
  if (to.internal && !from.internal && path.ends_with(".hpp")) {
    return "a public header includes an internal one, which is not installed";
  }
  if (to.floor > from.floor) return from.family + " includes upwards, " + to.family;
  if (to.floor < from.floor || to.family == from.family) return std::nullopt;
  const auto allowed = neighbours.find(from.family);
  if (allowed != neighbours.end() && allowed->second.contains(to.family)) return std::nullopt;
  return from.family + " includes its neighbour " + to.family;
}

struct Fault {
  std::string path;
  int line;
  std::string reason;
  auto operator<=>(const Fault&) const = default;
};

// Faults of one file go to `found`; lines marked in it to `marked`.
void readFile(const fs::path& root, const std::string& path, std::set<Fault>& found,
              std::set<Fault>& marked) {
  static const std::regex include(R"re(^\s*#\s*include\s*(?:"([^"]+)"|<([^>]+)>|(\w+)))re");
  static constexpr std::string_view mark = "// wrong: ";
  const Place from = placeOf(path);
  if (from.floor < 0) found.insert({path, 1, "the file lies in no known folder"});

  std::ifstream file(root / path);
  if (!file) found.insert({path, 1, "the file cannot be read"});
  std::string text;
  for (int line = 1; std::getline(file, text); ++line) {
    if (const auto at = text.find(mark); at != std::string::npos) {
      marked.insert({path, line, text.substr(at + mark.size())});
    }
    std::smatch match;
    if (from.floor < 0 || !std::regex_search(text, match, include)) continue;
    std::optional<std::string> fault;
    if (match[1].matched) {
      fault = faultOfQuoted(path, from, match[1]);
    } else if (match[2].matched) {
      fault = faultOfAngle(path, from, match[2]);
    } else {
      fault = "an include by a macro cannot be checked";
    }
    if (fault) found.insert({path, line, *fault});
  }
}

void print(const std::set<Fault>& faults, const std::set<Fault>& except, std::string_view prefix) {
  for (const auto& fault : faults) {
    if (except.contains(fault)) continue;
    std::cerr << prefix << fault.path << ':' << fault.line << ": " << fault.reason << '\n';
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string_view> arguments(argv + 1, argv + argc);
  if (arguments.empty()) {
    std::cerr << "usage: include_arrows [--marked] ROOT\n";
    return 2;
  }
  const fs::path root = arguments.back();
  std::set<Fault> found;
  std::set<Fault> marked;
  int files = 0;
  for (const auto* folder : {"tessarine", "tools", "examples"}) {
    if (!fs::exists(root / folder)) continue;
    for (const auto& entry : fs::recursive_directory_iterator(root / folder)) {
      const auto extension = entry.path().extension();
      if (extension != ".hpp" && extension != ".cpp") continue;
      readFile(root, fs::relative(entry.path(), root).generic_string(), found, marked);
      ++files;
    }
  }
  std::cout << files << " files, " << found.size() << " faults\n";
  if (files == 0) {
    std::cerr << "nothing to check in " << root << '\n';
    return 1;
  }
  if (arguments.front() == "--marked") {
    print(marked, found, "not found: ");
    print(found, marked, "not marked: ");
    return found == marked && !marked.empty() ? 0 : 1;
  }
  print(found, {}, "");
  return found.empty() ? 0 : 1;
}
