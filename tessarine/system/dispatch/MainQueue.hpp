#pragma once

#include <cstddef>

#include "tessarine/export.hpp"

namespace tessarine {

/// How the host drives `DispatchQueue::main()`. The library starts no loop of its own; the main
/// thread is the one that first calls `run` or `drain`, for the life of the process. Either let the
/// library wait:
///
///     MainQueue::run();  // until MainQueue::stop()
///
/// or hang the queue into the loop that the host has, five lines in all with epoll:
///
///     epoll_event event{.events = EPOLLIN, .data = {}};
///     epoll_ctl(loop, EPOLL_CTL_ADD, MainQueue::fileDescriptor(), &event);
///     while (epoll_wait(loop, &event, 1, -1) >= 0) MainQueue::drain();
///
/// Driving it from a second thread is a programmer error. An exception that leaves a block is one
/// too, as on any queue.
class TESSARINE_EXPORT MainQueue {
 public:
  MainQueue() = delete;

  /// Runs main-queue blocks as they come, sleeping in between, until `stop`. Inside a main block it
  /// runs the further blocks, and `stop` ends the innermost `run`.
  static void run();

  /// Ends `run` after the block that is running; what waits stays queued. Without a `run` in
  /// progress, the next one ends before it runs a block. Any thread.
  static void stop();

  /// Runs the blocks that wait now, in order, and answers how many ran. Blocks that they submit
  /// wait for the next drain. Inside a main block a nested drain runs the blocks behind it, and the
  /// outer one then ends, as all that it had to run has run.
  static std::size_t drain();

  /// Readable exactly while blocks wait on the main queue; only poll it. Owned by the library and
  /// valid until the process ends. Any thread.
  static int fileDescriptor();

  /// Whether this thread is the main one: the first to call `run` or `drain`, and until that the
  /// thread that the process began with. Any thread, a few nanoseconds.
  static bool isMainThread() noexcept;
};

}  // namespace tessarine
