#include "tessarine/scheduling/NetworkRequests.hpp"

#include <cmath>
#include <sstream>

#include "tessarine/values/fatal.hpp"

namespace tessarine {
namespace {

[[noreturn]] void failDelay(double delay, std::string_view what) {
  std::ostringstream message;
  message << "retryNetworkRequest: a delay of " << delay << " seconds " << what;
  fatal(message.str());
}

}  // namespace

HTTPStatusCodeError::~HTTPStatusCodeError() = default;
RetryError::~RetryError() = default;
const char* RetryError::what() const noexcept {
  return "The maximum number of retries was reached.";
}

std::uint64_t retryDelay(double delay, std::int64_t attempt) {
  const double nanoseconds = delay * static_cast<double>(attempt - 1) * 1e9;
  // Also false for what is not a number.
  if (!(nanoseconds > -1 && nanoseconds < 0x1p64)) {
    std::ostringstream what;
    what << "after attempt " << attempt << " makes " << nanoseconds
         << " nanoseconds; that must be above -1 and below 2^64.";
    failDelay(delay, what.str());
  }
  // Converting a negative number, even one that truncates to 0, is undefined.
  return nanoseconds > 0 ? static_cast<std::uint64_t>(nanoseconds) : 0;
}

std::vector<std::uint64_t> retrySchedule(std::int64_t times, double delay) {
  detail::checkRetryArguments(times, delay);
  std::vector<std::uint64_t> waits;
  waits.reserve(static_cast<std::size_t>(times - 1));
  for (std::int64_t attempt = 1; attempt < times; ++attempt)
    waits.push_back(retryDelay(delay, attempt));
  return waits;
}

void detail::checkRetryArguments(std::int64_t times, double delay) {
  if (times < 1)
    fatal("retryNetworkRequest: times is " + std::to_string(times) + "; it must be at least 1.");
  if (!std::isfinite(delay)) failDelay(delay, "must be finite.");
}

}  // namespace tessarine
