#pragma once

#include <string_view>
#include <vector>

#include "tessarine/export.hpp"

namespace tessarine {

/// The characters of `text` as people see them: its extended grapheme clusters (UAX 29), in order,
/// pointing into it. Ill-formed bytes stand as they are. Any thread; linear time, without Unicode
/// tables while the text is ASCII.
TESSARINE_EXPORT std::vector<std::string_view> graphemeClusters(std::string_view text);

}  // namespace tessarine
