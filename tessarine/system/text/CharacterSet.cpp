#include "tessarine/system/text/CharacterSet.hpp"

#include <algorithm>

#include "tessarine/values/utf8.hpp"

namespace tessarine {
namespace {

using Range = std::pair<char32_t, char32_t>;

std::vector<Range> merged(std::vector<Range> ranges) {
  std::sort(ranges.begin(), ranges.end());
  std::vector<Range> result;
  for (const Range& range : ranges) {
    if (!result.empty() && range.first <= result.back().second + 1) {
      result.back().second = std::max(result.back().second, range.second);
    } else {
      result.push_back(range);
    }
  }
  return result;
}

std::vector<Range> rangesOf(std::string_view text) {
  std::vector<Range> ranges;
  ranges.reserve(text.size());
  while (!text.empty()) {
    const std::size_t size = utf8CharacterSize(text);
    const char32_t character = utf8Scalar(size == 0 ? utf8Replacement : text.substr(0, size));
    ranges.emplace_back(character, character);
    text.remove_prefix(std::max<std::size_t>(size, 1));
  }
  return ranges;
}

}  // namespace

CharacterSet::CharacterSet(std::vector<Range> ranges) : ranges_(merged(std::move(ranges))) {
  for (const auto& [first, last] : ranges_) {
    for (char32_t c = first; c <= last && c < 128; ++c) {
      ascii_[c >> 6U] |= std::uint64_t{1} << (c & 63U);
    }
  }
}

CharacterSet::CharacterSet(std::string_view charactersIn) : CharacterSet(rangesOf(charactersIn)) {}

CharacterSet CharacterSet::range(char32_t first, char32_t last) {
  return first <= last ? CharacterSet(std::vector<Range>{{first, last}}) : CharacterSet();
}

const CharacterSet& CharacterSet::urlQueryAllowed() {
  static const CharacterSet set = CharacterSet("-._~!$&'()*+,;=:@/?")
                                      .formUnion(range('0', '9'))
                                      .formUnion(range('A', 'Z'))
                                      .formUnion(range('a', 'z'));
  return set;
}

bool CharacterSet::containsBeyondAscii(char32_t character) const noexcept {
  const auto after =
      std::upper_bound(ranges_.begin(), ranges_.end(), character,
                       [](char32_t c, const Range& range) { return c < range.first; });
  return after != ranges_.begin() && character <= std::prev(after)->second;
}

void CharacterSet::insert(std::string_view charactersIn) {
  *this = formUnion(CharacterSet(charactersIn));
}

CharacterSet CharacterSet::formUnion(const CharacterSet& other) const {
  std::vector<Range> ranges = ranges_;
  ranges.insert(ranges.end(), other.ranges_.begin(), other.ranges_.end());
  return CharacterSet(std::move(ranges));
}

CharacterSet CharacterSet::subtracting(const CharacterSet& other) const {
  std::vector<Range> left;
  for (auto [first, last] : ranges_) {
    for (const auto& [from, to] : other.ranges_) {
      if (to < first || from > last) continue;
      if (from > first) left.emplace_back(first, from - 1);
      first = to + 1;
      if (first > last) break;
    }
    if (first <= last) left.emplace_back(first, last);
  }
  return CharacterSet(std::move(left));
}

}  // namespace tessarine
