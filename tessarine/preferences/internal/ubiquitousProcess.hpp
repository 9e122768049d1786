#pragma once

#include <string_view>

namespace tessarine::internal {

/// Whether the process has opted out of the cloud, is a test process, has the shape of an
/// extension. The latter two are found out once.
bool isICloudSyncDisabledForCurrentProcess();
bool isRunningUnderTests();
bool isExtensionShapedCurrentProcess();

/// Whether an import is just writing `key`. For the main thread only, as imports are.
bool isBeingImportedFromCloud(std::string_view key);

/// Marks `key` as being imported for a scope. For the main thread only.
class ImportScope {
 public:
  explicit ImportScope(std::string_view key);
  ~ImportScope();
  ImportScope(const ImportScope&) = delete;
  ImportScope& operator=(const ImportScope&) = delete;

 private:
  const std::string_view key_;
};

}  // namespace tessarine::internal
