// The thread of a domain: it notices what other processes write while someone observes, carries the
// journal into the database a second after a write, and tries again what the disk refused.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <thread>

#include "tessarine/system/dispatch/internal/QuietThread.hpp"
#include "tessarine/system/store/internal/Domain.hpp"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tessarine::detail {
namespace {

constexpr std::int64_t second = 1'000'000'000;
constexpr std::int64_t forever = 3600 * second;
/// A burst of writes wakes the thread once in that time and not once a write.
constexpr std::int64_t rest = second / 5000;

std::int64_t monotonicNow() {
  return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
}

void sleepOn(std::atomic<std::uint32_t>& word, std::int64_t timeout) {
  const timespec duration{.tv_sec = timeout / second, .tv_nsec = timeout % second};
  ::syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, 0, &duration, nullptr, 0);
}

}  // namespace

void Domain::startWorker() {
  if (worker_.joinable() || stop_ || !files_) return;
  // Nothing depends on it at once; when the system has no thread left, the next write tries again.
  worker_ = makeQuietThread("tessarine-store", [this] { work(); });
}

void Domain::stopWorker() {
  std::thread worker;
  Journal* journal = nullptr;
  {
    const MutexLock lock(mutex_);
    stop_ = true;
    worker = std::move(worker_);
    journal = files_ ? files_->journal() : nullptr;
  }
  if (!worker.joinable()) return;
  idle_ = 1;
  ::syscall(SYS_futex, &idle_, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
  if (journal != nullptr) journal->wake();
  if (worker.get_id() == std::this_thread::get_id()) {
    worker.detach();  // the process is ending from within an observer
  } else {
    worker.join();
  }
}

void Domain::work() {
  std::int64_t lastWake = 0;
  while (!stop_) {
    Journal* journal = nullptr;
    bool isRefused = false;
    {
      const MutexLock lock(mutex_);
      journal = files_->journal();
      isRefused = !refused_.empty() || journal == nullptr || files_->needMending();
    }
    const std::uint32_t ticket = journal != nullptr ? journal->ticket() : 0;
    if (stop_) return;
    catchUp(isRefused);
    if (journal == nullptr) {
      sleepOn(idle_, second);
      continue;
    }
    const std::int64_t wait = foldWhenDue(*journal);
    if (files_->needMending() && !isRefused) continue;
    journal->sleep(ticket, files_->needMending() || isRefused ? std::min(wait, second) : wait);
    const std::int64_t now = monotonicNow();
    if (now - lastWake < rest) sleepOn(idle_, rest);
    lastWake = now;
  }
}

/// Tries again what was refused, once a second, and takes over what others wrote.
void Domain::catchUp(bool isRefused) try {
  const std::int64_t now = monotonicNow();
  if (isRefused && now >= retryAt_) {
    retryAt_ = now + second;
    if (retry()) retryAt_ = 0;
  }
  refresh();
} catch (const std::exception& error) {
  std::fprintf(stderr, "tessarine: an observer of preferences threw: %s\n", error.what());
} catch (...) {
  std::fprintf(stderr, "tessarine: an observer of preferences threw\n");
}

/// Returns how long nothing is to be done for the journal.
std::int64_t Domain::foldWhenDue(const Journal& journal) {
  const std::uint64_t used = journal.head().load() - journal.tail();
  if (used == 0) {
    foldAt_ = 0;
    return forever;
  }
  const std::int64_t now = monotonicNow();
  if (foldAt_ == 0) foldAt_ = now + second;
  const bool isFull = used > Journal::capacity / 2 && !isFoldFailing_;
  if (!isFull && now < foldAt_) return foldAt_ - now;
  isFoldFailing_ = !files_->fold();
  foldAt_ = isFoldFailing_ ? now + second : 0;
  return isFoldFailing_ ? second : forever;
}

}  // namespace tessarine::detail
