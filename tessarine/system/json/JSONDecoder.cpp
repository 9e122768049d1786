#include "tessarine/system/json/JSONDecoder.hpp"

#include <utility>

#include "tessarine/system/json/internal/JSONReader.hpp"

namespace tessarine {

JSONDecoder::JSONDecoder() = default;
JSONDecoder::JSONDecoder(JSONDecoderOptions options) : options_(std::move(options)) {}

void JSONDecoder::decodeInto(DecodableSlot slot, std::string_view text) const {
  internal::JSONReader(text, options_).readDocument(slot);
}

}  // namespace tessarine
