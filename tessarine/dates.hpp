#pragma once

/// Dates: calendar fields, moving and rounding, formats, intervals, weeks and zones.
#include "tessarine/dates/Date+Comparing.hpp"
#include "tessarine/dates/Date+Fields.hpp"
#include "tessarine/dates/Date+Moving.hpp"
#include "tessarine/dates/Date+Rounding.hpp"
#include "tessarine/dates/WeekDay.hpp"
