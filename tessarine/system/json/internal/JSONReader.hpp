#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "tessarine/coding/CodingPathNode.hpp"
#include "tessarine/coding/Decoder.hpp"
#include "tessarine/system/json/JSONDecoder.hpp"
#include "tessarine/system/json/internal/JSONTokens.hpp"

namespace tessarine::internal {

/// Reads values by their shapes from the tokens of a document, straight into their places. Values
/// of a type with a `decode` of its own read through containers (`JSONValueDecoder`), which go back
/// and forth over the tokens.
class JSONReader {
 public:
  JSONReader(std::string_view text, const JSONDecoderOptions& options)
      : tokens_(text), options_(options) {}

  /// Reads the whole document, or throws.
  void readDocument(DecodableSlot slot);

  const JSONDecoderOptions& options() const noexcept { return options_; }
  const JSONTokens& tokens() const noexcept { return tokens_; }

  // ---- for containers ----

  /// Throws `DecodingError` unless the whole text is one JSON document; what follows needs it.
  void findEnds() { tokens_.findEnds(); }
  /// False when a value of that kind surely cannot be read there, which costs no exception.
  bool mayRead(std::uint32_t position, ShapeKind kind) const noexcept;
  void readAt(std::uint32_t position, DecodableSlot slot, const CodingPathNode* path);
  /// Throws that something else than what was asked for stands there.
  [[noreturn]] void mismatch(std::uint32_t position, ShapeKind expected,
                             const CodingPathNode* path) const;
  DecodingError dataCorrupted(std::uint32_t position, std::string why,
                              const CodingPathNode* path) const;

 private:
  // Each reads the value at a position. Scalars are one token; for all others the position behind
  // the value is given. It goes from hand to hand, since a member would be stored and loaded again
  // for every token.
  std::uint32_t read(DecodableSlot slot, std::uint32_t at, const CodingPathNode* path);
  std::uint32_t readOptional(DecodableSlot slot, std::uint32_t at, const CodingPathNode* path);
  std::uint32_t readSequence(DecodableSlot slot, std::uint32_t at, const CodingPathNode* path);
  std::uint32_t readMap(DecodableSlot slot, std::uint32_t at, const CodingPathNode* path);
  std::uint32_t readFields(DecodableSlot slot, std::uint32_t at, const CodingPathNode* path);
  std::uint32_t readDate(Date& out, std::uint32_t at, const CodingPathNode* path);
  std::uint32_t readData(Data& out, std::uint32_t at, const CodingPathNode* path);
  std::uint32_t readByHand(FunctionRef<void(Decoder&)> decode, std::uint32_t at,
                           const CodingPathNode* path);

  void readScalar(DecodableSlot slot, std::uint32_t at, const CodingPathNode* path);
  template <class Integer>
  void readInteger(Integer& out, std::uint32_t at, const CodingPathNode* path);
  template <class Integer>
  void readWideInteger(Integer& out, std::uint32_t at, const CodingPathNode* path);
  template <class Float>
  void readFloat(Float& out, std::uint32_t at, const CodingPathNode* path);
  template <class Float>
  bool readFloatText(Float& out, std::uint32_t at);
  void readString(std::string& out, std::uint32_t at, const CodingPathNode* path);
  void readUUID(UUID& out, std::uint32_t at, const CodingPathNode* path);
  void readDecimal(Decimal& out, std::uint32_t at, const CodingPathNode* path);
  void readEnumeration(DecodableSlot slot, std::uint32_t at, const CodingPathNode* path);

  /// Makes room for the elements of a list that is the document, by the `count` that end at `at`.
  void expectElements(DecodableSlot slot, std::size_t count, std::uint32_t at) const;
  /// Whether the list that begins there has an element, which is the next token.
  bool beginList(std::uint32_t at, char open, char close, ShapeKind expected,
                 const CodingPathNode* path);
  /// Whether another element follows behind the comma or bracket there.
  bool nextInList(std::uint32_t at, char close);
  void requireColon(std::uint32_t at) const;
  /// The key there; unescaped to `scratch` when it has escapes.
  std::string_view keyAt(std::uint32_t at, std::string& scratch) const;
  /// The number of the field that the key there names, the count when none. The field `expected`
  /// is looked at first.
  std::size_t fieldAt(std::uint32_t at, std::span<const FieldShape> fields, std::size_t expected,
                      const CodingPathNode* path) const;
  std::size_t otherFieldAt(std::uint32_t at, std::span<const FieldShape> fields,
                           const CodingPathNode* path) const;

  [[noreturn]] void refuseNumber(std::uint32_t at, ShapeKind kind,
                                 const CodingPathNode* path) const;
  [[noreturn]] void missing(const FieldShape& field, std::uint32_t object,
                            const CodingPathNode* path) const;

  JSONTokens tokens_;
  const JSONDecoderOptions& options_;
  std::size_t depth_ = 0;
};

}  // namespace tessarine::internal
