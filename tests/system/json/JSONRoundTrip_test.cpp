#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <list>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "tessarine/system/json/JSONDecoder.hpp"
#include "tessarine/system/json/JSONEncoder.hpp"
#include "tessarine/web/URLEncodedFormDecoder.hpp"
#include "tessarine/web/URLEncodedFormEncoder.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

enum class Size : std::int8_t { small = -1, large = 7 };
enum class Theme { light, dark };

}  // namespace

template <>
struct EnumCases<Size> {
  static constexpr std::array all{Size::small, Size::large};
};
template <>
struct EnumCases<Theme> {
  static constexpr std::array all{std::pair{Theme::light, std::string_view("light")},
                                  std::pair{Theme::dark, std::string_view("dark")}};
};

namespace {

/// Writes and reads through a container of its own, and cannot be made without reading.
class Celsius {
 public:
  explicit Celsius(double degrees) : degrees_(degrees) {}
  void encode(Encoder& encoder) const {
    auto container = encoder.container();
    container.encode(degrees_, "degrees");
    container.nestedUnkeyedContainer("history").encodeContentsOf(std::vector<int>{1, 2});
  }
  static Celsius decode(Decoder& decoder) {
    auto container = decoder.container();
    auto history = container.nestedUnkeyedContainer("history");
    if (history.decode<int>() + history.decode<int>() != 3 || !history.isAtEnd()) {
      throw std::runtime_error("history");
    }
    return Celsius(container.decode<double>("degrees"));
  }
  bool operator==(const Celsius&) const = default;

 private:
  double degrees_;
};

struct Leaf {
  std::string name;
  std::optional<std::int32_t> count;
  double weight = 0;
  static constexpr auto codingFields = fields(
      field("name", &Leaf::name), field("count", &Leaf::count), field("weight", &Leaf::weight));
  bool operator==(const Leaf&) const = default;
};

/// Something of every kind that a form keeps as well as JSON does.
struct Everything {
  bool flag = false;
  std::int8_t i8 = 0;
  std::int64_t i64 = 0;
  std::uint8_t u8 = 0;
  std::uint64_t u64 = 0;
  Int128 i128 = 0;
  UInt128 u128 = 0;
  float f32 = 0;
  double f64 = 0;
  std::string text;
  Date date;
  Data data;
  UUID uuid;
  Decimal decimal;
  Size size = Size::small;
  Theme theme = Theme::light;
  std::optional<std::string> note;
  std::array<std::uint16_t, 3> triple{};
  std::vector<bool> bits;
  std::list<std::string> texts;
  std::set<int> numbers;
  std::unordered_set<std::string> words;
  std::map<std::string, Leaf> leaves;
  std::unordered_map<int, double> byNumber;
  std::vector<Leaf> row;
  std::optional<Celsius> temperature;
  Leaf leaf;
  static constexpr auto codingFields = fields(
      field("flag", &Everything::flag), field("i8", &Everything::i8),
      field("i64", &Everything::i64), field("u8", &Everything::u8), field("u64", &Everything::u64),
      field("i128", &Everything::i128), field("u128", &Everything::u128),
      field("f32", &Everything::f32), field("f64", &Everything::f64),
      field("te/xt \"key\"", &Everything::text), field("date", &Everything::date),
      field("data", &Everything::data), field("uuid", &Everything::uuid),
      field("decimal", &Everything::decimal), field("size", &Everything::size),
      field("theme", &Everything::theme), field("note", &Everything::note),
      field("triple", &Everything::triple), field("bits", &Everything::bits),
      field("texts", &Everything::texts), field("numbers", &Everything::numbers),
      field("words", &Everything::words), field("leaves", &Everything::leaves),
      field("byNumber", &Everything::byNumber), field("row", &Everything::row),
      field("temperature", &Everything::temperature), field("leaf", &Everything::leaf));
  bool operator==(const Everything&) const = default;
};

struct Keys {
  Leaf firstLeaf;
  std::string userIDValue;
  static constexpr auto codingFields =
      fields(field("firstLeaf", &Keys::firstLeaf), field("userIdValue", &Keys::userIDValue));
};

class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed) {}
  std::uint64_t bits() { return engine_(); }
  std::size_t below(std::size_t n) { return engine_() % n; }
  template <class T>
  T integer() {
    constexpr std::array edges{std::numeric_limits<T>::min(), std::numeric_limits<T>::max(), T{0}};
    return below(3) == 0 ? edges[below(edges.size())] : static_cast<T>(bits());
  }
  template <class Float, class Bits>
  Float floating() {
    constexpr std::array edges{Float(-0.0),
                               Float(0),
                               std::numeric_limits<Float>::denorm_min(),
                               std::numeric_limits<Float>::max(),
                               Float(0.1),
                               Float(1e15)};
    if (below(3) == 0) return edges[below(edges.size())];
    const auto value = std::bit_cast<Float>(static_cast<Bits>(bits()));
    return std::isfinite(value) ? value : Float(1);
  }
  std::string text() {
    constexpr std::array<std::string_view, 12> pieces{
        "a",  "Z9",   " ", "\"",   "\\",   "/",
        "\n", "\x01", "é", "日本", "🙂", "a long run of plain text"};
    std::string text;
    for (std::size_t n = below(6); n > 0; --n) text += pieces[below(pieces.size())];
    return text;
  }
  Leaf leaf() {
    return {text(), below(2) == 0 ? std::nullopt : std::optional(integer<std::int32_t>()),
            floating<double, std::uint64_t>()};
  }

 private:
  std::mt19937_64 engine_;
};

Everything randomValue(Random& random) {
  Everything value;
  value.flag = random.below(2) == 0;
  value.i8 = random.integer<std::int8_t>();
  value.i64 = random.integer<std::int64_t>();
  value.u8 = random.integer<std::uint8_t>();
  value.u64 = random.integer<std::uint64_t>();
  value.u128 = UInt128{random.bits()} << 64U | random.bits();
  value.i128 = static_cast<Int128>(value.u128);
  value.f32 = random.floating<float, std::uint32_t>();
  value.f64 = random.floating<double, std::uint64_t>();
  value.text = random.text();
  value.date = Date(random.floating<double, std::uint64_t>());
  value.data = Data::fromText(random.text());
  value.uuid = UUID::random();
  value.decimal = *Decimal::fromString("-12.50");
  value.size = random.below(2) == 0 ? Size::small : Size::large;
  value.theme = random.below(2) == 0 ? Theme::light : Theme::dark;
  if (random.below(2) == 0) value.note = random.text();
  value.triple = {random.integer<std::uint16_t>(), 1, 2};
  for (std::size_t n = random.below(4); n > 0; --n) {
    value.bits.push_back(random.below(2) == 0);
    value.texts.push_back(random.text());
    value.numbers.insert(random.integer<int>());
    value.words.insert(random.text());
    value.leaves.insert_or_assign(std::to_string(n).append("k"), random.leaf());
    value.byNumber.insert_or_assign(random.integer<int>(),
                                    random.floating<double, std::uint64_t>());
    value.row.push_back(random.leaf());
  }
  if (random.below(2) == 0) value.temperature = Celsius(random.floating<double, std::uint64_t>());
  value.leaf = random.leaf();
  return value;
}

// The three routes to one tree: JSON by shapes, JSON pretty and sorted, and the form.
TEST(JSONRoundTrip, EveryKindComesBackFromJSONAndFromForms) {
  for (unsigned seed = 0; seed < 500; ++seed) {
    SCOPED_TRACE(seed);
    Random random(seed);
    const Everything value = randomValue(random);
    const std::string text = JSONEncoder().text(value);
    const auto back = JSONDecoder().decode<Everything>(text);
    ASSERT_EQ(back, value) << text;
    ASSERT_EQ(std::signbit(back.f64), std::signbit(value.f64));
    ASSERT_EQ(JSONEncoder().text(back), text);
    const JSONOutputFormatting formatting{.prettyPrinted = true, .sortedKeys = true};
    const std::string pretty = JSONEncoder({.outputFormatting = formatting}).text(value);
    ASSERT_EQ(JSONDecoder().decode<Everything>(pretty), value) << pretty;
    const std::string form = URLEncodedFormEncoder().text(value);
    ASSERT_EQ(URLEncodedFormDecoder().decode<Everything>(form), value) << form;
  }
}

TEST(JSONRoundTrip, KeyStrategiesGoBothWays) {
  const Leaf leaf{"n", 3, 0.5};
  const Keys keys{leaf, "u"};
  const std::string text =
      JSONEncoder({.keyEncodingStrategy = JSONKeyStrategy::snakeCase}).text(keys);
  EXPECT_EQ(text, R"({"first_leaf":{"name":"n","count":3,"weight":0.5},"user_id_value":"u"})");
  const auto back =
      JSONDecoder({.keyDecodingStrategy = JSONKeyStrategy::snakeCase}).decode<Keys>(text);
  EXPECT_EQ(back.firstLeaf, leaf);
  EXPECT_EQ(back.userIDValue, "u");

  const auto reversed = JSONKeyStrategy::withCallback([](const CodingPath& path) {
    const std::string& key = path.back().stringValue();
    return std::string(key.rbegin(), key.rend());
  });
  const std::string mirrored = JSONEncoder({.keyEncodingStrategy = reversed}).text(leaf);
  EXPECT_EQ(mirrored, R"({"eman":"n","tnuoc":3,"thgiew":0.5})");
  EXPECT_EQ(JSONDecoder({.keyDecodingStrategy = reversed}).decode<Leaf>(mirrored), leaf);
}

TEST(JSONRoundTrip, DateDataAndFloatStrategiesGoBothWays) {
  const Date date = Date::since1970(1714566896.5);
  using Dates = JSONDateForms;
  const auto through = [&](auto encoding, auto decoding) {
    std::string text = JSONEncoder({.dateEncodingStrategy = encoding}).text(date);
    EXPECT_NEAR(JSONDecoder({.dateDecodingStrategy = decoding})
                    .template decode<Date>(text)
                    .timeIntervalSince1970(),
                date.timeIntervalSince1970(), 0.5)
        << text;
    return text;
  };
  using Encoding = decltype(JSONEncoderOptions::dateEncodingStrategy);
  using Decoding = decltype(JSONDecoderOptions::dateDecodingStrategy);
  EXPECT_EQ(through(Encoding(Dates::deferredToDate), Decoding(Dates::deferredToDate)),
            "736259696.5");
  EXPECT_EQ(through(Encoding(Dates::secondsSince1970), Decoding(Dates::secondsSince1970)),
            "1714566896.5");
  EXPECT_EQ(through(Encoding(Dates::millisecondsSince1970), Decoding(Dates::millisecondsSince1970)),
            "1714566896500.0");
  EXPECT_EQ(through(Encoding(Dates::iso8601), Decoding(Dates::iso8601)),
            R"("2024-05-01T12:34:56Z")");
  const DateFormatter day("yyyy/MM/dd HH:mm:ss", {.timeZone = TimeZone::gmt()});
  EXPECT_EQ(through(Encoding::withFormatter(day), Decoding::withFormatter(day)),
            R"("2024\/05\/01 12:34:56")");
  EXPECT_EQ(through(Encoding::withCallback([](Date d, Encoder& encoder) {
                      encoder.unkeyedContainer().encode(d.timeIntervalSince1970());
                    }),
                    Decoding::withCallback([](Decoder& decoder) {
                      return Date::since1970(decoder.unkeyedContainer().decode<double>());
                    })),
            "[1714566896.5]");

  // In years -1 and 10000 of GMT, whose dates could not be written again, in JSON as in forms.
  const JSONDecoder iso({.dateDecodingStrategy = Dates::iso8601});
  const URLEncodedFormDecoder isoForms(
      {.dateEncoding = URLEncodedFormEncoder::DateEncoding::iso8601});
  for (const std::string text :
       {"0000-01-01T00:00:00+00:01", "9999-12-31T23:59:59-00:01", "9999-12-31T23:59:59-23:59"}) {
    EXPECT_THROW((void)iso.decode<Date>('"' + text + '"'), DecodingError) << text;
    const std::string escaped =
        "d=" + std::string(text).replace(19, 1, text[19] == '+' ? "%2B" : "-");
    using Members = std::map<std::string, Date>;
    EXPECT_THROW((void)isoForms.decode<Members>(escaped), DecodingError) << escaped;
  }
  EXPECT_NO_THROW((void)iso.decode<Date>(R"("9999-12-31T23:59:59Z")"));

  const Data data = Data::fromText("\x01\xff");
  EXPECT_EQ(JSONEncoder().text(data), R"("Af8=")");
  const std::string numbers =
      JSONEncoder({.dataEncodingStrategy = JSONDataForms::deferredToData}).text(data);
  EXPECT_EQ(numbers, "[1,255]");
  EXPECT_EQ(
      JSONDecoder({.dataDecodingStrategy = JSONDataForms::deferredToData}).decode<Data>(numbers),
      data);

  const auto texts = JSONNonConformingFloatStrategy::asTexts("inf", "-inf", "nan");
  const std::vector<double> odd{std::numeric_limits<double>::infinity(), -0.0,
                                -std::numeric_limits<double>::infinity(), std::nan("")};
  const std::string text = JSONEncoder({.nonConformingFloatEncodingStrategy = texts}).text(odd);
  EXPECT_EQ(text, R"(["inf",-0.0,"-inf","nan"])");
  const auto back =
      JSONDecoder({.nonConformingFloatDecodingStrategy = texts}).decode<std::vector<double>>(text);
  EXPECT_EQ(back[0], odd[0]);
  EXPECT_TRUE(std::signbit(back[1]));
  EXPECT_EQ(back[2], odd[2]);
  EXPECT_TRUE(std::isnan(back[3]));
  EXPECT_THROW((void)JSONEncoder().text(odd), EncodingError);
  EXPECT_THROW((void)JSONDecoder().decode<std::vector<double>>(text), DecodingError);
}

}  // namespace
}  // namespace tessarine
