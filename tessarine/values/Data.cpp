#include "tessarine/values/Data.hpp"

#include <algorithm>

namespace tessarine {
namespace {

constexpr std::string_view alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

}  // namespace

std::string Data::base64EncodedString() const {
  std::string text;
  text.reserve((bytes_.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes_.size(); i += 3) {
    const std::size_t count = std::min<std::size_t>(3, bytes_.size() - i);
    std::uint32_t group = 0;
    for (std::size_t j = 0; j < 3; ++j) group = group << 8U | (j < count ? bytes_[i + j] : 0U);
    for (std::size_t j = 0; j < 4; ++j) {
      text += j <= count ? alphabet[group >> (18 - 6 * j) & 63U] : '=';
    }
  }
  return text;
}

std::optional<Data> Data::fromBase64(std::string_view text) {
  if (text.size() % 4 != 0) return std::nullopt;
  const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
  std::vector<std::uint8_t> bytes;
  bytes.reserve(text.size() / 4 * 3);
  std::uint32_t group = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isPadding = i >= text.size() - padding;
    const std::size_t digit = isPadding ? 0 : alphabet.find(text[i]);
    if (digit == std::string_view::npos) return std::nullopt;
    group = group << 6U | static_cast<std::uint32_t>(digit);
    if (i % 4 != 3) continue;
    for (const unsigned shift : {16U, 8U, 0U}) {
      bytes.push_back(static_cast<std::uint8_t>(group >> shift));
    }
    group = 0;
  }
  bytes.resize(bytes.size() - padding);
  return Data(std::move(bytes));
}

}  // namespace tessarine
