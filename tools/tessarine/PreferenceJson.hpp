#pragma once

#include <string>
#include <string_view>

#include "JsonError.hpp"
#include "tessarine/values/PreferenceObject.hpp"

namespace tessarine::tool {

/// The JSON form of preferences, which keeps every kind. A number without fraction or exponent is
/// an integer (signed, or unsigned above the signed range), with one a 64-bit float; `{"$float":
/// 0.1}` is a 32-bit float, `{"$date": "2024-05-01T12:34:56.789Z"}` a date, `{"$data": "base64"}`
/// bytes,
/// `{"$uint": 1}` an unsigned number within the signed range, `{"$dictionary": {...}}` a dictionary
/// that has such a key itself. Floats that JSON has no number for are texts, `{"$float": "nan"}`
/// and
/// `{"$double": "inf"}`; dates outside years 0 to 9999 are their seconds since the reference date.
std::string jsonText(const PreferenceObject& object, bool pretty = false);

/// Reads that form. Nesting of 512 levels passes. Throws `JsonError`.
PreferenceObject objectFromJson(std::string_view text);

}  // namespace tessarine::tool
