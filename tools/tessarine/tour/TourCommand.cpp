// tessarine tour: the library's main job from end to end, with a report.
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "Command.hpp"
#include "tour/AnimationChapter.hpp"
#include "tour/CloudChapter.hpp"
#include "tour/PreferencesChapter.hpp"
#include "tour/Report.hpp"

#include <CLI/CLI.hpp>

namespace tessarine::tool {
namespace {

int tour(const std::string& out) {
  std::filesystem::create_directories(out);
  Report report;
  report.text("Every number on this page was measured in the run that wrote it.");
  const bool isWhole = writePreferencesChapter(report, out + "/preferences");
  const bool isInStep = writeCloudChapter(report, out + "/cloud");
  const bool movedWell = writeAnimationChapter(report);
  const std::string file = std::filesystem::absolute(out + "/index.html").lexically_normal();
  std::ofstream stream(file);
  stream << report.page("A tour of Tessarine");
  stream.close();
  if (!stream) throw UsageError("cannot be written: " + file);
  std::printf("%s\n", file.c_str());
  if (!isWhole)
    std::fprintf(stderr, "tessarine: an acknowledged write is missing: %s\n", file.c_str());
  if (!isInStep)
    std::fprintf(stderr, "tessarine: two machines did not come into step: %s\n", file.c_str());
  if (!movedWell)
    std::fprintf(stderr, "tessarine: a motion did not end as it should: %s\n", file.c_str());
  return isWhole && isInStep && movedWell ? Exit::done : Exit::negative;
}

/// The processes that the tour starts are this program again.
void addRole(CLI::App& role, const char* name, void (*play)(const std::string&)) {
  auto directory = std::make_shared<std::string>();
  auto* const command = role.add_subcommand(name);
  command->add_option("directory", *directory)->required();
  command->callback([play, directory] { play(*directory); });
}

}  // namespace

void addTour(CLI::App& tool, int& exit) {
  auto out = std::make_shared<std::string>("tessarine-tour");
  auto* const command =
      tool.add_subcommand("tour", "The library's main job from end to end, with a report.");
  command->footer("Example: tessarine tour --out /tmp/tour");
  command->add_option("--out", *out, "Folder of the report (default: tessarine-tour)");
  command->callback([&exit, out] { exit = tour(*out); });

  auto* const role = tool.add_subcommand("tour-role")->group("");
  role->require_subcommand(1);
  addRole(*role, "watch", watchPositions);
  addRole(*role, "write", writeBurst);
  addRole(*role, "print", printBurst);
  addRole(*role, "machine", playMachine);
}

}  // namespace tessarine::tool
