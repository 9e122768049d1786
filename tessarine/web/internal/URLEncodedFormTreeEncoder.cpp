#include "tessarine/web/internal/URLEncodedFormTreeEncoder.hpp"

#include <memory>
#include <utility>

#include "tessarine/coding/withIntegerType.hpp"
#include "tessarine/system/time/ISO8601DateFormatter.hpp"
#include "tessarine/values/floatText.hpp"

namespace tessarine::internal {
namespace {

constexpr double millisecondsASecond = 1000;
constexpr std::string_view noNil = "URLEncodedFormEncoder cannot encode nil values.";

template <class T>
const T& as(EncodableValue value) noexcept {
  return *static_cast<const T*>(value.address);
}

std::optional<std::string> dateText(EncodableValue value,
                                    const URLEncodedFormEncoder::Options& options,
                                    const CodingPathNode* path) {
  using Encoding = URLEncodedFormEncoder::DateEncoding;
  const Date date = as<Date>(value);
  const Encoding& encoding = options.dateEncoding;
  std::string text;
  switch (encoding.kind()) {
    case Encoding::deferredToDate:
      return std::nullopt;
    case Encoding::secondsSince1970:
      return floatText(date.timeIntervalSince1970());
    case Encoding::millisecondsSince1970:
      return floatText(date.timeIntervalSince1970() * millisecondsASecond);
    case Encoding::custom:
      return encoding.callback()(date);
    case Encoding::iso8601:
      text = ISO8601DateFormatter::shared().string(date);
      break;
    case Encoding::formatted:
      text = encoding.formatter().string(date);
      break;
  }
  if (!text.empty()) return text;
  throw EncodingError::invalidValue(date, {codingPath(path), "The date has no text in this form."});
}

std::optional<std::string> dataText(const Data& data,
                                    const URLEncodedFormEncoder::Options& options) {
  using Encoding = URLEncodedFormEncoder::DataEncoding;
  switch (options.dataEncoding.kind()) {
    case Encoding::deferredToData:
      return std::nullopt;
    case Encoding::base64:
      return data.base64EncodedString();
    default:
      return options.dataEncoding.callback()(data);
  }
}

std::string boolText(bool value, URLEncodedFormEncoder::BoolEncoding encoding) {
  if (encoding == URLEncodedFormEncoder::BoolEncoding::numeric) return value ? "1" : "0";
  return value ? "true" : "false";
}

}  // namespace

std::optional<std::string> formText(EncodableValue value,
                                    const URLEncodedFormEncoder::Options& options,
                                    const CodingPathNode* path) {
  std::string digits;
  const bool isInteger = withIntegerType(value.shape->kind, [&]<class Integer>() {
    if constexpr (sizeof(Integer) > sizeof(std::int64_t)) {
      digits = decimalText(as<Integer>(value));
    } else {
      digits = std::to_string(as<Integer>(value));
    }
  });
  if (isInteger) return digits;
  switch (value.shape->kind) {
    case ShapeKind::boolean:
      return boolText(as<bool>(value), options.boolEncoding);
    case ShapeKind::text:
      return as<std::string>(value);
    case ShapeKind::textView:
      return std::string(as<std::string_view>(value));
    case ShapeKind::float32:
      return floatText(as<float>(value));
    case ShapeKind::float64:
      return floatText(as<double>(value));
    case ShapeKind::date:
      return dateText(value, options, path);
    case ShapeKind::data:
      return dataText(as<Data>(value), options);
    case ShapeKind::decimal:
      return as<Decimal>(value).description();
    case ShapeKind::uuid:
      return as<UUID>(value).uuidString();
    default:
      return std::nullopt;
  }
}

const CodingPathNode* URLEncodedFormContext::append(const CodingPathNode* parent,
                                                    CodingKeyView key) {
  Step& step = steps.emplace_back();
  step.key = key.stringValue();
  step.node = {parent, step.key, key.intValue()};
  return &step.node;
}

// ---- one value ----

class URLEncodedFormTreeEncoder::SingleValueContainer final
    : public SingleValueEncodingContainer::Backend {
 public:
  SingleValueContainer(URLEncodedFormContext& context, const CodingPathNode* path) noexcept
      : context_(context), path_(path) {}

  CodingPath codingPath() const override { return tessarine::codingPath(path_); }

  void encodeNil() override {
    check([] { return std::any(std::string("nil")); });
    canEncodeNewValue_ = false;
    throw EncodingError::invalidValue(std::string("nil"), {codingPath(), std::string(noNil)});
  }

  void encode(EncodableValue value) override {
    check([&] { return value.copy(); });
    if (value.shape->encode == nullptr) {
      if (auto text = formText(value, context_.options, path_)) {
        context_.component.set(std::move(*text), path_);
        canEncodeNewValue_ = false;
        return;
      }
    }
    attemptToEncode(value);
  }

 private:
  template <class Value>
  void check(Value value) const {
    if (canEncodeNewValue_) return;
    throw EncodingError::invalidValue(
        value(), {codingPath(),
                  "Attempt to encode value through single value container when previously value "
                  "already encoded."});
  }
  /// By the value's own structure. The value is through when its `encode` has returned or thrown.
  void attemptToEncode(EncodableValue value) {
    struct Closing {
      bool& isOpen;
      ~Closing() { isOpen = false; }
    } const closing{canEncodeNewValue_};
    std::size_t depth = 0;
    for (const CodingPathNode* node = path_; node != nullptr; node = node->parent) ++depth;
    if (depth > deepestForm) {
      throw EncodingError::invalidValue(value.copy(),
                                        {codingPath(), "Nested deeper than 512 levels."});
    }
    URLEncodedFormTreeEncoder encoder(context_, path_);
    tessarine::encode(value, encoder);
  }

  URLEncodedFormContext& context_;
  const CodingPathNode* path_;
  bool canEncodeNewValue_ = true;
};

// ---- values under keys ----

class URLEncodedFormTreeEncoder::KeyedContainer final : public KeyedEncodingContainer::Backend {
 public:
  KeyedContainer(URLEncodedFormContext& context, const CodingPathNode* path) noexcept
      : context_(context), path_(path) {}

  CodingPath codingPath() const override { return tessarine::codingPath(path_); }

  void encodeNil(CodingKeyView key) override {
    throw EncodingError::invalidValue(description(key.toKey()) + ": nil",
                                      {codingPath(), std::string(noNil)});
  }
  void encode(EncodableValue value, CodingKeyView key) override {
    // No container of the value's outlives this call.
    const CodingPathNode step{path_, key.stringValue(), key.intValue()};
    SingleValueContainer(context_, &step).encode(value);
  }
  KeyedEncodingContainer nestedContainer(CodingKeyView key) override {
    return KeyedEncodingContainer(std::make_unique<KeyedContainer>(context_, nested(key)));
  }
  UnkeyedEncodingContainer nestedUnkeyedContainer(CodingKeyView key) override;
  std::unique_ptr<Encoder> superEncoder() override {
    return std::make_unique<URLEncodedFormTreeEncoder>(context_, path_);
  }
  std::unique_ptr<Encoder> superEncoder(CodingKeyView key) override {
    return std::make_unique<URLEncodedFormTreeEncoder>(context_, nested(key));
  }

 private:
  const CodingPathNode* nested(CodingKeyView key) { return context_.append(path_, key); }

  URLEncodedFormContext& context_;
  const CodingPathNode* path_;
};

// ---- values in order ----

class URLEncodedFormTreeEncoder::UnkeyedContainer final : public UnkeyedEncodingContainer::Backend {
 public:
  UnkeyedContainer(URLEncodedFormContext& context, const CodingPathNode* path) noexcept
      : context_(context), path_(path) {}

  CodingPath codingPath() const override { return tessarine::codingPath(path_); }
  std::size_t count() const override { return static_cast<std::size_t>(count_); }

  void encodeNil() override {
    throw EncodingError::invalidValue(std::string("nil"), {codingPath(), std::string(noNil)});
  }
  void encode(EncodableValue value) override {
    const CodingPathNode step{path_, {}, count_++};
    SingleValueContainer(context_, &step).encode(value);
  }
  KeyedEncodingContainer nestedContainer() override {
    auto container = std::make_unique<KeyedContainer>(context_, nested());
    ++count_;
    return KeyedEncodingContainer(std::move(container));
  }
  UnkeyedEncodingContainer nestedUnkeyedContainer() override {
    auto container = std::make_unique<UnkeyedContainer>(context_, nested());
    ++count_;
    return UnkeyedEncodingContainer(std::move(container));
  }
  /// On the list's own path: what it writes takes the list's place.
  std::unique_ptr<Encoder> superEncoder() override {
    ++count_;
    return std::make_unique<URLEncodedFormTreeEncoder>(context_, path_);
  }

 private:
  const CodingPathNode* nested() { return context_.append(path_, AnyCodingKey(count_)); }

  URLEncodedFormContext& context_;
  const CodingPathNode* path_;
  std::int64_t count_ = 0;
};

UnkeyedEncodingContainer URLEncodedFormTreeEncoder::KeyedContainer::nestedUnkeyedContainer(
    CodingKeyView key) {
  return UnkeyedEncodingContainer(std::make_unique<UnkeyedContainer>(context_, nested(key)));
}

// ---- the encoder ----

const CodingUserInfo& URLEncodedFormTreeEncoder::userInfo() const {
  static const CodingUserInfo none;
  return none;
}

KeyedEncodingContainer URLEncodedFormTreeEncoder::container() {
  return KeyedEncodingContainer(std::make_unique<KeyedContainer>(context_, path_));
}

UnkeyedEncodingContainer URLEncodedFormTreeEncoder::unkeyedContainer() {
  return UnkeyedEncodingContainer(std::make_unique<UnkeyedContainer>(context_, path_));
}

SingleValueEncodingContainer URLEncodedFormTreeEncoder::singleValueContainer() {
  return SingleValueEncodingContainer(std::make_unique<SingleValueContainer>(context_, path_));
}

}  // namespace tessarine::internal
