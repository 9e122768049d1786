#include "PreferenceRows.hpp"

#include <iostream>

#include "DateText.hpp"
#include "PreferenceJson.hpp"
#include "tessarine/values/floatText.hpp"

namespace tessarine::tool {
namespace {

const char* kindName(const PreferenceObject& object) {
  switch (object.kind()) {
    case PreferenceObject::Kind::string:
      return "string";
    case PreferenceObject::Kind::date:
      return "date";
    case PreferenceObject::Kind::data:
      return "data";
    case PreferenceObject::Kind::array:
      return "array";
    case PreferenceObject::Kind::dictionary:
      return "dictionary";
    case PreferenceObject::Kind::number:
      break;
  }
  switch (object.number()->kind()) {
    case NSNumber::Kind::boolean:
      return "bool";
    case NSNumber::Kind::signedInteger:
      return "int";
    case NSNumber::Kind::unsignedInteger:
      return "uint";
    case NSNumber::Kind::float64:
      return "double";
    case NSNumber::Kind::float32:
      break;
  }
  return "float";
}

std::string numberText(const NSNumber& number) {
  if (number.kind() == NSNumber::Kind::float32) return floatText(number.floatValue());
  return number.isFloat() ? floatText(number.doubleValue()) : number.stringValue();
}

/// Keeps a text on its line and in its column: backslash, tab and line ends are written with a
/// backslash.
std::string oneCell(std::string_view text) {
  std::string cell;
  for (const char c : text) {
    switch (c) {
      case '\\':
        cell += "\\\\";
        break;
      case '\t':
        cell += "\\t";
        break;
      case '\n':
        cell += "\\n";
        break;
      case '\r':
        cell += "\\r";
        break;
      case '\0':
        cell += "\\0";
        break;
      default:
        cell += c;
    }
  }
  return cell;
}

}  // namespace

std::string plainText(const PreferenceObject& object) {
  switch (object.kind()) {
    case PreferenceObject::Kind::number:
      return numberText(*object.number());
    case PreferenceObject::Kind::string:
      return *object.string();
    case PreferenceObject::Kind::data:
      return object.data()->base64EncodedString();
    case PreferenceObject::Kind::date:
      if (const auto text = isoText(*object.date())) return *text;
      return jsonText(object);
    case PreferenceObject::Kind::array:
    case PreferenceObject::Kind::dictionary:
      return jsonText(object);
  }
  return {};
}

std::string rowOf(std::string_view key, const std::optional<PreferenceObject>& object) {
  std::string row = oneCell(key);
  row.append("\t").append(object ? kindName(*object) : "removed").append("\t");
  if (object) row += oneCell(plainText(*object));
  return row;
}

void printLine(std::string_view text) {
  std::cout.write(text.data(), static_cast<std::streamsize>(text.size())).put('\n');
}

}  // namespace tessarine::tool
