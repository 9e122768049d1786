#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

namespace tessarine::internal {

/// Where the tokens of a JSON text begin: brackets, commas, colons, the opening quotes of strings,
/// and the first bytes of everything else that is not white space. Found by simdjson's first stage,
/// which also sees to it that the text is UTF-8, that strings end, and that they hold no controls.
class JSONStructure {
 public:
  /// Throws `DecodingError` with the byte at which the text is at fault.
  explicit JSONStructure(std::string_view text);
  ~JSONStructure();
  JSONStructure(const JSONStructure&) = delete;
  JSONStructure& operator=(const JSONStructure&) = delete;

  /// Offsets into the text, ascending.
  std::span<const std::uint32_t> starts() const noexcept;

  struct Scanner;

 private:
  std::unique_ptr<Scanner> scanner_;
};

/// A text without the byte order mark that some programs put in front.
std::string_view withoutByteOrderMark(std::string_view text) noexcept;

}  // namespace tessarine::internal
