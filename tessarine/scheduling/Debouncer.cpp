#include "tessarine/scheduling/Debouncer.hpp"

#include <atomic>
#include <exception>
#include <sstream>
#include <string>
#include <utility>

#include "tessarine/system/dispatch/DispatchWorkItem.hpp"
#include "tessarine/system/dispatch/Task.hpp"
#include "tessarine/system/dispatch/internal/TimerService.hpp"
#include "tessarine/values/fatal.hpp"

namespace tessarine {

using WorkItem = std::shared_ptr<DispatchWorkItem>;
using Queue = std::shared_ptr<DispatchQueue>;

namespace {

/// The delay of the asynchronous channel.
std::uint64_t nanosecondsOf(double seconds) {
  const double nanoseconds = seconds * 1e9;
  if (!(nanoseconds > -1 && nanoseconds < 0x1p64)) {
    std::ostringstream message;
    message << "An asynchronous debounce is given a delay of " << seconds
            << " seconds; it must be above -1 and below 2^64 nanoseconds.";
    fatal(message.str());
  }
  return nanoseconds > 0 ? static_cast<std::uint64_t>(nanoseconds) : 0;
}

[[noreturn]] void refuse(const char* what) {
  fatal(std::string("An exception left the action of an asynchronous debounce: ") + what);
}

}  // namespace

/// What a debouncer leaves to the timer and to blocks that are under way.
///
/// One timer serves all requests of the instance. A request that comes after it was found due arms
/// it again, and is left to that call; so a request is never run early, nor lost.
/// Closures of the host are destroyed outside of the state queue, for they may call in again.
class Debouncer::State : public detail::Timer {
 public:
  /// A share in the state; the last one ends it.
  class Share {
   public:
    explicit Share(State& adopted) noexcept : state_(&adopted) {}
    Share(const Share& other) noexcept : state_(other.state_) { state_->retain(); }
    Share(Share&& other) noexcept : state_(std::exchange(other.state_, nullptr)) {}
    Share& operator=(const Share&) = delete;
    ~Share() {
      if (state_) state_->release();
    }
    State& operator*() const noexcept { return *state_; }
    State* operator->() const noexcept { return state_; }

   private:
    State* state_;
  };

  State() : Timer(timeHasCome) {}

  void request(const Queue& onQueue, double delay, Block action) {
    auto item = std::make_shared<DispatchWorkItem>(std::move(action));
    Queue formerQueue;
    stateQueue_->sync([&] {
      if (workItem_) {
        ++count_;
        workItem_->cancel();
      }
      workItem_.swap(item);
      if (onQueue_ != onQueue) {
        formerQueue = std::move(onQueue_);
        onQueue_ = onQueue;
      }
      if (schedule(DispatchTime::now() + delay)) retain();
    });
  }

  /// The task before it is cancelled outside of the state queue, as that may run the host's
  /// handlers.
  void requestTask(std::shared_ptr<Debouncer> self, std::uint64_t nanoseconds,
                   std::function<Async<>()> action) {
    std::optional<Task<>> former;
    stateQueue_->sync([&] {
      former = std::move(task_);
      task_.emplace([self = std::move(self), nanoseconds, hadTask = former.has_value(),
                     action = std::move(action)] {
        return runTask(*self->state_, nanoseconds, hadTask, action);
      });
    });
    if (former) former->cancel();
  }

  void cancelTask() {
    std::optional<Task<>> task;
    stateQueue_->sync([&] { task.swap(task_); });
    if (task) task->cancel();
  }

  void cancelWork() {
    drop([this] { ++count_; }, [] {});
  }

  void reset() {
    std::optional<Task<>> task;
    drop([] {},
         [&] {
           count_ = 0;
           task.swap(task_);
         });
    if (task) task->cancel();
  }

  std::int64_t count() const {
    return stateQueue_->sync([this] { return count_; });
  }

  void retain() noexcept { shares_.fetch_add(1, std::memory_order_relaxed); }
  void release() noexcept {
    if (shares_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }

 private:
  ~State() = default;

  /// Drops the stored item with what `ifStored` and `always` do in the same block.
  template <class IfStored, class Always>
  void drop(IfStored ifStored, Always always) {
    WorkItem item;
    Queue queue;
    bool hadCall = false;
    stateQueue_->sync([&] {
      if (workItem_) {
        ifStored();
        workItem_->cancel();
      }
      item = std::move(workItem_);
      queue = std::move(onQueue_);
      hadCall = cancel();
      always();
    });
    if (hadCall) release();
  }

  /// The body of a task; its arguments live in the task's operation.
  static Async<> runTask(State& state, std::uint64_t nanoseconds, bool hadTask,
                         const std::function<Async<>()>& action) {
    if (hadTask) state.stateQueue_->sync([&] { ++state.count_; });
    try {
      co_await Task<>::sleep(nanoseconds);
    } catch (const CancellationError&) {  // looked at below
    }
    if (Task<>::isCancelledHere()) co_return;
    try {
      co_await action();
    } catch (const CancellationError&) {  // how an action that was replaced comes to its end
    } catch (const std::exception& error) {
      refuse(error.what());
    } catch (...) {
      refuse("of a type that is no std::exception");
    }
    state.stateQueue_->sync([&] { state.count_ = 0; });
  }

  static void timeHasCome(Timer& timer) noexcept {
    Share share(static_cast<State&>(timer));
    WorkItem item;
    Queue queue;
    share->stateQueue_->sync([&] {
      State& state = *share;
      if (state.isPending()) return;
      item = state.workItem_;
      queue = std::move(state.onQueue_);
    });
    if (!queue) return;
    queue->async([share = std::move(share), item = std::move(item)] {
      if (!item->perform()) return;
      share->stateQueue_->async([share] { share->count_ = 0; });
    });
  }

  const Queue stateQueue_ = std::make_shared<DispatchQueue>("com.corvellis.debouncer.state");
  std::atomic<std::uint32_t> shares_{1};  // the debouncer, each call of the timer to come, blocks

  // In blocks of the state queue only.
  WorkItem workItem_;
  Queue onQueue_;               // null unless `workItem_` waits for its time
  std::optional<Task<>> task_;  // the latest, ended or not
  std::int64_t count_ = 0;
};

Debouncer::Debouncer(double seconds) : interval_(seconds), state_(new State) {}

Debouncer::~Debouncer() {
  state_->cancelWork();
  state_->cancelTask();
  state_->release();
}

void Debouncer::debounce(const Queue& onQueue, Block action) {
  debounce(onQueue, std::nullopt, std::move(action));
}

void Debouncer::debounce(const Queue& onQueue, std::optional<double> overrideInterval,
                         Block action) {
  if (!onQueue) fatal("A debouncer is given a null queue.");
  if (!action) fatal("A debouncer is given an empty action.");
  state_->request(onQueue, overrideInterval.value_or(interval_), std::move(action));
}

void Debouncer::debounce(std::optional<double> overrideInterval, std::function<Async<>()> action) {
  if (!action) fatal("A debouncer is given an empty action.");
  std::shared_ptr<Debouncer> self = weak_from_this().lock();
  if (!self) fatal("An asynchronous debounce on a debouncer that no std::shared_ptr holds.");
  state_->requestTask(std::move(self), nanosecondsOf(overrideInterval.value_or(interval_)),
                      std::move(action));
}

void Debouncer::cancelWork() { state_->cancelWork(); }

void Debouncer::reset() { state_->reset(); }

std::int64_t Debouncer::debounceCount() const { return state_->count(); }

}  // namespace tessarine
