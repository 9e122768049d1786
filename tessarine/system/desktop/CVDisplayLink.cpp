#include "tessarine/system/desktop/CVDisplayLink.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "tessarine/system/desktop/internal/RandR.hpp"
#include "tessarine/system/dispatch/Clock.hpp"
#include "tessarine/system/dispatch/Mutex.hpp"
#include "tessarine/system/dispatch/internal/TimerService.hpp"

namespace tessarine {

CVDisplayLink::~CVDisplayLink() = default;

namespace {

constexpr double usualRate = 60;
constexpr std::int32_t nanosecondScale = 1'000'000'000;

double usableRate(double hertz) {
  return std::isnan(hertz) ? usualRate : std::clamp(hertz, 1.0, 1000.0);
}

/// The ticking of one link. It outlives the link by the call that is under way.
class Ticker : public std::enable_shared_from_this<Ticker>, private detail::Timer {
 public:
  explicit Ticker(double hertz) : Timer(fire), period_(nanosecondScale / hertz) {}

  void setHandler(CVDisplayLink::OutputHandler handler) {
    auto made = std::make_shared<const CVDisplayLink::OutputHandler>(std::move(handler));
    const MutexLock lock(mutex_);
    handler_.swap(made);
  }

  void start() {
    const MutexLock lock(mutex_);
    if (std::exchange(isRunning_, true) || keptByTimer_) return;
    keptByTimer_ = shared_from_this();
    schedule(tick(refreshAt(Clock::now()) + 1));
  }

  void stop() {
    std::shared_ptr<Ticker> kept;
    const MutexLock lock(mutex_);
    isRunning_ = false;
    // Where a call is under way, that call lets go.
    if (cancel()) kept = std::move(keptByTimer_);
  }

 private:
  /// Refreshes are numbered along the clock's line, so that no error adds up.
  std::int64_t refreshAt(DispatchTime time) const {
    auto number =
        static_cast<std::int64_t>(static_cast<double>(time.uptimeNanoseconds()) / period_);
    while (tick(number) > time) --number;
    while (tick(number + 1) <= time) ++number;
    return number;
  }
  DispatchTime tick(std::int64_t number) const {
    return DispatchTime(
        static_cast<std::uint64_t>(std::llround(static_cast<double>(number) * period_)));
  }
  CVTimeStamp stamp(std::int64_t number) const {
    return {nanosecondScale, static_cast<std::int64_t>(tick(number).uptimeNanoseconds())};
  }

  static void fire(detail::Timer& timer) noexcept { static_cast<Ticker&>(timer).call(); }

  void call() noexcept {
    std::shared_ptr<Ticker> kept;
    MutexLock lock(mutex_);
    const std::int64_t number = refreshAt(Clock::now());
    if (isRunning_) {
      const auto handler = handler_;
      lock.unlock();
      if (handler && *handler) (*handler)(stamp(number), stamp(number + 1));
      lock.lock();
    }
    if (isRunning_)
      schedule(tick(std::max(number, refreshAt(Clock::now())) + 1));
    else
      kept = std::move(keptByTimer_);
    lock.unlock();
  }

  const double period_;  // nanoseconds
  Mutex mutex_;
  std::shared_ptr<const CVDisplayLink::OutputHandler> handler_ TESSARINE_GUARDED_BY(mutex_);
  bool isRunning_ TESSARINE_GUARDED_BY(mutex_) = false;
  /// Set while a call of the timer is to come or under way.
  std::shared_ptr<Ticker> keptByTimer_ TESSARINE_GUARDED_BY(mutex_);
};

class TimerDisplayLink final : public CVDisplayLink {
 public:
  explicit TimerDisplayLink(double hertz) : ticker_(std::make_shared<Ticker>(hertz)) {}
  ~TimerDisplayLink() override { ticker_->stop(); }

  void setOutputHandler(OutputHandler handler) override { ticker_->setHandler(std::move(handler)); }
  void start() override { ticker_->start(); }
  void stop() override { ticker_->stop(); }

 private:
  const std::shared_ptr<Ticker> ticker_;
};

}  // namespace

std::shared_ptr<CVDisplayLink> CVDisplayLinkCreateWithActiveCGDisplays() {
  return CVDisplayLinkCreateWithRefreshRate(displayRefreshRate());
}

std::shared_ptr<CVDisplayLink> CVDisplayLinkCreateWithRefreshRate(double hertz) {
  return std::make_shared<TimerDisplayLink>(usableRate(hertz));
}

double displayRefreshRate() {
  static const double rate = detail::randrRefreshRate().value_or(usualRate);
  return rate;
}

}  // namespace tessarine
