#pragma once

/// Dates: calendar fields, moving and rounding, formats, intervals, weeks and zones.
#include "tessarine/dates/Calendar+Days.hpp"
#include "tessarine/dates/CivilDate.hpp"
#include "tessarine/dates/Date+Comparing.hpp"
#include "tessarine/dates/Date+Construction.hpp"
#include "tessarine/dates/Date+Fields.hpp"
#include "tessarine/dates/Date+Formatting.hpp"
#include "tessarine/dates/Date+Moving.hpp"
#include "tessarine/dates/Date+Rounding.hpp"
#include "tessarine/dates/DateInterval+Days.hpp"
#include "tessarine/dates/Formatter.hpp"
#include "tessarine/dates/JSONDateStrategies.hpp"
#include "tessarine/dates/TimeUnits.hpp"
#include "tessarine/dates/TimeZone+Names.hpp"
#include "tessarine/dates/WeekDay.hpp"
