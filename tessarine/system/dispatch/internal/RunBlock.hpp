#pragma once

#include "tessarine/system/dispatch/QueueNode.hpp"

namespace tessarine {
class DispatchQueue;
}

namespace tessarine::detail {

/// Runs and destroys the closure of `node`. An exception that leaves it ends the process with a
/// sentence that names `queue`.
void runBlock(AsyncNode& node, const DispatchQueue& queue) noexcept;

}  // namespace tessarine::detail
