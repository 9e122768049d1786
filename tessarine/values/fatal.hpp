#pragma once

#include <string_view>

#include "tessarine/export.hpp"

namespace tessarine {

/// Ends the process for a programmer error: writes "Tessarine: " and `message` with a line feed to
/// standard error, then aborts. For broken preconditions only; input never leads here. Any thread.
[[noreturn]] TESSARINE_EXPORT void fatal(std::string_view message) noexcept;

}  // namespace tessarine
