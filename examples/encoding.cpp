// A described type, one that encodes by hand, and loosely typed values, through JSON and back.
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "tessarine/codable.hpp"
#include "tessarine/system/json/JSONDecoder.hpp"
#include "tessarine/system/json/JSONEncoder.hpp"

struct Line {
  std::string sku;
  std::int32_t quantity = 0;
  static constexpr auto codingFields = tessarine::fields(
      tessarine::field("sku", &Line::sku), tessarine::field("quantity", &Line::quantity));
};
struct Order {
  std::string id;
  std::optional<tessarine::Date> paid;
  std::vector<Line> lines;
  static constexpr auto codingFields =
      tessarine::fields(tessarine::field("id", &Order::id), tessarine::field("paid", &Order::paid),
                        tessarine::field("lines", &Order::lines));
};

struct Celsius {
  double degrees = 0;
  void encode(tessarine::Encoder& encoder) const { encoder.singleValueContainer().encode(degrees); }
  static Celsius decode(tessarine::Decoder& decoder) {
    return {decoder.singleValueContainer().decode<double>()};
  }
};

int main() {
  const Order order{"A1", std::nullopt, {{"9", 2}}};
  std::string text = tessarine::JSONEncoder().text(order);
  Order same = tessarine::JSONDecoder().decode<Order>(text);
  std::printf("%s\n", text.c_str());
  if (text != R"({"id":"A1","lines":[{"sku":"9","quantity":2}]})") return 1;
  if (same.lines.at(0).quantity != 2) return 1;

  try {
    (void)tessarine::JSONDecoder().decode<Order>(R"({"id":"A1","lines":[{"sku":"9"},{"sku":1}]})");
    return 1;
  } catch (const tessarine::DecodingError& error) {
    std::printf("%s\n", error.what());
  }

  const std::vector<Celsius> week{{20.5}, {19}};
  if (tessarine::JSONEncoder().text(week) != "[20.5,19.0]") return 1;

  tessarine::CodableDictionary settings(
      {{"volume", 0.5}, {"tags", tessarine::AnyHashable::Array{"a", 1}}});
  tessarine::Data json = tessarine::encoded(settings);
  auto back = tessarine::decoded<tessarine::CodableDictionary>(json);
  return back == settings ? 0 : 1;
}
