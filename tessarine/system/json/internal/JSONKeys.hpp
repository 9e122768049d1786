#pragma once

#include <string>
#include <string_view>

#include "tessarine/coding/CodingPathNode.hpp"
#include "tessarine/system/json/JSONStrategies.hpp"

namespace tessarine::internal {

/// The key under which a member that the host calls `key` is written in the object at `path`.
std::string writtenJSONKey(const JSONKeyStrategy& strategy, std::string_view key,
                           const CodingPathNode* path);

/// What the host calls the member that is written under `key` in the object at `path`.
std::string readJSONKey(const JSONKeyStrategy& strategy, std::string_view key,
                        const CodingPathNode* path);

}  // namespace tessarine::internal
