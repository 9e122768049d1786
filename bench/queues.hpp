#pragma once

// The peers that several programs measure queues and coroutines against, and how blocks are
// counted.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>

#include "allocations.hpp"

#include <benchmark/benchmark.h>

#ifdef TESSARINE_BENCH_ASIO
#include <asio.hpp>
#endif

namespace {

/// The plain queue that everybody writes first.
class NaiveQueue {
 public:
  ~NaiveQueue() {
    post({});
    thread_.join();
  }
  void post(std::function<void()> block) {
    {
      const std::lock_guard lock(mutex_);
      blocks_.push_back(std::move(block));
    }
    changed_.notify_one();
  }

 private:
  void run() {
    for (;;) {
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [this] { return !blocks_.empty(); });
      const std::function<void()> block = std::move(blocks_.front());
      blocks_.pop_front();
      lock.unlock();
      if (!block) return;
      block();
    }
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> blocks_;
  std::thread thread_{[this] { run(); }};
};

#ifdef TESSARINE_BENCH_ASIO
/// An Asio context with one thread, and a strand of it.
struct AsioThread {
  asio::io_context context{1};
  asio::executor_work_guard<asio::io_context::executor_type> guard{context.get_executor()};
  asio::strand<asio::io_context::executor_type> strand{context.get_executor()};
  std::thread thread{[this] { context.run(); }};

  AsioThread() = default;
  AsioThread(const AsioThread&) = delete;
  AsioThread& operator=(const AsioThread&) = delete;
  ~AsioThread() {
    guard.reset();
    thread.join();
  }
};
#endif

/// Times the loop of a row that runs many blocks an iteration, and reports it a block.
class PerBlock {
 public:
  PerBlock(benchmark::State& state, int blocksAnIteration)
      : state_(state),
        blocksAnIteration_(blocksAnIteration),
        allocationsBefore_(allocations.load()),
        start_(std::chrono::steady_clock::now()) {}
  ~PerBlock() {
    const std::chrono::duration<double, std::nano> passed =
        std::chrono::steady_clock::now() - start_;
    const double blocks = static_cast<double>(state_.iterations()) * blocksAnIteration_;
    state_.counters["ns_per_block"] = passed.count() / blocks;
    state_.counters["allocations_per_block"] =
        static_cast<double>(allocations.load() - allocationsBefore_) / blocks;
  }
  PerBlock(const PerBlock&) = delete;
  PerBlock& operator=(const PerBlock&) = delete;

 private:
  benchmark::State& state_;
  const int blocksAnIteration_;
  const std::uint64_t allocationsBefore_;
  const std::chrono::steady_clock::time_point start_;
};

}  // namespace
