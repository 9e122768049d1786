#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "tessarine/coding/Encoder.hpp"
#include "tessarine/export.hpp"
#include "tessarine/system/json/JSONStrategies.hpp"
#include "tessarine/values/Data.hpp"

namespace tessarine {

/// How the text looks.
struct JSONOutputFormatting {
  bool prettyPrinted = false;           ///< one member a line, indented by two spaces
  bool sortedKeys = false;              ///< objects by key, bytewise, and not in the order written
  bool withoutEscapingSlashes = false;  ///< "/" as it is, not as "\/"
};

struct JSONEncoderOptions {
  JSONOutputFormatting outputFormatting = {};
  JSONDateStrategy<std::function<void(Date, Encoder&)>> dateEncodingStrategy = {};
  JSONDataStrategy<std::function<void(const Data&, Encoder&)>> dataEncodingStrategy = {};
  JSONNonConformingFloatStrategy nonConformingFloatEncodingStrategy = {};
  JSONKeyStrategy keyEncodingStrategy = {};
  CodingUserInfo userInfo = {};
};

/// Writes encodable values as JSON (RFC 8259), UTF-8 without a byte order mark:
///
///     Data bytes = JSONEncoder().encode(order);
///     std::string text = JSONEncoder({.outputFormatting = {.prettyPrinted = true}}).text(order);
///
/// Keys come out in the order written (a key written twice keeps its first place and its second
/// value) and unordered maps by key, so equal values give equal bytes. Floats are their shortest
/// text with a fraction or an exponent; ill-formed bytes of texts become U+FFFD. Throws
/// `EncodingError` with the path for what JSON cannot hold: a float that is not finite (see the
/// strategy), nesting beyond 512 levels, a top-level value that encodes nothing. A value inside
/// that encodes nothing is an empty object. Immutable: one encoder may be used from many threads.
class TESSARINE_EXPORT JSONEncoder {
 public:
  JSONEncoder();
  explicit JSONEncoder(JSONEncoderOptions options);

  template <Encodable T>
  Data encode(const T& value) const {
    Data data;
    detail::withEncodable(value, [&](EncodableValue any) { data = dataOf(any); });
    return data;
  }
  template <Encodable T>
  std::string text(const T& value) const {
    std::string text;
    detail::withEncodable(value, [&](EncodableValue any) { text = textOf(any); });
    return text;
  }

  const JSONEncoderOptions& options() const noexcept { return options_; }

 private:
  Data dataOf(EncodableValue value) const;
  std::string textOf(EncodableValue value) const;

  JSONEncoderOptions options_;
};

}  // namespace tessarine
