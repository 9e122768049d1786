#include "tessarine/system/time/internal/ZoneRule.hpp"

#include <algorithm>
#include <array>

#include "tessarine/system/time/internal/CivilDay.hpp"

namespace tessarine::internal {
namespace {

constexpr std::int64_t secondsADay = 86400;
constexpr int firstRuleYear = 1970;  // of a table that holds nothing yet

/// Reads the text from the front; once something does not fit, `isGood` stays false.
class RuleReader {
 public:
  explicit RuleReader(std::string_view text) : rest_(text) {}

  bool isGood() const { return isGood_; }
  bool atEnd() const { return rest_.empty(); }
  bool take(char c) {
    if (!rest_.starts_with(c)) return false;
    rest_.remove_prefix(1);
    return true;
  }
  void expect(char c) { isGood_ = take(c) && isGood_; }
  bool startsChange() const { return rest_.starts_with(','); }

  std::string abbreviation() {
    const bool isQuoted = take('<');
    const auto isPart = [&](char c) {
      return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
             (isQuoted && ((c >= '0' && c <= '9') || c == '+' || c == '-'));
    };
    const auto end = std::find_if_not(rest_.begin(), rest_.end(), isPart);
    std::string name(rest_.begin(), end);
    rest_.remove_prefix(name.size());
    if (isQuoted) expect('>');
    isGood_ = isGood_ && name.size() >= 3 && name.size() <= 16;
    return name;
  }

  int number(int least, int greatest) {
    int value = 0;
    std::size_t digits = 0;
    while (digits < rest_.size() && digits < 4 && rest_[digits] >= '0' && rest_[digits] <= '9') {
      value = value * 10 + (rest_[digits++] - '0');
    }
    rest_.remove_prefix(digits);
    isGood_ = isGood_ && digits > 0 && value >= least && value <= greatest;
    return value;
  }

  /// Seconds of "hh", "hh:mm" or "hh:mm:ss" with a sign.
  int time(int greatestHours) {
    const int sign = take('-') ? -1 : 1;
    if (sign > 0) take('+');
    int seconds = number(0, greatestHours) * 3600;
    if (take(':')) seconds += number(0, 59) * 60;
    if (take(':')) seconds += number(0, 59);
    return sign * seconds;
  }

  ZoneChange change() {
    ZoneChange change;
    expect(',');
    if (take('M')) {
      change.month = number(1, 12);
      expect('.');
      change.week = number(1, 5);
      expect('.');
      change.day = number(0, 6);
    } else if (take('J')) {
      change.kind = ZoneChange::Day::julian;
      change.day = number(1, 365);
    } else {
      change.kind = ZoneChange::Day::zeroBased;
      change.day = number(0, 365);
    }
    if (take('/')) change.time = time(167);
    return change;
  }

 private:
  std::string_view rest_;
  bool isGood_ = true;
};

std::int64_t dayInYear(const ZoneChange& change, std::int64_t year) {
  const std::int64_t newYear = daysFromCivil({year, 1, 1});
  switch (change.kind) {
    case ZoneChange::Day::julian:
      return newYear + change.day - 1 + (isLeapYear(year) && change.day >= 60 ? 1 : 0);
    case ZoneChange::Day::zeroBased:
      return newYear + change.day;
    case ZoneChange::Day::weekday:
      break;
  }
  const std::int64_t first = daysFromCivil({year, change.month, 1});
  const int firstWeekday = sundayBasedWeekday(first);
  int day = 1 + (change.day - firstWeekday + 7) % 7 + (change.week - 1) * 7;
  if (day > daysInMonth(year, change.month)) day -= 7;
  return first + day - 1;
}

std::uint8_t indexOfName(std::vector<std::string>& names, const std::string& name) {
  const auto found = std::find(names.begin(), names.end(), name);
  if (found == names.end()) {
    names.push_back(name);
    return static_cast<std::uint8_t>(names.size() - 1);
  }
  return static_cast<std::uint8_t>(found - names.begin());
}

}  // namespace

std::int64_t ZoneChange::inYear(std::int64_t year) const noexcept {
  return dayInYear(*this, year) * secondsADay + time;
}

std::optional<ZoneRule> ZoneRule::parse(std::string_view text) {
  RuleReader reader(text);
  ZoneRule rule;
  rule.standard = reader.abbreviation();
  rule.standardOffset = -reader.time(24);
  if (!reader.isGood()) return std::nullopt;
  if (reader.atEnd()) return rule;
  rule.daylight = reader.abbreviation();
  rule.daylightOffset = rule.standardOffset + 3600;
  if (!reader.atEnd() && !reader.startsChange()) rule.daylightOffset = -reader.time(24);
  rule.toDaylight = reader.change();
  rule.toStandard = reader.change();
  if (!reader.isGood() || !reader.atEnd()) return std::nullopt;
  return rule;
}

void ZoneRule::continueTable(ZoneRules::Table& table) const {
  const ZoneSpan last = table.spans.back();
  const bool isNew = table.spans.size() == 1;
  const std::uint8_t standardName = indexOfName(table.abbreviations, standard);
  if (!changes()) return;
  const std::uint8_t daylightName = indexOfName(table.abbreviations, daylight);
  const std::int64_t from =
      isNew ? firstRuleYear : civilFromDays(floorDivide(last.start, secondsADay)).year;
  // One year more than the cycle at either end, so that its seams lie among years of the rule.
  for (std::int64_t year = from; year <= from + 402; ++year) {
    std::array<ZoneSpan, 2> changes{
        ZoneSpan{toDaylight.inYear(year) - standardOffset, daylightOffset, true, daylightName},
        ZoneSpan{toStandard.inYear(year) - daylightOffset, standardOffset, false, standardName}};
    if (changes[1].start < changes[0].start) std::swap(changes[0], changes[1]);
    for (const ZoneSpan& change : changes) {
      const ZoneSpan& current = table.spans.back();
      if (change.start > current.start && (isNew || change.start > last.start)) {
        table.spans.push_back(change);
      }
    }
  }
  table.cycleEnd = daysFromCivil({from + 402, 1, 1}) * secondsADay;
  while (table.spans.back().start >= table.cycleEnd) table.spans.pop_back();
}

std::optional<ZoneRules::Table> readZoneRule(std::string_view text) {
  const auto rule = ZoneRule::parse(text);
  if (!rule) return std::nullopt;
  ZoneRules::Table table = fixedZone(rule->standardOffset, rule->standard);
  rule->continueTable(table);
  return table;
}

}  // namespace tessarine::internal
