#pragma once

#include <string_view>

#include "tessarine/system/json/internal/TextBuffer.hpp"

namespace tessarine::internal {

/// Writes `text` in quotes and escaped; ill-formed bytes become U+FFFD.
void writeJSONString(std::string_view text, bool escapesSlashes, TextBuffer& out);

}  // namespace tessarine::internal
