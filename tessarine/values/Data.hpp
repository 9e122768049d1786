#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tessarine/export.hpp"

namespace tessarine {

/// Bytes, as a value.
class TESSARINE_EXPORT Data {
 public:
  Data() = default;
  explicit Data(std::vector<std::uint8_t> bytes) noexcept : bytes_(std::move(bytes)) {}
  /// The bytes of `text`, as they are.
  static Data fromText(std::string_view text) { return Data({text.begin(), text.end()}); }

  /// The bytes of a base64 text: the standard alphabet with complete padding and nothing else;
  /// unused bits may be non-zero. Absent for any other text.
  static std::optional<Data> fromBase64(std::string_view text);
  std::string base64EncodedString() const;

  const std::vector<std::uint8_t>& bytes() const noexcept { return bytes_; }
  std::vector<std::uint8_t>& bytes() noexcept { return bytes_; }
  /// The bytes seen as text; valid as long as this value is unchanged.
  std::string_view text() const noexcept {
    return {reinterpret_cast<const char*>(bytes_.data()), bytes_.size()};
  }

  bool operator==(const Data&) const = default;

 private:
  std::vector<std::uint8_t> bytes_;
};

}  // namespace tessarine

template <>
struct std::hash<tessarine::Data> {
  std::size_t operator()(const tessarine::Data& data) const noexcept {
    return std::hash<std::string_view>{}(data.text());
  }
};
