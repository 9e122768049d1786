// Timers and debouncers beside Qt, Asio and GLib, and queues with several producers beside Asio and
// a plain mutex with a deque. What the rows time:
//   re-arm      put a 300 ms deadline back once more, as each key stroke in a search field does;
//               ours with the work item that carries the action, made anew each time
//   pending     with 100 000 deadlines waiting, spread over 100 s: arm one more and cancel one
//   producers   40 000 increments posted by four threads and run by a fifth, per increment
// Nothing comes due during a re-arm or pending row.

#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <random>
#include <semaphore>
#include <thread>
#include <vector>

#include "program.hpp"
#include "queues.hpp"
#include "tessarine/scheduling/Debouncer.hpp"
#include "tessarine/system/dispatch/DispatchQueue.hpp"

#include <benchmark/benchmark.h>

#ifdef TESSARINE_BENCH_GLIB
#include <glib.h>
#endif
#ifdef TESSARINE_BENCH_QT
#include <QCoreApplication>
#include <QTimer>
#endif

namespace {

using tessarine::Debouncer;
using tessarine::DispatchQueue;

constexpr auto delay = std::chrono::milliseconds(300);
constexpr int pendingCount = 100'000;
constexpr int producerCount = 4;
constexpr int blocksOfOne = 10'000;

void countAllocations(benchmark::State& state, std::uint64_t before) {
  state.counters["allocations"] =
      static_cast<double>(allocations.load() - before) / static_cast<double>(state.iterations());
}

/// Delays in a fixed random order, so that neighbours in time are none in memory.
const std::vector<double>& spreadDelays() {
  static const auto delays = [] {
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> spread(10, 110);
    std::vector<double> made(pendingCount);
    for (double& each : made) each = spread(random);
    return made;
  }();
  return delays;
}

void registerOwn() {
  benchmark::RegisterBenchmark("re-arm/Debouncer", [](benchmark::State& state) {
    const auto queue = std::make_shared<DispatchQueue>("bench.debounced");
    Debouncer debouncer(0.3);
    int runs = 0;
    debouncer.debounce(queue, [&runs] { ++runs; });
    const std::uint64_t before = allocations.load();
    for (auto _ : state) debouncer.debounce(queue, [&runs] { ++runs; });
    countAllocations(state, before);
  });
  benchmark::RegisterBenchmark("re-arm/Debouncer among 100 000", [](benchmark::State& state) {
    const auto queue = std::make_shared<DispatchQueue>("bench.debounced");
    std::vector<std::unique_ptr<Debouncer>> others;
    for (const double each : spreadDelays()) {
      others.push_back(std::make_unique<Debouncer>(each));
      others.back()->debounce(queue, [] {});
    }
    Debouncer debouncer(0.3);
    for (auto _ : state) debouncer.debounce(queue, [] {});
  });
  // Each round cancels the request of one debouncer and makes it wait again elsewhere in time.
  benchmark::RegisterBenchmark(
      "pending/Debouncer, cancel and request", [](benchmark::State& state) {
        const auto queue = std::make_shared<DispatchQueue>("bench.pending");
        std::vector<std::unique_ptr<Debouncer>> debouncers;
        for (const double each : spreadDelays()) {
          debouncers.push_back(std::make_unique<Debouncer>(each));
          debouncers.back()->debounce(queue, [] {});
        }
        std::size_t next = 0;
        for (auto _ : state) {
          debouncers[next]->cancelWork();
          debouncers[next]->debounce(queue, [] {});
          next = (next + 1) % debouncers.size();
        }
      });
  benchmark::RegisterBenchmark("pending/asyncAfter", [](benchmark::State& state) {
    const auto queue = std::make_shared<DispatchQueue>("bench.after");
    std::size_t next = 0;
    for (auto _ : state) {
      queue->asyncAfter(spreadDelays()[next], [] {});
      next = (next + 1) % pendingCount;
    }
  })->Iterations(pendingCount);
}

/// What the producer rows run: `post` takes a callable.
template <class Post>
void measureProducers(benchmark::State& state, Post post) {
  std::binary_semaphore done(0);
  std::counting_semaphore<producerCount> starts(0);
  std::atomic<bool> ends = false;
  int ran = 0;  // by the worker only
  std::vector<std::thread> producers;
  for (int i = 0; i < producerCount; ++i)
    producers.emplace_back([&] {
      for (;;) {
        starts.acquire();
        if (ends) return;
        for (int block = 0; block < blocksOfOne; ++block)
          post([&] {
            if (++ran == producerCount * blocksOfOne) {
              ran = 0;
              done.release();
            }
          });
      }
    });
  {
    const PerBlock perBlock(state, producerCount * blocksOfOne);
    for (auto _ : state) {
      starts.release(producerCount);
      done.acquire();
    }
  }
  ends = true;
  starts.release(producerCount);
  for (auto& producer : producers) producer.join();
}

void registerProducers() {
  benchmark::RegisterBenchmark("producers/DispatchQueue", [](benchmark::State& state) {
    const auto queue = std::make_shared<DispatchQueue>("bench.producers");
    measureProducers(state, [&](auto block) { queue->async(std::move(block)); });
  })->UseRealTime();
  benchmark::RegisterBenchmark("producers/mutex + condition variable + deque",
                               [](benchmark::State& state) {
                                 NaiveQueue queue;
                                 measureProducers(state, [&](auto block) { queue.post(block); });
                               })
      ->UseRealTime();
}

#ifdef TESSARINE_BENCH_ASIO
void registerAsio() {
  benchmark::RegisterBenchmark("re-arm/asio::steady_timer", [](benchmark::State& state) {
    asio::io_context context;
    asio::steady_timer timer(context);
    int runs = 0;
    for (auto _ : state) {
      timer.expires_after(delay);
      timer.async_wait([&runs](const asio::error_code& error) { runs += error ? 0 : 1; });
      context.poll();
    }
  });
  benchmark::RegisterBenchmark(
      "pending/asio::steady_timer, cancel and wait", [](benchmark::State& state) {
        asio::io_context context;
        std::vector<asio::steady_timer> timers;
        const auto arm = [&](std::size_t i) {
          timers[i].expires_after(
              std::chrono::nanoseconds(static_cast<std::int64_t>(spreadDelays()[i] * 1e9)));
          timers[i].async_wait([](const asio::error_code&) {});
        };
        for (std::size_t i = 0; i < pendingCount; ++i) {
          timers.emplace_back(context);
          arm(i);
        }
        std::size_t next = 0;
        for (auto _ : state) {
          arm(next);
          context.poll();
          next = (next + 1) % pendingCount;
        }
      });
  benchmark::RegisterBenchmark("producers/Asio strand", [](benchmark::State& state) {
    AsioThread asio;
    measureProducers(state, [&](auto block) { asio::post(asio.strand, std::move(block)); });
  })->UseRealTime();
}
#else
void registerAsio() { std::puts("Asio was absent at build time: its rows are skipped"); }
#endif

#ifdef TESSARINE_BENCH_QT
void registerQt() {
  benchmark::RegisterBenchmark("re-arm/QTimer::start", [](benchmark::State& state) {
    QTimer timer;
    timer.setSingleShot(true);
    timer.setInterval(delay);
    timer.start();
    for (auto _ : state) timer.start();
  });
}
#else
void registerQt() { std::puts("Qt was absent at build time: its rows are skipped"); }
#endif

#ifdef TESSARINE_BENCH_GLIB
void registerGlib() {
  benchmark::RegisterBenchmark(
      "re-arm/g_source_remove and g_timeout_add", [](benchmark::State& state) {
        const auto add = [] {
          return g_timeout_add(
              static_cast<guint>(delay.count()),
              [](gpointer) -> gboolean { return G_SOURCE_REMOVE; }, nullptr);
        };
        guint source = add();
        for (auto _ : state) {
          g_source_remove(source);
          source = add();
        }
        g_source_remove(source);
      });
}
#else
void registerGlib() { std::puts("GLib was absent at build time: its rows are skipped"); }
#endif

}  // namespace

int main(int argc, char** argv) {
#ifdef TESSARINE_BENCH_QT
  const QCoreApplication application(argc, argv);
#endif
  return runRows(argc, argv, [] {
    registerOwn();
    registerProducers();
    registerAsio();
    registerQt();
    registerGlib();
  });
}
