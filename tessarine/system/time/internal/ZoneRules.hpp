#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tessarine::internal {

/// A time with one offset from GMT. Seconds are those since 1970.
struct ZoneSpan {
  std::int64_t start;
  std::int32_t offset;  ///< seconds ahead of GMT
  bool isDaylightSaving;
  std::uint8_t abbreviation;  ///< which of the zone's
};

/// The offsets of a zone through all time. Immutable; any thread.
class ZoneRules {
 public:
  /// Spans in ascending order, the first from the beginning of time. What lies at or behind
  /// `cycleEnd` repeats the 400 Gregorian years before it.
  struct Table {
    std::vector<ZoneSpan> spans;
    std::vector<std::string> abbreviations;
    std::int64_t cycleEnd = std::numeric_limits<std::int64_t>::max();
  };

  ZoneRules(std::string identifier, Table table);

  const std::string& identifier() const noexcept { return identifier_; }
  const std::string& abbreviation(const ZoneSpan& span) const { return names_[span.abbreviation]; }

  /// The span that a second of GMT lies in; the offset and the names are right also where the table
  /// repeats. Constant time.
  const ZoneSpan& at(std::int64_t second) const noexcept {
    if (second < firstTransition_) return spans_.front();
    if (second >= cycleEnd_) [[unlikely]] {
      second -= cyclesBehind(second) * cycle;
    }
    return spans_[indexAt(second)];
  }

  /// That span's offset, sooner than the span itself is known.
  std::int32_t offsetAt(std::int64_t second) const noexcept {
    const auto place = static_cast<std::uint64_t>(second - firstTransition_);
    if (place < tableLength_) [[likely]] {
      const ZoneSpan* const span = &spans_[buckets_[place >> bucketBits]];
      // On which side of a transition it is cannot be predicted; that there is no second one, well.
      const std::int32_t change = span[1].offset - span[0].offset;
      const std::int32_t changes = second >= span[1].start ? -1 : 0;
      if (second < span[2].start) [[likely]]
        return span[0].offset + (change & changes);
    }
    return at(second).offset;
  }

  /// The second of GMT at which clocks show `local`, a second counted as if there were no zone. Of
  /// two the first; a time that clocks skip moves forward by what they skip.
  std::int64_t utcOfLocal(std::int64_t local) const noexcept {
    std::int64_t back = 0;
    if (local >= cycleEnd_ - greatestOffset) [[unlikely]] {
      back = cyclesBehind(local + greatestOffset) * cycle;
      local -= back;
    }
    std::size_t i = local - greatestOffset < firstTransition_ ? 0 : indexAt(local - greatestOffset);
    while (local >= spans_[i + 1].start + spans_[i].offset) ++i;
    const bool isSkipped = i > 0 && local < spans_[i].start + spans_[i].offset;
    return local - spans_[isSkipped ? i - 1 : i].offset + back;
  }

  /// The first second after `second` from which the offset or its name is another.
  std::optional<std::int64_t> nextTransition(std::int64_t second) const noexcept;

  /// What the table holds by itself, for tests.
  std::span<const ZoneSpan> spans() const noexcept {
    return std::span(spans_).first(spans_.size() - 2);
  }

  /// Seconds in 400 Gregorian years.
  static constexpr std::int64_t cycle = std::int64_t{146097} * 86400;
  /// No offset is this large; a span never ends sooner by the clock than the one before it.
  static constexpr std::int64_t greatestOffset = std::int64_t{26} * 3600;

 private:
  static constexpr int bucketBits = 23;  // 97 days: two transitions a year share no bucket

  std::int64_t cyclesBehind(std::int64_t second) const noexcept {
    return second < cycleEnd_ ? 0 : (second - cycleEnd_) / cycle + 1;
  }
  std::size_t indexAt(std::int64_t second) const noexcept {
    const auto bucket = static_cast<std::size_t>((second - firstTransition_) >> bucketBits);
    std::size_t i = buckets_[std::min(bucket, lastBucket_)];
    // On which side of a transition it is cannot be predicted; that there is no second one, well.
    i += second >= spans_[i + 1].start ? 1 : 0;
    while (second >= spans_[i + 1].start) [[unlikely]] {
        ++i;
      }
    return i;
  }

  std::string identifier_;
  std::vector<ZoneSpan> spans_;  // and two more that begin at the end of time
  std::vector<std::string> names_;
  std::vector<std::uint16_t> buckets_;  // the span that each bucket begins in
  std::size_t lastBucket_ = 0;
  std::uint64_t tableLength_ = 0;  // seconds from the first transition that the buckets cover
  std::int64_t firstTransition_;
  std::int64_t cycleEnd_;
};

/// One offset through all time.
ZoneRules::Table fixedZone(int offset, std::string abbreviation);

/// A compiled zone file (RFC 8536); absent for any other bytes.
std::optional<ZoneRules::Table> readZoneFile(std::string_view bytes);

/// A rule as the environment has it and as zone files end with (POSIX.1, TZ), such as
/// "EST5EDT,M3.2.0,M11.1.0"; absent for any other text.
std::optional<ZoneRules::Table> readZoneRule(std::string_view text);

}  // namespace tessarine::internal
