// Bytes as a compiled zone file and as a rule. A zone that is read can be asked about any time, and
// a local time that its clocks show leads to an instant at which they show it.
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>

#include "tessarine/system/time/internal/ZoneRules.hpp"

namespace {

using namespace tessarine::internal;

void check(std::optional<ZoneRules::Table> table) {
  if (!table) return;
  const ZoneRules zone("fuzzed", *std::move(table));
  for (const std::int64_t second : {-60'000'000'000'000LL, -3'000'000'000LL, 0LL, 1'700'000'000LL,
                                    5'000'000'000LL, 60'000'000'000'000LL}) {
    zone.abbreviation(zone.at(second));
    if (zone.offsetAt(second) != zone.at(second).offset) std::abort();
    const std::int64_t local = second + zone.at(second).offset;
    const std::int64_t back = zone.utcOfLocal(local);
    if (std::llabs(back - second) > 3 * ZoneRules::greatestOffset) std::abort();
    const auto next = zone.nextTransition(second);
    if (!next) continue;
    if (*next <= second) std::abort();
    for (const int beside : {-1, 0, 1}) {
      if (zone.offsetAt(*next + beside) != zone.at(*next + beside).offset) std::abort();
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  check(readZoneFile(text));
  check(readZoneRule(text));
  return 0;
}
