#pragma once

/// Plain values: numbers that keep their kind, dates, bytes, property-list values.
#include "tessarine/values/AnyHashable.hpp"
#include "tessarine/values/Data.hpp"
#include "tessarine/values/Date.hpp"
#include "tessarine/values/NSInternalInconsistencyException.hpp"
#include "tessarine/values/NSNull.hpp"
#include "tessarine/values/NSNumber.hpp"
#include "tessarine/values/PreferenceObject.hpp"
#include "tessarine/values/fatal.hpp"
