#pragma once

/// Typed preferences: accessors with default, conversion, cache and mirror over a preference store.
#include "tessarine/preferences/PreferenceConversion.hpp"
#include "tessarine/preferences/UserDefaultCache.hpp"
#include "tessarine/preferences/UserDefaultConfiguration.hpp"
#include "tessarine/preferences/UserDefaultValueCache.hpp"
#include "tessarine/preferences/UserDefaults+Conveniences.hpp"
#include "tessarine/preferences/UserDefaults+PropWrapper.hpp"
#include "tessarine/preferences/UserDefaultsRepresentable.hpp"
#include "tessarine/preferences/userDefaultChanged.hpp"
#include "tessarine/system/store/UserDefaults.hpp"
