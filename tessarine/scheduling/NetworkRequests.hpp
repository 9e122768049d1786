#pragma once

#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "tessarine/export.hpp"
#include "tessarine/system/dispatch/Async.hpp"
#include "tessarine/system/dispatch/Task.hpp"

namespace tessarine {

/// Marks an error as one that `retryNetworkRequest` may retry. It asks for nothing; the status code
/// is the concrete error's own business.
///
///     struct ServerBusy : HTTPStatusCodeError {
///       const char* what() const noexcept override { return "503"; }
///     };
class TESSARINE_EXPORT HTTPStatusCodeError : public std::exception {
 public:
  ~HTTPStatusCodeError() override;

 protected:
  HTTPStatusCodeError() noexcept = default;
  HTTPStatusCodeError(const HTTPStatusCodeError&) noexcept = default;
  HTTPStatusCodeError& operator=(const HTTPStatusCodeError&) noexcept = default;
};

/// An error for hosts that count attempts themselves. `retryNetworkRequest` never throws it: there,
/// exhausted attempts end in the last error.
class TESSARINE_EXPORT RetryError : public std::exception {
 public:
  enum class Code : std::uint8_t { maxRetriesReached };
  static constexpr Code maxRetriesReached = Code::maxRetriesReached;

  // A code is an error.
  RetryError(Code code) noexcept : code_(code) {}  // NOLINT(google-explicit-constructor)
  RetryError(const RetryError&) noexcept = default;
  RetryError& operator=(const RetryError&) noexcept = default;
  ~RetryError() override;

  Code code() const noexcept { return code_; }
  const char* what() const noexcept override;
  friend bool operator==(const RetryError& a, const RetryError& b) noexcept {
    return a.code_ == b.code_;
  }

 private:
  Code code_;
};

/// The wait in nanoseconds after failed attempt `attempt`, the first being 1:
/// `delay` x (`attempt` - 1) seconds, fractions of a nanosecond dropped. `delay` in seconds; the
/// product must be finite, above -1 ns and below 2^64 ns, anything else is a programmer error whose
/// message names the value.
TESSARINE_EXPORT std::uint64_t retryDelay(double delay, std::int64_t attempt);

/// All waits of `times` attempts that all fail: `times` - 1 of them, the first 0. Limits as in
/// `retryDelay` and `retryNetworkRequest`.
TESSARINE_EXPORT std::vector<std::uint64_t> retrySchedule(std::int64_t times, double delay);

namespace detail {

TESSARINE_EXPORT void checkRetryArguments(std::int64_t times, double delay);

template <class RetryOn, class Operation>
Async<AsyncResult<Operation&>> retry(std::int64_t times, double delay, RetryOn retryOn,
                                     Operation operation) {
  for (std::int64_t attempt = 1;; ++attempt) {
    try {
      co_return co_await operation();
    } catch (const HTTPStatusCodeError& error) {
      if (!std::invoke(retryOn, error) || attempt == times) throw;
    }
    co_await Task<>::sleep(retryDelay(delay, attempt));
  }
}

}  // namespace detail

/// Awaits `operation`, a callable that answers an `Async`, up to `times` times (at least 1) until
/// it succeeds, and gives its value. It is tried again only after an error that is a
/// `HTTPStatusCodeError` and for which `retryOn` answers true; any other, and the last one, reaches
/// the awaiter as it is. `retryOn` is asked after the last attempt too. Between attempts it waits
/// `retryDelay(delay, attempt)`, so not at all before the second; in a cancelled task that ends in
/// a `CancellationError` at once. There is no ceiling and no jitter.
///
///     Page page = co_await retryNetworkRequest(3, 0.5, isBusy, [&] { return load(link); });
///
/// `times` below 1, and a `delay` that is not finite or for which a wait would be out of the range
/// of `retryDelay`, are programmer errors: the first two at the call, the last when that wait
/// comes.
template <std::predicate<const HTTPStatusCodeError&> RetryOn, class Operation>
requires detail::AsyncOperation<Operation&>
auto retryNetworkRequest(std::int64_t times, double delay, RetryOn retryOn, Operation operation) {
  detail::checkRetryArguments(times, delay);
  return detail::retry(times, delay, std::move(retryOn), std::move(operation));
}

}  // namespace tessarine

template <>
struct std::hash<tessarine::RetryError> {
  std::size_t operator()(const tessarine::RetryError& error) const noexcept {
    return static_cast<std::size_t>(error.code());
  }
};
