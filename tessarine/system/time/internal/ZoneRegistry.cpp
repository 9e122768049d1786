#include "tessarine/system/time/internal/ZoneRegistry.hpp"

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

namespace tessarine::internal {
namespace {

constexpr int greatestFixedOffset = 18 * 3600;
constexpr std::uintmax_t greatestFile = std::uintmax_t{1} << 20U;

class Registry {
 public:
  static Registry& shared() {
    static auto& registry = *new Registry;  // outlives what other statics do at exit
    return registry;
  }

  /// The kept zone of that name, made by `read` when it is asked for first.
  template <class Read>
  const ZoneRules* zone(std::string_view name, const Read& read) {
    const std::lock_guard lock(mutex_);
    if (const auto found = zones_.find(name); found != zones_.end()) return found->second.get();
    std::optional<ZoneRules::Table> table = read();
    if (!table) return nullptr;
    auto rules = std::make_unique<const ZoneRules>(std::string(name), *std::move(table));
    return zones_.emplace(std::string(name), std::move(rules)).first->second.get();
  }

 private:
  std::mutex mutex_;  // guards zones_
  std::map<std::string, std::unique_ptr<const ZoneRules>, std::less<>> zones_;
};

/// Names lead nowhere but below the folder of zones.
bool isZoneName(std::string_view name) {
  constexpr std::string_view parts =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_+-/";
  return !name.empty() && name.size() <= 128 && !name.starts_with('/') &&
         name.find_first_not_of(parts) == std::string_view::npos;
}

std::optional<ZoneRules::Table> readFile(const std::string& path) {
  std::error_code error;
  const auto size = std::filesystem::file_size(path, error);
  if (error || size > greatestFile) return std::nullopt;
  std::ifstream file(path, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  return readZoneFile(bytes);
}

/// Seconds of "GMT+5", "GMT-08", "UTC+05:30" or "GMT+0530"; absent for any other text.
std::optional<int> offsetNamed(std::string_view name) {
  if (!name.starts_with("GMT") && !name.starts_with("UTC")) return std::nullopt;
  name.remove_prefix(3);
  if (name.empty()) return 0;
  const int sign = name[0] == '+' ? 1 : -1;
  if (sign < 0 && name[0] != '-') return std::nullopt;
  name.remove_prefix(1);
  std::string digits;
  for (const char c : name) {
    if (c >= '0' && c <= '9') digits += c;
  }
  const bool hasColon = name.size() == 5 && name[2] == ':';
  const bool isPlain = digits.size() == name.size() && name.size() <= 4 && name.size() != 3;
  if (digits.empty() || (!isPlain && (!hasColon || digits.size() != 4))) return std::nullopt;
  const int value = std::atoi(digits.c_str());
  const int hours = digits.size() <= 2 ? value : value / 100;
  const int minutes = digits.size() <= 2 ? 0 : value % 100;
  const int seconds = (hours * 60 + minutes) * 60;
  if (minutes > 59 || seconds > greatestFixedOffset) return std::nullopt;
  return sign * seconds;
}

std::string offsetIdentifier(int seconds) {
  if (seconds == 0) return "GMT";
  const int size = std::abs(seconds);
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), size % 60 == 0 ? "GMT%c%02d%02d" : "GMT%c%02d%02d%02d",
                seconds < 0 ? '-' : '+', size / 3600, size / 60 % 60, size % 60);
  return text.data();
}

/// What the environment's TZ says: a name with or without a colon before it, or a rule.
const ZoneRules* zoneOfEnvironment(std::string_view text) {
  if (text.starts_with(':')) text.remove_prefix(1);
  if (text.starts_with(zoneFolder())) text.remove_prefix(zoneFolder().size());
  if (const ZoneRules* const named = zoneNamed(text)) return named;
  if (text.size() > 128) return nullptr;
  return Registry::shared().zone(text, [&] { return readZoneRule(text); });
}

/// What the system's zone file is a link to, or the name that lies beside it.
const ZoneRules* zoneOfSystem() {
  std::error_code error;
  std::filesystem::path link = "/etc/localtime";
  for (int depth = 0; depth < 8 && std::filesystem::is_symlink(link, error); ++depth) {
    const auto target = std::filesystem::read_symlink(link, error);
    if (error) break;
    link = (link.parent_path() / target).lexically_normal();
    const std::string path = link.string();
    if (!path.starts_with(zoneFolder())) continue;
    if (const auto* const zone = zoneNamed(std::string_view(path).substr(zoneFolder().size()))) {
      return zone;
    }
  }
  std::string name;
  std::ifstream("/etc/timezone") >> name;
  return zoneNamed(name);
}

const ZoneRules& zoneOfHost() {
  const char* const text = std::getenv("TZ");  // NOLINT(concurrency-mt-unsafe): the host's to keep
  const ZoneRules* zone = text != nullptr ? zoneOfEnvironment(text) : zoneOfSystem();
  return zone != nullptr ? *zone : gmtZone();
}

std::atomic<const ZoneRules*> current = nullptr;
std::atomic<std::int64_t> currentAsOf = -1;  // the second of its look at the host

/// Kept out of line, for the way past it to be short.
[[gnu::noinline]] void lookAtHost(std::time_t now) {
  current.store(&zoneOfHost(), std::memory_order_release);
  currentAsOf.store(now, std::memory_order_release);
}

}  // namespace

const ZoneRules* zoneNamed(std::string_view identifier) {
  if (!isZoneName(identifier.substr(0, identifier.find(':')))) return nullptr;
  if (const auto offset = offsetNamed(identifier)) {
    return Registry::shared().zone(identifier, [&] {
      std::string abbreviation(identifier.substr(0, 3));
      return fixedZone(*offset, *offset == 0 ? abbreviation : offsetIdentifier(*offset));
    });
  }
  const bool isElsewhere = identifier.starts_with("right/") || identifier.starts_with("posix");
  if (isElsewhere || !isZoneName(identifier)) return nullptr;
  return Registry::shared().zone(
      identifier, [&] { return readFile(std::string(zoneFolder()).append(identifier)); });
}

const ZoneRules& zoneAtOffset(int seconds) {
  if (seconds == 0) return gmtZone();
  const std::string name = offsetIdentifier(seconds);
  return *Registry::shared().zone(name, [&] { return fixedZone(seconds, name); });
}

const ZoneRules& gmtZone() noexcept {
  static const ZoneRules& zone =
      *Registry::shared().zone("GMT", [] { return std::optional(fixedZone(0, "GMT")); });
  return zone;
}

const ZoneRules& currentZone() noexcept {
  const std::time_t now = std::time(nullptr);  // the cheapest of all clocks
  if (currentAsOf.load(std::memory_order_acquire) != now) [[unlikely]] {
    lookAtHost(now);
  }
  return *current.load(std::memory_order_acquire);
}

void forgetCurrentZone() noexcept { currentAsOf.store(-1, std::memory_order_release); }

std::string_view zoneFolder() { return "/usr/share/zoneinfo/"; }

}  // namespace tessarine::internal
