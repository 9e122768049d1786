#pragma once

#include <concepts>
#include <cstddef>
#include <functional>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace tessarine {

class Block;

namespace detail {

inline constexpr std::size_t blockCapacity = 48;
inline constexpr std::size_t blockAlignment = 16;

/// What can be done to a closure whose type is forgotten; it lies in `blockCapacity` bytes.
struct BlockOperations {
  void (*call)(void* storage);
  void (*callAndDestroy)(void* storage);
  void (*relocate)(void* to, void* from) noexcept;
  void (*destroy)(void* storage) noexcept;
};

template <class F>
inline constexpr bool fitsInBlock =
    (sizeof(F) <= blockCapacity) &&
    (std::alignment_of_v<F> <= blockAlignment) && std::is_nothrow_move_constructible_v<F>;

/// A closure that lies in the storage itself.
template <class F>
struct StoredHere {
  static F& at(void* storage) { return *std::launder(static_cast<F*>(storage)); }
  static void call(void* storage) { std::invoke(at(storage)); }
  static void callAndDestroy(void* storage) {
    std::invoke(at(storage));
    at(storage).~F();
  }
  static void relocate(void* to, void* from) noexcept {
    ::new (to) F(std::move(at(from)));
    at(from).~F();
  }
  static void destroy(void* storage) noexcept { at(storage).~F(); }
  static constexpr BlockOperations operations{call, callAndDestroy, relocate, destroy};
};

/// A closure too large for the storage, which then holds its address.
template <class F>
struct StoredApart {
  static F*& at(void* storage) { return *std::launder(static_cast<F**>(storage)); }
  static void call(void* storage) { std::invoke(*at(storage)); }
  static void callAndDestroy(void* storage) {
    std::invoke(*at(storage));
    delete at(storage);
  }
  static void relocate(void* to, void* from) noexcept { ::new (to) F*(at(from)); }
  static void destroy(void* storage) noexcept { delete at(storage); }
  static constexpr BlockOperations operations{call, callAndDestroy, relocate, destroy};
};

/// Moves `f` into `storage` and answers the operations for it. Allocates only when it does not fit.
template <class F>
const BlockOperations* storeBlock(void* storage, F&& f) {
  using Closure = std::decay_t<F>;
  if constexpr (fitsInBlock<Closure>) {
    ::new (storage) Closure(std::forward<F>(f));
    return &StoredHere<Closure>::operations;
  } else {
    ::new (storage) Closure*(std::make_unique<Closure>(std::forward<F>(f)).release());
    return &StoredApart<Closure>::operations;
  }
}

template <class F>
concept BlockSource = std::invocable < std::decay_t<F>
& > &&std::is_constructible_v<std::decay_t<F>, F>;

template <class F, class Owner>
concept ClosureFor = !std::is_same_v<std::decay_t<F>, Owner> && BlockSource<F>;

}  // namespace detail

/// Any callable without arguments, owned. Move-only, so it carries closures that hold unique
/// objects. Closures of up to 48 bytes (nothrow movable) lie inside; larger ones take one
/// allocation. A moved-from or default-made block is empty; calling it is undefined. Results are
/// dropped. Like any value, one block is not for two threads at once.
///
///     Block block = [file = std::move(file)] { file->flush(); };
///     block();
class Block {
 public:
  Block() noexcept = default;

  template <detail::ClosureFor<Block> F>
  // Hides no move: the concept leaves blocks themselves out.
  // NOLINTNEXTLINE(bugprone-forwarding-reference-overload)
  Block(F&& f) : operations_(detail::storeBlock(storage_, std::forward<F>(f))) {}

  Block(Block&& other) noexcept { take(other); }
  Block& operator=(Block&& other) noexcept {
    if (this != &other) {
      clear();
      take(other);
    }
    return *this;
  }
  ~Block() { clear(); }

  explicit operator bool() const noexcept { return operations_ != nullptr; }
  void operator()() { operations_->call(storage_); }

  /// Moves the closure to `storage` of `detail::blockCapacity` bytes; this block is empty then.
  const detail::BlockOperations* releaseTo(void* storage) noexcept {
    if (operations_) operations_->relocate(storage, storage_);
    return std::exchange(operations_, nullptr);
  }

 private:
  void take(Block& other) noexcept { operations_ = other.releaseTo(storage_); }
  void clear() noexcept {
    if (operations_) operations_->destroy(storage_);
    operations_ = nullptr;
  }

  const detail::BlockOperations* operations_ = nullptr;
  alignas(detail::blockAlignment) std::byte storage_[detail::blockCapacity];
};

}  // namespace tessarine
