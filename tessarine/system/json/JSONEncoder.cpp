#include "tessarine/system/json/JSONEncoder.hpp"

#include <utility>

#include "tessarine/system/json/internal/JSONValueWriter.hpp"
#include "tessarine/values/internal/TextBuffer.hpp"

namespace tessarine {
namespace {

/// What a thread keeps for its next text; larger buffers go at once.
constexpr std::size_t largestKeptBuffer = std::size_t{4} * 1024 * 1024;

template <class Result, class Finish>
Result encoded(EncodableValue value, const JSONEncoderOptions& options, Finish finish) {
  thread_local internal::TextBuffer kept;
  // Taken out while in use: a value's own `encode` may encode another value.
  internal::TextBuffer buffer = std::exchange(kept, internal::TextBuffer());
  buffer.clear();
  internal::JSONValueWriter::writeDocument(value, options, buffer);
  Result result = finish(buffer.text());
  if (buffer.capacity() <= largestKeptBuffer) kept = std::move(buffer);
  return result;
}

}  // namespace

JSONEncoder::JSONEncoder() = default;
JSONEncoder::JSONEncoder(JSONEncoderOptions options) : options_(std::move(options)) {}

Data JSONEncoder::dataOf(EncodableValue value) const {
  return encoded<Data>(value, options_, [](std::string_view text) { return Data::fromText(text); });
}

std::string JSONEncoder::textOf(EncodableValue value) const {
  return encoded<std::string>(value, options_,
                              [](std::string_view text) { return std::string(text); });
}

}  // namespace tessarine
