#include "tessarine/system/json/internal/JSONStructure.hpp"

#include <algorithm>
#include <string>
#include <utility>

#include "tessarine/coding/CodingErrors.hpp"
#include "tessarine/values/utf8.hpp"

#include <simdjson.h>

namespace tessarine::internal {

struct JSONStructure::Scanner {
  std::unique_ptr<simdjson::internal::dom_parser_implementation> parser;
};

namespace {

/// A scanner for texts up to this size stays with its thread; four bytes of it go with each.
constexpr std::size_t largestKept = std::size_t{2} * 1024 * 1024;
constexpr std::size_t smallestMade = 4096;

std::unique_ptr<JSONStructure::Scanner>& keptScanner() {
  thread_local std::unique_ptr<JSONStructure::Scanner> kept;
  return kept;
}

[[noreturn]] void fail(std::string why, std::size_t offset) {
  throw DecodingError(DecodingError::Case::dataCorrupted,
                      {{}, "The text is no JSON: " + std::move(why), nullptr, offset});
}

/// Says where and why, going through the text byte by byte once it is known to be at fault.
[[noreturn]] void failAtFault(std::string_view text) {
  std::size_t opening = std::string_view::npos;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t size = utf8CharacterSize(text.substr(at, 4));
    if (size == 0) fail("ill-formed UTF-8", at);
    const char c = text[at];
    if (opening == std::string_view::npos) {
      if (c == '"') opening = at;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      fail("a control character in a string", at);
    } else if (c == '\\' && at + 1 < text.size() &&
               static_cast<unsigned char>(text[at + 1]) >= 0x20 && text[at + 1] > 0) {
      ++at;
    } else if (c == '"') {
      opening = std::string_view::npos;
    }
    at += size;
  }
  if (opening != std::string_view::npos) fail("a string without an end", opening);
  fail("no value", text.size());
}

std::unique_ptr<JSONStructure::Scanner> scannerFor(std::size_t size) {
  auto scanner = std::move(keptScanner());
  if (scanner != nullptr && scanner->parser->capacity() >= size) return scanner;
  scanner = std::make_unique<JSONStructure::Scanner>();
  // One level: nesting is counted by those who walk the tokens.
  const auto error = simdjson::get_active_implementation()->create_dom_parser_implementation(
      std::max(size, smallestMade), 1, scanner->parser);
  if (error != simdjson::SUCCESS) throw std::bad_alloc();
  return scanner;
}

}  // namespace

JSONStructure::JSONStructure(std::string_view text) {
  if (text.size() > simdjson::SIMDJSON_MAXSIZE_BYTES) fail("more than 4 GB", text.size());
  if (text.empty()) fail("no value", 0);
  scanner_ = scannerFor(text.size());
  const auto error = scanner_->parser->stage1(reinterpret_cast<const std::uint8_t*>(text.data()),
                                              text.size(), simdjson::stage1_mode::regular);
  if (error != simdjson::SUCCESS) failAtFault(text);
}

JSONStructure::~JSONStructure() {
  if (scanner_ != nullptr && scanner_->parser->capacity() <= largestKept) {
    keptScanner() = std::move(scanner_);
  }
}

std::span<const std::uint32_t> JSONStructure::starts() const noexcept {
  return {scanner_->parser->structural_indexes.get(), scanner_->parser->n_structural_indexes};
}

std::string_view withoutByteOrderMark(std::string_view text) noexcept {
  constexpr std::string_view mark = "\xEF\xBB\xBF";
  return text.starts_with(mark) ? text.substr(mark.size()) : text;
}

}  // namespace tessarine::internal
