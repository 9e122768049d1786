#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "tessarine/export.hpp"
#include "tessarine/system/json/JSONDecoder.hpp"
#include "tessarine/system/json/JSONEncoder.hpp"

namespace tessarine {

// Dates in JSON, tolerantly. A text is read by the first of several formatters that takes it whole;
// the empty text is `Date::distantPast`, and a text that none takes a `DecodingError`. Written by
// the first formatter that gives a text; `Date::distantPast` is written as null. Any thread,
// without a lock.
//
//     JSONDecoder({.dateDecodingStrategy = DateDecodingStrategy::iso8601withFractionalSeconds()})

struct TESSARINE_EXPORT DateDecodingStrategy {
  using Strategy = decltype(JSONDecoderOptions::dateDecodingStrategy);
  /// Date and time with or without a fraction, a fraction without a zone (GMT), or a date alone.
  static const Strategy& iso8601withFractionalSeconds();
  /// A date alone.
  static const Strategy& iso8601DateOnly();
};

struct TESSARINE_EXPORT DateEncodingStrategy {
  using Strategy = decltype(JSONEncoderOptions::dateEncodingStrategy);
  /// 2023-05-01T12:00:00Z: the chain begins with the form that has no fraction.
  static const Strategy& iso8601withFractionalSeconds();
  /// 2023-05-01
  static const Strategy& iso8601DateOnly();
};

/// What the strategies read: the date of a text, `Date::distantPast` of the empty one; absent when
/// no formatter takes it.
TESSARINE_EXPORT std::optional<Date> dateByTolerantChain(std::string_view text, bool dateOnly);

}  // namespace tessarine
