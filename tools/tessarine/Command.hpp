#pragma once

#include <stdexcept>

namespace CLI {
class App;
}

namespace tessarine::tool {

/// How a command ends, as the process does.
enum Exit : int { done = 0, negative = 1, unusable = 2 };

/// Ends a command with `Exit::unusable` and a message: what is wrong, then which input.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Each adds its commands to the tool. What a command answers goes into `exit`.
void addAnimate(CLI::App& tool, int& exit);
void addCloud(CLI::App& tool, int& exit);
void addCodable(CLI::App& tool, int& exit);
void addDate(CLI::App& tool, int& exit);
void addDiff(CLI::App& tool, int& exit);
void addForm(CLI::App& tool, int& exit);
void addPrefs(CLI::App& tool, int& exit);
void addTour(CLI::App& tool, int& exit);

}  // namespace tessarine::tool
