#include "tessarine/values/UUID.hpp"

#include <cerrno>

#include "tessarine/values/fatal.hpp"
#include "tessarine/values/hexadecimalDigit.hpp"

#include <sys/random.h>

namespace tessarine {
namespace {

constexpr std::size_t textLength = 36;

constexpr bool isHyphenAt(std::size_t i) { return i == 8 || i == 13 || i == 18 || i == 23; }

}  // namespace

UUID UUID::random() {
  Bytes bytes;
  ssize_t got = 0;
  do {
    got = ::getrandom(bytes.data(), bytes.size(), 0);
  } while (got < 0 && errno == EINTR);
  // The kernel gives up to 256 bytes whole; only a kernel without the call fails.
  if (got != static_cast<ssize_t>(bytes.size())) fatal("The system gives no random bytes");
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0FU) | 0x40U);  // version 4
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3FU) | 0x80U);  // variant of RFC 4122
  return UUID(bytes);
}

std::optional<UUID> UUID::fromString(std::string_view text) noexcept {
  if (text.size() != textLength) return std::nullopt;
  Bytes bytes{};
  std::size_t digits = 0;
  for (std::size_t i = 0; i < textLength; ++i) {
    if (isHyphenAt(i)) {
      if (text[i] != '-') return std::nullopt;
      continue;
    }
    const int value = hexadecimalDigit(text[i]);
    if (value < 0) return std::nullopt;
    auto& byte = bytes[digits++ / 2];
    byte = static_cast<std::uint8_t>(byte << 4U | static_cast<unsigned>(value));
  }
  return UUID(bytes);
}

std::string UUID::uuidString() const {
  constexpr std::string_view hexadecimal = "0123456789ABCDEF";
  std::string text;
  text.reserve(textLength);
  for (const std::uint8_t byte : bytes_) {
    if (isHyphenAt(text.size())) text += '-';
    text += hexadecimal[byte >> 4U];
    text += hexadecimal[byte & 15U];
  }
  return text;
}

}  // namespace tessarine
