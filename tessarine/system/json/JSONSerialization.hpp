#pragma once

#include "tessarine/export.hpp"
#include "tessarine/system/json/JSONEncoder.hpp"
#include "tessarine/values/AnyHashable.hpp"
#include "tessarine/values/Data.hpp"

namespace tessarine::JSONSerialization {

struct ReadingOptions {
  bool fragmentsAllowed = true;  ///< a document may be a bare scalar
};

/// A JSON document as untyped values: `AnyHashable::Array`, `AnyHashable::Dictionary`, text,
/// number, `NSNull`. A number keeps its kind: without fraction and exponent an integer (signed, or
/// unsigned above the signed range), with one a double; an integer beyond 64 bits is refused. Of
/// duplicate keys the last wins. Throws `DecodingError` with the byte. Any thread.
TESSARINE_EXPORT AnyHashable jsonObject(const Data& data, ReadingOptions options = {});

/// Whether `data` has what is made of such values alone, without floats that are not finite.
TESSARINE_EXPORT bool isValidJSONObject(const AnyHashable& object);

/// The JSON text of such values. Throws `EncodingError` with the path for all others.
TESSARINE_EXPORT Data data(const AnyHashable& object, JSONOutputFormatting options = {});

/// Throws `DecodingError` with the byte unless `data` is one JSON document. Numbers may be beyond
/// every type.
TESSARINE_EXPORT void validate(const Data& data);

}  // namespace tessarine::JSONSerialization
