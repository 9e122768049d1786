#pragma once

#include <array>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <utility>

#include <sys/wait.h>
#include <unistd.h>

namespace tessarine {

/// One end of two pipes that carry numbers. Reading waits; absent at the end.
class Channel {
 public:
  Channel(int input, int output) : input_(input), output_(output) {}
  void send(std::uint64_t number) const {
    if (::write(output_, &number, sizeof number) != sizeof number) ::_exit(4);
  }
  std::optional<std::uint64_t> receive() const {
    std::uint64_t number = 0;
    if (::read(input_, &number, sizeof number) != sizeof number) return std::nullopt;
    return number;
  }

 protected:
  int input_;
  int output_;
};

/// A forked process that runs `body(channel)`, which gives whether all was well. To be started
/// while no domain is open here.
class ChildProcess : public Channel {
 public:
  template <class Body>
  explicit ChildProcess(Body body) : Channel(-1, -1) {
    std::array<int, 2> down{};
    std::array<int, 2> up{};
    if (::pipe(down.data()) != 0 || ::pipe(up.data()) != 0) std::abort();
    process_ = ::fork();
    if (process_ == 0) {
      ::close(down[1]);
      ::close(up[0]);
      ::_exit(run(body, Channel(down[0], up[1])));
    }
    ::close(down[0]);
    ::close(up[1]);
    input_ = up[0];
    output_ = down[1];
  }
  ~ChildProcess() {
    if (process_ > 0) kill();
    ::close(input_);
    ::close(output_);
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  void kill() {
    ::kill(process_, SIGKILL);
    end();
  }
  /// Waits for the end. True when the body gave true.
  bool end() {
    int status = 0;
    ::waitpid(std::exchange(process_, -1), &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
  }

 private:
  template <class Body>
  static int run(Body& body, const Channel& channel) try {
    return body(channel) ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "child: %s\n", error.what());
    return 2;
  }

  pid_t process_ = -1;
};

}  // namespace tessarine
