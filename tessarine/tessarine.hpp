#pragma once

/// The whole library.
#include "tessarine/preferences.hpp"
#include "tessarine/scheduling.hpp"
#include "tessarine/system.hpp"
#include "tessarine/values.hpp"
