#include "tessarine/system/time/internal/DatePattern.hpp"

#include <algorithm>
#include <cstring>

#include "tessarine/system/time/internal/GregorianDay.hpp"
#include "tessarine/system/time/internal/LocalTime.hpp"

namespace tessarine::internal {
namespace {

using Field = DatePattern::Field;
using Piece = DatePattern::Piece;

constexpr std::array<std::int64_t, 10> powersOf10 = {
    1, 10, 100, 1'000, 10'000, 100'000, 1'000'000, 10'000'000, 100'000'000, 1'000'000'000};
constexpr std::size_t longestPiece = 24;  // more than any number of 64 bits

constexpr auto digitPairs = [] {
  std::array<char, 200> pairs{};
  for (std::size_t i = 0; i < 100; ++i) {
    pairs[2 * i] = static_cast<char>('0' + i / 10);
    pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
  }
  return pairs;
}();

char* writePair(char* out, std::int64_t value) {
  std::memcpy(out, &digitPairs[static_cast<std::size_t>(value) * 2], 2);
  return out + 2;
}

/// A number that is not negative, with zeros in front up to `width` digits.
char* writeNumber(char* out, std::int64_t value, int width) {
  if (width == 2 && value < 100) return writePair(out, value);
  if (width == 4 && value < 10'000) return writePair(writePair(out, value / 100), value % 100);
  std::array<char, longestPiece> digits{};
  std::size_t first = digits.size();
  for (; value != 0 || digits.size() - first < static_cast<std::size_t>(std::max(width, 1));
       value /= 10) {
    digits[--first] = static_cast<char>('0' + value % 10);
  }
  return std::copy(digits.begin() + static_cast<std::ptrdiff_t>(first), digits.end(), out);
}

char* writeDashedDate(char* out, std::int64_t year, int month, int day) {
  out = writeNumber(out, year, 4);
  *out++ = '-';
  out = writePair(out, month);
  *out++ = '-';
  return writePair(out, day);
}

char* writeColonTime(char* out, int secondOfDay) {
  const auto rest = static_cast<unsigned>(secondOfDay);
  out = writePair(out, rest / 3600);
  *out++ = ':';
  out = writePair(out, rest / 60 % 60);
  *out++ = ':';
  return writePair(out, rest % 60);
}

char* writeFraction(char* out, std::int64_t nanoseconds, int digits) {
  const int exact = std::min(digits, 9);
  out = writeNumber(out, nanoseconds / powersOf10[static_cast<std::size_t>(9 - exact)], exact);
  for (int i = exact; i < digits; ++i) *out++ = '0';
  return out;
}

char* writeZone(char* out, int offset, const DatePattern::ZoneForm& form) {
  if (form.writesZ && offset == 0) {
    *out = 'Z';
    return out + 1;
  }
  const int size = offset < 0 ? -offset : offset;
  *out++ = offset < 0 ? '-' : '+';
  out = writePair(out, size / 3600);
  const int minutes = size / 60 % 60;
  if (!form.hasMinutes && minutes == 0) return out;
  if (form.hasColon) *out++ = ':';
  out = writePair(out, minutes);
  if (!form.mayHaveSeconds || size % 60 == 0) return out;
  if (form.hasColon) *out++ = ':';
  return writePair(out, size % 60);
}

/// A text that is read from the front. The first thing that does not fit is remembered.
class Reader {
 public:
  explicit Reader(std::string_view text)
      : begin_(text.data()), at_(begin_), end_(begin_ + text.size()) {}

  bool atEnd() const { return at_ == end_; }
  bool isGood() const { return expected_.data() == nullptr; }
  DateParsing failure() const {
    return {.date = std::nullopt,
            .position = static_cast<std::size_t>(at_ - begin_),
            .expected = expected_};
  }
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

  /// The next bytes, null when there are fewer.
  const char* ahead(std::ptrdiff_t count) const { return end_ - at_ < count ? nullptr : at_; }
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

constexpr Piece fixedNumber(Field field, std::uint8_t width) {
  return {.field = field, .width = width, .longest = width};
}
constexpr std::array dashedDatePieces = {fixedNumber(Field::year, 4), Piece{.literal = '-'},
                                         fixedNumber(Field::month, 2), Piece{.literal = '-'},
                                         fixedNumber(Field::day, 2)};
constexpr std::array colonTimePieces = {fixedNumber(Field::hour, 2), Piece{.literal = ':'},
                                        fixedNumber(Field::minute, 2), Piece{.literal = ':'},
                                        fixedNumber(Field::second, 2)};

/// Pairs of digits at places of a text, checked together in the end.
class DigitPairs {
 public:
  explicit DigitPairs(const char* text) : text_(text) {}

  int at(std::size_t place) {
    const unsigned tens = digit(text_[place]);
    const unsigned ones = digit(text_[place + 1]);
    isGood_ = isGood_ && tens <= 9 && ones <= 9;
    return static_cast<int>(tens * 10 + ones);
  }
  void expect(std::size_t place, char c) { isGood_ = isGood_ && text_[place] == c; }
  bool areGood() const { return isGood_; }

 private:
  static unsigned digit(char c) { return static_cast<unsigned char>(c) - unsigned{'0'}; }

  const char* text_;
  bool isGood_ = true;
};

void readDashedDate(Reader& reader, ReadFields& fields) {
  constexpr std::ptrdiff_t length = 10;
  if (const char* const text = reader.ahead(length)) {
    DigitPairs pairs(text);
    fields.year = pairs.at(0) * 100 + pairs.at(2);
    fields.month = pairs.at(5);
    fields.day = pairs.at(8);
    pairs.expect(4, '-');
    pairs.expect(7, '-');
    if (pairs.areGood() && fields.month >= 1 && fields.month <= 12 && fields.day >= 1 &&
        fields.day <= 31) {
      return reader.skip(length);
    }
  }
  readPieces(reader, dashedDatePieces, fields);
}

void readColonTime(Reader& reader, ReadFields& fields) {
  constexpr std::ptrdiff_t length = 8;
  if (const char* const text = reader.ahead(length)) {
    DigitPairs pairs(text);
    fields.hour = pairs.at(0);
    fields.minute = pairs.at(3);
    fields.second = pairs.at(6);
    pairs.expect(2, ':');
    pairs.expect(5, ':');
    if (pairs.areGood() && fields.hour <= 23 && fields.minute <= 59 && fields.second <= 59) {
      return reader.skip(length);
    }
  }
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

std::optional<Piece> numberPiece(Field field, std::size_t count, std::size_t longest) {
  if (count > longest) return std::nullopt;
  return Piece{.field = field,
               .width = static_cast<std::uint8_t>(count),
               .longest = static_cast<std::uint8_t>(longest)};
}

std::optional<Piece> zonePiece(char letter, std::size_t count) {
  DatePattern::ZoneForm form;
  if (letter == 'Z') {
    if (count == 4 || count > 5) return std::nullopt;
    form.hasColon = form.writesZ = count == 5;
    form.readsEither = count < 4;
    form.mayHaveSeconds = true;
  } else {
    if (count > 5) return std::nullopt;
    form.hasColon = count == 3 || count == 5;
    form.writesZ = letter == 'X';
    form.hasMinutes = count > 1;
    form.mayHaveSeconds = count > 3;
  }
  return Piece{.field = Field::zone, .zone = form};
}

/// The piece for a letter of the pattern language that is there `count` times.
std::optional<Piece> pieceFor(char letter, std::size_t count) {
  switch (letter) {
    case 'y':
      return count == 4 ? numberPiece(Field::year, 4, 4) : std::nullopt;
    case 'M':
      return numberPiece(Field::month, count, 2);
    case 'd':
      return numberPiece(Field::day, count, 2);
    case 'H':
      return numberPiece(Field::hour, count, 2);
    case 'm':
      return numberPiece(Field::minute, count, 2);
    case 's':
      return numberPiece(Field::second, count, 2);
    case 'S':
      return count <= 20 ? Piece{.field = Field::fraction,
                                 .width = static_cast<std::uint8_t>(count),
                                 .longest = 9}
                         : std::optional<Piece>();
    case 'Z':
    case 'X':
    case 'x':
      return zonePiece(letter, count);
    default:
      return std::nullopt;
  }
}

bool isLetter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

/// Adds the literal that begins with a quote at `at`; gives where it ends, or npos.
std::size_t addQuoted(DatePattern& pattern, std::string_view text, std::size_t at) {
  if (text.substr(at).starts_with("''")) return pattern.addLiteral('\'') ? at + 2 : text.npos;
  for (++at; at < text.size(); ++at) {
    if (text[at] == '\'') {
      if (at + 1 >= text.size() || text[at + 1] != '\'') return at + 1;
      ++at;
    }
    if (!pattern.addLiteral(text[at])) return text.npos;
  }
  return text.npos;
}

}  // namespace

std::optional<DatePattern> DatePattern::compile(std::string_view text) {
  DatePattern pattern(Days::gregorian);
  bool endsOpen = false;  // in a number that may have more digits
  for (std::size_t at = 0; at < text.size();) {
    const char c = text[at];
    if (c == '\'') {
      at = addQuoted(pattern, text, at);
      if (at == text.npos) return std::nullopt;
      endsOpen = false;
      continue;
    }
    if (!isLetter(c)) {
      if (!pattern.addLiteral(c)) return std::nullopt;
      endsOpen = endsOpen && c >= '0' && c <= '9';
      ++at;
      continue;
    }
    const std::size_t end = std::min(text.find_first_not_of(c, at), text.size());
    const auto piece = pieceFor(c, end - at);
    if (!piece || (endsOpen && piece->field != Field::zone) || !pattern.add(*piece)) {
      return std::nullopt;
    }
    endsOpen = piece->longest > piece->width || piece->field == Field::fraction;
    at = end;
  }
  return pattern;
}

bool DatePattern::add(Piece piece) {
  if (count_ == greatestCount) return false;
  pieces_[count_++] = piece;
  hasZone_ = hasZone_ || piece.field == Field::zone;
  hasWeek_ = hasWeek_ || piece.field == Field::week;
  fuse();
  return true;
}

void DatePattern::fuse() {
  const auto endsWith = [&](const std::array<Piece, 5>& part) {
    return count_ >= part.size() &&
           std::equal(part.begin(), part.end(), pieces_.begin() + count_ - part.size());
  };
  const bool isDate = endsWith(dashedDatePieces);
  if (!isDate && !endsWith(colonTimePieces)) return;
  count_ = static_cast<std::uint8_t>(count_ - 4);
  pieces_[count_ - std::size_t{1}] = {.field = isDate ? Field::dashedDate : Field::colonTime};
}

void DatePattern::append(std::string& text, const Instant& instant, const ZoneRules& zone) const {
  const LocalTime local(zone, instant);
  const bool isIso = days_ == Days::iso;
  const CivilDay civil = isIso && local.day < firstGregorianDay ? civilFromDays(local.day)
                                                                : gregorianFromDays(local.day);
  std::int64_t year = civil.year;
  if (isIso && (year < 0 || year > 9999)) return;
  if (!isIso && year < 1) year = 1 - year;
  std::array<char, greatestCount * longestPiece>
      buffer;  // NOLINT(cppcoreguidelines-pro-type-member-init): written before it is read
  char* out = buffer.data();
  for (std::size_t i = 0; i < count_; ++i) {
    const Piece& piece = pieces_[i];
    switch (piece.field) {
      case Field::literal:
        *out++ = piece.literal;
        break;
      case Field::year:
        out = writeNumber(out, year, piece.width);
        break;
      case Field::month:
        out = writeNumber(out, civil.month, piece.width);
        break;
      case Field::day:
        out = writeNumber(out, civil.day, piece.width);
        break;
      case Field::dayOfYear:
        out = writeNumber(out, local.day - daysFromCivil({civil.year, 1, 1}) + 1, piece.width);
        break;
      case Field::weekYear: {
        const std::int64_t weekYear = IsoWeek(local.day).year;
        if (weekYear < 0 || weekYear > 9999) return;
        out = writeNumber(out, weekYear, piece.width);
        break;
      }
      case Field::week:
        out = writeNumber(out, IsoWeek(local.day).week, piece.width);
        break;
      case Field::isoWeekday:
        out = writeNumber(out, IsoWeek(local.day).weekday, piece.width);
        break;
      case Field::hour:
        out = writeNumber(out, local.secondOfDay / 3600, piece.width);
        break;
      case Field::minute:
        out = writeNumber(out, local.secondOfDay / 60 % 60, piece.width);
        break;
      case Field::second:
        out = writeNumber(out, local.secondOfDay % 60, piece.width);
        break;
      case Field::fraction:
        out = writeFraction(out, nanosecondOf(instant), piece.width);
        break;
      case Field::zone:
        out = writeZone(out, local.offset, piece.zone);
        break;
      case Field::dashedDate:
        out = writeDashedDate(out, year, civil.month, civil.day);
        break;
      case Field::colonTime:
        out = writeColonTime(out, local.secondOfDay);
        break;
    }
  }
  text.append(buffer.data(), out);
}

DateParsing DatePattern::parse(std::string_view text, const ZoneRules& zone) const noexcept {
  Reader reader(text);
  ReadFields fields;
  for (std::size_t i = 0; i < count_; ++i) {
    readField(reader, pieces_[i], fields);
    if (!reader.isGood()) return reader.failure();
  }
  if (!reader.atEnd()) {
    reader.fail("the end of the text");
    return reader.failure();
  }
  const auto day = dayOf(fields, days_, hasWeek_);
  if (!day) return {.date = std::nullopt, .position = 0, .expected = "a day that exists"};
  const std::int64_t local = *day * secondsADay + std::int64_t{fields.hour} * 3600 +
                             std::int64_t{fields.minute} * 60 + fields.second;
  const std::int64_t second = hasZone_ ? local - fields.offset : zone.utcOfLocal(local);
  return {.date = Instant(second, fields.fraction).date(), .position = text.size(), .expected = {}};
}

}  // namespace tessarine::internal
