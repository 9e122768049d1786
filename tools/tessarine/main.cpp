#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "Command.hpp"
#include "tessarine/system/time/Locale.hpp"

#include <CLI/CLI.hpp>

namespace {

/// The library's locale is that of the tool's messages, whether or not the system has it installed.
void takeLocale() {
  for (const char* const name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* const value =
        std::getenv(name);  // NOLINT(concurrency-mt-unsafe): one thread so far
    if (value == nullptr || std::strlen(value) == 0) continue;
    tessarine::Locale::setCurrent(tessarine::Locale(value));
    return;
  }
}

}  // namespace

int main(int argc, char** argv) {
  using namespace tessarine::tool;
  takeLocale();
  int exit = Exit::done;
  CLI::App tool("The command-line host of the Tessarine library.", "tessarine");
  tool.set_version_flag("--version", "tessarine " TESSARINE_VERSION);
  tool.footer("Example: tessarine prefs --dir /tmp/prefs set fontSize 12 --type int");
  tool.require_subcommand(1);
  addAnimate(tool, exit);
  addCloud(tool, exit);
  addCodable(tool, exit);
  addDate(tool, exit);
  addDiff(tool, exit);
  addForm(tool, exit);
  addPrefs(tool, exit);
  addTour(tool, exit);
  try {
    tool.parse(argc, argv);
  } catch (const CLI::Success& request) {  // help or version
    return tool.exit(request);
  } catch (const CLI::ParseError& error) {
    std::fprintf(stderr, "tessarine: %s\n", error.what());
    return Exit::unusable;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tessarine: %s\n", error.what());
    return Exit::unusable;
  }
  return exit;
}
