#pragma once

#include <concepts>
#include <functional>
#include <optional>
#include <utility>

#include "tessarine/system/dispatch/AnyCancellable.hpp"

namespace tessarine {

/// The failure of what cannot fail; there is no value of it.
struct Never {
  Never() = delete;
};

/// How a publisher ended: finished, or failed with `failure`.
template <class Failure>
struct Completion {
  static Completion finished() { return {}; }
  static Completion failed(Failure error) requires(!std::same_as<Failure, Never>) {
    return {std::move(error)};
  }
  bool isFinished() const noexcept { return !failure; }

  std::optional<Failure> failure;
};

/// Sends values over time, then completes at most once. `sink` subscribes: the callbacks get each
/// value, then the completion, until the answered `AnyCancellable` is cancelled or goes away.
template <class P>
concept Publisher = requires(const P& publisher,
                             std::function<void(const Completion<typename P::Failure>&)> completion,
                             std::function<void(const typename P::Output&)> value) {
  { publisher.sink(completion, value) } -> std::same_as<AnyCancellable>;
};

}  // namespace tessarine
