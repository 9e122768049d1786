#pragma once

#include <memory>

#include "tessarine/export.hpp"
#include "tessarine/system/dispatch/OperationQueue.hpp"

namespace tessarine {

/// Adds `operation` so that it begins once the last one in `queue` has finished, whatever their
/// priorities. One that is cancelled counts as finished and holds nothing back. `queue` must run
/// one operation at a time: all else is a programmer error. For one thread at a time on a queue.
TESSARINE_EXPORT void addOperationAfterLast(OperationQueue& queue,
                                            std::shared_ptr<Operation> operation);

}  // namespace tessarine
