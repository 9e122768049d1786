#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <string_view>

#include "tessarine/export.hpp"
#include "tessarine/system/time/DateComponents.hpp"
#include "tessarine/values/Date.hpp"
#include "tessarine/values/Range.hpp"
#include "tessarine/values/fatal.hpp"

namespace tessarine {

/// The date with those fields in their calendar; absent without a calendar.
TESSARINE_EXPORT std::optional<Date> dateWithComponents(const DateComponents& components);

constexpr double unixTimestamp(Date date) noexcept { return date.timeIntervalSince1970(); }
constexpr Date dateWithUnixTimestamp(double seconds) noexcept { return Date::since1970(seconds); }

/// 20240501 is 1 May 2024, midnight in the current zone. Absent when the digits are no "yyyyMMdd".
TESSARINE_EXPORT std::optional<Date> dateWithIntegerLiteral(std::int64_t literal);

/// A text such as "2024-05-01T12:34:56.789+0200", with a fraction and an offset. Absent for others.
TESSARINE_EXPORT std::optional<Date> dateWithISO8601String(std::string_view text);

namespace detail {
template <class Generator>
Date randomDate(Date lower, Date upper, bool includesUpper, Generator& generator) {
  const double least = lower.timeIntervalSinceReferenceDate();
  const double span = upper.timeIntervalSinceReferenceDate() - least;
  // 53 random bits: a fraction of [0, 1), or of [0, 1] when divided by what they are at most.
  constexpr auto count = static_cast<double>(std::uint64_t{1} << 53U);
  const auto bits =
      std::uniform_int_distribution<std::uint64_t>(0, (std::uint64_t{1} << 53U) - 1)(generator);
  const Date date(least + span * (static_cast<double>(bits) / (includesUpper ? count - 1 : count)));
  if (includesUpper) return date > upper ? upper : date;
  return date < upper ? date : lower;  // a span so small that it was rounded away
}
TESSARINE_EXPORT std::mt19937_64& randomGenerator();
}  // namespace detail

/// A date drawn uniformly from the range. Programmer error for a range that is reversed or, as it
/// is half-open, empty.
template <class Generator>
Date random(const Range<Date>& in, Generator& generator) {
  if (in.isEmpty()) fatal("random: the range of dates is empty");
  return detail::randomDate(in.lowerBound, in.upperBound, false, generator);
}

/// The same with the upper bound. Programmer error for a reversed range.
template <class Generator>
Date random(const ClosedRange<Date>& in, Generator& generator) {
  if (!(in.lowerBound <= in.upperBound)) fatal("random: the range of dates is reversed");
  return detail::randomDate(in.lowerBound, in.upperBound, true, generator);
}

/// By a generator of the thread's own, seeded by the system.
inline Date random(const Range<Date>& in) { return random(in, detail::randomGenerator()); }
inline Date random(const ClosedRange<Date>& in) { return random(in, detail::randomGenerator()); }

}  // namespace tessarine
