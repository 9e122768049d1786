#pragma once

#include <any>
#include <concepts>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "tessarine/export.hpp"
#include "tessarine/values/Hashable.hpp"
#include "tessarine/values/PreferenceObject.hpp"

namespace tessarine {

class AnyHashable;

/// Any hashable value behind one type, with equality and hash. What is a property-list value is
/// kept as a `PreferenceObject`, so numbers of different C++ types compare by value; values of all
/// other types are equal when their types are the same and they compare equal. Lists and
/// dictionaries of such values are values too, whatever they hold. Immutable; cheap to copy.
class TESSARINE_EXPORT AnyHashable {
 public:
  using Array = std::vector<AnyHashable>;
  using Dictionary = std::map<std::string, AnyHashable, std::less<>>;

  AnyHashable(PreferenceObject object) noexcept
      : object_(std::move(object)) {}  // NOLINT(google-explicit-constructor)

  template <class T>
  requires(PreferenceBridged<T> && !std::same_as<T, PreferenceObject>) AnyHashable(const T& value)
      : object_(PreferenceBridge<T>::toObject(value)) {}  // NOLINT(google-explicit-constructor)
  AnyHashable(const char* text) : object_(text) {}        // NOLINT(google-explicit-constructor)

  // A list of property-list values is one, and equal to it.
  AnyHashable(Array elements);    // NOLINT(google-explicit-constructor)
  AnyHashable(Dictionary pairs);  // NOLINT(google-explicit-constructor)

  template <class T>
  requires(!std::same_as<T, AnyHashable> && !PreferenceBridged<T> &&
           Hashable<T>) explicit AnyHashable(T value)
      : box_(std::make_shared<const Box<T>>(std::move(value))) {}

  /// The value as a preference object, null when it is of a type that a preference store cannot
  /// hold.
  const PreferenceObject* preferenceObject() const noexcept {
    return box_ == nullptr ? &object_ : nullptr;
  }

  /// The direct dynamic cast: by the rules of `PreferenceBridge` for property-list values, by exact
  /// type for all others.
  /// Any list is an `Array` and any dictionary a `Dictionary`.
  template <class T>
  std::optional<T> cast() const {
    if constexpr (std::same_as<T, Array>) return array();
    if constexpr (std::same_as<T, Dictionary>) return dictionary();
    if (box_ == nullptr) return dynamicCast<T>(object_);
    if constexpr (!PreferenceBridged<T> && Hashable<T>) {
      if (box_->type() == typeid(T)) return static_cast<const Box<T>&>(*box_).value;
    }
    return std::nullopt;
  }

  bool operator==(const AnyHashable& other) const noexcept {
    if ((box_ == nullptr) != (other.box_ == nullptr)) return false;
    return box_ == nullptr ? object_ == other.object_ : box_->equals(*other.box_);
  }
  std::size_t hash() const noexcept { return box_ == nullptr ? object_.hash() : box_->hash(); }

 private:
  std::optional<Array> array() const;
  std::optional<Dictionary> dictionary() const;

  struct AnyBox {
    AnyBox() = default;
    AnyBox(const AnyBox&) = delete;
    AnyBox& operator=(const AnyBox&) = delete;
    virtual ~AnyBox() = default;
    virtual const std::type_info& type() const noexcept = 0;
    virtual bool equals(const AnyBox& other) const noexcept = 0;
    virtual std::size_t hash() const noexcept = 0;
  };
  template <class T>
  struct Box final : AnyBox {
    explicit Box(T v) : value(std::move(v)) {}
    const std::type_info& type() const noexcept override { return typeid(T); }
    bool equals(const AnyBox& other) const noexcept override {
      return other.type() == typeid(T) && static_cast<const Box&>(other).value == value;
    }
    std::size_t hash() const noexcept override { return std::hash<T>{}(value); }
    T value;
  };

  template <class Contents>
  struct ContentsBox;

  PreferenceObject object_;
  std::shared_ptr<const AnyBox> box_;
};

/// The same cast for a value of any type at all, as user information dictionaries hold them.
template <class T>
std::optional<T> dynamicCast(const std::any& value) {
  if (const T* same = std::any_cast<T>(&value)) return *same;
  if (const auto* object = std::any_cast<PreferenceObject>(&value)) return dynamicCast<T>(*object);
  if (const auto* hashable = std::any_cast<AnyHashable>(&value)) return hashable->cast<T>();
  return std::nullopt;
}

}  // namespace tessarine

template <>
struct std::hash<tessarine::AnyHashable> {
  std::size_t operator()(const tessarine::AnyHashable& value) const noexcept {
    return value.hash();
  }
};
