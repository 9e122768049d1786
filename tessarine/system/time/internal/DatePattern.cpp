#include "tessarine/system/time/internal/DatePattern.hpp"

#include <algorithm>

namespace tessarine::internal {
namespace {

using Field = DatePattern::Field;
using Piece = DatePattern::Piece;

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

/// How many characters a piece is written with at most.
std::size_t greatestSize(const Piece& piece) {
  constexpr std::size_t longestYear = 7;  // of the two million that calendars know
  const std::size_t width = piece.width;
  switch (piece.field) {
    case Field::literal:
      return 1;
    case Field::year:
    case Field::weekYear:
      return std::max(width, longestYear);
    case Field::dayOfYear:
      return std::max<std::size_t>(width, 3);
    case Field::fraction:
      return width;
    case Field::zone:
      return std::string_view("+hh:mm:ss").size();
    default:
      return std::max<std::size_t>(width, 2);
  }
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
  greatestSize_ = static_cast<std::uint16_t>(greatestSize_ + greatestSize(piece));
  hasZone_ = hasZone_ || piece.field == Field::zone;
  hasWeek_ = hasWeek_ || piece.field == Field::week;
  fuse();
  isInternet_ = count_ == 2 && pieces_[0].field == Field::dateTime &&
                pieces_[1].field == Field::zone && pieces_[1].zone.writesZ;
  return true;
}

void DatePattern::fuse() {
  const auto endsWith = [&](const std::array<Piece, 5>& part) {
    return count_ >= part.size() &&
           std::equal(part.begin(), part.end(), pieces_.begin() + count_ - part.size());
  };
  const auto replaceLast = [&](std::size_t count, Piece piece) {
    count_ = static_cast<std::uint8_t>(count_ - count + 1);
    pieces_[count_ - std::size_t{1}] = piece;
  };
  if (endsWith(dashedDatePieces)) replaceLast(5, {.field = Field::dashedDate});
  if (endsWith(colonTimePieces)) replaceLast(5, {.field = Field::colonTime});
  if (count_ < 3 || pieces_[count_ - std::size_t{1}].field != Field::colonTime) return;
  const Piece between = pieces_[count_ - std::size_t{2}];
  if (between.field == Field::literal &&
      pieces_[count_ - std::size_t{3}].field == Field::dashedDate) {
    replaceLast(3, {.field = Field::dateTime, .literal = between.literal});
  }
}

}  // namespace tessarine::internal
