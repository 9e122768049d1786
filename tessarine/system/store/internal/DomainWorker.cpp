// The thread of a domain: it notices what other processes write while someone observes, carries the
// journal into the database a second after a write, and tries again what the disk refused.
#include <chrono>
#include <cstdio>
#include <exception>

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
  if (worker_.joinable()) return;
  stop_ = false;
  idle_ = 0;
  worker_ = std::thread([this] { work(); });
}

void Domain::stopWorker() {
  std::thread worker;
  Journal* journal = nullptr;
  {
    const MutexLock lock(mutex_);
    worker = std::move(worker_);
    journal = files_ ? files_->journal() : nullptr;
  }
  if (!worker.joinable()) return;
  stop_ = true;
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
  while (!stop_) {
    Journal* journal = nullptr;
    bool isRefused = false;
    {
      const MutexLock lock(mutex_);
      journal = files_->journal();
      isRefused = !refused_.empty() || journal == nullptr;
    }
    const std::uint32_t ticket = journal != nullptr ? journal->ticket() : 0;
    if (stop_) return;
    std::int64_t wait = isRefused ? second : forever;
    try {
      if (isRefused) retry();
      refresh();
    } catch (const std::exception& error) {
      std::fprintf(stderr, "tessarine: an observer of preferences threw: %s\n", error.what());
    } catch (...) {
      std::fprintf(stderr, "tessarine: an observer of preferences threw\n");
    }
    if (journal == nullptr) {
      sleepOn(idle_, second);
      continue;
    }
    wait = std::min(wait, foldWhenDue(*journal));
    journal->sleep(ticket, wait);
    sleepOn(idle_, rest);
  }
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
  if (used <= Journal::capacity / 2 && now < foldAt_) return foldAt_ - now;
  const bool isFolded = files_->fold();
  foldAt_ = isFolded ? 0 : now + second;
  return isFolded ? forever : second;
}

}  // namespace tessarine::detail
