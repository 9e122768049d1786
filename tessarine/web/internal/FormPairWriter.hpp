#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "tessarine/coding/CodingPathNode.hpp"
#include "tessarine/coding/Encoder.hpp"
#include "tessarine/web/URLEncodedFormEncoder.hpp"
#include "tessarine/web/internal/FormTextWriter.hpp"

namespace tessarine::internal {

/// Writes a form straight from a value's shape, without the tree. The text is the same as long as
/// nobody sorts it: keys of maps and of described types are unique, and elements have no number in
/// their keys. Gives up on a value that only the tree can take: one with an `encode` of its own.
class FormPairWriter {
 public:
  explicit FormPairWriter(const URLEncodedFormEncoder::Options& options)
      : options_(options),
        out_(options.arrayEncoding, options.keyEncoding, options.spaceEncoding,
             options.allowedCharacters) {}

  /// Whether forms with these options may be written so at all: a callback must run once a value.
  static bool suits(const URLEncodedFormEncoder::Options& options) noexcept;

  /// False when it gave up. The root is an object or a map.
  bool write(EncodableValue root);
  std::string text() { return std::string(out_.text().text()); }

 private:
  bool writeMembers(EncodableValue object, const CodingPathNode* path);
  bool writeMember(std::string_view key, EncodableValue value, const CodingPathNode* path);
  bool writeValue(EncodableValue value, const CodingPathNode* path);
  bool writeSequence(EncodableValue value, const CodingPathNode* path);
  void writePair(std::string_view value);

  const URLEncodedFormEncoder::Options& options_;
  FormTextWriter out_;
  std::size_t depth_ = 0;
};

}  // namespace tessarine::internal
