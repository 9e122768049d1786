#include <cstdio>
#include <exception>

#include "Command.hpp"

#include <CLI/CLI.hpp>

int main(int argc, char** argv) {
  using namespace tessarine::tool;
  int exit = Exit::done;
  CLI::App tool("The command-line host of the Tessarine library.", "tessarine");
  tool.set_version_flag("--version", "tessarine " TESSARINE_VERSION);
  tool.footer("Example: tessarine prefs --dir /tmp/prefs set fontSize 12 --type int");
  tool.require_subcommand(1);
  addAnimate(tool, exit);
  addCodable(tool, exit);
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
