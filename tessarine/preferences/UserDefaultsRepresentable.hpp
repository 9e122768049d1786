#pragma once

#include <concepts>
#include <optional>
#include <type_traits>
#include <utility>

#include "tessarine/values/AnyHashable.hpp"

namespace tessarine {

/// A type of the host's own that can be stored as a preference: it names, as the associated type
/// `T`, what `construct` yields, gives its stored form, and builds itself back from one (absent
/// when the form is no good).
///
/// ```cpp
/// struct Zoom {
///   using T = Zoom;
///   double factor;
///   bool operator==(const Zoom&) const = default;
///   AnyHashable userDefaultsRepresentation() const { return factor; }
///   static std::optional<Zoom> construct(const AnyHashable& from);
/// };
/// ```
template <class R>
concept UserDefaultsRepresentable = std::equality_comparable<R> &&
    requires(const R& value, const AnyHashable& from) {
  typename R::T;
  { value.userDefaultsRepresentation() } -> std::convertible_to<AnyHashable>;
  { R::construct(from) } -> std::convertible_to<std::optional<typename R::T>>;
};

/// Holds a representable value, or none, between a typed accessor and the store. Its `wrappedValue`
/// is the stored form, and goes straight into an accessor's `storeAsHashable` and
/// `readFromNullableHashable`.
template <UserDefaultsRepresentable Value>
requires std::same_as<typename Value::T, Value>
class UserDefaultWrappedObject {
 public:
  explicit UserDefaultWrappedObject(std::optional<Value> internalValue = std::nullopt)
      : internalValue_(std::move(internalValue)) {}

  const std::optional<Value>& internalValue() const noexcept { return internalValue_; }
  void setInternalValue(std::optional<Value> value) { internalValue_ = std::move(value); }

  /// The stored form of the value, absent when there is none.
  std::optional<AnyHashable> wrappedValue() const {
    if (!internalValue_) return std::nullopt;
    return AnyHashable(internalValue_->userDefaultsRepresentation());
  }
  /// Takes what `construct` makes of `form`; an absent form, or one that is no good, leaves no
  /// value.
  void setWrappedValue(const std::optional<AnyHashable>& form) {
    internalValue_ = form ? std::optional<Value>(Value::construct(*form)) : std::nullopt;
  }

  /// Two without value are equal; two values compare by their own equality.
  bool operator==(const UserDefaultWrappedObject& other) const {
    return internalValue_ == other.internalValue_;
  }

 private:
  std::optional<Value> internalValue_;
};

}  // namespace tessarine
