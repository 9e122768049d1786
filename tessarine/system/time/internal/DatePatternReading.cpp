// Reading dates by a pattern.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "tessarine/system/time/internal/DatePattern.hpp"
#include "tessarine/system/time/internal/GregorianDay.hpp"

namespace tessarine::internal {
namespace {

using Field = DatePattern::Field;
using Piece = DatePattern::Piece;

/// A text that is read from the front. The first thing that does not fit is remembered.
class Reader {
 public:
  explicit Reader(std::string_view text)
      : begin_(text.data()), at_(begin_), end_(begin_ + text.size()) {}

  bool atEnd() const { return at_ == end_; }
  bool isGood() const { return expected_.data() == nullptr; }
  std::size_t position() const { return static_cast<std::size_t>(at_ - begin_); }
  std::string_view expected() const { return expected_; }
  /// Takes nothing more; `back` bytes before here stands what does not fit.
  void fail(std::string_view expected, std::ptrdiff_t back = 0) {
    if (!isGood()) return;
    at_ -= back;
    expected_ = expected;
  }

  bool take(char c) {
    if (at_ == end_ || *at_ != c) return false;
    ++at_;
    return true;
  }

  /// `least` to `greatest` digits, the value within a range.
  int number(int least, int greatest, int minimum, int maximum, std::string_view expected) {
    int value = 0;
    int digits = 0;
    while (digits < greatest && at_ != end_) {
      const auto digit = static_cast<unsigned>(static_cast<unsigned char>(*at_)) - '0';
      if (digit > 9) break;
      value = value * 10 + static_cast<int>(digit);
      ++at_;
      ++digits;
    }
    if (digits < least) {
      fail(expected);
    } else if (value < minimum || value > maximum) {
      fail(expected, digits);
    }
    return value;
  }

  bool has(std::ptrdiff_t count) const { return end_ - at_ >= count; }
  const char* here() const { return at_; }
  void skip(std::ptrdiff_t count) { at_ += count; }

  std::size_t countDigits(std::size_t greatest) const {
    std::size_t count = 0;
    while (count < greatest && at_ + count != end_ && at_[count] >= '0' && at_[count] <= '9') {
      ++count;
    }
    return count;
  }

 private:
  const char* begin_;
  const char* at_;
  const char* end_;
  std::string_view expected_;
};

double readFraction(Reader& reader) {
  const std::size_t digits = reader.countDigits(9);
  if (digits == 0) reader.fail("a fraction of 1 to 9 digits");
  const int count = static_cast<int>(digits);
  const int value = reader.number(count, count, 0, 999'999'999, "a fraction of 1 to 9 digits");
  return static_cast<double>(value) / static_cast<double>(powersOf10[digits]);
}

int readZone(Reader& reader, const DatePattern::ZoneForm& form) {
  constexpr std::string_view expected = "an offset from GMT";
  if ((form.writesZ || form.readsEither) && reader.take('Z')) return 0;
  const int sign = reader.take('+') ? 1 : -1;
  if (sign < 0 && !reader.take('-')) reader.fail(expected);
  const int hours = reader.number(2, 2, 0, 23, expected);
  if (!form.hasMinutes && reader.countDigits(1) == 0) return sign * hours * 3600;
  if (form.readsEither) {
    reader.take(':');
  } else if (form.hasColon && !reader.take(':')) {
    reader.fail(expected);
  }
  const int minutes = reader.number(2, 2, 0, 59, expected);
  return sign * (hours * 60 + minutes) * 60;
}

struct ReadFields {
  int year = 1970, month = 1, day = 1, dayOfYear = 0, week = 0, weekday = 1;
  int hour = 0, minute = 0, second = 0, offset = 0;
  double fraction = 0;
};

void readField(Reader& reader, const Piece& piece, ReadFields& fields);

/// One after the other, to find what does not fit.
void readPieces(Reader& reader, const std::array<Piece, 5>& pieces, ReadFields& fields) {
  for (const Piece& piece : pieces) {
    if (reader.isGood()) readField(reader, piece, fields);
  }
}

/// Three pairs of digits with a character between them, "24-05-01" or "12:34:56", all bytes at
/// once.
struct ThreePairs {
  ThreePairs(const char* text, char separator) {
    constexpr std::uint64_t separators = 0x0000'0100'0001'0000;
    constexpr std::uint64_t digits = 0x0101'0101'0101'0101 - separators;
    std::uint64_t bytes = 0;
    std::memcpy(&bytes, text, sizeof bytes);
    bytes ^= digits * '0' + separators * static_cast<unsigned char>(separator);
    // Now digits are at most 9, separators 0: by these sums, what is more gets the highest bit.
    const std::uint64_t sums = bytes + digits * (0x80 - 10) + separators * (0x80 - 1);
    areThere = ((sums | bytes) & 0x8080'8080'8080'8080) == 0;
    const std::uint64_t pairs = bytes * 10 + (bytes >> 8U);
    first = static_cast<int>(pairs & 0xFFU);
    second = static_cast<int>(pairs >> 24U & 0xFFU);
    third = static_cast<int>(pairs >> 48U & 0xFFU);
  }

  bool areThere;
  int first, second, third;
};

constexpr std::ptrdiff_t dashedDateSize = 10;
constexpr std::ptrdiff_t colonTimeSize = 8;

/// Whether there is one; the fields mean nothing where there is none.
inline bool scanDashedDate(const char* text, ReadFields& fields) {
  const unsigned tens = static_cast<unsigned char>(text[0]) - unsigned{'0'};
  const unsigned ones = static_cast<unsigned char>(text[1]) - unsigned{'0'};
  const ThreePairs pairs(text + 2, '-');
  fields.year = static_cast<int>(tens * 1000 + ones * 100) + pairs.first;
  fields.month = pairs.second;
  fields.day = pairs.third;
  return pairs.areThere && tens <= 9 && ones <= 9 && fields.month >= 1 && fields.month <= 12 &&
         fields.day >= 1 && fields.day <= 31;
}

inline bool scanColonTime(const char* text, ReadFields& fields) {
  const ThreePairs pairs(text, ':');
  fields.hour = pairs.first;
  fields.minute = pairs.second;
  fields.second = pairs.third;
  return pairs.areThere && fields.hour <= 23 && fields.minute <= 59 && fields.second <= 59;
}

void readDashedDate(Reader& reader, ReadFields& fields) {
  if (reader.has(dashedDateSize) && scanDashedDate(reader.here(), fields)) {
    return reader.skip(dashedDateSize);
  }
  readPieces(reader, dashedDatePieces, fields);
}

void readColonTime(Reader& reader, ReadFields& fields) {
  if (reader.has(colonTimeSize) && scanColonTime(reader.here(), fields)) {
    return reader.skip(colonTimeSize);
  }
  readPieces(reader, colonTimePieces, fields);
}

void readDateTime(Reader& reader, char between, ReadFields& fields) {
  constexpr std::ptrdiff_t size = dashedDateSize + 1 + colonTimeSize;
  const char* const text = reader.here();
  if (reader.has(size) && scanDashedDate(text, fields) && text[dashedDateSize] == between &&
      scanColonTime(text + dashedDateSize + 1, fields)) {
    return reader.skip(size);
  }
  readPieces(reader, dashedDatePieces, fields);
  if (reader.isGood()) readField(reader, {.literal = between}, fields);
  readPieces(reader, colonTimePieces, fields);
}

void readField(Reader& reader, const Piece& piece, ReadFields& fields) {
  const auto number = [&](int minimum, int maximum, std::string_view expected) {
    return reader.number(std::max<int>(piece.width, 1), piece.longest, minimum, maximum, expected);
  };
  switch (piece.field) {
    case Field::literal:
      if (!reader.take(piece.literal)) reader.fail("another character");
      return;
    case Field::year:
    case Field::weekYear:
      fields.year = number(0, 9999, "a year of four digits");
      return;
    case Field::month:
      fields.month = number(1, 12, "a month");
      return;
    case Field::day:
      fields.day = number(1, 31, "a day of the month");
      return;
    case Field::dayOfYear:
      fields.dayOfYear = number(1, 366, "a day of the year");
      return;
    case Field::week:
      fields.week = number(1, 53, "a week of the year");
      return;
    case Field::isoWeekday:
      fields.weekday = number(1, 7, "a day of the week");
      return;
    case Field::hour:
      fields.hour = number(0, 23, "an hour");
      return;
    case Field::minute:
      fields.minute = number(0, 59, "a minute");
      return;
    case Field::second:
      fields.second = number(0, 59, "a second");
      return;
    case Field::fraction:
      fields.fraction = readFraction(reader);
      return;
    case Field::zone:
      fields.offset = readZone(reader, piece.zone);
      return;
    case Field::dashedDate:
      readDashedDate(reader, fields);
      return;
    case Field::colonTime:
      readColonTime(reader, fields);
      return;
    case Field::dateTime:
      readDateTime(reader, piece.literal, fields);
      return;
  }
}

/// Absent for a day that does not exist.
std::optional<std::int64_t> dayOf(const ReadFields& fields, DatePattern::Days days, bool hasWeek) {
  if (hasWeek) {
    const std::int64_t first = firstMondayOfWeekYear(fields.year);
    const std::int64_t day =
        first + std::int64_t{std::max(fields.week, 1) - 1} * 7 + fields.weekday - 1;
    if (day >= firstMondayOfWeekYear(fields.year + 1)) return std::nullopt;
    return day;
  }
  if (days == DatePattern::Days::iso) {
    if (fields.dayOfYear > 0) {
      if (fields.dayOfYear > (isLeapYear(fields.year) ? 366 : 365)) return std::nullopt;
      return daysFromCivil({fields.year, 1, 1}) + fields.dayOfYear - 1;
    }
    if (fields.day > 28 && fields.day > daysInMonth(fields.year, fields.month)) {
      return std::nullopt;
    }
    const CivilDay day{fields.year, fields.month, fields.day};
    return fields.year > 0 ? daysFromRecentCivil(day) : daysFromCivil(day);
  }
  const bool isLeftOut =
      fields.year == 1582 && fields.month == 10 && fields.day > 4 && fields.day < 15;
  if (fields.year == 0 || isLeftOut ||
      (fields.day > 28 && fields.day > gregorianDaysInMonth(fields.year, fields.month))) {
    return std::nullopt;
  }
  return daysFromGregorian({fields.year, fields.month, fields.day});
}

}  // namespace

DateParsing DatePattern::parse(std::string_view text, const ZoneRules& zone) const noexcept {
  DateParsing result;  // the only one returned, so that it is made where the caller wants it
  Reader reader(text);
  ReadFields fields;
  for (std::size_t i = 0; i < count_ && reader.isGood(); ++i) {
    readField(reader, pieces_[i], fields);
  }
  if (!reader.atEnd()) reader.fail("the end of the text");
  if (!reader.isGood()) {
    result.position = reader.position();
    result.expected = reader.expected();
    return result;
  }
  const auto day = dayOf(fields, days_, hasWeek_);
  if (!day) {
    result.expected = "a day that exists";
    return result;
  }
  const std::int64_t local = *day * secondsADay + std::int64_t{fields.hour} * 3600 +
                             std::int64_t{fields.minute} * 60 + fields.second;
  const std::int64_t second = hasZone_ ? local - fields.offset : zone.utcOfLocal(local);
  result.date.emplace(Instant(second, fields.fraction).date());
  result.position = text.size();
  return result;
}

}  // namespace tessarine::internal
