#include "tessarine/system/dispatch/AnyCancellable.hpp"

namespace tessarine {

AnyCancellable::AnyCancellable(Block action) : action_(std::make_unique<Action>()) {
  action_->block = std::move(action);
}

AnyCancellable& AnyCancellable::operator=(AnyCancellable&& other) noexcept {
  if (this != &other) {
    cancel();
    action_ = std::move(other.action_);
  }
  return *this;
}

AnyCancellable::~AnyCancellable() { cancel(); }

void AnyCancellable::cancel() {
  if (action_ && action_->block && !action_->isSpent.exchange(true)) action_->block();
}

}  // namespace tessarine
