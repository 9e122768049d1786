#pragma once

namespace tessarine {

/// A coordinate or a length on the screen, of 64 bits everywhere.
using CGFloat = double;

}  // namespace tessarine
