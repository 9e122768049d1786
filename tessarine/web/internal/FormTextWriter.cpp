#include "tessarine/web/internal/FormTextWriter.hpp"

namespace tessarine::internal {

using Form = URLEncodedFormEncoder;

FormTextWriter::FormTextWriter(Form::ArrayEncoding arrayEncoding,
                               const Form::KeyEncoding& keyEncoding,
                               Form::SpaceEncoding spaceEncoding,
                               const CharacterSet& allowedCharacters)
    : arrayEncoding_(arrayEncoding),
      keyEncoding_(keyEncoding),
      escaper_(spaceEncoding, allowedCharacters),
      isConverted_(keyEncoding.kind() != Form::KeyEncoding::useDefaultKeys) {}

void FormTextWriter::appendToPath(std::string_view piece) {
  if (isConverted_) {
    path_.append(piece);
  } else {
    escaper_.append(piece, path_);
  }
}

FormTextWriter::Mark FormTextWriter::enterMember(std::string_view key) {
  const Mark mark{path_.size(), isRoot_};
  if (!isRoot_) appendToPath("[");
  appendToPath(key);
  if (!isRoot_) appendToPath("]");
  isRoot_ = false;
  return mark;
}

FormTextWriter::Mark FormTextWriter::enterElement() {
  const Mark mark{path_.size(), isRoot_};
  if (arrayEncoding_ == Form::ArrayEncoding::brackets) appendToPath("[]");
  return mark;
}

void FormTextWriter::leave(Mark mark) noexcept {
  path_.truncate(mark.size);
  isRoot_ = mark.isRoot;
}

void FormTextWriter::writePair(std::string_view value) {
  if (isConverted_) {
    escaper_.append(keyEncoding_.encode(std::string(path_.text())), text_);
  } else {
    text_.append(path_.text());
  }
  text_.append('=');
  escaper_.append(value, text_);
}

}  // namespace tessarine::internal
