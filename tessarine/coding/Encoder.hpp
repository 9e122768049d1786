#pragma once

#include <any>
#include <concepts>
#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <ranges>
#include <string>
#include <string_view>
#include <utility>

#include "tessarine/coding/CodingErrors.hpp"
#include "tessarine/coding/CodingKey.hpp"
#include "tessarine/coding/ShapeOf.hpp"
#include "tessarine/coding/TypeShape.hpp"
#include "tessarine/export.hpp"

namespace tessarine {

/// A value that an encoder can write: one with `codingFields` or with a member
/// `encode(Encoder&) const`, which wins; booleans, integers of 8 to 128 bits, floats, texts,
/// `Date`, `Data`, `UUID`, `Decimal`; enumerations with `EnumCases`; optionals; standard sequences,
/// and maps from texts or integers, of such values.
template <class T>
concept Encodable = detail::isEncodable<T>() || std::convertible_to<const T&, std::string_view>;

/// What a host hands to the encoding of its values, by name.
using CodingUserInfo = std::map<std::string, std::any, std::less<>>;

class Encoder;
class UnkeyedEncodingContainer;

namespace detail {
/// Calls `use` with the value as encoders see it; texts of every type are seen as one.
template <Encodable T, class Use>
void withEncodable(const T& value, Use use) {
  if constexpr (isEncodable<T>()) {
    use(EncodableValue::of(value));
  } else {
    const std::string_view text = value;
    use(EncodableValue::of(text));
  }
}
}  // namespace detail

// The containers are handles on what an encoder is writing. They may be used side by side and in
// any order, until the `encode` that was given the encoder returns. All entries throw
// `EncodingError` when the format cannot write the value, and pass on what the value itself throws.

/// Values under keys.
class TESSARINE_EXPORT KeyedEncodingContainer {
 public:
  /// What a format implements.
  class Backend {
   public:
    virtual ~Backend() = default;
    virtual CodingPath codingPath() const = 0;
    virtual void encodeNil(CodingKeyView key) = 0;
    virtual void encode(EncodableValue value, CodingKeyView key) = 0;
    virtual KeyedEncodingContainer nestedContainer(CodingKeyView key) = 0;
    virtual UnkeyedEncodingContainer nestedUnkeyedContainer(CodingKeyView key) = 0;
    virtual std::unique_ptr<Encoder> superEncoder() = 0;
    virtual std::unique_ptr<Encoder> superEncoder(CodingKeyView key) = 0;
  };
  explicit KeyedEncodingContainer(std::unique_ptr<Backend> backend) noexcept
      : backend_(std::move(backend)) {}

  CodingPath codingPath() const { return backend_->codingPath(); }

  /// Writes an explicit absent value.
  void encodeNil(CodingKeyView key) { backend_->encodeNil(key); }
  template <Encodable T>
  void encode(const T& value, CodingKeyView key) {
    detail::withEncodable(value, [&](EncodableValue any) { backend_->encode(any, key); });
  }
  void encode(EncodableValue value, CodingKeyView key) { backend_->encode(value, key); }
  /// As `encode`: no format here leaves out what is referred to from elsewhere.
  template <Encodable T>
  void encodeConditional(const T& value, CodingKeyView key) {
    encode(value, key);
  }
  /// Does nothing when the value is absent.
  template <Encodable T>
  void encodeIfPresent(const std::optional<T>& value, CodingKeyView key) {
    if (value) encode(*value, key);
  }

  KeyedEncodingContainer nestedContainer(CodingKeyView key) {
    return backend_->nestedContainer(key);
  }
  inline UnkeyedEncodingContainer nestedUnkeyedContainer(CodingKeyView key);
  /// An encoder for the base part of a value.
  std::unique_ptr<Encoder> superEncoder() { return backend_->superEncoder(); }
  std::unique_ptr<Encoder> superEncoder(CodingKeyView key) { return backend_->superEncoder(key); }

 private:
  std::unique_ptr<Backend> backend_;
};

/// Values in order.
class TESSARINE_EXPORT UnkeyedEncodingContainer {
 public:
  class Backend {
   public:
    virtual ~Backend() = default;
    virtual CodingPath codingPath() const = 0;
    virtual std::size_t count() const = 0;
    virtual void encodeNil() = 0;
    virtual void encode(EncodableValue value) = 0;
    virtual KeyedEncodingContainer nestedContainer() = 0;
    virtual UnkeyedEncodingContainer nestedUnkeyedContainer() = 0;
    virtual std::unique_ptr<Encoder> superEncoder() = 0;
  };
  explicit UnkeyedEncodingContainer(std::unique_ptr<Backend> backend) noexcept
      : backend_(std::move(backend)) {}

  CodingPath codingPath() const { return backend_->codingPath(); }
  /// How many elements were written, nested ones included.
  std::size_t count() const { return backend_->count(); }

  void encodeNil() { backend_->encodeNil(); }
  template <Encodable T>
  void encode(const T& value) {
    detail::withEncodable(value, [&](EncodableValue any) { backend_->encode(any); });
  }
  void encode(EncodableValue value) { backend_->encode(value); }
  /// As `encode`.
  template <Encodable T>
  void encodeConditional(const T& value) {
    encode(value);
  }
  /// Each element of a range, in order.
  template <std::ranges::input_range Range>
  void encodeContentsOf(const Range& range) {
    for (const auto& element : range) encode(element);
  }

  KeyedEncodingContainer nestedContainer() { return backend_->nestedContainer(); }
  UnkeyedEncodingContainer nestedUnkeyedContainer() { return backend_->nestedUnkeyedContainer(); }
  std::unique_ptr<Encoder> superEncoder() { return backend_->superEncoder(); }

 private:
  std::unique_ptr<Backend> backend_;
};

UnkeyedEncodingContainer KeyedEncodingContainer::nestedUnkeyedContainer(CodingKeyView key) {
  return backend_->nestedUnkeyedContainer(key);
}

/// Exactly one value.
class TESSARINE_EXPORT SingleValueEncodingContainer {
 public:
  class Backend {
   public:
    virtual ~Backend() = default;
    virtual CodingPath codingPath() const = 0;
    virtual void encodeNil() = 0;
    virtual void encode(EncodableValue value) = 0;
  };
  explicit SingleValueEncodingContainer(std::unique_ptr<Backend> backend) noexcept
      : backend_(std::move(backend)) {}

  CodingPath codingPath() const { return backend_->codingPath(); }
  void encodeNil() { backend_->encodeNil(); }
  template <Encodable T>
  void encode(const T& value) {
    detail::withEncodable(value, [&](EncodableValue any) { backend_->encode(any); });
  }
  void encode(EncodableValue value) { backend_->encode(value); }

 private:
  std::unique_ptr<Backend> backend_;
};

/// Writes one value in some format. A value is given one in its `encode(Encoder&) const`:
///
///     void Celsius::encode(tessarine::Encoder& encoder) const {
///       encoder.singleValueContainer().encode(degrees);
///     }
///
/// Several calls of the factories on one encoder write to the same place. One thread at a time.
class TESSARINE_EXPORT Encoder {
 public:
  virtual ~Encoder() = default;

  /// From the root to the value that is being written; made when it is asked for.
  virtual CodingPath codingPath() const = 0;
  virtual const CodingUserInfo& userInfo() const = 0;
  virtual KeyedEncodingContainer container() = 0;
  virtual UnkeyedEncodingContainer unkeyedContainer() = 0;
  virtual SingleValueEncodingContainer singleValueContainer() = 0;
};

/// Writes a value into an encoder through its containers: by the type's own `encode`, or by its
/// shape. The form for values known only by shape is what back-ends fall back on.
TESSARINE_EXPORT void encode(EncodableValue value, Encoder& encoder);
template <Encodable T>
void encode(const T& value, Encoder& encoder) {
  detail::withEncodable(value, [&](EncodableValue any) { encode(any, encoder); });
}

}  // namespace tessarine
