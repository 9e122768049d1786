#include "PreferenceJson.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

#include "DateText.hpp"
#include "tessarine/values/floatText.hpp"

#include <simdjson.h>

namespace tessarine::tool {
namespace {

constexpr int deepest = 512;
constexpr std::array<std::string_view, 6> specialKeys{"$float", "$double", "$date",
                                                      "$data",  "$uint",   "$dictionary"};

bool isSpecial(std::string_view key) {
  return std::find(specialKeys.begin(), specialKeys.end(), key) != specialKeys.end();
}

// ---- writing ----

class Writer {
 public:
  explicit Writer(bool pretty) : pretty_(pretty) {}
  std::string text;

  void write(const PreferenceObject& object) {
    switch (object.kind()) {
      case PreferenceObject::Kind::number:
        return number(*object.number());
      case PreferenceObject::Kind::string:
        return string(*object.string());
      case PreferenceObject::Kind::date:
        return date(*object.date());
      case PreferenceObject::Kind::data:
        return special("$data", [&] { string(object.data()->base64EncodedString()); });
      case PreferenceObject::Kind::array:
        return array(*object.array());
      case PreferenceObject::Kind::dictionary: {
        const auto& dictionary = *object.dictionary();
        const bool isAmbiguous =
            std::any_of(dictionary.begin(), dictionary.end(),
                        [](const auto& pair) { return isSpecial(pair.first); });
        if (!isAmbiguous) return members(dictionary);
        return special("$dictionary", [&] { members(dictionary); });
      }
    }
  }

 private:
  template <class Contents>
  void special(std::string_view key, Contents contents) {
    text += '{';
    string(key);
    text += pretty_ ? ": " : ":";
    contents();
    text += '}';
  }

  void number(const NSNumber& number) {
    switch (number.kind()) {
      case NSNumber::Kind::float64:
        return floating("$double", number.doubleValue());
      case NSNumber::Kind::float32:
        return special("$float", [&] { floatOrText(number.floatValue()); });
      case NSNumber::Kind::unsignedInteger:
        if (number.integerValue() >= 0) {
          return special("$uint", [&] { text += number.stringValue(); });
        }
        [[fallthrough]];
      default:
        text += number.stringValue();
    }
  }
  void floating(std::string_view key, double value) {
    if (std::isfinite(value)) {
      text += floatText(value);
    } else {
      special(key, [&] { string(floatText(value)); });
    }
  }
  void floatOrText(float value) {
    if (std::isfinite(value)) {
      text += floatText(value);
    } else {
      string(floatText(value));
    }
  }
  void date(Date date) {
    special("$date", [&] {
      if (const auto iso = isoText(date)) return string(*iso);
      const double seconds = date.timeIntervalSinceReferenceDate();
      if (std::isfinite(seconds)) return void(text += floatText(seconds));
      string(floatText(seconds));
    });
  }

  void string(std::string_view value) {
    text += '"';
    for (std::size_t i = 0; i < value.size();) {
      const std::size_t size = characterSize(value.substr(i));
      if (size == 0) {
        text += "\xef\xbf\xbd";
        ++i;
      } else {
        character(value.substr(i, size));
        i += size;
      }
    }
    text += '"';
  }
  void character(std::string_view bytes) {
    const auto c = static_cast<unsigned char>(bytes.front());
    if (c == '"' || c == '\\') {
      text += '\\';
      text += bytes;
    } else if (c >= 0x20) {
      text += bytes;
    } else if (c == '\n' || c == '\t' || c == '\r') {
      text += c == '\n' ? "\\n" : c == '\t' ? "\\t" : "\\r";
    } else {
      constexpr auto digits = "0123456789abcdef";
      text += "\\u00";
      text += digits[c >> 4U];
      text += digits[c & 15U];
    }
  }
  /// The length of the well-formed character at the front, 0 when it is ill-formed.
  static std::size_t characterSize(std::string_view bytes) {
    for (std::size_t size = 1; size <= std::min<std::size_t>(4, bytes.size()); ++size) {
      if (simdjson::validate_utf8(bytes.data(), size)) return size;
    }
    return 0;
  }

  void array(const PreferenceObject::Array& array) {
    list(
        '[', array, [&](const auto& element) { write(element); }, ']');
  }
  void members(const PreferenceObject::Dictionary& dictionary) {
    list(
        '{', dictionary,
        [&](const auto& pair) {
          string(pair.first);
          text += pretty_ ? ": " : ":";
          write(pair.second);
        },
        '}');
  }
  template <class Elements, class Write>
  void list(char open, const Elements& elements, Write writeElement, char close) {
    text += open;
    ++depth_;
    bool isFirst = true;
    for (const auto& element : elements) {
      if (!std::exchange(isFirst, false)) text += ',';
      newLine();
      writeElement(element);
    }
    --depth_;
    if (!isFirst) newLine();
    text += close;
  }
  void newLine() {
    if (pretty_) text.append("\n").append(2 * depth_, ' ');
  }

  const bool pretty_;
  std::size_t depth_ = 0;
};

// ---- reading ----

namespace dom = simdjson::dom;

[[noreturn]] void fail(const char* why) { throw JsonError(why); }

PreferenceObject read(const dom::element& element, int depth);

double floatFromText(std::string_view text) {
  if (text == "nan") return std::nan("");
  if (text == "inf") return std::numeric_limits<double>::infinity();
  if (text == "-inf") return -std::numeric_limits<double>::infinity();
  fail("no number");
}

double floatFrom(const dom::element& element) {
  std::string_view text;
  if (element.get(text) == simdjson::SUCCESS) return floatFromText(text);
  double value = 0;
  if (element.get(value) != simdjson::SUCCESS) fail("no number");
  return value;
}

Date dateFrom(const dom::element& element) {
  std::string_view text;
  if (element.get(text) != simdjson::SUCCESS) return Date(floatFrom(element));
  if (const auto date = dateFromIso(text)) return *date;
  if (text == "nan" || text == "inf" || text == "-inf") return Date(floatFromText(text));
  fail("no date");
}

PreferenceObject readMembers(const dom::object& object, int depth) {
  if (depth == 0) fail("nested deeper than 512 levels");
  PreferenceObject::Dictionary dictionary;
  for (const auto& [key, value] : object)
    dictionary.insert_or_assign(std::string(key), read(value, depth - 1));
  return PreferenceObject(std::move(dictionary));
}

PreferenceObject readSpecial(std::string_view key, const dom::element& value, int depth) {
  if (key == "$date") return dateFrom(value);
  if (key == "$double") return NSNumber(floatFrom(value));
  if (key == "$float") return NSNumber(static_cast<float>(floatFrom(value)));
  if (key == "$uint") {
    std::uint64_t number = 0;
    if (value.get(number) != simdjson::SUCCESS) fail("no unsigned number");
    return NSNumber(number);
  }
  if (key == "$data") {
    std::string_view text;
    if (value.get(text) != simdjson::SUCCESS) fail("no base64");
    auto data = Data::fromBase64(text);
    if (!data) fail("no base64");
    return PreferenceObject(std::move(*data));
  }
  dom::object object;
  if (value.get(object) != simdjson::SUCCESS) fail("no dictionary");
  return readMembers(object, depth);
}

PreferenceObject readObject(const dom::object& object, int depth) {
  if (object.size() == 1) {
    const auto [key, value] = *object.begin();
    if (isSpecial(key)) return readSpecial(key, value, depth);
  }
  return readMembers(object, depth);
}

PreferenceObject readArray(const dom::array& elements, int depth) {
  if (depth == 0) fail("nested deeper than 512 levels");
  PreferenceObject::Array array;
  for (const auto& element : elements) array.push_back(read(element, depth - 1));
  return PreferenceObject(std::move(array));
}

PreferenceObject read(const dom::element& element, int depth) {
  switch (element.type()) {
    case dom::element_type::BOOL:
      return NSNumber(bool(element));
    case dom::element_type::INT64:
      return NSNumber(std::int64_t(element));
    case dom::element_type::UINT64:
      return NSNumber(std::uint64_t(element));
    case dom::element_type::DOUBLE:
      return NSNumber(double(element));
    case dom::element_type::STRING:
      return PreferenceObject(std::string_view(element));
    case dom::element_type::ARRAY:
      return readArray(dom::array(element), depth);
    case dom::element_type::OBJECT:
      return readObject(dom::object(element), depth);
    case dom::element_type::NULL_VALUE:
      break;
  }
  fail("null is no preference");
}

}  // namespace

std::string jsonText(const PreferenceObject& object, bool pretty) {
  Writer writer(pretty);
  writer.write(object);
  return std::move(writer.text);
}

PreferenceObject objectFromJson(std::string_view text) {
  dom::parser parser;
  dom::element root;
  // Forms such as {"$dictionary": ...} take two levels each.
  auto error = parser.allocate(text.size(), 2 * deepest + 2);
  if (error == simdjson::SUCCESS) error = parser.parse(text.data(), text.size()).get(root);
  if (error != simdjson::SUCCESS) throw JsonError(simdjson::error_message(error));
  return read(root, deepest + 1);  // a whole domain is a dictionary around its values
}

}  // namespace tessarine::tool
