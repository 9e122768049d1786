// The examples of docs/main-loop.md, run with a delayed block that ends the loop.
#include <vector>

#include "tessarine/system/dispatch/DispatchQueue.hpp"
#include "tessarine/system/dispatch/MainQueue.hpp"

#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <unistd.h>

#ifdef TESSARINE_TEST_GLIB
#include <glib-unix.h>
#endif

namespace tessarine {
namespace {

/// Submits blocks whose last one calls `end`, by way of a worker and of the timer.
template <class End>
void submitBlocks(std::vector<int>& order, End end) {
  DispatchQueue::main()->async([&order] { order.push_back(1); });
  DispatchQueue::global()->asyncAfter(0.002, [&order, end] {
    DispatchQueue::main()->async([&order] { order.push_back(2); });
    DispatchQueue::main()->asyncAfter(0.002, [&order, end] {
      order.push_back(3);
      end();
    });
  });
}

TEST(MainLoopExample, Epoll) {
  const int loop = epoll_create1(EPOLL_CLOEXEC);
  bool goesOn = true;
  std::vector<int> order;
  submitBlocks(order, [&goesOn] { goesOn = false; });
  epoll_event event{.events = EPOLLIN, .data = {}};
  epoll_ctl(loop, EPOLL_CTL_ADD, MainQueue::fileDescriptor(), &event);
  while (goesOn && epoll_wait(loop, &event, 1, -1) >= 0) {
    MainQueue::drain();
  }
  EXPECT_EQ(order, (std::vector{1, 2, 3}));
  close(loop);
}

#ifdef TESSARINE_TEST_GLIB
TEST(MainLoopExample, GLib) {
  GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
  std::vector<int> order;
  submitBlocks(order, [loop] { g_main_loop_quit(loop); });
  const guint source = g_unix_fd_add(
      MainQueue::fileDescriptor(), G_IO_IN,
      [](gint, GIOCondition, gpointer) -> gboolean {
        MainQueue::drain();
        return G_SOURCE_CONTINUE;
      },
      nullptr);
  g_main_loop_run(loop);
  EXPECT_EQ(order, (std::vector{1, 2, 3}));
  g_source_remove(source);
  g_main_loop_unref(loop);
}
#endif

}  // namespace
}  // namespace tessarine
