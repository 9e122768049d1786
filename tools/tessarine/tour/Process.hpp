#pragma once

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace tessarine::tool {

/// This program once more, as a process of its own, its standard output read here line by line.
/// Killed when let go of. Throws `std::system_error` when it cannot be started.
class Process {
 public:
  explicit Process(const std::vector<std::string>& arguments);
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  /// The next line without its end, absent at the end of the output.
  std::optional<std::string> line();
  /// Sends SIGKILL and waits for the end of the process; what it printed before can still be read.
  void kill();
  /// Waits until it has ended by itself.
  void wait();

 private:
  pid_t id_ = -1;
  std::FILE* output_ = nullptr;
};

}  // namespace tessarine::tool
