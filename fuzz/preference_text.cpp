// Any stored text converts to something or nothing, and the conversions agree with each other.
#include <cstdlib>
#include <string>

#include "tessarine/preferences/PreferenceConversion.hpp"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  using namespace tessarine;
  const std::optional<PreferenceObject> object(std::string(data, data + size));
  typedUserDefaultScalarValue<bool>(object);
  typedUserDefaultScalarValue<float>(object);
  const auto integer = typedUserDefaultScalarValue<std::int64_t>(object);
  const auto floating = typedUserDefaultScalarValue<double>(object);
  const auto number = userDefaultNumberValue(object);
  if (integer && (floating != static_cast<double>(*integer) || number != NSNumber(*integer))) {
    std::abort();
  }
  if (number.has_value() != (integer || floating)) std::abort();
  return 0;
}
