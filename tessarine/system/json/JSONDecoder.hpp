#pragma once

#include <functional>
#include <string_view>

#include "tessarine/coding/Decoder.hpp"
#include "tessarine/export.hpp"
#include "tessarine/system/json/JSONStrategies.hpp"
#include "tessarine/values/Data.hpp"

namespace tessarine {

struct JSONDecoderOptions {
  JSONDateStrategy<std::function<Date(Decoder&)>> dateDecodingStrategy = {};
  JSONDataStrategy<std::function<Data(Decoder&)>> dataDecodingStrategy = {};
  JSONNonConformingFloatStrategy nonConformingFloatDecodingStrategy = {};
  JSONKeyStrategy keyDecodingStrategy = {};
  CodingUserInfo userInfo = {};
};

/// Reads decodable values from JSON:
///
///     Order order = JSONDecoder().decode<Order>(text);
///
/// The whole text has to be one JSON document (RFC 8259; a scalar is one), of at most 4 GB and 512
/// levels of nesting, well-formed UTF-8 (a byte order mark in front is passed over) without lone
/// surrogates. Of duplicate keys the last wins; unknown keys are ignored. A number is read as an
/// integer when it is one and fits, whatever its notation, except that -0.0 is none; integers
/// beyond 64 bits are read as 128-bit integers, `Decimal` and floats. Throws `DecodingError` with
/// the path and the byte; `dataCorrupted` before all others when the text is no JSON. Immutable:
/// one decoder may be used from many threads. Linear time.
class TESSARINE_EXPORT JSONDecoder {
 public:
  JSONDecoder();
  explicit JSONDecoder(JSONDecoderOptions options);

  template <Decodable T>
  T decode(const Data& data) const {
    return decode<T>(data.text());
  }
  template <Decodable T>
  T decode(std::string_view text) const {
    return detail::decoded<T>([&](DecodableSlot slot) { decodeInto(slot, text); });
  }

  const JSONDecoderOptions& options() const noexcept { return options_; }

 private:
  void decodeInto(DecodableSlot slot, std::string_view text) const;

  JSONDecoderOptions options_;
};

}  // namespace tessarine
