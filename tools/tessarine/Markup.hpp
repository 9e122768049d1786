#pragma once

#include <string>
#include <string_view>

namespace tessarine::tool {

/// `text` as it stands in HTML and SVG, between tags and in attributes.
std::string escapedMarkup(std::string_view text);

}  // namespace tessarine::tool
