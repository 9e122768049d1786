// What decodes encodes again, to bytes that decode to the same bytes; a document that is valid is
// one of untyped values, unless a number in it is beyond every type.
#include <array>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tessarine/system/json/JSONDecoder.hpp"
#include "tessarine/system/json/JSONEncoder.hpp"
#include "tessarine/system/json/JSONSerialization.hpp"

namespace {

using namespace tessarine;

enum class Theme { light, dark };

/// Through a container of its own, and with an explicit absent value.
struct Pair {
  std::optional<std::int64_t> first;
  std::string second;
  void encode(Encoder& encoder) const {
    auto container = encoder.unkeyedContainer();
    if (first) {
      container.encode(*first);
    } else {
      container.encodeNil();
    }
    container.encode(second);
  }
  static Pair decode(Decoder& decoder) {
    auto container = decoder.unkeyedContainer();
    Pair pair;
    if (!container.decodeNil()) pair.first = container.decode<std::int64_t>();
    pair.second = container.decode<std::string>();
    return pair;
  }
};

}  // namespace

template <>
struct tessarine::EnumCases<Theme> {
  static constexpr std::array all{std::pair{Theme::light, std::string_view("light")},
                                  std::pair{Theme::dark, std::string_view("dark")}};
};

namespace {

struct Leaf {
  std::int32_t x = 0;
  std::vector<std::optional<double>> y;
  static constexpr auto codingFields = fields(field("x", &Leaf::x), field("y", &Leaf::y));
};

/// One member of every kind, each of which may be missing.
struct Everything {
  std::optional<bool> b;
  std::optional<std::int8_t> i8;
  std::optional<std::int64_t> i64;
  std::optional<Int128> i128;
  std::optional<std::uint16_t> u16;
  std::optional<std::uint64_t> u64;
  std::optional<UInt128> u128;
  std::optional<float> f;
  std::optional<double> d;
  std::optional<std::string> t;
  std::optional<Date> date;
  std::optional<Data> data;
  std::optional<UUID> uuid;
  std::optional<Decimal> decimal;
  std::optional<Theme> theme;
  std::optional<Pair> pair;
  std::optional<Leaf> leafNode;
  std::vector<Leaf> leaves;
  std::map<std::string, std::vector<std::string>> texts;
  std::map<std::int16_t, Leaf> numbered;
  static constexpr auto codingFields = fields(
      field("b", &Everything::b), field("i8", &Everything::i8), field("i64", &Everything::i64),
      field("i128", &Everything::i128), field("u16", &Everything::u16),
      field("u64", &Everything::u64), field("u128", &Everything::u128), field("f", &Everything::f),
      field("d", &Everything::d), field("t", &Everything::t), field("date", &Everything::date),
      field("data", &Everything::data), field("uuid", &Everything::uuid),
      field("decimal", &Everything::decimal), field("theme", &Everything::theme),
      field("pair", &Everything::pair), field("leafNode", &Everything::leafNode),
      field("leaves", &Everything::leaves), field("texts", &Everything::texts),
      field("numbered", &Everything::numbered));
};

template <class T>
std::optional<T> decoded(const JSONDecoder& decoder, std::string_view text) {
  try {
    return decoder.decode<T>(text);
  } catch (const DecodingError&) {
    return std::nullopt;
  }
}

template <class T>
void roundTrip(const JSONDecoder& decoder, const JSONEncoder& encoder, std::string_view text) {
  const auto value = decoded<T>(decoder, text);
  if (!value) return;
  const std::string bytes = encoder.text(*value);
  if (encoder.text(decoder.decode<T>(bytes)) != bytes) std::abort();
}

void everyForm(std::string_view text) {
  roundTrip<Everything>(JSONDecoder(), JSONEncoder(), text);
  roundTrip<std::vector<Everything>>(JSONDecoder(), JSONEncoder(), text);
  // Other forms, and sorted keys, which go by way of the tree of what was written.
  const JSONDecoder decoder({.dataDecodingStrategy = JSONDataForms::deferredToData,
                             .keyDecodingStrategy = JSONKeyStrategy::snakeCase});
  const JSONEncoder encoder({.outputFormatting = {.prettyPrinted = true, .sortedKeys = true},
                             .dataEncodingStrategy = JSONDataForms::deferredToData,
                             .keyEncodingStrategy = JSONKeyStrategy::snakeCase});
  roundTrip<Everything>(decoder, encoder, text);
}

void untyped(const Data& data) {
  bool isValid = true;
  try {
    JSONSerialization::validate(data);
  } catch (const DecodingError&) {
    isValid = false;
  }
  try {
    const AnyHashable object = JSONSerialization::jsonObject(data);
    if (!isValid) std::abort();
    const Data bytes = JSONSerialization::data(object);
    const AnyHashable again = JSONSerialization::jsonObject(bytes);
    if (!(again == object) || JSONSerialization::data(again) != bytes) std::abort();
  } catch (const DecodingError& error) {
    const std::string_view why = error.what();
    if (isValid && why.find("number") == std::string_view::npos) std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  everyForm(text);
  untyped(Data::fromText(text));
  return 0;
}
