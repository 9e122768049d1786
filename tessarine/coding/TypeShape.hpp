#pragma once

#include <algorithm>
#include <any>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <typeinfo>

#include "tessarine/values/FunctionRef.hpp"
#include "tessarine/values/Int128.hpp"

namespace tessarine {

class Encoder;
class Decoder;
struct TypeShape;

// What an encoder or decoder sees of a host's type: a constant table made by the compiler from the
// type itself or from its `codingFields`, so that back-ends are plain functions over tables. Hosts
// meet it only when they write a back-end of their own.

enum class ShapeKind : std::uint8_t {
  boolean,
  int8,
  int16,
  int32,
  int64,
  int128,
  uint8,
  uint16,
  uint32,
  uint64,
  uint128,
  float32,
  float64,
  text,      ///< std::string
  textView,  ///< std::string_view; written only
  date,
  data,
  uuid,
  decimal,
  enumeration,
  optional,
  sequence,
  map,
  object,  ///< a type with `codingFields`
  custom,  ///< a type with nothing but its own `encode` and `decode`
};

struct EncodableValue;

/// A short plain name in quotes with a colon behind it, as most JSON has a key; none for others.
struct QuotedName {
  static constexpr std::size_t capacity = 16;

  constexpr QuotedName(std::string_view name, bool isPlain) noexcept {
    if (!isPlain || name.size() + 3 > capacity) return;
    bytes[size++] = '"';
    for (const char c : name) bytes[size++] = c;
    bytes[size++] = '"';
    bytes[size++] = ':';
  }

  std::array<char, capacity> bytes{};
  std::uint32_t size = 0;
};

/// A described member: its key, where it lies in an object, and what it is.
class FieldShape {
 public:
  constexpr FieldShape(std::string_view fieldName, const TypeShape* fieldShape,
                       void* (*locate)(void* object)) noexcept;

  const std::string_view name;
  const TypeShape* const shape;
  const bool isPlainName;  ///< nothing but ASCII letters, digits, "_", "-" and "."
  const QuotedName quotedName;

  /// The member of `object`. Asks only once where it lies, which calls through a pointer.
  void* address(void* object) const noexcept {
    std::ptrdiff_t offset = offset_.load(std::memory_order_relaxed);
    if (offset == unknown) {
      offset = static_cast<char*>(locate_(object)) - static_cast<char*>(object);
      offset_.store(offset, std::memory_order_relaxed);
    }
    return static_cast<char*>(object) + offset;
  }
  /// What is written of the member: of an optional one what it holds, at null when it is absent.
  inline EncodableValue valueIn(const void* object) const;

 private:
  static constexpr std::ptrdiff_t unknown = -1;

  void* (*locate_)(void* object);
  mutable std::atomic<std::ptrdiff_t> offset_{unknown};
};

namespace detail {
constexpr bool isPlainName(std::string_view name) {
  return std::all_of(name.begin(), name.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '-' || c == '.';
  });
}

}  // namespace detail

constexpr FieldShape::FieldShape(std::string_view fieldName, const TypeShape* fieldShape,
                                 void* (*locate)(void* object)) noexcept
    : name(fieldName),
      shape(fieldShape),
      isPlainName(detail::isPlainName(fieldName)),
      quotedName(fieldName, isPlainName),
      locate_(locate) {}

struct OptionalShape {
  const TypeShape* wrapped;
  const TypeShape* slot;                     ///< what `fill` is given; another type only where the
                                             ///< wrapped one cannot be made without reading it
  const void* (*get)(const void* optional);  ///< null when absent
  void (*assign)(void* optional, FunctionRef<void(void*)> fill);
  void (*reset)(void* optional);
};

struct SequenceShape {
  const TypeShape* element;
  const TypeShape* slot;  ///< as in an optional
  /// The elements in order; those of an unordered set by `<` where they have it.
  void (*forEach)(const void* sequence, FunctionRef<void(const void*)> visit);
  void (*clear)(void* sequence);
  /// Makes room for that many elements in all; null where there is no such thing.
  void (*reserve)(void* sequence, std::size_t count);
  /// Adds an element made by default and gives its place, to be read into; null where elements
  /// cannot be made so.
  void* (*emplace)(void* sequence);
  /// Adds one element, which `fill` reads in. False, without a call, when there is no room.
  bool (*append)(void* sequence, std::size_t index, FunctionRef<void(void*)> fill);
  std::size_t fixedSize;  ///< of a std::array, which has to be filled; else 0
  std::size_t stride;     ///< bytes from one element to the next where they lie in a row; else 0
  std::span<const std::byte> (*elements)(const void* sequence);  ///< null unless they do
};

struct MapShape {
  const TypeShape* value;
  const TypeShape* slot;  ///< as in an optional
  /// The pairs in order; those of an unordered map by key.
  void (*forEach)(const void* map, FunctionRef<void(std::string_view, const void*)> visit);
  void (*clear)(void* map);
  /// Puts in one value, which `fill` reads in; an equal key's value goes. False, without a call,
  /// when the text is no key of the map.
  bool (*insert)(void* map, std::string_view key, FunctionRef<void(void*)> fill);
};

/// One of the two pairs is null: raw values are integers or texts.
struct EnumShape {
  std::optional<Int128> (*number)(const void* value);
  bool (*assignNumber)(void* value, Int128 raw);
  std::optional<std::string_view> (*text)(const void* value);
  bool (*assignText)(void* value, std::string_view raw);
};

struct TypeShape {
  ShapeKind kind;
  const std::type_info* type;
  std::any (*copy)(const void* value);
  /// The type's own functions, which go before everything else; null where it has none.
  void (*encode)(const void* value, Encoder& encoder) = nullptr;
  void (*decode)(void* value, Decoder& decoder) = nullptr;
  // The one that goes with the kind.
  std::span<const FieldShape> fields = {};
  const OptionalShape* optional = nullptr;
  const SequenceShape* sequence = nullptr;
  const MapShape* map = nullptr;
  const EnumShape* enumeration = nullptr;
};

/// The shape of a type, made in ShapeOf.hpp.
template <class T>
struct ShapeOf {
  static const TypeShape value;
};

/// A value of any encodable type, borrowed for the length of one call.
struct EncodableValue {
  const void* address;
  const TypeShape* shape;

  template <class T>
  static EncodableValue of(const T& value) noexcept {
    return {std::addressof(value), &ShapeOf<T>::value};
  }
  /// The value when it is of exactly that type, else null.
  template <class T>
  const T* as() const noexcept {
    return *shape->type == typeid(T) ? static_cast<const T*>(address) : nullptr;
  }
  std::any copy() const { return shape->copy(address); }
};

EncodableValue FieldShape::valueIn(const void* object) const {
  const void* const member = address(const_cast<void*>(object));
  if (shape->kind != ShapeKind::optional) return {member, shape};
  return {shape->optional->get(member), shape->optional->wrapped};
}

/// A place for a value of any decodable type, borrowed for the length of one call.
struct DecodableSlot {
  void* address;
  const TypeShape* shape;
};

}  // namespace tessarine
