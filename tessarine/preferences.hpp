#pragma once

/// Typed preferences: accessors with default, conversion, cache and mirror over a preference store,
/// and the controller that keeps keys in step between a user's machines.
#include "tessarine/preferences/PreferenceAccessor.hpp"
#include "tessarine/preferences/PreferenceConversion.hpp"
#include "tessarine/preferences/UbiquitousController.hpp"
#include "tessarine/preferences/UbiquitousDefaultsProviding.hpp"
#include "tessarine/preferences/UserDefaultCache.hpp"
#include "tessarine/preferences/UserDefaultConfiguration.hpp"
#include "tessarine/preferences/UserDefaultEnum.hpp"
#include "tessarine/preferences/UserDefaultNullable.hpp"
#include "tessarine/preferences/UserDefaultValueCache.hpp"
#include "tessarine/preferences/UserDefaults+Conveniences.hpp"
#include "tessarine/preferences/UserDefaults+PropWrapper.hpp"
#include "tessarine/preferences/UserDefaultsRepresentable.hpp"
#include "tessarine/preferences/Vesperline.hpp"
#include "tessarine/preferences/userDefaultChanged.hpp"
#include "tessarine/system/store/CloudAccount.hpp"
#include "tessarine/system/store/UserDefaults.hpp"
