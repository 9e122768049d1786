#include "Command.hpp"

#include <CLI/CLI.hpp>
namespace tessarine::tool {
void addTour(CLI::App& tool, int& exit) {
  tool.add_subcommand("tour", "x");
  (void)exit;
}
}  // namespace tessarine::tool
