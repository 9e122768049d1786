#pragma once

#include <concepts>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

#include "tessarine/export.hpp"
#include "tessarine/values/Data.hpp"
#include "tessarine/values/Date.hpp"
#include "tessarine/values/NSNumber.hpp"

namespace tessarine {

class PreferenceObject;

/// How a C++ type travels as a `PreferenceObject`. There is a bridge for every arithmetic type,
/// texts, `Date`, `Data`, `NSNumber`, `PreferenceObject` itself, and vectors and string-keyed maps
/// of bridged types. `fromObject` is the direct dynamic cast: a number becomes an arithmetic type
/// only when that holds it exactly, and every other kind only its own type.
template <class T>
struct PreferenceBridge;

namespace detail {
template <class T>
inline constexpr bool isBridged =
    std::is_arithmetic_v<T> || std::same_as<T, std::string> || std::same_as<T, Date> ||
    std::same_as<T, Data> || std::same_as<T, NSNumber> || std::same_as<T, PreferenceObject>;
template <class T>
inline constexpr bool isBridged<std::vector<T>> = isBridged<T>;
template <class T, class Compare>
inline constexpr bool isBridged<std::map<std::string, T, Compare>> = isBridged<T>;
template <class T>
inline constexpr bool isBridged<std::unordered_map<std::string, T>> = isBridged<T>;
}  // namespace detail

template <class T>
concept PreferenceBridged = detail::isBridged<T>;

/// A dynamically typed property-list value, as a preference store holds it: number (booleans
/// included), text, `Date`, `Data`, array or dictionary. "No value" is not one of them; where a
/// value may be missing, a `std::optional` says so.
///
/// An immutable value; a copy shares what is behind it and costs one reference count at most.
class TESSARINE_EXPORT PreferenceObject {
 public:
  using Array = std::vector<PreferenceObject>;
  using Dictionary = std::map<std::string, PreferenceObject, std::less<>>;
  enum class Kind : std::uint8_t { number, string, date, data, array, dictionary };

  /// The number 0.
  PreferenceObject() noexcept = default;

  // NOLINTBEGIN(google-explicit-constructor): these are the literal forms of a preference
  PreferenceObject(NSNumber number) noexcept : value_(number) {}
  PreferenceObject(Date date) noexcept : value_(date) {}
  PreferenceObject(std::string text) : value_(share(std::move(text))) {}
  PreferenceObject(std::string_view text) : PreferenceObject(std::string(text)) {}
  PreferenceObject(const char* text) : PreferenceObject(std::string(text)) {}
  PreferenceObject(Data data) : value_(share(std::move(data))) {}
  PreferenceObject(Array array) : value_(share(std::move(array))) {}
  PreferenceObject(Dictionary dictionary) : value_(share(std::move(dictionary))) {}
  template <class T>
  requires PreferenceBridged<T> PreferenceObject(const T& value)
      : PreferenceObject(PreferenceBridge<T>::toObject(value)) {}
  // NOLINTEND(google-explicit-constructor)

  Kind kind() const noexcept { return static_cast<Kind>(value_.index()); }

  /// The value if it is of that kind, else null. Valid as long as this object.
  const NSNumber* number() const noexcept { return std::get_if<NSNumber>(&value_); }
  const Date* date() const noexcept { return std::get_if<Date>(&value_); }
  const std::string* string() const noexcept { return shared<std::string>(); }
  const Data* data() const noexcept { return shared<Data>(); }
  const Array* array() const noexcept { return shared<Array>(); }
  const Dictionary* dictionary() const noexcept { return shared<Dictionary>(); }

  /// Same kind and equal contents; numbers compare by value whatever their kind of number.
  bool operator==(const PreferenceObject& other) const noexcept;

  /// As `==`, but a number also has to be of the same kind of number, and floats and dates of the
  /// same bits.
  bool isIdenticalTo(const PreferenceObject& other) const noexcept;

  std::size_t hash() const noexcept;

 private:
  template <class T>
  using Shared = std::shared_ptr<const T>;

  template <class T>
  static Shared<T> share(T value) {
    return std::make_shared<const T>(std::move(value));
  }
  template <class T>
  const T* shared() const noexcept {
    const auto* pointer = std::get_if<Shared<T>>(&value_);
    return pointer != nullptr ? pointer->get() : nullptr;
  }

  // In the order of Kind.
  std::variant<NSNumber, Shared<std::string>, Date, Shared<Data>, Shared<Array>, Shared<Dictionary>>
      value_;
};

/// `object` as a `T` by the direct dynamic cast, absent when it is of another type, or a number
/// that `T` does not hold exactly. Always absent for a `T` without a bridge.
template <class T>
std::optional<T> dynamicCast(const PreferenceObject& object) {
  if constexpr (PreferenceBridged<T>) {
    return PreferenceBridge<T>::fromObject(object);
  } else {
    return std::nullopt;
  }
}

template <class T>
std::optional<T> dynamicCast(const std::optional<PreferenceObject>& object) {
  return object ? dynamicCast<T>(*object) : std::nullopt;
}

// ---- bridges ----

template <class T>
requires std::is_arithmetic_v<T>
struct PreferenceBridge<T> {
  static PreferenceObject toObject(T value) { return NSNumber(value); }
  static std::optional<T> fromObject(const PreferenceObject& object) {
    const NSNumber* number = object.number();
    return number != nullptr ? number->exactly<T>() : std::nullopt;
  }
};

template <>
struct PreferenceBridge<PreferenceObject> {
  static PreferenceObject toObject(const PreferenceObject& value) { return value; }
  static std::optional<PreferenceObject> fromObject(const PreferenceObject& object) {
    return object;
  }
};

namespace detail {
template <class T, const T* (PreferenceObject::*access)() const noexcept>
struct KindBridge {
  static PreferenceObject toObject(const T& value) { return PreferenceObject(value); }
  static std::optional<T> fromObject(const PreferenceObject& object) {
    const T* value = (object.*access)();
    return value != nullptr ? std::optional<T>(*value) : std::nullopt;
  }
};

template <class Map>
struct MapBridge {
  static PreferenceObject toObject(const Map& map) {
    PreferenceObject::Dictionary dictionary;
    for (const auto& [key, value] : map) dictionary.emplace(key, PreferenceObject(value));
    return PreferenceObject(std::move(dictionary));
  }
  static std::optional<Map> fromObject(const PreferenceObject& object) {
    const PreferenceObject::Dictionary* dictionary = object.dictionary();
    if (dictionary == nullptr) return std::nullopt;
    Map map;
    for (const auto& [key, element] : *dictionary) {
      auto value = dynamicCast<typename Map::mapped_type>(element);
      if (!value) return std::nullopt;
      map.emplace(key, std::move(*value));
    }
    return map;
  }
};
}  // namespace detail

template <>
struct PreferenceBridge<NSNumber> : detail::KindBridge<NSNumber, &PreferenceObject::number> {};
template <>
struct PreferenceBridge<std::string> : detail::KindBridge<std::string, &PreferenceObject::string> {
};
template <>
struct PreferenceBridge<Date> : detail::KindBridge<Date, &PreferenceObject::date> {};
template <>
struct PreferenceBridge<Data> : detail::KindBridge<Data, &PreferenceObject::data> {};
template <>
struct PreferenceBridge<PreferenceObject::Array>
    : detail::KindBridge<PreferenceObject::Array, &PreferenceObject::array> {};
template <>
struct PreferenceBridge<PreferenceObject::Dictionary>
    : detail::KindBridge<PreferenceObject::Dictionary, &PreferenceObject::dictionary> {};

template <class T>
requires(PreferenceBridged<T> &&
         !std::same_as<T, PreferenceObject>) struct PreferenceBridge<std::vector<T>> {
  static PreferenceObject toObject(const std::vector<T>& values) {
    PreferenceObject::Array array;
    array.reserve(values.size());
    for (const auto& value : values) array.push_back(PreferenceObject(static_cast<T>(value)));
    return PreferenceObject(std::move(array));
  }
  static std::optional<std::vector<T>> fromObject(const PreferenceObject& object) {
    const PreferenceObject::Array* array = object.array();
    if (array == nullptr) return std::nullopt;
    std::vector<T> values;
    values.reserve(array->size());
    for (const auto& element : *array) {
      auto value = dynamicCast<T>(element);
      if (!value) return std::nullopt;
      values.push_back(std::move(*value));
    }
    return values;
  }
};

template <class T, class Compare>
requires(PreferenceBridged<T> &&
         !std::same_as<std::map<std::string, T, Compare>,
                       PreferenceObject::Dictionary>) struct PreferenceBridge<std::map<std::string,
                                                                                       T, Compare>>
    : detail::MapBridge<std::map<std::string, T, Compare>> {
};

template <class T>
requires PreferenceBridged<T>
struct PreferenceBridge<std::unordered_map<std::string, T>>
    : detail::MapBridge<std::unordered_map<std::string, T>> {
};

}  // namespace tessarine

template <>
struct std::hash<tessarine::PreferenceObject> {
  std::size_t operator()(const tessarine::PreferenceObject& object) const noexcept {
    return object.hash();
  }
};
