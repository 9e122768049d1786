#pragma once

#include <coroutine>
#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

namespace tessarine {

/// An array as an asynchronous sequence that is its own iterator. A value: copies are independent.
///
///     auto each = AsyncArraySequence<int>({1, 2, 3}).makeAsyncIterator();
///     while (auto number = co_await each.next()) sum += *number;
template <class T>
class AsyncArraySequence {
 public:
  using Element = T;
  using AsyncIterator = AsyncArraySequence;

  explicit AsyncArraySequence(std::vector<T> elements) noexcept : elements_(std::move(elements)) {}

  std::ptrdiff_t currentIndex() const noexcept { return currentIndex_; }
  const std::vector<T>& elements() const noexcept { return elements_; }

  /// A copy in the present state.
  AsyncArraySequence makeAsyncIterator() const { return *this; }

  /// Awaited for the element at the index, which it moves on; absent behind the last. Neither
  /// suspends nor fails.
  auto next() {
    struct Ready {
      std::optional<T> element;
      bool await_ready() const noexcept { return true; }
      void await_suspend(std::coroutine_handle<> /*coroutine*/) const noexcept {}
      std::optional<T> await_resume() { return std::move(element); }
    };
    const auto index = static_cast<std::size_t>(currentIndex_);
    if (index >= elements_.size()) return Ready{std::nullopt};
    ++currentIndex_;
    return Ready{elements_[index]};
  }

 private:
  std::ptrdiff_t currentIndex_ = 0;
  std::vector<T> elements_;
};

}  // namespace tessarine
