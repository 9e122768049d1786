#pragma once

// What programs that measure between processes have in common: children in other roles, and times
// from a stamp in one process to its arrival in another.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int stampCount = 500;

/// This program once more, in another role, with its output to be read.
class Child {
 public:
  explicit Child(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), std::filesystem::read_symlink("/proc/self/exe"));
    std::vector<char*> pointers;
    for (auto& argument : arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) std::abort();
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    if (::posix_spawn(&process_, pointers[0], &actions, nullptr, pointers.data(), environ) != 0)
      std::abort();
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
    output_ = ends[0];
  }
  ~Child() {
    ::waitpid(process_, nullptr, 0);
    ::close(output_);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  /// The next number of its output; false at the end.
  bool read(std::int64_t& number) const {
    return ::read(output_, &number, sizeof number) == sizeof number;
  }

 private:
  pid_t process_ = 0;
  int output_ = -1;
};

void tellParent(std::int64_t number) {
  if (::write(STDOUT_FILENO, &number, sizeof number) != sizeof number) std::abort();
}

std::int64_t now() {
  return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
}

/// Writes the time of the monotonic clock, which all processes share, every 2 to 3 ms.
template <class Write>
void writeStamps(Write write) {
  for (int i = 0; i < stampCount; ++i) {
    std::this_thread::sleep_for(std::chrono::microseconds(2000 + 100 * (i % 10)));
    write(now());
  }
}

/// Nanoseconds from each stamp until this process has it.
using Latencies = std::vector<std::int64_t>;

/// The floor: a child in the role "--stamp-pipe" writes its stamps to a pipe.
Latencies latenciesOfPipe(const std::string& place) {
  Latencies latencies;
  const Child writer({"--stamp-pipe", place});
  for (std::int64_t stamp = 0; writer.read(stamp);) latencies.push_back(now() - stamp);
  return latencies;
}

void addLatency(const char* name, Latencies (*measureLatencies)()) {
  benchmark::RegisterBenchmark(
      name,
      [=](benchmark::State& state) {
        for (auto _ : state) {
          Latencies latencies = measureLatencies();
          if (latencies.size() != stampCount)
            return state.SkipWithError("not every write was heard");
          std::sort(latencies.begin(), latencies.end());
          state.SetIterationTime(static_cast<double>(latencies[stampCount / 2]) * 1e-9);
          state.counters["p99_us"] = static_cast<double>(latencies[stampCount * 99 / 100]) * 1e-3;
        }
      })
      ->UseManualTime()
      ->Iterations(1)
      ->Unit(benchmark::kMicrosecond);
}

}  // namespace
