#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tessarine/system/time/DateParsing.hpp"
#include "tessarine/system/time/internal/Instant.hpp"
#include "tessarine/system/time/internal/LocalTime.hpp"
#include "tessarine/system/time/internal/ZoneRules.hpp"

namespace tessarine::internal {

/// A date layout whose fields are all numbers in ASCII digits: compiled once, then written and read
/// without looking anything up. Immutable; any thread.
class DatePattern {
 public:
  enum class Days : std::uint8_t {
    gregorian,  ///< Julian before 15 October 1582; years of an era
    iso         ///< Gregorian throughout, with a year 0; nothing beyond the years 0 to 9999
  };

  enum class Field : std::uint8_t {
    literal,
    year,
    month,
    day,
    dayOfYear,
    weekYear,
    week,
    isoWeekday,  ///< 1 for Monday to 7
    hour,
    minute,
    second,
    fraction,
    zone,
    dashedDate,  ///< yyyy-MM-dd in one
    colonTime,   ///< HH:mm:ss in one
    dateTime     ///< both with a literal between them
  };

  /// How an offset from GMT stands.
  struct ZoneForm {
    bool hasColon = false;
    bool writesZ = false;         ///< Z for GMT itself
    bool readsEither = false;     ///< with or without colon, and Z
    bool hasMinutes = true;       ///< else only where they are not 0, and then without a colon
    bool mayHaveSeconds = false;  ///< where they are not 0

    bool operator==(const ZoneForm&) const = default;
  };

  struct Piece {
    Field field = Field::literal;
    std::uint8_t width = 0;    ///< digits written at least
    std::uint8_t longest = 0;  ///< digits read at most; at least `width`, of a fraction at least 1
    char literal = 0;
    ZoneForm zone;

    bool operator==(const Piece&) const = default;
  };

  /// A pattern of the Unicode date pattern language (UTS 35), always of Gregorian days; absent when
  /// it has fields that are not numbers by themselves, or is too long.
  static std::optional<DatePattern> compile(std::string_view pattern);

  explicit DatePattern(Days days) : days_(days) {}
  /// Whether there was room for it.
  bool add(Piece piece);
  bool addLiteral(char c) { return add({.literal = c}); }

  /// By clocks so many seconds ahead of GMT. Empty for years that the kind of days does not have.
  std::string string(Instant instant, std::int32_t offset) const;
  void append(std::string& text, Instant instant, std::int32_t offset) const;
  /// Fields that the layout lacks are those of 1970-01-01 00:00; without a zone in it, that of
  /// `zone`.
  DateParsing parse(std::string_view text, const ZoneRules& zone) const noexcept;

 private:
  static constexpr std::size_t greatestCount = 32;

  /// How many characters it was, at most `greatestSize_`.
  std::size_t write(char* text, Instant instant, std::int32_t offset) const;
  /// Makes one piece of the last where they are a date or a time as most texts have it, or both.
  void fuse();

  std::array<Piece, greatestCount> pieces_{};
  std::uint8_t count_ = 0;
  std::uint16_t greatestSize_ = 0;  // of a text
  Days days_;
  bool hasZone_ = false;
  bool hasWeek_ = false;
  bool isInternet_ = false;  // the date and the time in one, and a zone that is Z in GMT
};

inline constexpr std::array<std::int64_t, 10> powersOf10 = {
    1, 10, 100, 1'000, 10'000, 100'000, 1'000'000, 10'000'000, 100'000'000, 1'000'000'000};

constexpr DatePattern::Piece fixedNumber(DatePattern::Field field, std::uint8_t width) {
  return {.field = field, .width = width, .longest = width};
}
inline constexpr std::array dashedDatePieces = {
    fixedNumber(DatePattern::Field::year, 4), DatePattern::Piece{.literal = '-'},
    fixedNumber(DatePattern::Field::month, 2), DatePattern::Piece{.literal = '-'},
    fixedNumber(DatePattern::Field::day, 2)};
inline constexpr std::array colonTimePieces = {
    fixedNumber(DatePattern::Field::hour, 2), DatePattern::Piece{.literal = ':'},
    fixedNumber(DatePattern::Field::minute, 2), DatePattern::Piece{.literal = ':'},
    fixedNumber(DatePattern::Field::second, 2)};

}  // namespace tessarine::internal
