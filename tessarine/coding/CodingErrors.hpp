#pragma once

#include <any>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>

#include "tessarine/coding/CodingKey.hpp"
#include "tessarine/export.hpp"

namespace tessarine {

/// Where and why a coder failed.
struct CodingErrorContext {
  CodingPath codingPath;
  std::string debugDescription;
  /// What caused it, null when nothing did.
  std::exception_ptr underlyingError = nullptr;
  /// Where in the text that is read, in bytes from its start; absent where there is no text.
  std::optional<std::size_t> byteOffset = std::nullopt;
};

/// The failure of an encoder: it cannot write `value`. `what()` is the description, followed by the
/// path where there is one.
class TESSARINE_EXPORT EncodingError : public std::exception {
 public:
  enum class Case : std::uint8_t { invalidValue };

  static EncodingError invalidValue(std::any value, CodingErrorContext context);

  Case kind() const noexcept { return Case::invalidValue; }
  /// The value that could not be written; empty when its type cannot be copied.
  const std::any& value() const noexcept { return value_; }
  const CodingErrorContext& context() const noexcept { return context_; }
  const char* what() const noexcept override { return text_.c_str(); }

 private:
  EncodingError(std::any value, CodingErrorContext context);

  std::any value_;
  CodingErrorContext context_;
  std::string text_;
};

/// The failure of a decoder. `what()` is the description, followed by the path and the byte where
/// there are such: `Expected int32 but found text: orders[3].quantity (byte 120)`.
class TESSARINE_EXPORT DecodingError : public std::exception {
 public:
  enum class Case : std::uint8_t { typeMismatch, valueNotFound, keyNotFound, dataCorrupted };

  DecodingError(Case kind, CodingErrorContext context);
  /// The missing key stands in the error, its place in the context.
  static DecodingError keyNotFound(AnyCodingKey key, CodingErrorContext context);

  Case kind() const noexcept { return kind_; }
  /// The missing key of `keyNotFound`.
  const std::optional<AnyCodingKey>& key() const noexcept { return key_; }
  const CodingErrorContext& context() const noexcept { return context_; }
  const char* what() const noexcept override { return text_.c_str(); }

 private:
  Case kind_;
  std::optional<AnyCodingKey> key_;
  CodingErrorContext context_;
  std::string text_;
};

}  // namespace tessarine
