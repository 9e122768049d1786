#include "tessarine/system/time/Locale.hpp"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>

#include "tessarine/system/time/internal/LocaleFacts.hpp"

#include <unicode/calendar.h>
#include <unicode/numsys.h>

namespace tessarine {
namespace {

using internal::LocaleFacts;

constexpr std::size_t greatestCount = 10'000;
constexpr std::size_t longestIdentifier = 156;  // as ICU has it

std::string spelt(std::string_view identifier) {
  std::string name(identifier.substr(0, identifier.find('.')));
  if (name == "C" || name == "POSIX") return "en_US_POSIX";
  for (std::size_t i = 0; i < name.size() && name[i] != '@'; ++i) {
    if (name[i] == '-') name[i] = '_';
  }
  return name;
}

const LocaleFacts& factsOf(std::string_view identifier) {
  struct Registry {
    std::mutex mutex;  // guards facts
    std::map<std::string, std::unique_ptr<const LocaleFacts>, std::less<>> facts;
  };
  static auto& registry = *new Registry;  // outlives what other statics do at exit
  const std::string name = identifier.size() > longestIdentifier ? "" : spelt(identifier);
  const std::lock_guard lock(registry.mutex);
  auto found = registry.facts.find(name);
  if (found == registry.facts.end()) {
    const std::string known = registry.facts.size() < greatestCount ? name : "";
    found = registry.facts.try_emplace(known, std::make_unique<LocaleFacts>(known)).first;
  }
  return *found->second;
}

const LocaleFacts& rootFacts() {
  static const LocaleFacts& root = factsOf("");
  return root;
}

// NOLINTBEGIN(concurrency-mt-unsafe): the environment is the host's to keep
Locale localeOfEnvironment() {
  for (const char* const name : {"LC_ALL", "LC_TIME", "LANG"}) {
    const char* const value = std::getenv(name);
    if (value != nullptr && std::strlen(value) > 0) return Locale(value);
  }
  return Locale("en_US_POSIX");
}
// NOLINTEND(concurrency-mt-unsafe)

std::atomic<Locale>& currentLocale() {
  static std::atomic<Locale> locale = localeOfEnvironment();
  return locale;
}

}  // namespace

Locale::Locale(std::string_view identifier) {
  const LocaleFacts& facts = factsOf(identifier);
  if (!facts.identifier.empty()) facts_ = &facts;
}

Locale Locale::current() noexcept { return currentLocale().load(std::memory_order_acquire); }

void Locale::setCurrent(Locale locale) noexcept {
  currentLocale().store(locale, std::memory_order_release);
}

const std::string& Locale::identifier() const noexcept { return facts().identifier; }

const LocaleFacts& Locale::facts() const noexcept {
  return facts_ != nullptr ? *facts_ : rootFacts();
}

namespace internal {

void LocaleFacts::loadOnce() const {
  UErrorCode status = U_ZERO_ERROR;
  const icu::Locale locale(identifier.c_str());
  const std::unique_ptr<icu::NumberingSystem> digits(
      icu::NumberingSystem::createInstance(locale, status));
  hasLatinDigits_ = U_FAILURE(status) || std::strcmp(digits->getName(), "latn") == 0;
  status = U_ZERO_ERROR;
  const std::unique_ptr<icu::Calendar> calendar(icu::Calendar::createInstance(locale, status));
  if (U_SUCCESS(status)) {
    weeks_.firstWeekday = static_cast<std::uint8_t>(calendar->getFirstDayOfWeek(status));
    weeks_.minimumDaysInFirstWeek = calendar->getMinimalDaysInFirstWeek();
    weeks_.weekend = 0;
    for (int day = UCAL_SUNDAY; day <= UCAL_SATURDAY; ++day) {
      const auto kind = calendar->getDayOfWeekType(static_cast<UCalendarDaysOfWeek>(day), status);
      if (kind != UCAL_WEEKDAY) weeks_.weekend |= static_cast<std::uint8_t>(1U << unsigned(day));
    }
  }
  isLoaded_.store(true, std::memory_order_release);
}

}  // namespace internal
}  // namespace tessarine
