#include "tessarine/web/URLEncodedFormEncoder.hpp"

#include "tessarine/system/text/Characters.hpp"
#include "tessarine/system/text/KeyWords.hpp"
#include "tessarine/web/URLEncodedFormSerializer.hpp"
#include "tessarine/web/internal/FormPairWriter.hpp"
#include "tessarine/web/internal/URLEncodedFormTreeEncoder.hpp"

namespace tessarine {

const CharacterSet& afURLQueryAllowed() {
  static const CharacterSet set =
      CharacterSet::urlQueryAllowed().subtracting(CharacterSet(":#[]@!$&'()*+,;="));
  return set;
}

// ---- options ----

URLEncodedFormEncoder::DataEncoding URLEncodedFormEncoder::DataEncoding::withCallback(
    Custom callback) {
  DataEncoding encoding(custom);
  encoding.callback_ = std::move(callback);
  return encoding;
}

URLEncodedFormEncoder::DateEncoding URLEncodedFormEncoder::DateEncoding::withFormatter(
    DateFormatter formatter) {
  DateEncoding encoding(formatted);
  encoding.payload_ = std::move(formatter);
  return encoding;
}

URLEncodedFormEncoder::DateEncoding URLEncodedFormEncoder::DateEncoding::withCallback(
    Custom callback) {
  DateEncoding encoding(custom);
  encoding.payload_ = std::move(callback);
  return encoding;
}

URLEncodedFormEncoder::KeyEncoding URLEncodedFormEncoder::KeyEncoding::withCallback(
    Custom callback) {
  KeyEncoding encoding(custom);
  encoding.callback_ = std::move(callback);
  return encoding;
}

std::string URLEncodedFormEncoder::KeyEncoding::encode(const std::string& key) const {
  switch (case_) {
    case Case::useDefaultKeys:
      return key;
    case Case::convertToSnakeCase:
      return keyWords(key, '_');
    case Case::convertToKebabCase:
      return keyWords(key, '-');
    case Case::capitalized:
      return capitalizedFirst(key);
    case Case::uppercased:
      return tessarine::uppercased(key);
    case Case::lowercased:
      return tessarine::lowercased(key);
    case Case::custom:
      return callback_(key);
  }
  return key;
}

URLEncodedFormEncoder::Error::Error(std::string rootDescription)
    : rootDescription_(std::move(rootDescription)),
      text_("The root of a form has to be an object: " + rootDescription_) {}

// ---- encoding ----

URLEncodedFormEncoder::URLEncodedFormEncoder() = default;
URLEncodedFormEncoder::URLEncodedFormEncoder(Options options) : options_(std::move(options)) {}

URLEncodedFormComponent URLEncodedFormEncoder::componentOf(EncodableValue value) const {
  internal::URLEncodedFormContext context{options_, {}, {}};
  internal::URLEncodedFormTreeEncoder encoder(context, nullptr);
  tessarine::encode(value, encoder);
  return std::move(context.component);
}

std::string URLEncodedFormEncoder::textOf(EncodableValue value) const {
  const bool isObject = value.shape->encode == nullptr && (value.shape->kind == ShapeKind::object ||
                                                           value.shape->kind == ShapeKind::map);
  if (isObject && internal::FormPairWriter::suits(options_)) {
    internal::FormPairWriter writer(options_);
    if (writer.write(value)) return writer.text();
  }
  const URLEncodedFormComponent component = componentOf(value);
  if (component.object() == nullptr) throw Error(component.description());
  const URLEncodedFormSerializer serializer(options_.alphabetizeKeyValuePairs,
                                            options_.arrayEncoding, options_.keyEncoding,
                                            options_.spaceEncoding, options_.allowedCharacters);
  return serializer.serialize(*component.object());
}

}  // namespace tessarine
