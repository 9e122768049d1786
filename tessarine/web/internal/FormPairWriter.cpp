#include "tessarine/web/internal/FormPairWriter.hpp"

#include "tessarine/web/internal/URLEncodedFormTreeEncoder.hpp"

namespace tessarine::internal {

bool FormPairWriter::suits(const URLEncodedFormEncoder::Options& options) noexcept {
  return !options.alphabetizeKeyValuePairs &&
         options.dateEncoding.kind() != URLEncodedFormEncoder::DateEncoding::custom &&
         options.dataEncoding.kind() != URLEncodedFormEncoder::DataEncoding::custom &&
         options.keyEncoding.kind() != URLEncodedFormEncoder::KeyEncoding::custom;
}

bool FormPairWriter::write(EncodableValue root) { return writeMembers(root, nullptr); }

bool FormPairWriter::writeMembers(EncodableValue object, const CodingPathNode* path) {
  bool isWritten = true;
  if (object.shape->kind == ShapeKind::map) {
    const MapShape& shape = *object.shape->map;
    shape.forEach(object.address, [&](std::string_view key, const void* value) {
      isWritten = isWritten && writeMember(key, {value, shape.value}, path);
    });
    return isWritten;
  }
  for (const FieldShape& field : object.shape->fields) {
    const EncodableValue value = field.valueIn(object.address);
    if (value.address == nullptr) continue;
    if (!writeMember(field.name, value, path)) return false;
  }
  return true;
}

bool FormPairWriter::writeMember(std::string_view key, EncodableValue value,
                                 const CodingPathNode* path) {
  const auto mark = out_.enterMember(key);
  const CodingPathNode step{path, key};
  const bool isWritten = writeValue(value, &step);
  out_.leave(mark);
  return isWritten;
}

bool FormPairWriter::writeValue(EncodableValue value, const CodingPathNode* path) {
  const TypeShape& shape = *value.shape;
  if (shape.encode != nullptr || depth_ == deepestForm) return false;
  switch (shape.kind) {
    case ShapeKind::text:
      writePair(*static_cast<const std::string*>(value.address));
      return true;
    case ShapeKind::map:
    case ShapeKind::object: {
      ++depth_;
      const bool isWritten = writeMembers(value, path);
      --depth_;
      return isWritten;
    }
    case ShapeKind::sequence:
      return writeSequence(value, path);
    default: {
      const auto text = formText(value, options_, path);
      if (text) writePair(*text);
      return text.has_value();
    }
  }
}

bool FormPairWriter::writeSequence(EncodableValue value, const CodingPathNode* path) {
  const SequenceShape& shape = *value.shape->sequence;
  const auto mark = out_.enterElement();
  CodingPathNode step{path, {}, -1};
  bool isWritten = true;
  ++depth_;
  shape.forEach(value.address, [&](const void* element) {
    ++*step.index;
    isWritten = isWritten && writeValue({element, shape.element}, &step);
  });
  --depth_;
  out_.leave(mark);
  return isWritten;
}

void FormPairWriter::writePair(std::string_view value) {
  if (out_.text().size() > 0) out_.separate();
  out_.writePair(value);
}

}  // namespace tessarine::internal
