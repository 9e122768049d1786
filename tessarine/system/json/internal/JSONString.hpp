#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "tessarine/values/internal/TextBuffer.hpp"

namespace tessarine::internal {

/// Writes `text` in quotes and escaped; ill-formed bytes become U+FFFD.
void writeJSONString(std::string_view text, bool escapesSlashes, TextBuffer& out);

/// An escape in a string that there is not, by its place.
struct JSONEscapeFault {
  std::size_t offset;
  std::string_view why;
};

/// Puts what `raw`, the inside of a string's quotes, stands for in `out`. The first stage has seen
/// to it that no backslash comes last.
std::optional<JSONEscapeFault> unescapeJSONString(std::string_view raw, std::string& out);

}  // namespace tessarine::internal
