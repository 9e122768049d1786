#include "tessarine/system/time/DateComponents.hpp"

namespace tessarine {
namespace {

using Field = std::optional<std::int64_t> DateComponents::*;

Field fieldOf(Calendar::Component component) noexcept {
  using Component = Calendar::Component;
  switch (component) {
    case Component::era:
      return &DateComponents::era;
    case Component::year:
      return &DateComponents::year;
    case Component::month:
      return &DateComponents::month;
    case Component::day:
      return &DateComponents::day;
    case Component::hour:
      return &DateComponents::hour;
    case Component::minute:
      return &DateComponents::minute;
    case Component::second:
      return &DateComponents::second;
    case Component::weekday:
      return &DateComponents::weekday;
    case Component::weekdayOrdinal:
      return &DateComponents::weekdayOrdinal;
    case Component::quarter:
      return &DateComponents::quarter;
    case Component::weekOfMonth:
      return &DateComponents::weekOfMonth;
    case Component::weekOfYear:
      return &DateComponents::weekOfYear;
    case Component::yearForWeekOfYear:
      return &DateComponents::yearForWeekOfYear;
    case Component::nanosecond:
      return &DateComponents::nanosecond;
    case Component::calendar:
    case Component::timeZone:
      break;
  }
  return nullptr;
}

}  // namespace

std::optional<std::int64_t> DateComponents::value(Calendar::Component component) const noexcept {
  const Field field = fieldOf(component);
  return field != nullptr ? this->*field : std::nullopt;
}

void DateComponents::setValue(std::optional<std::int64_t> value,
                              Calendar::Component component) noexcept {
  if (const Field field = fieldOf(component)) this->*field = value;
}

std::optional<Date> DateComponents::date() const {
  return calendar ? calendar->dateFrom(*this) : std::nullopt;
}

}  // namespace tessarine
