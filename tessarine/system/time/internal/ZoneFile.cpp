// Compiled time-zone files: RFC 8536.
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "tessarine/system/time/internal/ZoneRule.hpp"
#include "tessarine/system/time/internal/ZoneRules.hpp"

namespace tessarine::internal {
namespace {

constexpr std::size_t greatestTransitions = 20'000;  // real zones have a few hundred
constexpr std::int64_t greatestTransition = std::int64_t{1} << 37U;  // 4355 years either way

/// Big-endian numbers, one after the other. Reading past the end gives 0 and makes `isGood` false.
class Bytes {
 public:
  explicit Bytes(std::string_view rest) : rest_(rest) {}

  bool isGood() const { return isGood_; }
  std::string_view rest() const { return rest_; }

  std::string_view take(std::size_t count) {
    if (count > rest_.size()) {
      isGood_ = false;
      count = rest_.size();
    }
    const std::string_view taken = rest_.substr(0, count);
    rest_.remove_prefix(count);
    return taken;
  }

  /// A signed number of `size` bytes.
  std::int64_t number(std::size_t size) {
    const std::string_view bytes = take(size);
    if (bytes.size() < size) return 0;
    auto value = static_cast<std::uint64_t>(static_cast<std::int64_t>(bytes[0] < 0 ? -1 : 0));
    for (const char byte : bytes) value = value << 8U | static_cast<unsigned char>(byte);
    return static_cast<std::int64_t>(value);
  }

 private:
  std::string_view rest_;
  bool isGood_ = true;
};

struct Header {
  char version = 0;
  std::size_t universals = 0, standards = 0, leaps = 0, transitions = 0, types = 0, names = 0;

  std::size_t dataSize(std::size_t timeSize) const {
    return transitions * (timeSize + 1) + types * 6 + names + leaps * (timeSize + 4) + standards +
           universals;
  }
};

std::optional<Header> readHeader(Bytes& bytes) {
  if (bytes.take(4) != "TZif") return std::nullopt;
  Header header;
  const std::string_view version = bytes.take(1);
  header.version = version.empty() ? '\0' : version[0];
  bytes.take(15);
  for (std::size_t* const count : {&header.universals, &header.standards, &header.leaps,
                                   &header.transitions, &header.types, &header.names}) {
    const std::int64_t value = bytes.number(4);
    if (value < 0) return std::nullopt;
    *count = static_cast<std::size_t>(value);
  }
  const bool isSound = bytes.isGood() && header.types > 0 && header.types <= 250 &&
                       header.names > 0 && header.transitions <= greatestTransitions &&
                       header.leaps == 0;  // such files count leap seconds, which nobody here does
  if (!isSound) return std::nullopt;
  return header;
}

struct LocalType {
  std::int32_t offset;
  bool isDaylightSaving;
  std::uint8_t name;  // where in the names
};

std::optional<ZoneRules::Table> readData(Bytes& bytes, const Header& header, std::size_t timeSize) {
  Bytes times(bytes.take(header.transitions * timeSize));
  const std::string_view kinds = bytes.take(header.transitions);
  std::vector<LocalType> types;
  types.reserve(header.types);
  for (std::size_t i = 0; i < header.types; ++i) {
    const auto offset = static_cast<std::int32_t>(bytes.number(4));
    const bool isDaylightSaving = bytes.number(1) != 0;
    types.push_back({offset, isDaylightSaving, static_cast<std::uint8_t>(bytes.number(1))});
  }
  const std::string_view names = bytes.take(header.names);
  bytes.take(header.standards + header.universals);
  if (!bytes.isGood()) return std::nullopt;

  ZoneRules::Table table;
  for (const LocalType& type : types) {
    if (type.name >= names.size() || type.offset <= -ZoneRules::greatestOffset ||
        type.offset >= ZoneRules::greatestOffset) {
      return std::nullopt;
    }
    const std::string_view name = names.substr(type.name);
    table.abbreviations.emplace_back(name.substr(0, name.find('\0')));
  }
  const auto span = [&](std::int64_t start, std::size_t type) {
    return ZoneSpan{start, types[type].offset, types[type].isDaylightSaving,
                    static_cast<std::uint8_t>(type)};
  };
  table.spans.push_back(span(std::numeric_limits<std::int64_t>::min(), 0));
  for (const char kind : kinds) {
    const auto type = static_cast<unsigned char>(kind);
    const std::int64_t start = times.number(timeSize);
    if (type >= types.size()) return std::nullopt;
    // Some writers begin with a time before the universe, which changes nothing.
    if (start < -greatestTransition) {
      table.spans.front() = span(table.spans.front().start, type);
      continue;
    }
    if (start <= table.spans.back().start || start > greatestTransition) return std::nullopt;
    table.spans.push_back(span(start, type));
  }
  return table;
}

}  // namespace

std::optional<ZoneRules::Table> readZoneFile(std::string_view text) {
  Bytes bytes(text);
  auto header = readHeader(bytes);
  if (!header) return std::nullopt;
  std::size_t timeSize = 4;
  if (header->version >= '2') {  // the same again with longer times
    bytes.take(header->dataSize(timeSize));
    header = readHeader(bytes);
    timeSize = 8;
    if (!header) return std::nullopt;
  }
  auto table = readData(bytes, *header, timeSize);
  if (!table || timeSize == 4) return table;
  const std::string_view footer = bytes.rest();
  const auto end = footer.find('\n', 1);
  if (!footer.starts_with('\n') || end == std::string_view::npos) return std::nullopt;
  if (end == 1) return table;
  const auto rule = ZoneRule::parse(footer.substr(1, end - 1));
  if (!rule) return std::nullopt;
  rule->continueTable(*table);
  return table;
}

}  // namespace tessarine::internal
