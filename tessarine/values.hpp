#pragma once

/// Plain values: numbers that keep their kind, dates, bytes, places in a table, property-list
/// values.
#include "tessarine/values/AnyHashable.hpp"
#include "tessarine/values/Data.hpp"
#include "tessarine/values/Date.hpp"
#include "tessarine/values/Decimal.hpp"
#include "tessarine/values/EnumCases.hpp"
#include "tessarine/values/FunctionRef.hpp"
#include "tessarine/values/Hashable.hpp"
#include "tessarine/values/IndexPath.hpp"
#include "tessarine/values/Int128.hpp"
#include "tessarine/values/NSInternalInconsistencyException.hpp"
#include "tessarine/values/NSNull.hpp"
#include "tessarine/values/NSNumber.hpp"
#include "tessarine/values/PreferenceObject.hpp"
#include "tessarine/values/UUID.hpp"
#include "tessarine/values/fatal.hpp"
#include "tessarine/values/floatText.hpp"
#include "tessarine/values/utf8.hpp"
