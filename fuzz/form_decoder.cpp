// A tree that was read is written as a form that reads as the same tree; what decodes encodes to a
// form that decodes to the same form. Both as long as no key has a bracket in it.
#include <cstdint>
#include <cstdlib>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tessarine/web/URLEncodedFormDecoder.hpp"
#include "tessarine/web/URLEncodedFormEncoder.hpp"
#include "tessarine/web/URLEncodedFormSerializer.hpp"

namespace {

using namespace tessarine;
using Form = URLEncodedFormEncoder;
using Component = URLEncodedFormComponent;

struct Row {
  std::string name;
  std::optional<double> weight;
  static constexpr auto codingFields =
      fields(field("name", &Row::name), field("weight", &Row::weight));
};

struct Order {
  std::optional<bool> flag;
  std::optional<std::int64_t> count;
  std::optional<std::uint8_t> small;
  std::optional<float> f;
  std::optional<Date> date;
  std::optional<Data> data;
  std::optional<UUID> uuid;
  std::optional<Row> row;
  std::vector<std::string> tags;
  std::vector<std::vector<std::int32_t>> grid;
  std::vector<Row> rows;
  std::map<std::string, std::string> more;
  static constexpr auto codingFields = fields(
      field("flag", &Order::flag), field("count", &Order::count), field("small", &Order::small),
      field("f", &Order::f), field("date", &Order::date), field("data", &Order::data),
      field("uuid", &Order::uuid), field("row", &Order::row), field("tags", &Order::tags),
      field("grid", &Order::grid), field("rows", &Order::rows), field("more", &Order::more));
};

bool hasBracketInKey(const Component& component) {
  if (const auto* const elements = component.array()) {
    for (const Component& element : *elements)
      if (hasBracketInKey(element)) return true;
  } else if (const auto* const pairs = component.object()) {
    for (const auto& [key, value] : *pairs) {
      if (key.find_first_of("[]") != std::string::npos || hasBracketInKey(value)) return true;
    }
  }
  return false;
}

void checkTree(const Component& tree) {
  const URLEncodedFormSerializer serializer(false, Form::ArrayEncoding::brackets,
                                            Form::KeyEncoding::useDefaultKeys,
                                            Form::SpaceEncoding::plusReplaced, afURLQueryAllowed());
  const std::string form = serializer.serialize(*tree.object());
  if (!(URLEncodedFormDecoder::component(form) == tree)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  Component tree;
  try {
    tree = URLEncodedFormDecoder::component({reinterpret_cast<const char*>(data), size});
  } catch (const DecodingError&) {
    return 0;
  }
  const bool isAmbiguous = hasBracketInKey(tree);
  if (!isAmbiguous) checkTree(tree);
  Order order;
  try {
    order = URLEncodedFormDecoder().decodeComponent<Order>(tree);
  } catch (const DecodingError&) {
    return 0;
  }
  const std::string form = Form().text(order);
  if (isAmbiguous) return 0;
  if (Form().text(URLEncodedFormDecoder().decode<Order>(form)) != form) std::abort();
  return 0;
}
