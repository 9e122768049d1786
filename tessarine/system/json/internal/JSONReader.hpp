#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tessarine/coding/CodingPathNode.hpp"
#include "tessarine/coding/Decoder.hpp"
#include "tessarine/system/json/JSONDecoder.hpp"
#include "tessarine/system/json/internal/JSONStructure.hpp"

namespace tessarine::internal {

/// Walks the tokens of a document and reads values from them by their shapes, straight into their
/// places. A position is the number of a token. Values of a type with a `decode` of its own read
/// through containers (`JSONValueDecoder`), which go back and forth by `endOf`.
class JSONReader {
 public:
  JSONReader(std::string_view text, const JSONDecoderOptions& options);

  /// Reads the whole document, or throws.
  void readDocument(DecodableSlot slot);

  const JSONDecoderOptions& options() const noexcept { return options_; }

  // ---- for containers ----

  /// Throws `DecodingError` unless the whole text is one JSON document; what follows needs it.
  void findEnds();

  enum class Token : std::uint8_t { null, boolean, number, text, array, object, other };
  Token tokenAt(std::uint32_t position) const noexcept;
  /// False when a value of that kind surely cannot be read there, which costs no exception.
  bool mayRead(std::uint32_t position, ShapeKind kind) const noexcept;
  /// The value at a position, whose document is known to be well formed.
  void readAt(std::uint32_t position, DecodableSlot slot, const CodingPathNode* path);
  /// The position behind the value at `position`.
  std::uint32_t endOf(std::uint32_t position) const noexcept;
  std::string stringAt(std::uint32_t position) const;
  std::string_view numberAt(std::uint32_t position) const noexcept;
  bool booleanAt(std::uint32_t position) const noexcept;
  char charAt(std::uint32_t position) const noexcept {
    return position < starts_.size() ? text_[starts_[position]] : '\0';
  }
  /// The key of a host's type that a key of the text stands for.
  std::string convertedKey(std::string_view key, const CodingPathNode* path) const;
  /// Throws that something else than what was asked for stands there.
  [[noreturn]] void mismatch(std::uint32_t position, ShapeKind expected,
                             const CodingPathNode* path);
  DecodingError dataCorrupted(std::uint32_t position, std::string why,
                              const CodingPathNode* path) const;
  std::size_t offsetOf(std::uint32_t position) const noexcept;

 private:
  void read(DecodableSlot slot, const CodingPathNode* path);
  void readScalar(DecodableSlot slot, const CodingPathNode* path);
  void readBoolean(bool& out, const CodingPathNode* path);
  template <class Integer>
  void readInteger(DecodableSlot slot, const CodingPathNode* path);
  template <class Integer>
  void readWideInteger(DecodableSlot slot, const CodingPathNode* path);
  template <class Float>
  void readFloat(DecodableSlot slot, const CodingPathNode* path);
  template <class Float>
  bool readFloatText(Float& out, const CodingPathNode* path);
  void readString(std::string& out, const CodingPathNode* path);
  void readDate(Date& out, const CodingPathNode* path);
  void readData(Data& out, const CodingPathNode* path);
  void readUUID(UUID& out, const CodingPathNode* path);
  void readDecimal(DecodableSlot slot, const CodingPathNode* path);
  void readEnumeration(DecodableSlot slot, const CodingPathNode* path);
  void readSequence(DecodableSlot slot, const CodingPathNode* path);
  void readMap(DecodableSlot slot, const CodingPathNode* path);
  void readFields(DecodableSlot slot, const CodingPathNode* path);
  void readByHand(FunctionRef<void(Decoder&)> decode, const CodingPathNode* path);

  /// Of a list: past the bracket; whether there is an element. Then, behind each, whether another
  /// follows.
  bool beginList(char open, char close, ShapeKind expected, const CodingPathNode* path);
  bool nextInList(char close);
  /// The key at the position, as it stands or, when it has escapes, unescaped to `scratch`. Passes
  /// it and the colon.
  std::string_view takeKey(std::string& scratch);
  bool isKey(std::string_view plainName) const noexcept;
  void takeColon();
  bool isNull() const noexcept;
  void skip();

  /// Passes one value, and notes where its lists end when asked to.
  std::uint32_t validate(std::uint32_t position, std::size_t depthAround,
                         std::vector<std::uint32_t>* ends) const;
  void validateScalar(std::uint32_t position) const;
  void validateAll(std::vector<std::uint32_t>* ends) const;

  /// The text between the quotes of the string there, as it stands.
  std::string_view rawString(std::uint32_t position, bool& hasEscapes) const noexcept;
  void unescape(std::string_view raw, std::string& out) const;
  std::string_view rest(std::uint32_t position) const noexcept {
    return text_.substr(starts_[position]);
  }
  [[noreturn]] void invalid(std::size_t offset, std::string why) const;
  [[noreturn]] void unexpected(std::uint32_t position) const;
  [[noreturn]] void refuseNumber(std::uint32_t position, ShapeKind kind,
                                 const CodingPathNode* path);

  std::string_view text_;
  const JSONDecoderOptions& options_;
  JSONStructure structure_;
  std::span<const std::uint32_t> starts_;
  std::uint32_t at_ = 0;
  std::size_t depth_ = 0;
  std::vector<std::uint32_t> ends_;  // of lists, by position; empty until somebody needs them
};

}  // namespace tessarine::internal
