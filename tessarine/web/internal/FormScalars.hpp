#pragma once

#include <string>

#include "tessarine/coding/Decoder.hpp"
#include "tessarine/web/URLEncodedFormDecoder.hpp"

namespace tessarine::internal {

/// Whether a value of that kind is read from one text by these options.
bool isFormScalar(ShapeKind kind, const URLEncodedFormDecoder::Options& options) noexcept;

/// Reads such a value; false when the text is none.
bool readFormScalar(const std::string& text, DecodableSlot slot,
                    const URLEncodedFormDecoder::Options& options);

}  // namespace tessarine::internal
