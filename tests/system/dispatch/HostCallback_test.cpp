#ifdef TESSARINE_TEST_GLIB

#include <string>

#include "tessarine/system/dispatch/CheckedContinuation.hpp"
#include "tessarine/system/dispatch/MainQueue.hpp"
#include "tessarine/system/dispatch/Task.hpp"

#include <glib.h>
#include <gtest/gtest.h>

namespace tessarine {
namespace {

// As docs/tasks.md shows it.
Async<> glibTimeout(unsigned milliseconds) {
  co_await withCheckedContinuation<void>([=](const Continuation<void>& c) {
    const GSourceFunc fire = [](gpointer data) -> gboolean {
      static_cast<Continuation<void>*>(data)->resume();
      return G_SOURCE_REMOVE;
    };
    g_timeout_add_full(G_PRIORITY_DEFAULT, milliseconds, fire, new Continuation<void>(c),
                       [](gpointer data) { delete static_cast<Continuation<void>*>(data); });
  });
}

TEST(HostCallback, GLibTimerIsAwaited) {
  const Task<int> task([]() -> Async<int> {
    co_await glibTimeout(0);
    co_await glibTimeout(0);
    co_return 2;
  });
  while (!task.hasEnded()) g_main_context_iteration(nullptr, FALSE);
}

TEST(HostCallback, LossOfTheCallbackReachesTheAwaiter) {
  std::string message;
  const auto awaits = [&]() -> Async<> {
    try {
      co_await glibTimeout(3'600'000);
    } catch (const AbandonedContinuationError& error) {
      message = error.what();
    }
  };
  const Task<> task(awaits, DispatchQueue::main());
  MainQueue::drain();
  // The only source of this context.
  for (guint id = 1; !task.hasEnded() && id < 100; ++id) {
    GSource* const source = g_main_context_find_source_by_id(nullptr, id);
    if (source) g_source_destroy(source);
    MainQueue::drain();
  }
  EXPECT_EQ(message, AbandonedContinuationError().what());
}

}  // namespace
}  // namespace tessarine

#endif
