#pragma once

#include <compare>
#include <cstdint>

#include "tessarine/export.hpp"

namespace tessarine {

/// A point on the time line of `Clock`: whole nanoseconds that never run backwards. Ordered; the
/// later is the greater. A delay in seconds is added so that every double has a meaning:
///
///     queue->asyncAfter(DispatchTime::now() + 0.25, [] { save(); });
class DispatchTime {
 public:
  constexpr DispatchTime() noexcept = default;
  constexpr explicit DispatchTime(std::uint64_t uptimeNanoseconds) noexcept
      : nanoseconds_(uptimeNanoseconds) {}

  /// The present, as `Clock::now()` has it.
  static DispatchTime now() noexcept;
  /// Later than any time that comes: what waits for it waits for ever.
  static constexpr DispatchTime distantFuture() noexcept { return DispatchTime(UINT64_MAX); }

  constexpr std::uint64_t uptimeNanoseconds() const noexcept { return nanoseconds_; }

  /// `time` moved by `seconds`, fractions of a nanosecond dropped. Not a number moves it not at
  /// all; what would lie before the start of the line is its start, thus past; what would lie
  /// behind its end, infinity included, is the distant future. The distant future stays what it is.
  friend constexpr DispatchTime operator+(DispatchTime time, double seconds) noexcept {
    constexpr double lineLength = 0x1p64;
    const double shift = seconds * 1e9;
    // Also false for what is not a number.
    if (time == distantFuture() || !(shift < 0 || shift > 0)) return time;
    if (shift >= lineLength) return distantFuture();
    if (shift <= -lineLength) return DispatchTime(0);
    if (shift < 0) {
      const auto back = static_cast<std::uint64_t>(-shift);
      return DispatchTime(back > time.nanoseconds_ ? 0 : time.nanoseconds_ - back);
    }
    const auto ahead = static_cast<std::uint64_t>(shift);
    return ahead > UINT64_MAX - time.nanoseconds_ ? distantFuture()
                                                  : DispatchTime(time.nanoseconds_ + ahead);
  }

  friend constexpr auto operator<=>(DispatchTime, DispatchTime) noexcept = default;

 private:
  std::uint64_t nanoseconds_ = 0;
};

/// The one source of time: whatever waits in this library, waits by it. It counts from a start of
/// the system's choice, is never set back and stands still while the machine is suspended. A
/// `ManualClock` replaces it. Any thread; some 30 nanoseconds.
class TESSARINE_EXPORT Clock {
 public:
  Clock() = delete;
  static DispatchTime now() noexcept;
};

inline DispatchTime DispatchTime::now() noexcept { return Clock::now(); }

}  // namespace tessarine
