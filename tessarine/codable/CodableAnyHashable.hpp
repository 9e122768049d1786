#pragma once

#include <any>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tessarine/coding/Decoder.hpp"
#include "tessarine/coding/Encoder.hpp"
#include "tessarine/export.hpp"
#include "tessarine/values/AnyHashable.hpp"

namespace tessarine {

/// A loosely typed value that passes through encoders and decoders. Its form follows from its type:
/// a text, boolean, integer or double as itself; a `UUID` as its text; `Data` as base64; a `Date`
/// as ISO 8601 text in whole seconds; lists and dictionaries of such values. Anything else fails
/// with "Unsupported type".
///
/// Reading goes by the form alone, so the round trip is not exact: a text that is a UUID, a date of
/// the years 0 to 9999 in GMT or base64 comes back as that ("test" is three bytes), dates lose
/// their fraction, whole doubles come back as integers. Integers keep all 64 bits, and -0.0 stays a
/// double.
class TESSARINE_EXPORT CodableAnyHashable {
 public:
  explicit CodableAnyHashable(AnyHashable value) noexcept : value_(std::move(value)) {}

  const AnyHashable& value() const noexcept { return value_; }

  void encode(Encoder& encoder) const;
  static CodableAnyHashable decode(Decoder& decoder);

  bool operator==(const CodableAnyHashable&) const = default;

 private:
  AnyHashable value_;
};

/// A list or a dictionary of values of any type as one value; what is not hashable, or of a type
/// that nobody here knows, is dropped. Known are `AnyHashable`, `PreferenceObject`, the scalars,
/// texts, `Date`, `Data`, `UUID`, and such lists and dictionaries themselves.
TESSARINE_EXPORT AnyHashable anyHashableArray(const std::vector<std::any>& elements);
TESSARINE_EXPORT AnyHashable anyHashableDictionary(const std::map<std::string, std::any>& pairs);

}  // namespace tessarine
