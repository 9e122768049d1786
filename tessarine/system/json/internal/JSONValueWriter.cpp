#include "tessarine/system/json/internal/JSONValueWriter.hpp"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include "tessarine/coding/withIntegerType.hpp"
#include "tessarine/system/json/internal/JSONKeys.hpp"
#include "tessarine/system/json/internal/JSONNode.hpp"
#include "tessarine/system/json/internal/JSONString.hpp"
#include "tessarine/system/json/internal/deepestJSON.hpp"
#include "tessarine/system/time/ISO8601DateFormatter.hpp"
#include "tessarine/values/floatText.hpp"

namespace tessarine::internal {
namespace {

constexpr double millisecondsASecond = 1000;
constexpr std::size_t longestInteger = 20;

template <class T>
const T& as(const void* value) noexcept {
  return *static_cast<const T*>(value);
}

[[noreturn]] void fail(EncodableValue value, const CodingPathNode* path, std::string why) {
  throw EncodingError::invalidValue(value.copy(), {codingPath(path), std::move(why)});
}

}  // namespace

void JSONValueWriter::writeDocument(EncodableValue value, const JSONEncoderOptions& options,
                                    TextBuffer& out) {
  JSONValueWriter writer(options, out, 0);
  if (value.shape->encode == nullptr) return writer.write(value, nullptr);
  JSONNodeTree tree(options, nullptr, 0);
  const auto encoder = tree.encoder(tree.root());
  value.shape->encode(value.address, *encoder);
  if (tree.root().kind == JSONNode::Kind::nothing) {
    fail(value, nullptr, "Top-level value did not encode any values.");
  }
  JSONNodeTree::write(tree.root(), writer, out);
}

void JSONValueWriter::beginList(char open, const CodingPathNode* path) {
  if (depth_ == deepestJSON) {
    throw EncodingError::invalidValue({}, {codingPath(path), "Nested deeper than 512 levels."});
  }
  ++depth_;
  out_.append(open);
}

void JSONValueWriter::separate(bool& isFirst) {
  if (!std::exchange(isFirst, false)) out_.append(',');
  if (!options_.outputFormatting.prettyPrinted) return;
  out_.append('\n');
  out_.append(2 * depth_, ' ');
}

void JSONValueWriter::writeKey(std::string_view key) {
  writeJSONString(key, !options_.outputFormatting.withoutEscapingSlashes, out_);
  out_.append(options_.outputFormatting.prettyPrinted ? std::string_view(": ") : ":");
}

void JSONValueWriter::endList(char close, bool isEmpty) {
  --depth_;
  if (!isEmpty && options_.outputFormatting.prettyPrinted) {
    out_.append('\n');
    out_.append(2 * depth_, ' ');
  }
  out_.append(close);
}

void JSONValueWriter::write(EncodableValue value, const CodingPathNode* path) {
  const TypeShape& shape = *value.shape;
  if (shape.encode != nullptr) {
    return writeByHand([&](Encoder& encoder) { shape.encode(value.address, encoder); }, path);
  }
  switch (shape.kind) {
    case ShapeKind::optional: {
      const void* const wrapped = shape.optional->get(value.address);
      return wrapped == nullptr ? writeNull() : write({wrapped, shape.optional->wrapped}, path);
    }
    case ShapeKind::sequence:
      return writeSequence(value, path);
    case ShapeKind::map:
      return writeMap(value, path);
    case ShapeKind::object:
      return writeFields(value, path);
    default:
      return writeScalar(value, path);
  }
}

template <class Integer>
void JSONValueWriter::writeInteger(Integer value) {
  if constexpr (sizeof(Integer) > sizeof(std::int64_t)) {
    out_.append(decimalText(value));
  } else {
    char* const to = out_.room(longestInteger);
    out_.advanceTo(std::to_chars(to, to + longestInteger, value).ptr);
  }
}

template <class Number>
void JSONValueWriter::writeFloat(EncodableValue value, Number number, const CodingPathNode* path) {
  if (std::isfinite(number)) {
    return out_.advanceTo(writeFloatText(number, out_.room(longestFloatText)));
  }
  const auto& strategy = options_.nonConformingFloatEncodingStrategy;
  if (!strategy.isText()) fail(value, path, "JSON has no number for " + floatText(number) + ".");
  writeJSONString(std::isnan(number) ? strategy.nan()
                  : number > 0       ? strategy.positiveInfinity()
                                     : strategy.negativeInfinity(),
                  !options_.outputFormatting.withoutEscapingSlashes, out_);
}

void JSONValueWriter::writeScalar(EncodableValue value, const CodingPathNode* path) {
  const void* const address = value.address;
  const bool isInteger = withIntegerType(
      value.shape->kind, [&]<class Integer>() { writeInteger(as<Integer>(address)); });
  if (isInteger) return;
  const bool escapesSlashes = !options_.outputFormatting.withoutEscapingSlashes;
  switch (value.shape->kind) {
    case ShapeKind::boolean:
      return out_.append(as<bool>(address) ? std::string_view("true") : "false");
    case ShapeKind::float32:
      return writeFloat(value, as<float>(address), path);
    case ShapeKind::float64:
      return writeFloat(value, as<double>(address), path);
    case ShapeKind::text:
      return writeJSONString(as<std::string>(address), escapesSlashes, out_);
    case ShapeKind::textView:
      return writeJSONString(as<std::string_view>(address), escapesSlashes, out_);
    case ShapeKind::uuid:
      return writeJSONString(as<UUID>(address).uuidString(), escapesSlashes, out_);
    case ShapeKind::decimal:
      return out_.append(as<Decimal>(address).description());
    case ShapeKind::date:
      return writeDate(value, path);
    case ShapeKind::data:
      return writeData(value, path);
    case ShapeKind::enumeration:
      return writeEnumeration(value, path);
    default:
      fail(value, path, "The type has no encode.");
  }
}

void JSONValueWriter::writeDate(EncodableValue value, const CodingPathNode* path) {
  const Date date = as<Date>(value.address);
  const auto& strategy = options_.dateEncodingStrategy;
  using Strategy = std::remove_cvref_t<decltype(strategy)>;
  const auto writeText = [&](const std::string& text) {
    if (text.empty()) fail(value, path, "The date has no text in this form.");
    writeJSONString(text, !options_.outputFormatting.withoutEscapingSlashes, out_);
  };
  switch (strategy.kind()) {
    case Strategy::deferredToDate:
      return writeFloat(value, date.timeIntervalSinceReferenceDate(), path);
    case Strategy::secondsSince1970:
      return writeFloat(value, date.timeIntervalSince1970(), path);
    case Strategy::millisecondsSince1970:
      return writeFloat(value, date.timeIntervalSince1970() * millisecondsASecond, path);
    case Strategy::iso8601:
      return writeText(ISO8601DateFormatter::shared().string(date));
    case Strategy::formatted:
      return writeText(strategy.formatter().string(date));
    case Strategy::custom:
      return writeByHand([&](Encoder& encoder) { strategy.callback()(date, encoder); }, path);
  }
}

void JSONValueWriter::writeData(EncodableValue value, const CodingPathNode* path) {
  const auto& data = as<Data>(value.address);
  const auto& strategy = options_.dataEncodingStrategy;
  using Strategy = std::remove_cvref_t<decltype(strategy)>;
  switch (strategy.kind()) {
    case Strategy::deferredToData:
      return write(EncodableValue::of(data.bytes()), path);
    case Strategy::base64:
      return writeJSONString(data.base64EncodedString(),
                             !options_.outputFormatting.withoutEscapingSlashes, out_);
    case Strategy::custom:
      return writeByHand([&](Encoder& encoder) { strategy.callback()(data, encoder); }, path);
  }
}

void JSONValueWriter::writeEnumeration(EncodableValue value, const CodingPathNode* path) {
  const EnumShape& shape = *value.shape->enumeration;
  if (shape.text != nullptr) {
    if (const auto raw = shape.text(value.address)) {
      return writeJSONString(*raw, !options_.outputFormatting.withoutEscapingSlashes, out_);
    }
  } else if (const auto raw = shape.number(value.address)) {
    return out_.append(decimalText(*raw));
  }
  fail(value, path, "The value is no case of its enumeration.");
}

void JSONValueWriter::writeSequence(EncodableValue value, const CodingPathNode* path) {
  const SequenceShape& shape = *value.shape->sequence;
  CodingPathNode step{path, {}, -1};
  beginList('[', path);
  bool isFirst = true;
  const auto element = [&](const void* address) {
    ++*step.index;
    separate(isFirst);
    write({address, shape.element}, &step);
  };
  if (shape.elements != nullptr) {
    const auto bytes = shape.elements(value.address);
    for (std::size_t at = 0; at < bytes.size(); at += shape.stride) element(bytes.data() + at);
  } else {
    shape.forEach(value.address, element);
  }
  endList(']', isFirst);
}

void JSONValueWriter::writeMap(EncodableValue value, const CodingPathNode* path) {
  const MapShape& shape = *value.shape->map;
  CodingPathNode step{path};
  bool isFirst = true;
  const auto member = [&](std::string_view key, const void* address) {
    step.key = key;
    separate(isFirst);
    writeKey(key);
    write({address, shape.value}, &step);
  };
  beginList('{', path);
  if (options_.outputFormatting.sortedKeys) {
    std::vector<std::pair<std::string, const void*>> members;
    shape.forEach(value.address, [&](std::string_view key, const void* address) {
      members.emplace_back(key, address);
    });
    std::sort(members.begin(), members.end());
    for (const auto& [key, address] : members) member(key, address);
  } else {
    shape.forEach(value.address, member);
  }
  endList('}', isFirst);
}

void JSONValueWriter::writeFields(EncodableValue value, const CodingPathNode* path) {
  const bool isPlain = !options_.outputFormatting.prettyPrinted &&
                       !options_.outputFormatting.sortedKeys &&
                       options_.keyEncodingStrategy.kind() == JSONKeyStrategy::useDefaultKeys;
  if (!isPlain) return writeFieldsConverted(value, path);
  beginList('{', path);
  CodingPathNode step{path};
  bool isFirst = true;
  for (const FieldShape& field : value.shape->fields) {
    const EncodableValue member = field.valueIn(value.address);
    if (member.address == nullptr) continue;
    step.key = field.name;
    if (!std::exchange(isFirst, false)) out_.append(',');
    if (field.isPlainName) {
      char* to = out_.room(field.name.size() + 3);
      *to++ = '"';
      std::memcpy(to, field.name.data(), field.name.size());
      to += field.name.size();
      *to++ = '"';
      *to++ = ':';
      out_.advanceTo(to);
    } else {
      writeKey(field.name);
    }
    write(member, &step);
  }
  endList('}', isFirst);
}

void JSONValueWriter::writeFieldsConverted(EncodableValue value, const CodingPathNode* path) {
  struct Member {
    std::string key;
    const FieldShape* field;
    EncodableValue value;
  };
  std::vector<Member> members;
  members.reserve(value.shape->fields.size());
  for (const FieldShape& field : value.shape->fields) {
    const EncodableValue member = field.valueIn(value.address);
    if (member.address == nullptr) continue;
    members.push_back(
        {writtenJSONKey(options_.keyEncodingStrategy, field.name, path), &field, member});
  }
  if (options_.outputFormatting.sortedKeys) {
    std::stable_sort(members.begin(), members.end(),
                     [](const Member& a, const Member& b) { return a.key < b.key; });
  }
  beginList('{', path);
  CodingPathNode step{path};
  bool isFirst = true;
  for (const Member& member : members) {
    step.key = member.field->name;
    separate(isFirst);
    writeKey(member.key);
    write(member.value, &step);
  }
  endList('}', isFirst);
}

void JSONValueWriter::writeByHand(FunctionRef<void(Encoder&)> encode, const CodingPathNode* path) {
  // The nodes around count too: `encode` may hold a value of its own type.
  if (depth_ == deepestJSON) {
    throw EncodingError::invalidValue({}, {codingPath(path), "Nested deeper than 512 levels."});
  }
  JSONNodeTree tree(options_, path, depth_);
  const auto encoder = tree.encoder(tree.root());
  encode(*encoder);
  JSONNodeTree::write(tree.root(), *this, out_);
}

}  // namespace tessarine::internal
