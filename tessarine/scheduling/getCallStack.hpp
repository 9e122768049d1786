#pragma once

#include <string>

#include "tessarine/export.hpp"

namespace tessarine {

/// The calls that led here, innermost first, as text for a log: one line a call with its number
/// and, as far as the system knows them, module, function and address. At most 128 calls. Any
/// thread, not from a signal handler.
TESSARINE_EXPORT std::string getCallStack();

}  // namespace tessarine
