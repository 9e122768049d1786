#pragma once

#include <concepts>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>
#include <type_traits>

#include "tessarine/export.hpp"
#include "tessarine/values/PreferenceObject.hpp"

namespace tessarine {

// How a stored object of any type becomes the type that an accessor wants. Nothing here fails
// loudly: what cannot be converted is absent. All functions may be called from any thread.

namespace detail {
/// true for "1", "true", "yes", false for "0", "false", "no", in any case and with white space
/// around. The text is searched for as a regular expression in those words in turn, so a fragment
/// such as "y" or "fal" answers as well. Absent when it is in none of them. A search is bounded in
/// time.
TESSARINE_EXPORT std::optional<bool> booleanFromText(std::string_view text);

/// A decimal integer: an optional sign, then ASCII digits only, white space around. Absent when the
/// text is anything else or the value does not lie in the range of the type.
TESSARINE_EXPORT std::optional<std::int64_t> signedFromText(std::string_view text);
TESSARINE_EXPORT std::optional<std::uint64_t> unsignedFromText(std::string_view text);

/// A number by the grammar of C's `strtod` in the "C" locale, which must take all of the text,
/// white space around. What overflows is infinite.
TESSARINE_EXPORT std::optional<double> doubleFromText(std::string_view text);
TESSARINE_EXPORT std::optional<float> floatFromText(std::string_view text);

/// `value` as a `T` where that has its range, else absent.
template <class T, class Wide>
std::optional<T> inRangeOf(std::optional<Wide> value) {
  if (!value || *value < std::numeric_limits<T>::min() || *value > std::numeric_limits<T>::max()) {
    return std::nullopt;
  }
  return static_cast<T>(*value);
}

template <class T>
std::optional<T> scalarFromNumber(const NSNumber& number) {
  if constexpr (std::same_as<T, bool>) {
    return number.boolValue();
  } else if constexpr (std::same_as<T, float>) {
    return number.floatValue();
  } else if constexpr (std::floating_point<T>) {
    return number.doubleValue();
  } else if constexpr (std::is_signed_v<T>) {
    return inRangeOf<T>(std::optional(number.integerValue()));
  } else {
    return inRangeOf<T>(std::optional(number.unsignedIntegerValue()));
  }
}

template <class T>
std::optional<T> scalarFromText(std::string_view text) {
  if constexpr (std::same_as<T, bool>) {
    return booleanFromText(text);
  } else if constexpr (std::same_as<T, float>) {
    return floatFromText(text);
  } else if constexpr (std::floating_point<T>) {
    return doubleFromText(text);
  } else if constexpr (std::is_signed_v<T>) {
    return inRangeOf<T>(signedFromText(text));
  } else {
    return inRangeOf<T>(unsignedFromText(text));
  }
}
}  // namespace detail

/// `object` as a `T`. First by the direct dynamic cast, which any bridged type has; then, for an
/// arithmetic `T`, a number converts as `NSNumber` defines it (truncating) and a text is read as
/// one. An integer type narrower than 64 bits takes only what lies in its range. Else absent.
template <class T>
std::optional<T> typedUserDefaultScalarValue(const std::optional<PreferenceObject>& object) {
  if (!object) return std::nullopt;
  if (auto value = dynamicCast<T>(*object)) return value;
  if constexpr (std::is_arithmetic_v<T>) {
    if (const NSNumber* number = object->number()) return detail::scalarFromNumber<T>(*number);
    if (const std::string* text = object->string()) return detail::scalarFromText<T>(*text);
  }
  return std::nullopt;
}

/// The number that `object` is, or that its text reads as: a 64-bit integer where it is a decimal
/// integer in range, else a double. Absent for everything else.
TESSARINE_EXPORT std::optional<NSNumber> userDefaultNumberValue(
    const std::optional<PreferenceObject>& object);

}  // namespace tessarine
