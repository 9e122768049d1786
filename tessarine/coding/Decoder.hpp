#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "tessarine/coding/CodingErrors.hpp"
#include "tessarine/coding/CodingKey.hpp"
#include "tessarine/coding/Encoder.hpp"
#include "tessarine/coding/ShapeOf.hpp"
#include "tessarine/coding/TypeShape.hpp"
#include "tessarine/export.hpp"

namespace tessarine {

/// A value that a decoder can read: one with `codingFields` or with a static
/// `T decode(Decoder&)`, which wins; and everything that is `Encodable` by itself but borrowed
/// texts. A type that cannot be made without reading it may stand in optionals, sequences and maps,
/// but not as a member of a described type.
template <class T>
concept Decodable = detail::isDecodable<T>();

class Decoder;
class UnkeyedDecodingContainer;

namespace detail {
/// The value that `read` puts into the slot it is given.
template <Decodable T, class Read>
T decoded(Read read) {
  Holder<T> holder{};
  read(DecodableSlot{&holder, &ShapeOf<Holder<T>>::value});
  return takeOut(std::move(holder));
}
}  // namespace detail

// The containers are handles on what a decoder is reading, until the `decode` that was given the
// decoder returns. All entries throw `DecodingError`, with the path from the root, when what stands
// there is not what is asked for.

/// Values under keys.
class TESSARINE_EXPORT KeyedDecodingContainer {
 public:
  /// What a format implements.
  class Backend {
   public:
    virtual ~Backend() = default;
    virtual CodingPath codingPath() const = 0;
    virtual std::vector<AnyCodingKey> allKeys() const = 0;
    virtual bool contains(CodingKeyView key) const = 0;
    virtual bool decodeNil(CodingKeyView key) = 0;
    virtual void decode(DecodableSlot slot, CodingKeyView key) = 0;
    virtual KeyedDecodingContainer nestedContainer(CodingKeyView key) = 0;
    virtual UnkeyedDecodingContainer nestedUnkeyedContainer(CodingKeyView key) = 0;
    virtual std::unique_ptr<Decoder> superDecoder() = 0;
    virtual std::unique_ptr<Decoder> superDecoder(CodingKeyView key) = 0;
  };
  explicit KeyedDecodingContainer(std::unique_ptr<Backend> backend) noexcept
      : backend_(std::move(backend)) {}

  CodingPath codingPath() const { return backend_->codingPath(); }

  /// Each key once, in the order in which they first come.
  std::vector<AnyCodingKey> allKeys() const { return backend_->allKeys(); }
  /// Those of them that the host's key type accepts.
  template <CodingKey Key>
  std::vector<Key> allKeys() const {
    std::vector<Key> keys;
    for (const AnyCodingKey& any : allKeys()) {
      if (auto key = Key::fromString(any.stringValue())) keys.push_back(std::move(*key));
    }
    return keys;
  }
  bool contains(CodingKeyView key) const { return backend_->contains(key); }

  /// Whether an explicit absent value stands there; a missing key throws.
  bool decodeNil(CodingKeyView key) { return backend_->decodeNil(key); }
  template <Decodable T>
  T decode(CodingKeyView key) {
    return detail::decoded<T>([&](DecodableSlot slot) { backend_->decode(slot, key); });
  }
  /// Absent when the key is missing or an explicit absent value stands there.
  template <Decodable T>
  std::optional<T> decodeIfPresent(CodingKeyView key) {
    if (!contains(key) || decodeNil(key)) return std::nullopt;
    return decode<T>(key);
  }
  void decode(DecodableSlot slot, CodingKeyView key) { backend_->decode(slot, key); }

  KeyedDecodingContainer nestedContainer(CodingKeyView key) {
    return backend_->nestedContainer(key);
  }
  inline UnkeyedDecodingContainer nestedUnkeyedContainer(CodingKeyView key);
  std::unique_ptr<Decoder> superDecoder() { return backend_->superDecoder(); }
  std::unique_ptr<Decoder> superDecoder(CodingKeyView key) { return backend_->superDecoder(key); }

 private:
  std::unique_ptr<Backend> backend_;
};

/// Values in order, each read once.
class TESSARINE_EXPORT UnkeyedDecodingContainer {
 public:
  class Backend {
   public:
    virtual ~Backend() = default;
    virtual CodingPath codingPath() const = 0;
    virtual std::optional<std::size_t> count() const = 0;
    virtual std::size_t currentIndex() const = 0;
    virtual bool isAtEnd() const = 0;
    virtual bool decodeNil() = 0;
    virtual void decode(DecodableSlot slot) = 0;
    virtual KeyedDecodingContainer nestedContainer() = 0;
    virtual UnkeyedDecodingContainer nestedUnkeyedContainer() = 0;
    virtual std::unique_ptr<Decoder> superDecoder() = 0;
  };
  explicit UnkeyedDecodingContainer(std::unique_ptr<Backend> backend) noexcept
      : backend_(std::move(backend)) {}

  CodingPath codingPath() const { return backend_->codingPath(); }
  /// How many elements there are, absent when the format cannot tell in advance.
  std::optional<std::size_t> count() const { return backend_->count(); }
  /// The number of the element that is read next.
  std::size_t currentIndex() const { return backend_->currentIndex(); }
  bool isAtEnd() const { return backend_->isAtEnd(); }

  /// Whether an explicit absent value comes next; only then it is passed.
  bool decodeNil() { return backend_->decodeNil(); }
  /// At the end this and all below throw `valueNotFound`. An element that fails is not passed.
  template <Decodable T>
  T decode() {
    return detail::decoded<T>([&](DecodableSlot slot) { backend_->decode(slot); });
  }
  template <Decodable T>
  std::optional<T> decodeIfPresent() {
    if (isAtEnd() || decodeNil()) return std::nullopt;
    return decode<T>();
  }
  void decode(DecodableSlot slot) { backend_->decode(slot); }

  KeyedDecodingContainer nestedContainer() { return backend_->nestedContainer(); }
  UnkeyedDecodingContainer nestedUnkeyedContainer() { return backend_->nestedUnkeyedContainer(); }
  std::unique_ptr<Decoder> superDecoder() { return backend_->superDecoder(); }

 private:
  std::unique_ptr<Backend> backend_;
};

UnkeyedDecodingContainer KeyedDecodingContainer::nestedUnkeyedContainer(CodingKeyView key) {
  return backend_->nestedUnkeyedContainer(key);
}

/// One value.
class TESSARINE_EXPORT SingleValueDecodingContainer {
 public:
  class Backend {
   public:
    virtual ~Backend() = default;
    virtual CodingPath codingPath() const = 0;
    virtual bool decodeNil() = 0;
    virtual void decode(DecodableSlot slot) = 0;
    /// False, with the slot in any state, where `decode` would throw a `DecodingError`.
    virtual bool tryDecode(DecodableSlot slot);
    /// An error of the format at this place.
    virtual DecodingError dataCorrupted(std::string_view why) const = 0;
  };
  explicit SingleValueDecodingContainer(std::unique_ptr<Backend> backend) noexcept
      : backend_(std::move(backend)) {}

  CodingPath codingPath() const { return backend_->codingPath(); }
  bool decodeNil() { return backend_->decodeNil(); }
  template <Decodable T>
  T decode() {
    return detail::decoded<T>([&](DecodableSlot slot) { backend_->decode(slot); });
  }
  void decode(DecodableSlot slot) { backend_->decode(slot); }
  /// Absent where `decode` would throw a `DecodingError`: to find out of which type a value is.
  template <Decodable T>
  std::optional<T> tryDecode() {
    detail::Holder<T> holder{};
    const DecodableSlot slot{&holder, &ShapeOf<detail::Holder<T>>::value};
    if (!backend_->tryDecode(slot)) return std::nullopt;
    return detail::takeOut(std::move(holder));
  }

  /// The error to throw when the value is of the right type but says nothing that makes sense.
  DecodingError dataCorrupted(std::string_view why) const { return backend_->dataCorrupted(why); }

 private:
  std::unique_ptr<Backend> backend_;
};

/// Reads one value of some format. A value is read from one in its static `T decode(Decoder&)`:
///
///     Celsius Celsius::decode(tessarine::Decoder& decoder) {
///       return Celsius{decoder.singleValueContainer().decode<double>()};
///     }
///
/// One thread at a time.
class TESSARINE_EXPORT Decoder {
 public:
  virtual ~Decoder() = default;

  virtual CodingPath codingPath() const = 0;
  virtual const CodingUserInfo& userInfo() const = 0;
  /// Throws `typeMismatch` when the value is not of that form, as does the next.
  virtual KeyedDecodingContainer container() = 0;
  virtual UnkeyedDecodingContainer unkeyedContainer() = 0;
  virtual SingleValueDecodingContainer singleValueContainer() = 0;
};

/// Reads a value from a decoder through its containers: by the type's own `decode`, or by its
/// shape.
TESSARINE_EXPORT void decode(DecodableSlot slot, Decoder& decoder);
template <Decodable T>
T decode(Decoder& decoder) {
  return detail::decoded<T>([&](DecodableSlot slot) { decode(slot, decoder); });
}

/// What a kind is called in messages: "int32", "text", "array".
TESSARINE_EXPORT std::string_view nameOf(ShapeKind kind) noexcept;

}  // namespace tessarine
