#include "tessarine/system/dispatch/Task.hpp"

#include "tessarine/system/dispatch/AsyncStream.hpp"
#include "tessarine/system/dispatch/CheckedContinuation.hpp"
#include "tessarine/system/dispatch/internal/TimerService.hpp"
#include "tessarine/values/fatal.hpp"

namespace tessarine {

CancellationError::~CancellationError() = default;
const char* CancellationError::what() const noexcept { return "The task was cancelled."; }

AbandonedContinuationError::~AbandonedContinuationError() = default;
const char* AbandonedContinuationError::what() const noexcept {
  return "A continuation went away without resuming its coroutine.";
}

namespace detail {

void failResumedTwice() noexcept {
  fatal("A continuation was resumed twice; it resumes its coroutine exactly once.");
}

void failAwaitedTwice() noexcept {
  fatal("next() of a stream is awaited by two coroutines at once; a stream has one consumer.");
}

/// A coroutine between its timer and its task's cancellation; whichever comes first resumes it.
class SleepState : public Timer, public Rendezvous {
 public:
  explicit SleepState(std::coroutine_handle<> coroutine) : Timer(fire), Rendezvous(coroutine) {}

  static void arm(const std::shared_ptr<SleepState>& state, DispatchTime deadline) {
    state->heldByTimer_ = state;
    state->schedule(deadline);
  }
  /// When the timer is no longer pending its function lets go of the state.
  void disarm() {
    if (Timer::cancel()) heldByTimer_.reset();
  }
  void cancelSleep() {
    if (!claim()) return;
    isCancelled_ = true;
    arrive();
  }
  bool isCancelled() const noexcept { return isCancelled_; }

 private:
  static void fire(Timer& timer) noexcept {
    const std::shared_ptr<SleepState> self =
        std::move(static_cast<SleepState&>(timer).heldByTimer_);
    if (self->claim()) self->arrive();
  }

  std::shared_ptr<SleepState> heldByTimer_;  // while a call of `fire` is to come
  bool isCancelled_ = false;                 // written by who claims
};

void Sleep::Cancel::operator()() const { state->cancelSleep(); }

bool Sleep::await_ready() const noexcept {
  return nanoseconds_ == 0 || TaskContext::isCurrentCancelled();
}

bool Sleep::await_suspend(std::coroutine_handle<> coroutine) {
  const std::uint64_t now = DispatchTime::now().uptimeNanoseconds();
  const auto deadline = nanoseconds_ > UINT64_MAX - now ? DispatchTime::distantFuture()
                                                        : DispatchTime(now + nanoseconds_);
  const auto state = std::allocate_shared<SleepState>(FrameAllocator<SleepState>(), coroutine);
  state_ = state;
  onCancel_.emplace(TaskContext::currentStopToken(), Cancel{state});
  SleepState::arm(state, deadline);
  return state->suspend();
}

void Sleep::await_resume() {
  if (!state_) return Task<>::checkCancellation();
  letGo();
  if (state_->isCancelled()) throw CancellationError();
}

void Sleep::letGo() noexcept {
  onCancel_.reset();  // waits for a handler that runs on another thread
  state_->disarm();
}

Sleep::~Sleep() {
  if (!state_) return;
  state_->abandon();
  letGo();
}

}  // namespace detail
}  // namespace tessarine
