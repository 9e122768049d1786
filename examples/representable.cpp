// A preference of the host's own type: it names its stored form and builds itself back from one.
#include <cstdio>

#include "tessarine/preferences.hpp"

using namespace tessarine;

struct Zoom {
  using T = Zoom;
  double factor = 1;
  bool operator==(const Zoom&) const = default;
  AnyHashable userDefaultsRepresentation() const { return factor; }
  static std::optional<Zoom> construct(const AnyHashable& from) {
    const auto factor = from.cast<double>();
    return factor && *factor > 0 ? std::optional(Zoom{*factor}) : std::nullopt;
  }
};

int main() {
  UserDefault<Zoom> zoom{
      "zoom",
      {.defaultValue = {},
       .cacheValues = true,
       .storeAsHashable =
           [](const Zoom& value) { return *UserDefaultWrappedObject<Zoom>(value).wrappedValue(); },
       .readFromNullableHashable =
           [](const std::optional<AnyHashable>& form) {
             UserDefaultWrappedObject<Zoom> object;
             object.setWrappedValue(form);
             return object.internalValue().value_or(Zoom{});
           },
       .userDefaults = UserDefaults::temporary()}};
  zoom.setWrappedValue({1.5});
  std::printf("%g\n", zoom.wrappedValue().factor);
  return zoom.wrappedValue() == Zoom{1.5} ? 0 : 1;
}
