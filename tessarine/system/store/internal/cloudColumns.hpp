#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tessarine/system/store/CloudStamp.hpp"
#include "tessarine/system/store/internal/SQLite.hpp"
#include "tessarine/values/Date.hpp"
#include "tessarine/values/UUID.hpp"

namespace tessarine::detail {

/// For how long a removal is remembered at most, microseconds: 180 days.
inline constexpr std::int64_t longestRemembered = std::int64_t{180} * 86'400'000'000;

inline std::string_view bytesOf(const UUID& uuid) {
  return {reinterpret_cast<const char*>(uuid.bytes().data()), uuid.bytes().size()};
}

inline UUID uuidOf(std::string_view bytes) {
  UUID::Bytes all{};
  bytes.copy(reinterpret_cast<char*>(all.data()), all.size());
  return UUID(all);
}

/// The stamp in three columns from `first` on: time, counter, replica.
inline CloudStamp stampOf(const SQLite::Statement& row, int first) {
  return {row.integer(first), static_cast<std::uint32_t>(row.integer(first + 1)),
          uuidOf(row.text(first + 2))};
}

inline std::optional<std::string> ownedText(const SQLite::Statement& row, int column) {
  const auto text = row.optionalText(column);
  return text ? std::optional<std::string>(*text) : std::nullopt;
}

/// Times are within this of 1970, microseconds: some 36,000 years. So the sums and differences of
/// a few of them are numbers.
inline constexpr std::int64_t farthestTime = std::int64_t{1} << 60U;

/// Microseconds since 1970, clamped for dates that are no numbers or far off.
inline std::int64_t microsecondsOf(Date date) {
  const double microseconds = date.timeIntervalSince1970() * 1e6;
  constexpr auto limit = static_cast<double>(farthestTime);
  if (!(microseconds > -limit)) return -farthestTime;
  return microseconds < limit ? static_cast<std::int64_t>(microseconds) : farthestTime;
}

}  // namespace tessarine::detail
