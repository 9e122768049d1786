#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "tessarine/coding/Decoder.hpp"
#include "tessarine/coding/Encoder.hpp"
#include "tessarine/export.hpp"
#include "tessarine/values/AnyHashable.hpp"

namespace tessarine {

/// A dictionary of loosely typed values under text keys that passes through encoders and decoders,
/// each value as a `CodableAnyHashable`. The first failure stops it and is passed on.
class TESSARINE_EXPORT CodableDictionary {
 public:
  using Dictionary = AnyHashable::Dictionary;

  /// A coding key of any text, and of no integer.
  class CodingKeys {
   public:
    static std::optional<CodingKeys> fromString(std::string_view text) { return CodingKeys(text); }
    static std::optional<CodingKeys> fromInt(std::int64_t /*number*/) { return std::nullopt; }
    const std::string& stringValue() const noexcept { return text_; }
    std::optional<std::int64_t> intValue() const noexcept { return std::nullopt; }

   private:
    explicit CodingKeys(std::string_view text) : text_(text) {}
    std::string text_;
  };

  CodableDictionary() = default;
  explicit CodableDictionary(Dictionary dictionary) noexcept : dictionary_(std::move(dictionary)) {}

  const Dictionary& dictionary() const noexcept { return dictionary_; }
  void setDictionary(Dictionary dictionary) noexcept { dictionary_ = std::move(dictionary); }

  void encode(Encoder& encoder) const;
  static CodableDictionary decode(Decoder& decoder);

  bool operator==(const CodableDictionary&) const = default;

 private:
  Dictionary dictionary_;
};

}  // namespace tessarine
