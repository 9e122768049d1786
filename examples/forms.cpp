// A value as a web form, and back.
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "tessarine/web/URLEncodedFormDecoder.hpp"
#include "tessarine/web/URLEncodedFormEncoder.hpp"

using Form = tessarine::URLEncodedFormEncoder;

struct Line {
  std::string sku;
  std::int32_t unitCount = 0;
  static constexpr auto codingFields = tessarine::fields(
      tessarine::field("sku", &Line::sku), tessarine::field("unitCount", &Line::unitCount));
};
struct Order {
  std::string id;
  std::vector<Line> lines;
  static constexpr auto codingFields = tessarine::fields(tessarine::field("id", &Order::id),
                                                         tessarine::field("lines", &Order::lines));
};

int main() {
  const Order order{"A1", {{"9", 2}}};
  Form encoder({.keyEncoding = Form::KeyEncoding::convertToSnakeCase});
  std::string body = encoder.text(order);
  tessarine::Data bytes = encoder.encode(order);
  tessarine::URLEncodedFormDecoder decoder({.keyEncoding = encoder.keyEncoding()});
  Order same = decoder.decode<Order>(body);
  std::printf("%s\n", body.c_str());
  if (body != "id=A1&lines%5B%5D%5Bsku%5D=9&lines%5B%5D%5Bunit_count%5D=2") return 1;
  return bytes.text() == body && same.lines.at(0).unitCount == 2 ? 0 : 1;
}
