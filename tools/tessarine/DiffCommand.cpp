// tessarine diff: what changed between two lists, or between two snapshots of a table.
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "Command.hpp"
#include "JsonScalar.hpp"
#include "JsonTable.hpp"
#include "Lines.hpp"
#include "SnapshotPicture.hpp"
#include "jsonOf.hpp"
#include "tessarine/differencing.hpp"
#include "tessarine/system/json/JSONDecoder.hpp"

#include <CLI/CLI.hpp>

namespace tessarine::tool {
namespace {

using Scalars = std::vector<JsonScalar>;
using ScalarChanges = CollectionChanges<JsonScalar>;

struct Options {
  std::string first;
  std::string second;
  std::string svg;
  std::optional<std::size_t> mostMoves;
  bool infersMoves = false;
  bool tableView = false;
  bool pretty = false;
  bool jsonl = false;
};

// ---- what is read ----

struct ListPair {
  Scalars old;
  Scalars now;
  static constexpr auto codingFields =
      fields(field("old", &ListPair::old), field("new", &ListPair::now));
};

struct Application {
  Scalars from;
  ScalarChanges changes;
  static constexpr auto codingFields =
      fields(field("from", &Application::from), field("changes", &Application::changes));
};

struct Path {
  IndexPath path;
  void encode(Encoder& encoder) const {
    auto container = encoder.unkeyedContainer();
    container.encode(path.section());
    container.encode(path.item());
  }
  static Path decode(Decoder& decoder) {
    auto container = decoder.unkeyedContainer();
    const auto section = container.decode<std::int64_t>();
    const auto item = container.decode<std::int64_t>();
    return {IndexPath(item, section)};
  }
};

struct Suppression {
  std::optional<std::vector<Path>> sources;
  std::optional<std::vector<Path>> destinations;
  static constexpr auto codingFields = fields(field("sources", &Suppression::sources),
                                              field("destinations", &Suppression::destinations));

  SuppressedMovePositions positions() const { return {setOf(sources), setOf(destinations)}; }

 private:
  static IndexSet<IndexPath> setOf(const std::optional<std::vector<Path>>& paths) {
    std::vector<IndexPath> made;
    if (paths) {
      for (const Path& each : *paths) made.push_back(each.path);
    }
    return IndexSet<IndexPath>(std::move(made));
  }
};

struct TablePair {
  JsonTable old;
  JsonTable now;
  std::optional<Suppression> suppress;
  static constexpr auto codingFields =
      fields(field("old", &TablePair::old), field("new", &TablePair::now),
             field("suppress", &TablePair::suppress));
};

// ---- what is written ----

std::int64_t shown(std::int64_t section) { return section; }
Path shown(const IndexPath& path) { return {path}; }

template <class Index>
struct ShownChanges {
  const CollectionDifference<Index>& changes;

  void encode(Encoder& encoder) const {
    auto container = encoder.container();
    encodeSet(changes.insertions, "insertions", container);
    encodeSet(changes.deletions, "deletions", container);
    encodePairs(changes.updates, "updates", container);
    encodePairs(changes.moves, "moves", container);
  }

 private:
  static void encodeSet(const IndexSet<Index>& set, const char* key,
                        KeyedEncodingContainer& container) {
    auto list = container.nestedUnkeyedContainer(key);
    for (const Index& index : set) list.encode(shown(index));
  }
  static void encodePairs(const std::vector<std::pair<Index, Index>>& pairs, const char* key,
                          KeyedEncodingContainer& container) {
    auto list = container.nestedUnkeyedContainer(key);
    for (const auto& [from, to] : pairs) {
      auto pair = list.nestedUnkeyedContainer();
      pair.encode(shown(from));
      pair.encode(shown(to));
    }
  }
};

void encodeLevels(const CollectionDifference<std::int64_t>& sections,
                  const CollectionDifference<IndexPath>& rows, KeyedEncodingContainer& container) {
  container.encode(ShownChanges<std::int64_t>{sections}, "sectionChanges");
  container.encode(ShownChanges<IndexPath>{rows}, "itemChanges");
}

struct ShownDifference {
  const Difference& difference;
  void encode(Encoder& encoder) const {
    auto container = encoder.container();
    encodeLevels(difference.sectionChanges(), difference.itemChanges(), container);
    container.encode(std::string(nameOf(difference.changeKind())), "changeKind");
  }
};

struct ShownStep {
  const TableStep& step;
  const JsonTable& now;
  void encode(Encoder& encoder) const {
    using Kind = TableStep::Kind;
    auto container = encoder.container();
    container.encode(std::string(nameOf(step.kind)), "do");
    switch (step.kind) {
      case Kind::deleteSection:
        return container.encode(step.from.section(), "at");
      case Kind::insertSection:
        container.encode(step.to.section(), "at");
        return container.encode(now.all[static_cast<std::size_t>(step.inNew.section())].id, "id");
      case Kind::moveSection:
        container.encode(step.from.section(), "from");
        return container.encode(step.to.section(), "to");
      case Kind::updateSection:
        return container.encode(step.to.section(), "at");
      case Kind::deleteRow:
        return container.encode(Path{step.from}, "at");
      case Kind::insertRow:
        container.encode(Path{step.to}, "at");
        return container.encode(now.row(step.inNew).id, "id");
      case Kind::moveRow:
        container.encode(Path{step.from}, "from");
        return container.encode(Path{step.to}, "to");
      case Kind::updateRow:
        return container.encode(Path{step.to}, "at");
    }
  }
};

struct ShownPlan {
  const TablePlan& plan;
  const JsonTable& now;
  void encode(Encoder& encoder) const {
    auto container = encoder.container();
    container.encode(std::string(nameOf(plan.verdict())), "verdict");
    auto steps = container.nestedUnkeyedContainer("steps");
    for (const TableStep& step : plan.steps()) steps.encode(ShownStep{step, now});
  }
};

struct ShownBatch {
  const TablePlan& plan;
  void encode(Encoder& encoder) const {
    auto container = encoder.container();
    container.encode(std::string(nameOf(plan.verdict())), "verdict");
    const TablePlan::Batch batch = plan.batch();
    encodeLevels(batch.sections, batch.rows, container);
  }
};

// ---- the operations; each gives the line to print ----

struct Answer {
  std::string text;
  bool isNegative = false;
};

Answer changesOf(const Scalars& old, const Scalars& now, const Options& options) {
  const ScalarChanges found = changes(now, old);
  return {jsonOf(options.infersMoves ? found.inferringMoves() : found, options.pretty)};
}

Answer applied(const Scalars& from, const ScalarChanges& changes, const Options& options) {
  const auto result = applying(from, changes);
  return result ? Answer{jsonOf(*result, options.pretty)} : Answer{"null", true};
}

void save(const std::string& svg, const std::string& path) {
  std::ofstream file(path, std::ios::binary);
  file << svg;
  file.close();
  if (!file) throw UsageError("the picture cannot be written: " + path);
}

/// Repeated sections end a host's process; here they are input.
void requireUniqueSections(const JsonTable& table) {
  std::unordered_set<JsonScalar> seen;
  for (const JsonSection& section : table.all) {
    if (seen.insert(section.id).second) continue;
    throw UsageError("two sections have the identifier " + section.id.text());
  }
}

Answer tableOf(const TablePair& pair, const Options& options) {
  requireUniqueSections(pair.old);
  requireUniqueSections(pair.now);
  std::optional<SuppressedMovePositions> suppressed;
  if (pair.suppress) suppressed = pair.suppress->positions();
  const Difference found = difference(pair.now, pair.old, suppressed ? &*suppressed : nullptr);
  if (!options.svg.empty()) {
    const auto& rows = found.itemChanges();
    SnapshotPicture picture{pair.old, pair.now, {}, {}, {}, {}};
    picture.deleted.assign(rows.deletions.begin(), rows.deletions.end());
    picture.inserted.assign(rows.insertions.begin(), rows.insertions.end());
    for (const auto& update : rows.updates) picture.updated.push_back(update.second);
    // Sources are those of the moment; the picture shows where the row was at first.
    std::unordered_map<JsonScalar, IndexPath> places;
    for (std::int64_t s = 0; s < std::ssize(pair.old.all); ++s) {
      std::int64_t i = 0;
      for (const JsonRow& row : pair.old.items(s)) places.emplace(row.id, IndexPath(i++, s));
    }
    for (const auto& move : rows.moves) {
      picture.moved.emplace_back(places.at(pair.now.row(move.second).id), move.second);
    }
    save(svgOf(picture), options.svg);
  }
  return {jsonOf(ShownDifference{found}, options.pretty)};
}

Answer planned(const TablePair& pair, const Options& options) {
  TablePlanOptions bounds{.mostMoves = options.mostMoves};
  if (pair.suppress) bounds.suppressedMovePositions = pair.suppress->positions();
  const TablePlan plan = tablePlan(pair.old, pair.now, bounds);
  if (!options.svg.empty()) {
    using Kind = TableStep::Kind;
    SnapshotPicture picture{pair.old, pair.now, {}, {}, {}, {}};
    for (const TableStep& step : plan.steps()) {
      if (step.kind == Kind::deleteRow) picture.deleted.push_back(step.inOld);
      if (step.kind == Kind::insertRow) picture.inserted.push_back(step.inNew);
      if (step.kind == Kind::updateRow) picture.updated.push_back(step.inNew);
      if (step.kind == Kind::moveRow) picture.moved.emplace_back(step.inOld, step.inNew);
    }
    save(svgOf(picture), options.svg);
  }
  return {options.tableView ? jsonOf(ShownBatch{plan}, options.pretty)
                            : jsonOf(ShownPlan{plan, pair.now}, options.pretty)};
}

// ---- running ----

/// Runs `answer` for each line of standard input that holds a `Case`.
template <class Case, class Use>
int runCases(const Options& options, Use answer) {
  return runLines(options.jsonl, [&](const std::string& line) {
    return answer(JSONDecoder().decode<Case>(line)).text;
  });
}

template <class T>
T read(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw UsageError("the file cannot be read: " + path);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  try {
    return JSONDecoder().decode<T>(text);
  } catch (const DecodingError& error) {
    throw UsageError(std::string(error.what()) + ": " + path);
  }
}

int print(const Answer& answer) {
  std::cout << answer.text << std::endl;
  return answer.isNegative ? Exit::negative : Exit::done;
}

int runChanges(const Options& options) {
  if (!options.second.empty()) {
    return print(changesOf(read<Scalars>(options.first), read<Scalars>(options.second), options));
  }
  return runCases<ListPair>(
      options, [&](const ListPair& pair) { return changesOf(pair.old, pair.now, options); });
}

int runApply(const Options& options) {
  if (!options.second.empty()) {
    return print(
        applied(read<Scalars>(options.first), read<ScalarChanges>(options.second), options));
  }
  return runCases<Application>(
      options, [&](const Application& each) { return applied(each.from, each.changes, options); });
}

}  // namespace

void addDiff(CLI::App& tool, int& exit) {
  auto options = std::make_shared<Options>();
  auto* const diff = tool.add_subcommand(
      "diff", "Find what changed between two lists, or two snapshots of a table.");
  diff->footer(R"(Example: echo '{"old": [1, 2], "new": [2, 3]}' | tessarine diff changes)");
  diff->require_subcommand(1);
  const auto add = [&](const char* name, const char* text, const std::string& example,
                       const std::function<int(const Options&)>& run) {
    auto* const command = diff->add_subcommand(name, text);
    command->footer("Example: " + example);
    command->add_flag("--pretty", options->pretty, "JSON on several lines");
    command->add_flag("--jsonl", options->jsonl, "Reasons of refused lines as JSON too");
    command->callback([&exit, options, run] { exit = run(*options); });
    return command;
  };
  const auto addFiles = [&](CLI::App* command, const char* first, const char* second) {
    auto* const one = command->add_option(first, options->first, "JSON file, instead of the input");
    auto* const other = command->add_option(second, options->second, "JSON file");
    one->needs(other);
  };
  const auto addPicture = [&](CLI::App* command) {
    command->add_option("--svg", options->svg, "Draw both snapshots of the last line to a file");
  };

  auto* const changesCommand =
      add("changes", R"(For each line {"old": [...], "new": [...]}: the shortest difference.)",
          R"(echo '{"old": ["a", "b"], "new": ["b", "a"]}' | tessarine diff changes --infer-moves)",
          runChanges);
  addFiles(changesCommand, "old", "new");
  changesCommand->add_flag("--infer-moves", options->infersMoves,
                           "Associate what is removed once and inserted once");

  auto* const applyCommand = add(
      "apply", R"(For each line {"from": [...], "changes": {...}}: the new list, or null.)",
      R"(echo '{"from": [1], "changes": {"insertions": [], "removals": []}}' | tessarine diff apply)",
      runApply);
  addFiles(applyCommand, "from", "changes");

  const std::string tables =
      R"(echo '{"old": [{"id": "A", "items": [{"id": 1}, {"id": 2}]}], )"
      R"("new": [{"id": "A", "items": [{"id": 2}, {"id": 1}]}]}' | tessarine diff )";
  addPicture(add("table", R"(For each line {"old": S, "new": S}: the batch of a table view.)",
                 tables + "table", [](const Options& given) {
                   return runCases<TablePair>(
                       given, [&](const TablePair& pair) { return tableOf(pair, given); });
                 }));
  auto* const planCommand =
      add("plan",
          R"(For each line {"old": S, "new": S}: steps that are proved to give the new snapshot.)",
          tables + "plan", [](const Options& given) {
            return runCases<TablePair>(given,
                                       [&](const TablePair& pair) { return planned(pair, given); });
          });
  addPicture(planCommand);
  planCommand->add_option("--max-moves", options->mostMoves, "More moves than this are a reload");
  planCommand->add_flag("--table-view", options->tableView,
                        "One batch in old and new positions instead");
}

}  // namespace tessarine::tool
