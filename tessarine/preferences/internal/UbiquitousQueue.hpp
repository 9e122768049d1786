#pragma once

#include "tessarine/preferences/UbiquitousController.hpp"

namespace tessarine {

/// Runs `work` in the controller's queue: here, if this code runs there already.
template <class Work>
auto UbiquitousController::onQueue(Work work) const {
  if (DispatchQueue::getSpecific(queueSpecificKey_) == queueSpecificValue) return work();
  return queue_->sync(work);
}

}  // namespace tessarine
