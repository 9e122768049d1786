// Coroutines beside Asio and a plain mutex with a deque. Every row times the same task:
//   start      start a coroutine on another thread and wait until its first instruction has run; at
//              once after the last round, so a worker that looks around before it sleeps is awake
//   start many 1000 coroutines started by one thread until all have begun, per coroutine; ours on
//              the general queue's threads, Asio's on one
//   start own  the same on the thread that drives the queue: start, then drain
//   yield      give a stream a value and take it, on one thread; "waiting" has the consumer
//              suspended, so each value resumes it through the main queue; "direct" has it
//              suspended and belong to no task, so it goes on inside the call
//   for each   one element of asyncForEach, whose body is a coroutine
//   await      one of a million awaits in a row of a coroutine that returns at once
// cpu_ns_each is the measuring thread's own time an operation; allocations are those through
// operator new by all threads, an operation.

#include <atomic>
#include <coroutine>
#include <cstdio>
#include <ctime>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <semaphore>
#include <vector>

#include "program.hpp"
#include "queues.hpp"
#include "tessarine/scheduling/AsyncSequence.hpp"
#include "tessarine/system/dispatch/AsyncStream.hpp"
#include "tessarine/system/dispatch/MainQueue.hpp"
#include "tessarine/system/dispatch/Task.hpp"

#include <benchmark/benchmark.h>

namespace {

using tessarine::Async;
using tessarine::AsyncStream;
using tessarine::DispatchQueue;
using tessarine::MainQueue;
using tessarine::Task;

/// Nanoseconds that this thread has had a core.
double threadTime() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

/// Reports this thread's time and the process's allocations during its life, an operation.
class Counted {
 public:
  explicit Counted(benchmark::State& state, double operations = 1)
      : state_(state), operations_(operations), before_(allocations.load()), start_(threadTime()) {}
  ~Counted() {
    const double all = static_cast<double>(state_.iterations()) * operations_;
    state_.counters["cpu_ns_each"] = (threadTime() - start_) / all;
    state_.counters["allocations"] = static_cast<double>(allocations.load() - before_) / all;
  }
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;

 private:
  benchmark::State& state_;
  const double operations_;
  const std::uint64_t before_;
  const double start_;
};

void startTask(benchmark::State& state) {
  std::binary_semaphore begun(0);
  const auto operation = [&begun]() -> Async<> {
    begun.release();
    co_return;
  };
  const Counted counted(state);
  for (auto _ : state) {
    const Task<> task(operation);
    begun.acquire();
  }
}

constexpr int many = 1'000;

/// `start` starts one coroutine that calls its argument.
template <class Start>
void measureMany(benchmark::State& state, Start start) {
  std::atomic<int> begun = 0;
  std::binary_semaphore all(0);
  const auto note = [&] {
    if (++begun % many == 0) all.release();
  };
  const Counted counted(state, many);
  for (auto _ : state) {
    for (int i = 0; i < many; ++i) start(note);
    all.acquire();
  }
  state.SetItemsProcessed(state.iterations() * many);
}

void startManyTasks(benchmark::State& state) {
  measureMany(state, [](const auto& note) {
    const Task<> task([&note]() -> Async<> {
      note();
      co_return;
    });
  });
}

void startTaskHere(benchmark::State& state) {
  int value = 0;
  const auto operation = [&value]() -> Async<> {
    ++value;
    co_return;
  };
  const Counted counted(state);
  for (auto _ : state) {
    const Task<> task(operation, DispatchQueue::main());
    MainQueue::drain();
  }
  benchmark::DoNotOptimize(value);
}

/// Runs `operation` on this thread to its end.
template <class F>
void runHere(F operation) {
  const Task<> task(std::move(operation), DispatchQueue::main());
  while (!task.hasEnded()) MainQueue::drain();
}

void yieldBuffered(benchmark::State& state) {
  runHere([&state]() -> Async<> {
    auto [stream, continuation] = AsyncStream<int>::makeStream();
    auto each = stream.makeAsyncIterator();
    int sum = 0;
    const Counted counted(state);
    for (auto _ : state) {
      continuation.yield(1);
      sum += *co_await each.next();
    }
    benchmark::DoNotOptimize(sum);
  });
}

void yieldWaiting(benchmark::State& state) {
  auto [stream, continuation] = AsyncStream<int>::makeStream();
  int sum = 0;
  const auto consume = [&sum, numbers = stream]() -> Async<> {
    auto each = numbers.makeAsyncIterator();
    while (const auto value = co_await each.next()) sum += *value;
  };
  const Task<> task(consume, DispatchQueue::main());
  MainQueue::drain();
  {
    const Counted counted(state);
    for (auto _ : state) {
      continuation.yield(1);
      MainQueue::drain();
    }
  }
  continuation.finish();
  while (!task.hasEnded()) MainQueue::drain();
  if (sum != static_cast<int>(state.iterations())) state.SkipWithError("values were lost");
}

/// A coroutine of no task, which goes on inside whatever resumes it.
struct Plain {
  struct promise_type {
    Plain get_return_object() { return {std::coroutine_handle<promise_type>::from_promise(*this)}; }
    std::suspend_never initial_suspend() noexcept { return {}; }
    std::suspend_always final_suspend() noexcept { return {}; }
    void return_void() {}
    void unhandled_exception() { std::terminate(); }
  };
  std::coroutine_handle<promise_type> coroutine;
};

void yieldDirect(benchmark::State& state) {
  auto [stream, continuation] = AsyncStream<int>::makeStream();
  int sum = 0;
  const auto consume = [&sum](AsyncStream<int> numbers) -> Plain {
    auto each = numbers.makeAsyncIterator();
    while (const auto value = co_await each.next()) sum += *value;
  };
  const Plain plain = consume(stream);
  {
    const Counted counted(state);
    for (auto _ : state) continuation.yield(1);
  }
  continuation.finish();
  if (sum != static_cast<int>(state.iterations())) state.SkipWithError("values were lost");
  plain.coroutine.destroy();
}

void lockedDeque(benchmark::State& state) {
  std::mutex mutex;
  std::deque<int> values;
  int sum = 0;
  const Counted counted(state);
  for (auto _ : state) {
    {
      const std::lock_guard lock(mutex);
      values.push_back(1);
    }
    const std::lock_guard lock(mutex);
    sum += values.front();
    values.pop_front();
  }
  benchmark::DoNotOptimize(sum);
}

void forEach(benchmark::State& state) {
  runHere([&state]() -> Async<> {
    const std::vector<int> numbers(10'000, 1);
    int sum = 0;
    const auto add = [&sum](int number) -> Async<> {
      sum += number;
      co_return;
    };
    co_await tessarine::asyncForEach(numbers, add);
    const Counted counted(state, static_cast<double>(numbers.size()));
    for (auto _ : state) co_await tessarine::asyncForEach(numbers, add);
    benchmark::DoNotOptimize(sum);
  });
}

constexpr int million = 1'000'000;

Async<int> odd(int i) { co_return i & 1; }

void awaitMillion(benchmark::State& state) {
  runHere([&state]() -> Async<> {
    int sum = 0;
    const Counted counted(state, million);
    for (auto _ : state)
      for (int i = 0; i < million; ++i) sum += co_await odd(i);
    benchmark::DoNotOptimize(sum);
  });
}

#ifdef TESSARINE_BENCH_ASIO
asio::awaitable<int> oddOfAsio(int i) { co_return i & 1; }

void registerAsio() {
  static auto& asio = *new AsioThread;
  benchmark::RegisterBenchmark("start/Asio co_spawn", [](benchmark::State& state) {
    std::binary_semaphore begun(0);
    const auto operation = [&begun]() -> asio::awaitable<void> {
      begun.release();
      co_return;
    };
    const Counted counted(state);
    for (auto _ : state) {
      asio::co_spawn(asio.context, operation, asio::detached);
      begun.acquire();
    }
  })->UseRealTime();
  benchmark::RegisterBenchmark("start many/Asio co_spawn", [](benchmark::State& state) {
    measureMany(state, [](const auto& note) {
      const auto operation = [&note]() -> asio::awaitable<void> {
        note();
        co_return;
      };
      asio::co_spawn(asio.context, operation, asio::detached);
    });
  })->UseRealTime();
  benchmark::RegisterBenchmark("start own/Asio co_spawn", [](benchmark::State& state) {
    asio::io_context context{1};
    int value = 0;
    const auto operation = [&value]() -> asio::awaitable<void> {
      ++value;
      co_return;
    };
    const Counted counted(state);
    for (auto _ : state) {
      asio::co_spawn(context, operation, asio::detached);
      context.poll();
      context.restart();
    }
    benchmark::DoNotOptimize(value);
  });
  benchmark::RegisterBenchmark("await/Asio awaitable", [](benchmark::State& state) {
    asio::io_context context{1};
    const auto operation = [&state]() -> asio::awaitable<void> {
      int sum = 0;
      const Counted counted(state, million);
      for (auto _ : state)
        for (int i = 0; i < million; ++i) sum += co_await oddOfAsio(i);
      benchmark::DoNotOptimize(sum);
    };
    asio::co_spawn(context, operation, asio::detached);
    context.run();
  });
}
#else
void registerAsio() { std::puts("Asio was absent at build time: its rows are skipped"); }
#endif

void registerOwn() {
  benchmark::RegisterBenchmark("start/Task", startTask)->UseRealTime();
  benchmark::RegisterBenchmark("start many/Task", startManyTasks)->UseRealTime();
  benchmark::RegisterBenchmark("start own/Task", startTaskHere);
  benchmark::RegisterBenchmark("yield/AsyncStream", yieldBuffered);
  benchmark::RegisterBenchmark("yield/AsyncStream, waiting", yieldWaiting);
  benchmark::RegisterBenchmark("yield/AsyncStream, direct", yieldDirect);
  benchmark::RegisterBenchmark("yield/mutex + deque", lockedDeque);
  benchmark::RegisterBenchmark("for each/asyncForEach", forEach);
  benchmark::RegisterBenchmark("await/Async", awaitMillion);
}

}  // namespace

int main(int argc, char** argv) {
  return runRows(argc, argv, [] {
    registerOwn();
    registerAsio();
  });
}
