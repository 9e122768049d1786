#include "tessarine/values/Date.hpp"

#include <atomic>
#include <chrono>

#include "tessarine/values/ManualDate.hpp"
#include "tessarine/values/fatal.hpp"

namespace tessarine {
namespace {

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): what a test replaces
constinit std::atomic<bool> isManual = false;
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
constinit std::atomic<double> manualSeconds = 0;

}  // namespace

Date Date::now() noexcept {
  if (isManual.load(std::memory_order_acquire)) [[unlikely]] {
    return Date(manualSeconds.load(std::memory_order_relaxed));
  }
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  // Whole and fractional seconds apart: a double of nanoseconds since 1970 would lose digits.
  const auto whole = std::chrono::duration_cast<std::chrono::seconds>(sinceEpoch);
  const std::chrono::duration<double> fraction = sinceEpoch - whole;
  return Date(static_cast<double>(whole.count()) - timeIntervalBetween1970AndReferenceDate +
              fraction.count());
}

ManualDate::ManualDate(Date now) {
  set(now);
  if (isManual.exchange(true)) fatal("ManualDate: there is one already");
}

ManualDate::~ManualDate() { isManual = false; }

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): of the one that lives
void ManualDate::set(Date now) { manualSeconds = now.timeIntervalSinceReferenceDate(); }

}  // namespace tessarine
