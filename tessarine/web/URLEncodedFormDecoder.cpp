#include "tessarine/web/URLEncodedFormDecoder.hpp"

#include <utility>

#include "tessarine/web/internal/FormParser.hpp"
#include "tessarine/web/internal/FormValueDecoder.hpp"

namespace tessarine {

URLEncodedFormDecoder::URLEncodedFormDecoder() = default;
URLEncodedFormDecoder::URLEncodedFormDecoder(Options options) : options_(std::move(options)) {}

URLEncodedFormComponent URLEncodedFormDecoder::component(std::string_view form) {
  return internal::parseForm(form);
}

void URLEncodedFormDecoder::decodeInto(DecodableSlot slot,
                                       const URLEncodedFormComponent& root) const {
  internal::FormDecodingRun run{options_, {}};
  run.read(root, slot, nullptr);
}

}  // namespace tessarine
