#pragma once

/// Loosely typed values that pass through encoders, and one-line JSON.
#include "tessarine/codable/Codable+JSON.hpp"
#include "tessarine/codable/CodableAnyHashable.hpp"
#include "tessarine/codable/CodableDictionary.hpp"
#include "tessarine/codable/Data+Helpers.hpp"
