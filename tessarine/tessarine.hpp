#pragma once

/// The whole library.
#include "tessarine/animation.hpp"
#include "tessarine/codable.hpp"
#include "tessarine/coding.hpp"
#include "tessarine/dates.hpp"
#include "tessarine/differencing.hpp"
#include "tessarine/preferences.hpp"
#include "tessarine/scheduling.hpp"
#include "tessarine/system.hpp"
#include "tessarine/values.hpp"
#include "tessarine/web.hpp"
