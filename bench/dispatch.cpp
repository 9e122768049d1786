// Queues beside Asio, TBB, GLib, Qt and a plain mutex with a deque. Every row times the same task:
//   sync        run an increment under exclusion on a free queue, on the caller's thread
//   throughput  10 000 increments posted by one thread and run by another, per increment
//   round trip  post one block to an idle worker and wait until it has run; at once after the last
//               round, so a worker that looks around before it sleeps may still be awake
//   woken       the same 100 us after the last round, when the worker sleeps
//   contended   sync by two threads at once, per call of each
// Threads are pinned where a row's name says so; "same core" has both on core 0, "two cores" on 0
// and 1.

#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <semaphore>
#include <thread>

#include "pinning.hpp"
#include "program.hpp"
#include "queues.hpp"
#include "tessarine/system/dispatch/DispatchQueue.hpp"
#include "tessarine/system/dispatch/MainQueue.hpp"

#include <benchmark/benchmark.h>

#ifdef TESSARINE_BENCH_TBB
#include <tbb/task_arena.h>
#include <tbb/version.h>
#endif
#ifdef TESSARINE_BENCH_GLIB
#include <glib.h>
#endif
#ifdef TESSARINE_BENCH_QT
#include <QCoreApplication>
#include <QThread>
#endif

namespace {

using tessarine::DispatchQueue;
using tessarine::MainQueue;

using Clock = std::chrono::steady_clock;

constexpr int batch = 10'000;

/// What all throughput rows run: `post` takes a callable.
template <class Post>
void measureThroughput(benchmark::State& state, Post post) {
  std::binary_semaphore done(0);
  int ran = 0;  // by the worker only
  const auto oneBatch = [&] {
    for (int i = 0; i < batch; ++i)
      post([&] {
        if (++ran == batch) {
          ran = 0;
          done.release();
        }
      });
    done.acquire();
  };
  oneBatch();
  const PerBlock perBlock(state, batch);
  for (auto _ : state) oneBatch();
}

/// What all round-trip rows run. `second` is the worker's core.
template <class Post>
void measureRoundTrip(benchmark::State& state, Post post, int second) {
  const Pinned pinned(second == unpinned ? unpinned : 0);
  std::binary_semaphore done(0);
  post([&] {
    pinThisThread(second);
    done.release();
  });
  done.acquire();
  for (auto _ : state) {
    post([&] { done.release(); });
    done.acquire();
  }
  post([&] {
    pinThisThread(unpinned);
    done.release();
  });
  done.acquire();
}

/// As `measureRoundTrip`, with time for the worker to fall asleep before each round.
template <class Post>
void measureWoken(benchmark::State& state, Post post, int second) {
  const Pinned pinned(0);
  std::binary_semaphore done(0);
  const auto pinWorker = [&](int core) {
    post([&done, core] {
      pinThisThread(core);
      done.release();
    });
    done.acquire();
  };
  pinWorker(second);
  for (auto _ : state) {
    // Sleeping, as a busy wait on the worker's own core would keep it from coming to rest.
    std::this_thread::sleep_for(std::chrono::microseconds(100));
    const Clock::time_point start = Clock::now();
    post([&] { done.release(); });
    done.acquire();
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
  }
  pinWorker(unpinned);
}

/// A worker behind a semaphore, the least that can be woken.
class SemaphoreWorker {
 public:
  void post(const std::function<void()>& block) {
    block_ = &block;
    there_.release();
  }

 private:
  void run() {
    for (;;) {
      there_.acquire();
      (*block_)();
    }
  }
  const std::function<void()>* block_ = nullptr;
  std::binary_semaphore there_{0};
  std::thread thread_{[this] { run(); }};
};

template <class Post>
void registerWoken(const std::string& name, Post post) {
  const std::pair<const char*, int> placements[] = {{"same core", 0}, {"two cores", 1}};
  for (const auto& [placement, core] : placements)
    benchmark::RegisterBenchmark(
        ("woken/" + name + ", " + placement).c_str(),
        [post, core = core](benchmark::State& state) { measureWoken(state, post, core); })
        ->UseManualTime();
}

template <class Post>
void registerPlacements(const std::string& name, Post post) {
  const std::pair<const char*, int> placements[] = {
      {"same core", 0}, {"two cores", 1}, {"unpinned", unpinned}};
  for (const auto& [placement, core] : placements)
    benchmark::RegisterBenchmark((name + ", " + placement).c_str(), [post, core = core](
                                                                        benchmark::State& state) {
      measureRoundTrip(state, post, core);
    })->UseRealTime();
}

void semaphorePingPong(benchmark::State& state, int second) {
  const Pinned pinned(second == unpinned ? unpinned : 0);
  std::binary_semaphore there(0);
  std::binary_semaphore back(0);
  std::atomic<bool> ends = false;
  std::thread other([&] {
    pinThisThread(second);
    for (;;) {
      there.acquire();
      if (ends) return;
      back.release();
    }
  });
  for (auto _ : state) {
    there.release();
    back.acquire();
  }
  ends = true;
  there.release();
  other.join();
}

void registerOwn() {
  static const auto queue = std::make_shared<DispatchQueue>("bench.serial");
  static const auto targeted = std::make_shared<DispatchQueue>("bench.targeted", queue);
  const auto post = [](auto block) { queue->async(std::move(block)); };

  benchmark::RegisterBenchmark("sync/DispatchQueue", [](benchmark::State& state) {
    int value = 0;
    for (auto _ : state) {
      queue->sync([&] { benchmark::DoNotOptimize(++value); });
      benchmark::ClobberMemory();
    }
  });
  benchmark::RegisterBenchmark("sync/DispatchQueue, asking for the current queue",
                               [](benchmark::State& state) {
                                 for (auto _ : state)
                                   benchmark::DoNotOptimize(queue->sync(DispatchQueue::current));
                               });
  benchmark::RegisterBenchmark("sync/DispatchQueue with a target", [](benchmark::State& state) {
    int value = 0;
    for (auto _ : state) targeted->sync([&] { benchmark::DoNotOptimize(++value); });
  });
  benchmark::RegisterBenchmark("throughput/DispatchQueue", [post](benchmark::State& state) {
    measureThroughput(state, post);
  })->UseRealTime();
  benchmark::RegisterBenchmark("throughput/main queue, same thread", [](benchmark::State& state) {
    int value = 0;
    const PerBlock perBlock(state, batch);
    for (auto _ : state) {
      for (int i = 0; i < batch; ++i) DispatchQueue::main()->async([&] { ++value; });
      MainQueue::drain();
    }
  })->UseRealTime();
  registerPlacements("round trip/DispatchQueue", post);
  registerWoken("DispatchQueue", post);
  benchmark::RegisterBenchmark("contended/DispatchQueue",
                               [](benchmark::State& state) {
                                 static int value = 0;
                                 for (auto _ : state)
                                   queue->sync([&] { benchmark::DoNotOptimize(++value); });
                               })
      ->Threads(2)
      ->UseRealTime();
}

void registerPlain() {
  benchmark::RegisterBenchmark("sync/std::mutex", [](benchmark::State& state) {
    static std::mutex mutex;
    int value = 0;
    for (auto _ : state) {
      {
        const std::lock_guard lock(mutex);
        benchmark::DoNotOptimize(++value);
      }
      benchmark::ClobberMemory();
    }
  });
  benchmark::RegisterBenchmark("throughput/mutex + condition variable + deque",
                               [](benchmark::State& state) {
                                 NaiveQueue queue;
                                 measureThroughput(state, [&](auto block) { queue.post(block); });
                               })
      ->UseRealTime();
  benchmark::RegisterBenchmark("contended/std::mutex",
                               [](benchmark::State& state) {
                                 static std::mutex mutex;
                                 static int value = 0;
                                 for (auto _ : state) {
                                   const std::lock_guard lock(mutex);
                                   benchmark::DoNotOptimize(++value);
                                 }
                               })
      ->Threads(2)
      ->UseRealTime();
  static auto& sleeper = *new SemaphoreWorker;
  registerWoken("floor: a semaphore", [](const auto& block) {
    static std::function<void()> held;
    held = block;
    sleeper.post(held);
  });
  static auto& roundTripQueue = *new NaiveQueue;
  registerPlacements("round trip/mutex + condition variable + deque",
                     [](auto block) { roundTripQueue.post(block); });
  const std::pair<const char*, int> placements[] = {
      {"same core", 0}, {"two cores", 1}, {"unpinned", unpinned}};
  for (const auto& [placement, core] : placements)
    benchmark::RegisterBenchmark(
        (std::string("round trip/floor: two semaphores, ") + placement).c_str(),
        [core = core](benchmark::State& state) { semaphorePingPong(state, core); })
        ->UseRealTime();
}

#ifdef TESSARINE_BENCH_ASIO
void registerAsio() {
  static auto& asio = *new AsioThread;
  const auto post = [](auto block) { asio::post(asio.strand, std::move(block)); };
  benchmark::RegisterBenchmark("throughput/Asio strand", [post](benchmark::State& state) {
    measureThroughput(state, post);
  })->UseRealTime();
  registerPlacements("round trip/Asio strand", post);
}
#else
void registerAsio() { std::puts("Asio was absent at build time: its rows are skipped"); }
#endif

#ifdef TESSARINE_BENCH_TBB
void registerTbb() {
  // One slot for one worker: tasks of the arena then never overlap, though in no promised order.
  static auto& arena = *new tbb::task_arena(2, 1);
  const auto post = [](auto block) { arena.enqueue(std::move(block)); };
  benchmark::RegisterBenchmark("throughput/TBB task_arena, unordered",
                               [post](benchmark::State& state) { measureThroughput(state, post); })
      ->UseRealTime();
  registerPlacements("round trip/TBB task_arena", post);
}
#else
void registerTbb() { std::puts("TBB was absent at build time: its rows are skipped"); }
#endif

#ifdef TESSARINE_BENCH_GLIB
void registerGlib() {
  struct Loop {
    GMainContext* context = g_main_context_new();
    GMainLoop* loop = g_main_loop_new(context, FALSE);
    std::thread thread{[this] { g_main_loop_run(loop); }};
  };
  static auto& loop = *new Loop;
  const auto post = [](auto block) {
    using Block = decltype(block);
    GSource* const source = g_idle_source_new();
    g_source_set_callback(
        source,
        [](gpointer data) -> gboolean {
          (*static_cast<Block*>(data))();
          return G_SOURCE_REMOVE;
        },
        new Block(std::move(block)), [](gpointer data) { delete static_cast<Block*>(data); });
    g_source_attach(source, loop.context);
    g_source_unref(source);
  };
  benchmark::RegisterBenchmark("throughput/GLib idle sources", [post](benchmark::State& state) {
    measureThroughput(state, post);
  })->UseRealTime();
  registerPlacements("round trip/GLib idle source", post);
}
#else
void registerGlib() { std::puts("GLib was absent at build time: its rows are skipped"); }
#endif

#ifdef TESSARINE_BENCH_QT
void registerQt() {
  struct Loop {
    QThread thread;
    QObject object;
    Loop() {
      object.moveToThread(&thread);
      thread.start();
    }
  };
  static auto& loop = *new Loop;
  const auto post = [](auto block) {
    QMetaObject::invokeMethod(&loop.object, std::move(block), Qt::QueuedConnection);
  };
  benchmark::RegisterBenchmark("throughput/Qt invokeMethod, queued", [post](
                                                                         benchmark::State& state) {
    measureThroughput(state, post);
  })->UseRealTime();
  registerPlacements("round trip/Qt invokeMethod, queued", post);
}
#else
void registerQt() { std::puts("Qt was absent at build time: its rows are skipped"); }
#endif

}  // namespace

int main(int argc, char** argv) {
#ifdef TESSARINE_BENCH_QT
  const QCoreApplication application(argc, argv);
#endif
  return runRows(argc, argv, [] {
    registerPlain();
    registerOwn();
    registerAsio();
    registerTbb();
    registerGlib();
    registerQt();
  });
}
