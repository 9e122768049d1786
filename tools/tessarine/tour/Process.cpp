#include "tour/Process.hpp"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <system_error>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tessarine::tool {

Process::Process(const std::vector<std::string>& arguments) {
  std::array<int, 2> pipe{};
  std::array<int, 2> input{};
  if (::pipe2(pipe.data(), O_CLOEXEC) != 0 ||
      ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, input.data()) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe");
  }
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, pipe[1], STDOUT_FILENO);
  ::posix_spawn_file_actions_adddup2(&actions, input[1], STDIN_FILENO);

  std::vector<std::string> all = arguments;
  all.insert(all.begin(), "tessarine");
  std::vector<char*> pointers;
  pointers.reserve(all.size() + 1);
  for (auto& argument : all) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  const int failure =
      ::posix_spawn(&id_, "/proc/self/exe", &actions, nullptr, pointers.data(), ::environ);
  ::posix_spawn_file_actions_destroy(&actions);
  ::close(pipe[1]);
  ::close(input[1]);
  output_ = ::fdopen(pipe[0], "r");
  input_ = input[0];
  if (failure != 0) {
    std::fclose(output_);
    ::close(input_);
    throw std::system_error(failure, std::generic_category(), "starting a process");
  }
}

Process::~Process() {
  kill();
  std::fclose(output_);
  ::close(input_);
}

std::optional<std::string> Process::line() {
  char* text = nullptr;
  std::size_t capacity = 0;
  const ssize_t length = ::getline(&text, &capacity, output_);
  std::optional<std::string> line;
  // A line without its end is one that the death of the process cut.
  if (length > 0 && text[length - 1] == '\n')
    line.emplace(text, static_cast<std::size_t>(length - 1));
  std::free(text);
  return line;
}

void Process::say(std::string_view line) {
  const std::string text = std::string(line) + '\n';
  // Of a few bytes all are taken at once. No signal where nobody listens any more.
  [[maybe_unused]] const auto sent = ::send(input_, text.data(), text.size(), MSG_NOSIGNAL);
}

void Process::kill() {
  if (id_ > 0) ::kill(id_, SIGKILL);
  wait();
}

void Process::wait() {
  if (id_ > 0) ::waitpid(id_, nullptr, 0);
  id_ = -1;
}

}  // namespace tessarine::tool
