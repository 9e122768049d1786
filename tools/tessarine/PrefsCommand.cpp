// tessarine prefs: look into a preference domain and change it.
#include <array>
#include <charconv>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

#include "Command.hpp"
#include "DateText.hpp"
#include "PreferenceJson.hpp"
#include "PreferenceRows.hpp"
#include "tessarine/preferences.hpp"

#include <CLI/CLI.hpp>
#include <signal.h>
#include <unistd.h>

namespace tessarine::tool {
namespace {

using Object = std::optional<PreferenceObject>;

struct Options {
  std::string directory;
  std::string suite;
  std::string key;
  std::string value;
  std::string type;
  std::string file;
  std::vector<std::string> keys;
  bool pretty = false;
};

std::shared_ptr<UserDefaults> domainOf(const Options& options, bool hasSuite) {
  if (!options.directory.empty()) UserDefaults::setDirectory(options.directory);
  auto domain = hasSuite ? UserDefaults::suite(options.suite) : UserDefaults::standard();
  if (!domain) throw UsageError("no domain can have that name: " + options.suite);
  return domain;
}

// ---- get ----

template <class T>
Object converted(const Object& object) {
  const auto value = typedUserDefaultScalarValue<T>(object);
  return value ? Object(PreferenceObject(*value)) : std::nullopt;
}

int get(UserDefaults& domain, const Options& options) {
  Object object = domain.object(options.key);
  const std::string& as = options.type;
  if (as == "bool") object = converted<bool>(object);
  if (as == "int") object = converted<std::int64_t>(object);
  if (as == "uint") object = converted<std::uint64_t>(object);
  if (as == "double") object = converted<double>(object);
  if (as == "float") object = converted<float>(object);
  if (as == "string") object = converted<std::string>(object);
  if (!object) return Exit::negative;
  printLine(as == "json" ? jsonText(*object, options.pretty) : plainText(*object));
  return Exit::done;
}

// ---- set ----

/// All of `text` as a number of that type; what the type cannot hold is refused.
template <class T>
PreferenceObject numberFrom(const std::string& text) {
  T value{};
  const char* const end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, value);
  if (text.empty() || result.ec != std::errc() || result.ptr != end) {
    throw UsageError("no number of that type: " + text);
  }
  return PreferenceObject(NSNumber(value));
}

template <class T>
PreferenceObject required(std::optional<T> value, const char* what, const std::string& text) {
  if (!value) throw UsageError(std::string("no ") + what + ": " + text);
  return PreferenceObject(std::move(*value));
}

PreferenceObject fromJson(const std::string& text, const std::string& input) try {
  return objectFromJson(text);
} catch (const JsonError& error) {
  throw UsageError(std::string(error.what()) + ": " + input);
}

PreferenceObject objectFrom(const std::string& type, const std::string& text) {
  if (type == "bool") return required(detail::booleanFromText(text), "boolean", text);
  if (type == "int") return numberFrom<std::int64_t>(text);
  if (type == "uint") return numberFrom<std::uint64_t>(text);
  if (type == "double") return numberFrom<double>(text);
  if (type == "float") return numberFrom<float>(text);
  if (type == "date") return required(dateFromIso(text), "ISO 8601 date", text);
  if (type == "data") return required(Data::fromBase64(text), "base64", text);
  if (type == "json") return fromJson(text, text);
  return PreferenceObject(text);
}

/// What the disk refused has been told on standard error.
int settled(UserDefaults& domain) { return domain.synchronize() ? Exit::done : Exit::negative; }

// ---- export and import ----

std::string contentsOf(const std::string& file) {
  if (file == "-") return {std::istreambuf_iterator<char>(std::cin), {}};
  std::ifstream stream(file, std::ios::binary);
  std::string text{std::istreambuf_iterator<char>(stream), {}};
  if (!stream) throw UsageError("cannot be read: " + file);
  return text;
}

int import(UserDefaults& domain, const Options& options) {
  const PreferenceObject object = fromJson(contentsOf(options.file), options.file);
  if (object.dictionary() == nullptr) throw UsageError("no JSON object: " + options.file);
  domain.setAll(*object.dictionary());
  return settled(domain);
}

// ---- watch ----

Object newValueIn(const ChangeDictionary& change) {
  return dynamicCast<PreferenceObject>(change.at(NSKeyValueChangeNewKey));
}

/// Prints until a signal comes. The signals are blocked before the domain starts its thread, so
/// that only this one takes them.
int watch(const Options& options, bool hasSuite) {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, signal);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);

  const auto domain = domainOf(options, hasSuite);
  const auto print = [](std::string_view key, const ChangeDictionary& change) {
    printLine(rowOf(key, newValueIn(change)));
    std::cout.flush();
  };
  std::vector<std::shared_ptr<void>> observations;
  if (options.keys.empty()) observations.push_back(domain->observeAllKeys(print));
  for (const auto& key : options.keys) {
    observations.push_back(
        domain->observe(key, [print, key](const auto& change) { print(key, change); }));
  }
  int signal = 0;
  sigwait(&signals, &signal);
  return Exit::done;
}

int list(UserDefaults& domain) {
  for (const auto& [key, object] : domain.dictionaryRepresentation()) printLine(rowOf(key, object));
  return Exit::done;
}

}  // namespace

void addPrefs(CLI::App& tool, int& exit) {
  auto options = std::make_shared<Options>();
  auto* const prefs = tool.add_subcommand("prefs", "Look into a preference domain and change it.");
  prefs->footer("Example: tessarine prefs --dir /tmp/prefs list");
  prefs->require_subcommand(1);
  prefs->add_option("--dir", options->directory, "Folder of the domains (default: the user's own)");
  auto* const suite = prefs->add_option("--suite", options->suite, "Name of the domain");

  using Run = std::function<int(UserDefaults&, const Options&)>;
  const auto add = [&exit, options, prefs, suite](const char* name, const char* text,
                                                  const char* example, const Run& run) {
    auto* const command = prefs->add_subcommand(name, text);
    command->footer(std::string("Example: tessarine prefs --dir /tmp/prefs ") + example);
    command->callback([&exit, options, suite, run] {
      exit = run(*domainOf(*options, suite->count() > 0), *options);
    });
    return command;
  };

  add("list", "Print key, kind and value of every pair, with tabs between.", "list",
      [](auto& domain, const auto&) { return list(domain); });

  auto* const getCommand = add("get", "Print the value of a key.", "get fontSize --as int", get);
  getCommand->add_option("key", options->key)->required();
  getCommand->add_option("--as", options->type, "Convert as a typed accessor would")
      ->check(CLI::IsMember({"bool", "int", "uint", "double", "float", "string", "json"}));
  getCommand->add_flag("--pretty", options->pretty, "JSON on several lines");

  auto* const setCommand = add("set", "Store a value under a key.", "set fontSize 12 --type int",
                               [](auto& domain, const auto& given) {
                                 domain.set(objectFrom(given.type, given.value), given.key);
                                 return settled(domain);
                               });
  setCommand->add_option("key", options->key)->required();
  setCommand->add_option("value", options->value)->required();
  setCommand->add_option("--type", options->type, "Kind of the value (default: string)")
      ->check(CLI::IsMember(
          {"bool", "int", "uint", "double", "float", "string", "date", "data", "json"}));

  add("remove", "Remove a key; one that is missing is no error.", "remove fontSize",
      [](auto& domain, const auto& given) {
        domain.removeObject(given.key);
        return settled(domain);
      })
      ->add_option("key", options->key)
      ->required();

  auto* const watchCommand = prefs->add_subcommand(
      "watch", "Print a line for each change, also by other processes, until interrupted.");
  watchCommand->footer(
      "Example: timeout 1 tessarine prefs --dir /tmp/prefs watch fontSize || true");
  watchCommand->add_option("keys", options->keys, "The keys (default: all)");
  watchCommand->callback([&exit, options, suite] { exit = watch(*options, suite->count() > 0); });

  auto* const exportCommand =
      add("export", "Print all pairs as one JSON object.", "export",
          [](auto& domain, const auto& given) {
            printLine(jsonText(PreferenceObject(domain.dictionaryRepresentation()), given.pretty));
            return int{Exit::done};
          });
  exportCommand->add_flag("--pretty", options->pretty, "On several lines");

  add("import", "Store the pairs of a JSON object, all of them in one step.", "import pairs.json",
      import)
      ->add_option("file", options->file, "The file, or - for standard input")
      ->required();
}

}  // namespace tessarine::tool
