// JSON and forms beside their peers. What the rows time:
//   decode    a document of 1.2 MB, 4 700 mixed objects, into the same structs for everybody
//   encode    the structs to the document's text
//   form      100 pairs, 3.4 kB, to an escaped query
//   pairs     one object of many pairs to a form, all of one length: the direct way, and by the
//   tree copy      a struct of 20 fields, deep, by way of JSON
// RapidJSON decodes by its document and field access, as its users do; nlohmann/json by its own
// document and conversions; simdjson by its on-demand interface, fields in the text's order.

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "allocations.hpp"
#include "tessarine/codable/Codable+JSON.hpp"
#include "tessarine/system/json/JSONDecoder.hpp"
#include "tessarine/system/json/JSONEncoder.hpp"
#include "tessarine/web/URLEncodedFormEncoder.hpp"

#include <benchmark/benchmark.h>
#include <simdjson.h>

#ifdef TESSARINE_BENCH_NLOHMANN
#include <nlohmann/json.hpp>
#endif
#ifdef TESSARINE_BENCH_RAPIDJSON
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#endif
#ifdef TESSARINE_BENCH_BOOST_URL
#include <boost/url.hpp>
#endif
#ifdef TESSARINE_BENCH_QT
#include <QString>
#include <QUrl>
#include <QUrlQuery>
#endif

namespace {

using tessarine::field;
using tessarine::fields;

struct Address {
  std::string street;
  std::string city;
  std::int32_t number = 0;
  static constexpr auto codingFields =
      fields(field("street", &Address::street), field("city", &Address::city),
             field("number", &Address::number));
};

struct Person {
  std::int64_t id = 0;
  std::string name;
  std::string email;
  double balance = 0;
  bool active = false;
  std::optional<std::int32_t> age;
  Address address;
  std::vector<std::string> tags;
  std::vector<double> scores;
  static constexpr auto codingFields =
      fields(field("id", &Person::id), field("name", &Person::name), field("email", &Person::email),
             field("balance", &Person::balance), field("active", &Person::active),
             field("age", &Person::age), field("address", &Person::address),
             field("tags", &Person::tags), field("scores", &Person::scores));
};

const std::vector<Person>& people() {
  static const auto made = [] {
    std::vector<Person> all(4700);
    for (std::size_t i = 0; i < all.size(); ++i) {
      Person& p = all[i];
      const auto n = static_cast<std::int64_t>(i);
      p.id = 1'000'000 + n * 7919;
      p.name = "Person \"" + std::to_string(n) + "\" Söderström";
      p.email = "person." + std::to_string(n) + "@example.org";
      p.balance = static_cast<double>(n * 37 % 100'000) / 100;
      p.active = n % 3 == 0;
      if (n % 4 != 0) p.age = static_cast<std::int32_t>(18 + n % 70);
      p.address = {"Long Street Name " + std::to_string(n % 90), "City", static_cast<int>(n % 200)};
      p.tags = {"reader", "early adopter"};
      p.scores = {0.5, static_cast<double>(n % 1000) / 8, 12.75};
    }
    return all;
  }();
  return made;
}

const tessarine::JSONEncoder& plainEncoder() {
  static const tessarine::JSONEncoder encoder(
      {.outputFormatting = {.withoutEscapingSlashes = true}});
  return encoder;
}

const std::string& document() {
  static const std::string text = plainEncoder().text(people());
  return text;
}

/// Bytes a second, and allocations an object or pair.
class Counted {
 public:
  Counted(benchmark::State& state, std::size_t bytes, std::size_t units)
      : state_(state), bytes_(bytes), units_(units), before_(allocations.load()) {}
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;
  ~Counted() {
    const auto iterations = static_cast<double>(state_.iterations());
    state_.counters["allocations"] = static_cast<double>(allocations.load() - before_) /
                                     iterations / static_cast<double>(units_);
    state_.SetBytesProcessed(state_.iterations() * static_cast<std::int64_t>(bytes_));
  }

 private:
  benchmark::State& state_;
  std::size_t bytes_;
  std::size_t units_;
  std::uint64_t before_;
};

/// Long enough for the first runs, which take fresh pages from the system, to matter little.
void untilSteady(benchmark::internal::Benchmark* row) { row->MinTime(0.1); }

// ---- decode ----

void decodeTessarine(benchmark::State& state) {
  const tessarine::JSONDecoder decoder;
  const Counted counted(state, document().size(), people().size());
  for (auto _ : state) {
    benchmark::DoNotOptimize(decoder.decode<std::vector<Person>>(document()));
  }
}
BENCHMARK(decodeTessarine)->Name("decode/ours")->Apply(untilSteady);

Person personFrom(simdjson::ondemand::object object) {
  Person p;
  p.id = object["id"].get_int64();
  p.name = std::string_view(object["name"].get_string());
  p.email = std::string_view(object["email"].get_string());
  p.balance = object["balance"].get_double();
  p.active = object["active"].get_bool();
  simdjson::ondemand::value age;
  if (object["age"].get(age) == simdjson::SUCCESS) {
    p.age = static_cast<std::int32_t>(std::int64_t(age.get_int64()));
  }
  simdjson::ondemand::object address = object["address"].get_object();
  p.address.street = std::string_view(address["street"].get_string());
  p.address.city = std::string_view(address["city"].get_string());
  p.address.number = static_cast<std::int32_t>(std::int64_t(address["number"].get_int64()));
  for (auto tag : object["tags"].get_array()) {
    p.tags.emplace_back(std::string_view(tag.get_string()));
  }
  for (auto score : object["scores"].get_array()) p.scores.push_back(score.get_double());
  return p;
}

void decodeSimdjson(benchmark::State& state) {
  simdjson::ondemand::parser parser;
  const simdjson::padded_string padded(document());
  const Counted counted(state, document().size(), people().size());
  for (auto _ : state) {
    std::vector<Person> all;
    auto parsed = parser.iterate(padded);
    for (auto object : parsed.get_array()) all.push_back(personFrom(object.get_object()));
    benchmark::DoNotOptimize(all);
  }
}
BENCHMARK(decodeSimdjson)->Name("decode/simdjson, on demand")->Apply(untilSteady);

#ifdef TESSARINE_BENCH_RAPIDJSON
std::string textOf(const rapidjson::Value& value) {
  return {value.GetString(), value.GetStringLength()};
}

Person personFrom(const rapidjson::Value& object) {
  Person p;
  p.id = object["id"].GetInt64();
  p.name = textOf(object["name"]);
  p.email = textOf(object["email"]);
  p.balance = object["balance"].GetDouble();
  p.active = object["active"].GetBool();
  const auto age = object.FindMember("age");
  if (age != object.MemberEnd()) p.age = age->value.GetInt();
  const rapidjson::Value& address = object["address"];
  p.address = {textOf(address["street"]), textOf(address["city"]), address["number"].GetInt()};
  for (const auto& tag : object["tags"].GetArray()) p.tags.push_back(textOf(tag));
  for (const auto& score : object["scores"].GetArray()) p.scores.push_back(score.GetDouble());
  return p;
}

void decodeRapidJson(benchmark::State& state) {
  const Counted counted(state, document().size(), people().size());
  for (auto _ : state) {
    rapidjson::Document parsed;
    parsed.Parse(document().data(), document().size());
    std::vector<Person> all;
    all.reserve(parsed.Size());
    for (const auto& object : parsed.GetArray()) all.push_back(personFrom(object));
    benchmark::DoNotOptimize(all);
  }
}
BENCHMARK(decodeRapidJson)->Name("decode/RapidJSON, document and fields")->Apply(untilSteady);

template <class Writer>
void write(Writer& writer, const Person& p) {
  const auto text = [&](const std::string& value) {
    writer.String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
  };
  writer.StartObject();
  writer.Key("id");
  writer.Int64(p.id);
  writer.Key("name");
  text(p.name);
  writer.Key("email");
  text(p.email);
  writer.Key("balance");
  writer.Double(p.balance);
  writer.Key("active");
  writer.Bool(p.active);
  if (p.age) {
    writer.Key("age");
    writer.Int(*p.age);
  }
  writer.Key("address");
  writer.StartObject();
  writer.Key("street");
  text(p.address.street);
  writer.Key("city");
  text(p.address.city);
  writer.Key("number");
  writer.Int(p.address.number);
  writer.EndObject();
  writer.Key("tags");
  writer.StartArray();
  for (const std::string& tag : p.tags) text(tag);
  writer.EndArray();
  writer.Key("scores");
  writer.StartArray();
  for (const double score : p.scores) writer.Double(score);
  writer.EndArray();
  writer.EndObject();
}

void encodeRapidJson(benchmark::State& state) {
  const Counted counted(state, document().size(), people().size());
  for (auto _ : state) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.StartArray();
    for (const Person& p : people()) write(writer, p);
    writer.EndArray();
    benchmark::DoNotOptimize(buffer.GetString());
  }
}
#endif

#ifdef TESSARINE_BENCH_NLOHMANN
Person personFrom(const nlohmann::json& object) {
  Person p;
  object.at("id").get_to(p.id);
  object.at("name").get_to(p.name);
  object.at("email").get_to(p.email);
  object.at("balance").get_to(p.balance);
  object.at("active").get_to(p.active);
  if (object.contains("age")) p.age = object.at("age").get<std::int32_t>();
  const auto& address = object.at("address");
  address.at("street").get_to(p.address.street);
  address.at("city").get_to(p.address.city);
  address.at("number").get_to(p.address.number);
  object.at("tags").get_to(p.tags);
  object.at("scores").get_to(p.scores);
  return p;
}

void decodeNlohmann(benchmark::State& state) {
  const Counted counted(state, document().size(), people().size());
  for (auto _ : state) {
    const auto parsed = nlohmann::json::parse(document());
    std::vector<Person> all;
    all.reserve(parsed.size());
    for (const auto& object : parsed) all.push_back(personFrom(object));
    benchmark::DoNotOptimize(all);
  }
}
BENCHMARK(decodeNlohmann)->Name("decode/nlohmann")->Apply(untilSteady);
#endif

// ---- encode ----

void encodeTessarine(benchmark::State& state) {
  const Counted counted(state, document().size(), people().size());
  for (auto _ : state) benchmark::DoNotOptimize(plainEncoder().encode(people()));
}
BENCHMARK(encodeTessarine)->Name("encode/ours")->Apply(untilSteady);
#ifdef TESSARINE_BENCH_RAPIDJSON
BENCHMARK(encodeRapidJson)->Name("encode/RapidJSON writer")->Apply(untilSteady);
#endif

// ---- forms ----

const std::map<std::string, std::string>& pairs() {
  static const auto made = [] {
    std::map<std::string, std::string> all;
    for (int i = 0; i < 100; ++i) {
      std::string number = std::to_string(100 + i);
      all.emplace("field name " + number, "value & more " + number + " é");
    }
    return all;
  }();
  return made;
}

void formTessarine(benchmark::State& state) {
  const tessarine::URLEncodedFormEncoder encoder;
  const Counted counted(state, encoder.text(pairs()).size(), pairs().size());
  for (auto _ : state) benchmark::DoNotOptimize(encoder.text(pairs()));
}
BENCHMARK(formTessarine)->Name("form/ours");

#ifdef TESSARINE_BENCH_QT
void formQt(benchmark::State& state) {
  std::vector<std::pair<QString, QString>> texts;
  for (const auto& [key, value] : pairs()) {
    texts.emplace_back(QString::fromStdString(key), QString::fromStdString(value));
  }
  for (auto _ : state) {
    QUrlQuery query;
    for (const auto& [key, value] : texts) query.addQueryItem(key, value);
    benchmark::DoNotOptimize(query.toString(QUrl::FullyEncoded));
  }
}
BENCHMARK(formQt)->Name("form/QUrlQuery");
#endif

#ifdef TESSARINE_BENCH_BOOST_URL
void formBoost(benchmark::State& state) {
  const Counted counted(state, 1, pairs().size());
  for (auto _ : state) {
    boost::urls::url url;
    auto parameters = url.params();
    for (const auto& [key, value] : pairs()) parameters.append({key, value});
    benchmark::DoNotOptimize(url.encoded_query());
  }
}
BENCHMARK(formBoost)->Name("form/Boost.URL");
#endif

/// Pairs of one size, so that ten times the pairs are ten times the text.
std::vector<std::pair<std::string, std::int64_t>> manyPairs(const benchmark::State& state) {
  std::vector<std::pair<std::string, std::int64_t>> pairs;
  for (std::int64_t i = 100'000; i < 100'000 + state.range(0); ++i) {
    pairs.emplace_back(std::to_string(1'000'000 + i), 1'000'000 + i);
  }
  return pairs;
}

std::map<std::string, std::int64_t> mapOf(const benchmark::State& state) {
  const auto pairs = manyPairs(state);
  return {pairs.begin(), pairs.end()};
}

/// Encodes its pairs by hand, so that they go through containers and the tree.
struct ByHand {
  std::vector<std::pair<std::string, std::int64_t>> pairs;
  void encode(tessarine::Encoder& encoder) const {
    auto container = encoder.container();
    for (const auto& [key, value] : pairs) container.encode(value, key);
  }
};

void formOfMany(benchmark::State& state, const auto& pairs) {
  const tessarine::URLEncodedFormEncoder encoder;
  for (auto _ : state) benchmark::DoNotOptimize(encoder.text(pairs));
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
void formDirect(benchmark::State& state) { formOfMany(state, mapOf(state)); }
void formTree(benchmark::State& state) { formOfMany(state, ByHand{manyPairs(state)}); }

/// What of the direct way is the map's own.
void mapWalked(benchmark::State& state) {
  const auto pairs = mapOf(state);
  for (auto _ : state) {
    std::int64_t sum = 0;
    for (const auto& [key, value] : pairs) sum += key.back() + value;
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
void manySizes(benchmark::internal::Benchmark* row) {
  untilSteady(row);
  row->Arg(1000)->Arg(10'000)->Arg(100'000);
}
BENCHMARK(formDirect)->Name("pairs/direct")->Apply(manySizes);
BENCHMARK(mapWalked)->Name("pairs/the map walked")->Apply(manySizes);
BENCHMARK(formTree)->Name("pairs/tree")->Apply(manySizes);

// ---- deep copy ----

struct Twenty {
  std::int32_t a = 1, b = -22, c = 333, d = 4444;
  std::int64_t e = 55555, f = -666666, g = 7777777, h = 88888888;
  double i = 0.5, j = 1.25, k = 1e9, l = -3;
  bool m = true, n = false, o = true, p = false;
  std::string q = "short", r = "a text of more than fifteen", s = "another one, with \"quotes\"", t;
  static constexpr auto codingFields =
      fields(field("a", &Twenty::a), field("b", &Twenty::b), field("c", &Twenty::c),
             field("d", &Twenty::d), field("e", &Twenty::e), field("f", &Twenty::f),
             field("g", &Twenty::g), field("h", &Twenty::h), field("i", &Twenty::i),
             field("j", &Twenty::j), field("k", &Twenty::k), field("l", &Twenty::l),
             field("m", &Twenty::m), field("n", &Twenty::n), field("o", &Twenty::o),
             field("p", &Twenty::p), field("q", &Twenty::q), field("r", &Twenty::r),
             field("s", &Twenty::s), field("t", &Twenty::t));
};

void copyTwenty(benchmark::State& state) {
  const Twenty twenty;
  const Counted counted(state, 1, 1);
  for (auto _ : state) benchmark::DoNotOptimize(tessarine::deepCopy(twenty));
}
BENCHMARK(copyTwenty)->Name("copy/20 fields");

}  // namespace

BENCHMARK_MAIN();
