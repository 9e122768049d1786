#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "tessarine/coding/CodingPathNode.hpp"
#include "tessarine/coding/Encoder.hpp"
#include "tessarine/system/json/JSONEncoder.hpp"
#include "tessarine/values/internal/TextBuffer.hpp"

namespace tessarine::internal {

/// Walks a value by its shape and writes it as it goes. Only a type's own `encode` needs
/// containers: what it writes is gathered in a `JSONNode` tree first, since containers may be used
/// in any order.
class JSONValueWriter {
 public:
  /// Throws `EncodingError` when the top-level value encodes nothing.
  static void writeDocument(EncodableValue value, const JSONEncoderOptions& options,
                            TextBuffer& out);

  JSONValueWriter(const JSONEncoderOptions& options, TextBuffer& out, std::size_t depth) noexcept
      : options_(options), out_(out), depth_(depth) {}

  void write(EncodableValue value, const CodingPathNode* path);
  void writeNull() { out_.append("null"); }

  /// Lists: `separate` before each element, the key of a member behind it.
  void beginList(char open, const CodingPathNode* path);
  void separate(bool& isFirst);
  void writeKey(std::string_view key);
  void endList(char close, bool isEmpty);

  const JSONEncoderOptions& options() const noexcept { return options_; }

 private:
  template <class Integer>
  void writeInteger(Integer value);
  template <class Number>
  void writeFloat(EncodableValue value, Number number, const CodingPathNode* path);
  void writeScalar(EncodableValue value, const CodingPathNode* path);
  void writeDate(EncodableValue value, const CodingPathNode* path);
  void writeData(EncodableValue value, const CodingPathNode* path);
  void writeEnumeration(EncodableValue value, const CodingPathNode* path);
  void writeSequence(EncodableValue value, const CodingPathNode* path);
  void writeMap(EncodableValue value, const CodingPathNode* path);
  void writeFields(EncodableValue value, const CodingPathNode* path);
  void writeFieldsConverted(EncodableValue value, const CodingPathNode* path);
  /// Whatever `encode` writes through an encoder for this place.
  void writeByHand(FunctionRef<void(Encoder&)> encode, const CodingPathNode* path);

  const JSONEncoderOptions& options_;
  TextBuffer& out_;
  std::size_t depth_;
};

}  // namespace tessarine::internal
