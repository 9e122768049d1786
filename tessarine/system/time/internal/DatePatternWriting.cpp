// Writing dates by a pattern.
#include <algorithm>
#include <cstring>

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

/// A number that is not negative, with zeros in front up to `width` digits.
char* writeNumber(char* out, std::int64_t value, int width) {
  if (width == 2 && value < 100) return writePair(out, value);
  if (width == 4 && value < 10'000) return writePair(writePair(out, value / 100), value % 100);
  std::array<char, longestNumber> digits{};
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

}  // namespace

void DatePattern::append(std::string& text, const Instant& instant, const LocalTime& local) const {
  const bool isIso = days_ == Days::iso;
  const CivilDay civil = isIso && local.day < firstGregorianDay ? civilFromDays(local.day)
                                                                : gregorianFromDays(local.day);
  std::int64_t year = civil.year;
  if (isIso && (year < 0 || year > 9999)) return;
  if (!isIso && year < 1) year = 1 - year;
  // Written in place: a copy would wait for the many small writes to have reached the memory.
  const std::size_t before = text.size();
  text.resize(before + greatestSize_);
  char* out = text.data() + before;
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
        if (weekYear < 0 || weekYear > 9999) return text.resize(before);
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
      case Field::dateTime:
        out = writeDashedDate(out, year, civil.month, civil.day);
        *out++ = piece.literal;
        out = writeColonTime(out, local.secondOfDay);
        break;
    }
  }
  text.resize(static_cast<std::size_t>(out - text.data()));
}

}  // namespace tessarine::internal
