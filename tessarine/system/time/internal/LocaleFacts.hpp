#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <utility>

namespace tessarine::internal {

/// How the region of a locale counts weeks. Weekdays are 1 for Sunday to 7 for Saturday.
struct WeekFacts {
  std::uint8_t firstWeekday = 1;
  std::uint8_t minimumDaysInFirstWeek = 1;
  std::uint8_t weekend = 1U << 1U | 1U << 7U;  ///< a bit for each weekday
};

/// What is known of one locale.
struct LocaleFacts {
  explicit LocaleFacts(std::string name) : identifier(std::move(name)) {}

  std::string identifier;

  const WeekFacts& weeks() const {
    load();
    return weeks_;
  }
  /// Whether numbers are written with the digits 0 to 9.
  bool hasLatinDigits() const {
    load();
    return hasLatinDigits_;
  }

 private:
  void load() const {
    if (!isLoaded_.load(std::memory_order_acquire)) std::call_once(once_, [this] { loadOnce(); });
  }
  void loadOnce() const;

  mutable std::once_flag once_;
  mutable std::atomic<bool> isLoaded_ = false;
  mutable WeekFacts weeks_;
  mutable bool hasLatinDigits_ = true;
};

}  // namespace tessarine::internal
