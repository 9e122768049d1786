#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "tessarine/values/internal/TextBuffer.hpp"
#include "tessarine/web/URLEncodedFormEncoder.hpp"
#include "tessarine/web/internal/FormEscaper.hpp"

namespace tessarine::internal {

/// The text of a form while it is written: finished pairs, and the path of the key at hand, which
/// who walks a value enters and leaves. A path that nobody converts is kept escaped, so that a long
/// one is escaped once and not for each pair.
class FormTextWriter {
 public:
  FormTextWriter(URLEncodedFormEncoder::ArrayEncoding arrayEncoding,
                 const URLEncodedFormEncoder::KeyEncoding& keyEncoding,
                 URLEncodedFormEncoder::SpaceEncoding spaceEncoding,
                 const CharacterSet& allowedCharacters);

  /// Where a path was before, to go back to.
  struct Mark {
    std::size_t size;
    bool isRoot;
  };
  /// To the member of that key: "key" at the root, "[key]" elsewhere.
  Mark enterMember(std::string_view key);
  /// To an element of a list: "[]", or nothing.
  Mark enterElement();
  void leave(Mark mark) noexcept;

  /// The separator of two pairs.
  void separate() { text_.append('&'); }
  void writePair(std::string_view value);

  TextBuffer& text() noexcept { return text_; }

 private:
  void appendToPath(std::string_view piece);

  URLEncodedFormEncoder::ArrayEncoding arrayEncoding_;
  const URLEncodedFormEncoder::KeyEncoding& keyEncoding_;
  FormEscaper escaper_;
  bool isConverted_;
  bool isRoot_ = true;
  TextBuffer path_;
  TextBuffer text_;
};

}  // namespace tessarine::internal
