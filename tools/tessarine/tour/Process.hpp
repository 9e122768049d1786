#pragma once

#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

namespace tessarine::tool {

/// This program once more, as a process of its own whose standard input and output are here, line
/// by line. Killed when let go of. Throws `std::system_error` when it cannot be started.
class Process {
 public:
  explicit Process(const std::vector<std::string>& arguments);
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  /// The next line without its end, absent at the end of the output.
  std::optional<std::string> line();
  /// Hands it a line on its standard input. One that has ended does not hear it.
  void say(std::string_view line);
  /// Sends SIGKILL and waits for the end of the process; what it printed before can still be read.
  void kill();
  /// Waits until it has ended by itself.
  void wait();

 private:
  pid_t id_ = -1;
  std::FILE* output_ = nullptr;
  int input_ = -1;
};

}  // namespace tessarine::tool
