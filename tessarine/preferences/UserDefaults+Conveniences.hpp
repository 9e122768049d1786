#pragma once

#include <exception>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>

#include "tessarine/system/store/UserDefaults.hpp"

namespace tessarine {

// Short forms for hosts that speak to a store without an accessor. Any thread.

/// The value under `key` by the direct dynamic cast: absent when the key is missing, or a 32-bit
/// float does not hold the number exactly.
inline std::optional<float> floatForKey(const UserDefaults& defaults, std::string_view key) {
  return dynamicCast<float>(defaults.object(key));
}

/// The value under `key`, absent when the key is missing or holds no date.
inline std::optional<Date> dateForKey(const UserDefaults& defaults, std::string_view key) {
  return dynamicCast<Date>(defaults.object(key));
}

/// Turns values into bytes and back, as JSON coders do; both throw when they cannot.
template <class Coder, class T>
concept DataDecoderFor = requires(Coder& coder, const Data& data) {
  { coder.template decode<T>(data) } -> std::convertible_to<T>;
};
template <class Coder, class T>
concept DataEncoderFor = requires(Coder& coder, const T& value) {
  { coder.encode(value) } -> std::convertible_to<Data>;
};

/// The value whose encoded bytes lie under `key`, absent when the key is missing, holds no data, or
/// decoding fails.
template <class T, class Decoder>
requires DataDecoderFor<Decoder, T> std::optional<T> objectForKey(const UserDefaults& defaults,
                                                                  std::string_view key,
                                                                  Decoder&& decoder) {
  const auto data = dynamicCast<Data>(defaults.value(key));
  if (!data) return std::nullopt;
  try {
    return decoder.template decode<T>(*data);
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

/// Stores the encoded bytes of `object` under `key`. When encoding fails the key is removed.
template <class T, class Encoder>
requires DataEncoderFor<Encoder, T>
void setObject(UserDefaults& defaults, const T& object, std::string_view key, Encoder&& encoder) {
  std::optional<PreferenceObject> stored;
  try {
    stored = PreferenceObject(Data(encoder.encode(object)));
  } catch (const std::exception&) {
    stored.reset();
  }
  defaults.set(std::move(stored), key);
}

}  // namespace tessarine
