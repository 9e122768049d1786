#pragma once

#include <exception>
#include <optional>

#include "tessarine/coding/Decoder.hpp"
#include "tessarine/coding/Encoder.hpp"
#include "tessarine/system/json/JSONDecoder.hpp"
#include "tessarine/system/json/JSONEncoder.hpp"
#include "tessarine/values/Data.hpp"

namespace tessarine {

// One-line JSON. Any thread.

/// The JSON of any encodable value, by an encoder with default settings. Throws `EncodingError`.
template <Encodable T>
Data encoded(const T& value) {
  return JSONEncoder().encode(value);
}

/// The value that JSON holds, by a decoder with default settings. Throws `DecodingError`.
template <Decodable T>
T decoded(const Data& json) {
  return JSONDecoder().decode<T>(json);
}

/// A value that JSON can copy.
template <class T>
concept Imitable = Encodable<T> && Decodable<T>;

/// A copy of a value by way of JSON, which shares nothing with it; absent when it cannot be encoded
/// or decoded, whatever its own `encode` or `decode` throws.
template <Imitable T>
std::optional<T> deepCopy(const T& value) {
  try {
    return decoded<T>(encoded(value));
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

/// A value whose changes JSON can tell.
template <class T>
concept Distinguishable = Encodable<T> && Decodable<T>;

/// Whether the JSON of two values differs. Values that cannot be encoded count as not distinct.
template <Distinguishable T>
bool isDistinct(const T& value, const T& from) {
  try {
    return encoded(value) != encoded(from);
  } catch (const std::exception&) {
    return false;
  }
}

}  // namespace tessarine
