#include "tessarine/system/dispatch/TaskContext.hpp"

#include "tessarine/system/dispatch/DispatchQueue.hpp"
#include "tessarine/system/dispatch/internal/Waiting.hpp"
#include "tessarine/system/dispatch/internal/WorkerPool.hpp"

namespace tessarine::detail {
namespace {

/// One stretch of a task on this thread, from a resumption until all is suspended.
struct Stretch {
  TaskContext* task;
  Stretch* outer;
  std::coroutine_handle<> next;
  bool hasRootEnded = false;
};

constinit thread_local Stretch* currentStretch __attribute__((tls_model("initial-exec"))) = nullptr;

/// Runs `coroutine` and what it passes on to; answers whether the root ended.
bool runStretch(TaskContext* task, std::coroutine_handle<> coroutine) {
  Stretch stretch{task, currentStretch, coroutine};
  currentStretch = &stretch;
  while (const std::coroutine_handle<> next = std::exchange(stretch.next, nullptr)) next.resume();
  currentStretch = stretch.outer;
  return stretch.hasRootEnded;
}

}  // namespace

std::coroutine_handle<> transferThroughLoop(std::coroutine_handle<> next) {
  if (Stretch* const stretch = currentStretch)
    stretch->next = next;
  else
    runStretch(nullptr, next);
  return std::noop_coroutine();
}

Resumption::Resumption(std::coroutine_handle<> coroutine) noexcept
    : task_(TaskContext::current()), coroutine_(coroutine) {}

void Resumption::resume() const {
  if (task_)
    task_->schedule(coroutine_);
  else
    runStretch(nullptr, coroutine_);
}

void Rendezvous::arrive() {
  // A copy, as the coroutine may be over and this object gone once it is known to be suspended.
  const Resumption waiter = waiter_;
  if (phase_.exchange(Phase::over, std::memory_order_acq_rel) == Phase::suspended) waiter.resume();
}

bool Rendezvous::suspend() noexcept {
  Phase phase = Phase::before;
  return phase_.compare_exchange_strong(phase, Phase::suspended, std::memory_order_acq_rel);
}

TaskContext::TaskContext(std::shared_ptr<DispatchQueue> queue) : queue_(std::move(queue)) {}
TaskContext::~TaskContext() = default;

TaskContext* TaskContext::current() noexcept {
  return currentStretch ? currentStretch->task : nullptr;
}

bool TaskContext::isCurrentCancelled() noexcept {
  const TaskContext* const task = current();
  return task && task->isCancelled();
}

std::stop_token TaskContext::currentStopToken() noexcept {
  const TaskContext* const task = current();
  return task ? task->stop_.get_token() : std::stop_token();
}

void TaskContext::rootEnded() noexcept { currentStretch->hasRootEnded = true; }

void TaskContext::start() {
  self_ = shared_from_this();
  try {
    queue_->async([this] {
      if (const std::coroutine_handle<> root = begin())
        run(root);
      else
        finish();
    });
  } catch (...) {
    self_.reset();
    throw;
  }
}

void TaskContext::schedule(std::coroutine_handle<> coroutine) {
  queue_->async([this, coroutine] { run(coroutine); });
}

void TaskContext::run(std::coroutine_handle<> coroutine) {
  // Unless the root ended, another thread may by now have gone on and ended the task.
  if (runStretch(this, coroutine)) finish();
}

void TaskContext::finish() {
  end();
  MutexLock lock(mutex_);
  hasEnded_.store(true, std::memory_order_release);
  Waiter* waiter = std::exchange(waiters_, nullptr);
  // Reversed: who came first goes on first.
  Waiter* first = nullptr;
  while (waiter) waiter = std::exchange(waiter->next, std::exchange(first, waiter));
  lock.unlock();
  openGate(gate_);
  while (first) {
    const Resumption resumption = first->resumption;
    first = first->next;
    resumption.resume();
  }
  const std::shared_ptr<TaskContext> last = std::move(self_);
}

void TaskContext::cancel() noexcept {
  // Handlers may let go of the last handle.
  std::stop_source stop = stop_;
  stop.request_stop();
}

void TaskContext::wait() { passGateAsWorker(gate_); }

bool TaskContext::enrol(Waiter& waiter) {
  const MutexLock lock(mutex_);
  if (hasEnded_.load(std::memory_order_relaxed)) return false;
  waiter.next = waiters_;
  waiters_ = &waiter;
  return true;
}

void TaskContext::strike(Waiter& waiter) noexcept {
  const MutexLock lock(mutex_);
  for (Waiter** place = &waiters_; *place; place = &(*place)->next)
    if (*place == &waiter) {
      *place = waiter.next;
      return;
    }
}

}  // namespace tessarine::detail
