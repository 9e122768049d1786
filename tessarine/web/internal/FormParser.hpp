#pragma once

#include <string_view>

#include "tessarine/web/URLEncodedFormComponent.hpp"

namespace tessarine::internal {

/// The tree of a form's text; throws `DecodingError` with the byte where the text is at fault.
URLEncodedFormComponent parseForm(std::string_view form);

}  // namespace tessarine::internal
