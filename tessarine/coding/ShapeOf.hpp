#pragma once

#include <algorithm>
#include <any>
#include <array>
#include <concepts>
#include <cstddef>
#include <memory>
#include <optional>
#include <ranges>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "tessarine/coding/TypeShape.hpp"
#include "tessarine/coding/codingFields.hpp"
#include "tessarine/values/Data.hpp"
#include "tessarine/values/Date.hpp"
#include "tessarine/values/Decimal.hpp"
#include "tessarine/values/EnumCases.hpp"
#include "tessarine/values/FunctionRef.hpp"
#include "tessarine/values/Int128.hpp"
#include "tessarine/values/UUID.hpp"

namespace tessarine {

// How the compiler makes a `TypeShape` from a type: for each kind of type there is a struct whose
// functions are the entries of its table.

namespace detail {

/// Holds a value of a type that cannot be made without reading it.
template <class T>
struct Boxed {
  std::optional<T> value;
};
/// What a value of type T is read into.
template <class T>
using Holder = std::conditional_t<std::default_initializable<T>, T, Boxed<T>>;

template <class T>
T takeOut(T&& holder) {
  return std::forward<T>(holder);
}
template <class T>
T takeOut(Boxed<T>&& holder) {
  return std::move(*holder.value);
}

template <class T>
inline constexpr bool isBoxed = false;
template <class T>
inline constexpr bool isBoxed<Boxed<T>> = true;

template <class T>
inline constexpr bool isOptional = false;
template <class T>
inline constexpr bool isOptional<std::optional<T>> = true;

template <class T>
inline constexpr bool isFixedArray = false;
template <class T, std::size_t n>
inline constexpr bool isFixedArray<std::array<T, n>> = true;

template <class T>
concept EncodedByHand = requires(const T& value, Encoder& encoder) {
  value.encode(encoder);
};
template <class T>
concept DecodedByHand = requires(Decoder& decoder) {
  { T::decode(decoder) } -> std::same_as<T>;
};
template <class T>
concept Described = requires {
  std::tuple_size<std::remove_cvref_t<decltype(T::codingFields)>>::value;
};

template <class T>
concept IntegerScalar = std::same_as<T, Int128> || std::same_as<T, UInt128> ||
    (std::integral<T> && !std::same_as<T, bool> && !std::same_as<T, char> &&
     !std::same_as<T, wchar_t> && !std::same_as<T, char8_t> && !std::same_as<T, char16_t> &&
     !std::same_as<T, char32_t>);

template <class T>
concept Scalar = IntegerScalar<T> || std::same_as<T, bool> || std::same_as<T, float> ||
    std::same_as<T, double> || std::same_as<T, std::string> || std::same_as<T, std::string_view> ||
    std::same_as<T, Date> || std::same_as<T, Data> || std::same_as<T, UUID> ||
    std::same_as<T, Decimal>;

template <class T>
concept MapKey = std::same_as<T, std::string> ||(IntegerScalar<T> && sizeof(T) <= 8);
template <class T>
concept Map = std::ranges::forward_range<const T> && requires {
  typename T::key_type;
  typename T::mapped_type;
} && MapKey<typename T::key_type>;

template <class T>
concept Sequence = std::ranges::forward_range<const T> && !Map<T> && !Scalar<T> && requires {
  typename T::value_type;
}
&&(isFixedArray<T> || requires(T & sequence, typename T::value_type element) {
  sequence.clear();
  sequence.insert(sequence.end(), std::move(element));
});

template <class T>
constexpr ShapeKind integerKind() {
  constexpr bool isSigned = T(-1) < T(0);
  switch (sizeof(T)) {
    case 1:
      return isSigned ? ShapeKind::int8 : ShapeKind::uint8;
    case 2:
      return isSigned ? ShapeKind::int16 : ShapeKind::uint16;
    case 4:
      return isSigned ? ShapeKind::int32 : ShapeKind::uint32;
    case 8:
      return isSigned ? ShapeKind::int64 : ShapeKind::uint64;
    default:
      return isSigned ? ShapeKind::int128 : ShapeKind::uint128;
  }
}

template <class T>
constexpr ShapeKind scalarKind() {
  if constexpr (IntegerScalar<T>) return integerKind<T>();
  if constexpr (std::same_as<T, bool>) return ShapeKind::boolean;
  if constexpr (std::same_as<T, float>) return ShapeKind::float32;
  if constexpr (std::same_as<T, double>) return ShapeKind::float64;
  if constexpr (std::same_as<T, std::string>) return ShapeKind::text;
  if constexpr (std::same_as<T, std::string_view>) return ShapeKind::textView;
  if constexpr (std::same_as<T, Date>) return ShapeKind::date;
  if constexpr (std::same_as<T, Data>) return ShapeKind::data;
  if constexpr (std::same_as<T, UUID>) return ShapeKind::uuid;
  if constexpr (std::same_as<T, Decimal>) return ShapeKind::decimal;
}

template <class T>
constexpr bool isEncodable() {
  if constexpr (EncodedByHand<T> || Described<T> || Scalar<T> || EnumWithCases<T>) {
    return true;
  } else if constexpr (Map<T>) {
    return isEncodable<typename T::mapped_type>();
  } else if constexpr (isOptional<T> || Sequence<T>) {
    return isEncodable<typename T::value_type>();
  }
  return false;
}

template <class T>
constexpr bool isDecodable() {
  constexpr bool isOwned = Scalar<T> && !std::same_as<T, std::string_view>;
  constexpr bool isMade = Described<T> && std::default_initializable<T>;
  if constexpr (DecodedByHand<T> || isMade || isOwned || EnumWithCases<T>) {
    return true;
  } else if constexpr (Map<T>) {
    return isDecodable<typename T::mapped_type>();
  } else if constexpr (isOptional<T> || Sequence<T>) {
    return isDecodable<typename T::value_type>();
  }
  return false;
}

// ---- the tables ----

template <class T, std::size_t i>
void* fieldAddress(void* object) {
  return std::addressof(static_cast<T*>(object)->*std::get<i>(T::codingFields).member);
}

template <class T>
struct Fields {
  static constexpr std::size_t count =
      std::tuple_size_v<std::remove_cvref_t<decltype(T::codingFields)>>;
  static const std::array<FieldShape, count> table;

  template <std::size_t... i>
  static constexpr std::array<FieldShape, count> make(std::index_sequence<i...> /*indices*/) {
    return {FieldShape(
        std::get<i>(T::codingFields).name,
        &ShapeOf<std::remove_cvref_t<decltype(std::declval<T&>().*
                                              std::get<i>(T::codingFields).member)>>::value,
        &fieldAddress<T, i>)...};
  }
};
template <class T>
constinit const std::array<FieldShape, Fields<T>::count> Fields<T>::table =
    Fields<T>::make(std::make_index_sequence<Fields<T>::count>{});

template <class T>
struct Optionals {
  using Wrapped = typename T::value_type;
  static const void* get(const void* optional) {
    const auto& value = *static_cast<const T*>(optional);
    return value ? std::addressof(*value) : nullptr;
  }
  static void assign(void* optional, FunctionRef<void(void*)> fill) {
    auto& value = *static_cast<T*>(optional);
    if constexpr (std::default_initializable<Wrapped>) {
      fill(std::addressof(value.emplace()));
    } else {
      Holder<Wrapped> holder;
      fill(&holder);
      value.emplace(takeOut(std::move(holder)));
    }
  }
  static void reset(void* optional) { static_cast<T*>(optional)->reset(); }
  static constexpr OptionalShape table{&ShapeOf<Wrapped>::value, &ShapeOf<Holder<Wrapped>>::value,
                                       &get, &assign, &reset};
};

template <class T>
concept OrderMatters = !requires {
  typename T::hasher;
};

template <class T>
struct Sequences {
  using Element = typename T::value_type;
  static constexpr bool inARow = std::ranges::contiguous_range<const T>;

  static void forEach(const void* sequence, FunctionRef<void(const void*)> visit) {
    const T& elements = *static_cast<const T*>(sequence);
    if constexpr (!OrderMatters<T> && std::totally_ordered<Element>) {
      std::vector<const Element*> sorted;
      sorted.reserve(elements.size());
      for (const Element& element : elements) sorted.push_back(std::addressof(element));
      std::sort(sorted.begin(), sorted.end(), [](auto* a, auto* b) { return *a < *b; });
      for (const Element* element : sorted) visit(element);
    } else if constexpr (std::same_as<Element, bool>) {  // std::vector<bool> has no addresses
      for (const bool element : elements) visit(&element);
    } else {
      for (const Element& element : elements) visit(std::addressof(element));
    }
  }
  static void clear(void* sequence) {
    if constexpr (!isFixedArray<T>) static_cast<T*>(sequence)->clear();
  }
  static constexpr bool hasCapacity = requires(T & elements) {
    elements.reserve(elements.capacity());
  };
  static constexpr auto reserveOrNull() -> void (*)(void*, std::size_t) {
    if constexpr (hasCapacity) {
      return [](void* sequence, std::size_t count) { static_cast<T*>(sequence)->reserve(count); };
    }
    return nullptr;
  }
  static void* emplace(void* sequence) {
    T& elements = *static_cast<T*>(sequence);
    if constexpr (growsFromNothing) {
      if (elements.capacity() == 0) elements.reserve(firstCapacity);
    }
    return std::addressof(elements.emplace_back());
  }
  static constexpr auto emplaceOrNull() -> void* (*)(void*) {
    if constexpr (emplacesInPlace()) return &emplace;
    return nullptr;
  }
  static bool append(void* sequence, std::size_t index, FunctionRef<void(void*)> fill) {
    T& elements = *static_cast<T*>(sequence);
    if constexpr (isFixedArray<T>) {
      if (index >= elements.size()) return false;
      fill(std::addressof(elements[index]));
    } else if constexpr (emplacesInPlace()) {
      fill(emplace(sequence));
    } else {
      Holder<Element> holder{};
      fill(&holder);
      elements.insert(elements.end(), takeOut(std::move(holder)));
    }
    return true;
  }
  /// A vector's first capacity spares the small steps up to it, where that costs little memory.
  static constexpr std::size_t firstCapacity = 4;
  static constexpr bool growsFromNothing = sizeof(Element) <= 64 && hasCapacity;
  /// Whether an element can be made in its place and read into there.
  static constexpr bool emplacesInPlace() {
    if constexpr (std::default_initializable<Element>) {
      return requires(T & elements) {
        { elements.emplace_back() } -> std::same_as<Element&>;
      };
    }
    return false;
  }
  static std::span<const std::byte> elementBytes(const void* sequence) {
    if constexpr (inARow) return std::as_bytes(std::span(*static_cast<const T*>(sequence)));
    return {};
  }
  static constexpr std::size_t fixedSize() {
    if constexpr (isFixedArray<T>) return std::tuple_size_v<T>;
    return 0;
  }
  static constexpr SequenceShape table{&ShapeOf<Element>::value,
                                       &ShapeOf<Holder<Element>>::value,
                                       &forEach,
                                       &clear,
                                       reserveOrNull(),
                                       emplaceOrNull(),
                                       &append,
                                       fixedSize(),
                                       inARow ? sizeof(Element) : 0,
                                       inARow ? &elementBytes : nullptr};
};

template <MapKey Key>
std::optional<Key> mapKey(std::string_view text) {
  if constexpr (std::same_as<Key, std::string>) {
    return std::string(text);
  } else {
    const auto number = int128FromText(text);
    if (!number || *number != static_cast<Int128>(static_cast<Key>(*number))) return std::nullopt;
    return static_cast<Key>(*number);
  }
}

template <class T>
struct Maps {
  using Key = typename T::key_type;
  using Value = typename T::mapped_type;
  using Visit = FunctionRef<void(std::string_view, const void*)>;

  static void visitPair(const typename T::value_type& pair, Visit visit) {
    if constexpr (std::same_as<Key, std::string>) {
      visit(pair.first, std::addressof(pair.second));
    } else {
      visit(std::to_string(pair.first), std::addressof(pair.second));
    }
  }
  static void forEach(const void* map, Visit visit) {
    const T& pairs = *static_cast<const T*>(map);
    if constexpr (OrderMatters<T>) {
      for (const auto& pair : pairs) visitPair(pair, visit);
    } else {
      std::vector<const typename T::value_type*> sorted;
      sorted.reserve(pairs.size());
      for (const auto& pair : pairs) sorted.push_back(std::addressof(pair));
      std::sort(sorted.begin(), sorted.end(), [](auto* a, auto* b) { return a->first < b->first; });
      for (const auto* pair : sorted) visitPair(*pair, visit);
    }
  }
  static void clear(void* map) { static_cast<T*>(map)->clear(); }
  static bool insert(void* map, std::string_view text, FunctionRef<void(void*)> fill) {
    auto key = mapKey<Key>(text);
    if (!key) return false;
    Holder<Value> holder{};
    fill(&holder);
    static_cast<T*>(map)->insert_or_assign(std::move(*key), takeOut(std::move(holder)));
    return true;
  }
  static constexpr MapShape table{&ShapeOf<Value>::value, &ShapeOf<Holder<Value>>::value, &forEach,
                                  &clear, &insert};
};

template <class T>
struct Enums {
  static std::optional<Int128> number(const void* value) {
    const auto raw = rawValue(*static_cast<const T*>(value));
    return raw ? std::optional(static_cast<Int128>(*raw)) : std::nullopt;
  }
  static bool assignNumber(void* value, Int128 raw) {
    using Raw = std::underlying_type_t<T>;
    if (static_cast<Int128>(static_cast<Raw>(raw)) != raw) return false;
    return assign(value, static_cast<Raw>(raw));
  }
  static std::optional<std::string_view> text(const void* value) {
    return rawValue(*static_cast<const T*>(value));
  }
  static bool assignText(void* value, std::string_view raw) { return assign(value, raw); }
  static bool assign(void* value, RawValueOf<T> raw) {
    const auto found = enumFromRawValue<T>(raw);
    if (found) *static_cast<T*>(value) = *found;
    return found.has_value();
  }
  static constexpr EnumShape make() {
    if constexpr (hasTextCases<T>)
      return {nullptr, nullptr, &text, &assignText};
    else
      return {&number, &assignNumber, nullptr, nullptr};
  }
  static constexpr EnumShape table = make();
};

template <class T>
std::any copyOf(const void* value) {
  if constexpr (std::same_as<T, std::string_view>) {
    return std::string(*static_cast<const T*>(value));  // borrowed bytes would not outlive the call
  } else if constexpr (std::copy_constructible<T>) {
    return std::any(*static_cast<const T*>(value));
  } else {
    return {};
  }
}

template <class T>
constexpr void addOwnFunctions(TypeShape& shape) {
  if constexpr (EncodedByHand<T>) {
    shape.encode = [](const void* value, Encoder& encoder) {
      static_cast<const T*>(value)->encode(encoder);
    };
  }
  if constexpr (DecodedByHand<T> && std::default_initializable<T>) {
    shape.decode = [](void* value, Decoder& decoder) {
      *static_cast<T*>(value) = T::decode(decoder);
    };
  }
}

template <class T>
constexpr TypeShape makeShape() {
  TypeShape shape{.kind = ShapeKind::custom, .type = &typeid(T), .copy = &copyOf<T>};
  if constexpr (isBoxed<T>) {
    using Value = typename decltype(T::value)::value_type;
    shape.decode = [](void* box, Decoder& decoder) {
      static_cast<T*>(box)->value.emplace(Value::decode(decoder));
    };
  } else {
    static_assert(
        isEncodable<T>() || isDecodable<T>(),
        "give the type codingFields or encode(Encoder&) const and static decode(Decoder&); "
        "give an enumeration its EnumCases");
    addOwnFunctions<T>(shape);
    if constexpr (Described<T>) {
      shape.kind = ShapeKind::object;
      shape.fields = Fields<T>::table;
    } else if constexpr (Scalar<T>) {
      shape.kind = scalarKind<T>();
    } else if constexpr (EnumWithCases<T>) {
      shape.kind = ShapeKind::enumeration;
      shape.enumeration = &Enums<T>::table;
    } else if constexpr (isOptional<T>) {
      shape.kind = ShapeKind::optional;
      shape.optional = &Optionals<T>::table;
    } else if constexpr (EncodedByHand<T> || DecodedByHand<T>) {
      shape.kind = ShapeKind::custom;
    } else if constexpr (Map<T>) {
      shape.kind = ShapeKind::map;
      shape.map = &Maps<T>::table;
    } else if constexpr (Sequence<T>) {
      shape.kind = ShapeKind::sequence;
      shape.sequence = &Sequences<T>::table;
    }
  }
  return shape;
}

}  // namespace detail

template <class T>
constinit const TypeShape ShapeOf<T>::value = detail::makeShape<T>();

}  // namespace tessarine
