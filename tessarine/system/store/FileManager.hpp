#pragma once

#include <optional>

#include "tessarine/export.hpp"
#include "tessarine/values/Data.hpp"

namespace tessarine {

/// What the surroundings know of the user's files. Any thread.
class TESSARINE_EXPORT FileManager {
 public:
  static FileManager& defaultManager();

  /// Stands for the account that is signed in to the cloud, present exactly while there is one.
  /// Equal for the same user.
  std::optional<Data> ubiquityIdentityToken() const;

 private:
  FileManager() = default;
};

}  // namespace tessarine
