#pragma once

#include <atomic>
#include <memory>
#include <utility>

#include "tessarine/export.hpp"
#include "tessarine/system/dispatch/Block.hpp"

namespace tessarine {

/// Ends something, such as a subscription, once: on `cancel` or when it goes away. Hold it for as
/// long as that something shall last. Empty when made without an action or moved from.
class TESSARINE_EXPORT AnyCancellable {
 public:
  AnyCancellable() noexcept = default;
  explicit AnyCancellable(Block action);
  AnyCancellable(AnyCancellable&& other) noexcept = default;
  AnyCancellable& operator=(AnyCancellable&& other) noexcept;
  ~AnyCancellable();

  /// Runs the action unless it has run; any thread, and several at once.
  void cancel();

 private:
  struct Action {
    std::atomic<bool> isSpent{false};
    Block block;
  };
  std::unique_ptr<Action> action_;
};

}  // namespace tessarine
