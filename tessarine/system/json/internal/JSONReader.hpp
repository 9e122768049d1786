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
  void read(DecodableSlot slot, const CodingPathNode* path);
  void readOptional(DecodableSlot slot, const CodingPathNode* path);
  void readBoolean(bool& out, const CodingPathNode* path);
  template <class Integer>
  void readInteger(Integer& out, const CodingPathNode* path);
  template <class Integer>
  void readWideInteger(Integer& out, const CodingPathNode* path);
  template <class Float>
  void readFloat(Float& out, const CodingPathNode* path);
  template <class Float>
  bool readFloatText(Float& out);
  void readString(std::string& out, const CodingPathNode* path);
  void readDate(Date& out, const CodingPathNode* path);
  void readData(Data& out, const CodingPathNode* path);
  void readUUID(UUID& out, const CodingPathNode* path);
  void readDecimal(Decimal& out, const CodingPathNode* path);
  void readEnumeration(DecodableSlot slot, const CodingPathNode* path);
  void readSequence(DecodableSlot slot, const CodingPathNode* path);
  void readMap(DecodableSlot slot, const CodingPathNode* path);
  void readFields(DecodableSlot slot, const CodingPathNode* path);
  void readByHand(FunctionRef<void(Decoder&)> decode, const CodingPathNode* path);

  /// Of a list: past the bracket; whether there is an element. Then, behind each, whether another
  /// follows.
  bool beginList(char open, char close, ShapeKind expected, const CodingPathNode* path);
  bool nextInList(char close);
  void takeColon();
  /// Passes a key and the colon; gives the key as it stands or, when it has escapes, unescaped to
  /// `scratch`.
  std::string_view takeKey(std::string& scratch);
  /// Passes a key and the colon; gives the number of the field it names, the count when none. The
  /// field `expected` is looked at first.
  std::size_t takeField(std::span<const FieldShape> fields, std::size_t expected,
                        const CodingPathNode* path);
  std::size_t takeOtherField(std::span<const FieldShape> fields, const CodingPathNode* path);

  [[noreturn]] void refuseNumber(ShapeKind kind, const CodingPathNode* path) const;
  [[noreturn]] void missing(const FieldShape& field, std::uint32_t position,
                            const CodingPathNode* path) const;

  JSONTokens tokens_;
  const JSONDecoderOptions& options_;
  std::uint32_t at_ = 0;
  std::size_t depth_ = 0;
};

}  // namespace tessarine::internal
