#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "tessarine/coding/Encoder.hpp"

namespace tessarine::tool {

/// A JSON value that encodes as it stands: members in the order of the text, null as an explicit
/// absent value, a number with a fraction or an exponent as a double, any other as an integer.
class JsonValue {
 public:
  /// Of duplicate keys the last wins, in the place of the first. Throws `JsonError`, also for
  /// numbers beyond 64 bits and for more than 512 levels.
  static JsonValue fromText(std::string_view text);

  void encode(Encoder& encoder) const;

 private:
  using Array = std::vector<JsonValue>;
  using Object = std::vector<std::pair<std::string, JsonValue>>;
  friend struct JsonValueReader;

  std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, std::string, Array,
               Object>
      value_;
};

}  // namespace tessarine::tool
