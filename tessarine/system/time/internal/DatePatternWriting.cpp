// Writing dates by a pattern.
#include <algorithm>
#include <cstring>
#include <string_view>

#include "tessarine/system/time/internal/DatePattern.hpp"
#include "tessarine/system/time/internal/GregorianDay.hpp"

namespace tessarine::internal {
namespace {

using Field = DatePattern::Field;

constexpr std::size_t longestNumber = 24;  // more than any number of 64 bits

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

/// Out of line, so that nothing of it is done in advance for numbers that need none of it.
[[gnu::noinline]] char* writeAnyNumber(char* out, std::int64_t value, int width) {
  std::array<char, longestNumber> digits{};
  std::size_t first = digits.size();
  for (; value != 0 || digits.size() - first < static_cast<std::size_t>(std::max(width, 1));
       value /= 10) {
    digits[--first] = static_cast<char>('0' + value % 10);
  }
  return std::copy(digits.begin() + static_cast<std::ptrdiff_t>(first), digits.end(), out);
}

/// A number that is not negative, with zeros in front up to `width` digits.
char* writeNumber(char* out, std::int64_t value, int width) {
  const auto small = static_cast<std::uint32_t>(value);
  if (width == 2 && value < 100) return writePair(out, small);
  if (width == 4 && value < 10'000) return writePair(writePair(out, small / 100), small % 100);
  return writeAnyNumber(out, value, width);
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
  const unsigned minutes = rest / 60;
  const unsigned hours = rest / 3600;
  out = writePair(out, hours);
  *out++ = ':';
  out = writePair(out, minutes - hours * 60);
  *out++ = ':';
  return writePair(out, rest - minutes * 60);
}

inline char* writeDateTime(char* out, std::int64_t year, const CivilDay& civil, char between,
                           int secondOfDay) {
  out = writeDashedDate(out, year, civil.month, civil.day);
  *out++ = between;
  return writeColonTime(out, secondOfDay);
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

/// What the pieces of a text are made of.
struct WrittenDate {
  Instant instant;
  LocalTime local;
  CivilDay civil;
  std::int64_t year;  // of the era
};

/// Null for a year of weeks that has no four digits.
char* writePiece(char* out, const DatePattern::Piece& piece, const WrittenDate& date) {
  const LocalTime& local = date.local;
  switch (piece.field) {
    case Field::literal:
      *out = piece.literal;
      return out + 1;
    case Field::year:
      return writeNumber(out, date.year, piece.width);
    case Field::month:
      return writeNumber(out, date.civil.month, piece.width);
    case Field::day:
      return writeNumber(out, date.civil.day, piece.width);
    case Field::dayOfYear:
      return writeNumber(out, local.day - daysFromCivil({date.civil.year, 1, 1}) + 1, piece.width);
    case Field::weekYear: {
      const std::int64_t weekYear = IsoWeek(local.day).year;
      return weekYear < 0 || weekYear > 9999 ? nullptr : writeNumber(out, weekYear, piece.width);
    }
    case Field::week:
      return writeNumber(out, IsoWeek(local.day).week, piece.width);
    case Field::isoWeekday:
      return writeNumber(out, IsoWeek(local.day).weekday, piece.width);
    case Field::hour:
      return writeNumber(out, local.secondOfDay / 3600, piece.width);
    case Field::minute:
      return writeNumber(out, local.secondOfDay / 60 % 60, piece.width);
    case Field::second:
      return writeNumber(out, local.secondOfDay % 60, piece.width);
    case Field::fraction:
      return writeFraction(out, nanosecondOf(date.instant), piece.width);
    case Field::zone:
      return writeZone(out, local.offset, piece.zone);
    case Field::dashedDate:
      return writeDashedDate(out, date.year, date.civil.month, date.civil.day);
    case Field::colonTime:
      return writeColonTime(out, local.secondOfDay);
    case Field::dateTime:
      return writeDateTime(out, date.year, date.civil, piece.literal, local.secondOfDay);
  }
  return out;
}

/// Out of line, so that the date stays in registers for texts that need none of this.
[[gnu::noinline]] char* writePieces(char* out, const DatePattern::Piece* piece,
                                    const DatePattern::Piece* end, const WrittenDate& date) {
  while (piece != end && out != nullptr) out = writePiece(out, *piece++, date);
  return out;
}

constexpr std::size_t internetSize = std::string_view("yyyy-MM-ddTHH:mm:ssZ").size();

/// Of GMT, since Gregorian days began.
constexpr bool hasFourDigitYear(std::int64_t second) {
  return second >= firstGregorianDay * secondsADay &&
         second < daysFromCivil({10'000, 1, 1}) * secondsADay;
}

/// Before Gregorian days begin. Out of line like the above.
[[gnu::noinline]] CivilDay earlyCivil(std::int64_t day, DatePattern::Days days) {
  return days == DatePattern::Days::iso ? civilFromDays(day) : julianFromDays(day);
}

}  // namespace

std::string DatePattern::string(Instant instant, std::int32_t offset) const {
  if (isInternet_ && offset == 0 && hasFourDigitYear(instant.second)) {
    std::string text(internetSize, 'Z');
    const LocalTime local(instant, offset);
    const CivilDay civil = civilFromRecentDays(local.day);
    writeDateTime(text.data(), civil.year, civil, pieces_.front().literal, local.secondOfDay);
    return text;
  }
  std::string text(greatestSize_, '\0');
  text.resize(write(text.data(), instant, offset));
  return text;
}

void DatePattern::append(std::string& text, Instant instant, std::int32_t offset) const {
  const std::size_t before = text.size();
  text.resize(before + greatestSize_);
  text.resize(before + write(text.data() + before, instant, offset));
}

// Where the text is to be: a copy would wait for the many small writes to have reached the memory.
std::size_t DatePattern::write(char* const text, Instant instant, std::int32_t offset) const {
  const LocalTime local(instant, offset);
  const CivilDay civil = local.day >= firstGregorianDay ? civilFromRecentDays(local.day)
                                                        : earlyCivil(local.day, days_);
  std::int64_t year = civil.year;
  if (year < 1 || year > 9999) [[unlikely]] {
    if (days_ == Days::iso && year != 0) return 0;
    if (days_ == Days::gregorian && year < 1) year = 1 - year;
  }
  char* out = text;
  const Piece* piece = pieces_.data();
  const Piece* const end = piece + count_;
  if (piece->field == Field::dateTime) {
    out = writeDateTime(out, year, civil, piece->literal, local.secondOfDay);
    ++piece;
    if (isInternet_ && offset == 0) {
      *out++ = 'Z';
      ++piece;
    }
  }
  if (piece != end) out = writePieces(out, piece, end, {instant, local, civil, year});
  return out != nullptr ? static_cast<std::size_t>(out - text) : 0;
}

}  // namespace tessarine::internal
