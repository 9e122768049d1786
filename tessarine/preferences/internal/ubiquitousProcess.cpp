#include "tessarine/preferences/internal/ubiquitousProcess.hpp"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <set>
#include <string>

#include "tessarine/preferences/UbiquitousController.hpp"
#include "tessarine/system/desktop/Bundle.hpp"
#include "tessarine/system/desktop/ProcessInfo.hpp"
#include "tessarine/system/dispatch/Mutex.hpp"

namespace tessarine {
namespace {

struct OptOut {
  Mutex processOptOutLock;
  bool lockedICloudSyncDisabledForCurrentProcess TESSARINE_GUARDED_BY(processOptOutLock) = false;

  static OptOut& ofProcess() {
    static auto& optOut = *new OptOut;
    return optOut;
  }
};

bool looksLikeTests() {
  for (const char* const name : {"XCTestConfigurationFilePath", "XCTestBundlePath",
                                 "XCTestSessionIdentifier", "SWIFT_TESTING_ENABLED"}) {
    if (ProcessInfo::environment(name)) return true;
  }
  const auto arguments = ProcessInfo::arguments();
  if (arguments.empty()) return false;
  std::string program = arguments.front();
  while (program.size() > 1 && program.ends_with('/')) program.pop_back();
  return std::filesystem::path(program).filename() == "xctest";
}

bool isCurrentExtensionShaped() {
  const std::string extension = std::filesystem::path(Bundle::bundlePath()).extension().string();
  return UbiquitousController::isExtensionShapedProcess(
      extension.empty() ? std::nullopt : std::optional(extension.substr(1)),
      Bundle::main().infoDictionary());
}

bool equalsIgnoringCase(std::string_view text, std::string_view lowerCase) {
  return std::equal(text.begin(), text.end(), lowerCase.begin(), lowerCase.end(),
                    [](char left, char right) {
                      return (left >= 'A' && left <= 'Z' ? left - 'A' + 'a' : left) == right;
                    });
}

std::multiset<std::string_view>& keysBeingImportedFromCloud() {
  static auto& keys = *new std::multiset<std::string_view>;
  return keys;
}

}  // namespace

namespace internal {

bool isICloudSyncDisabledForCurrentProcess() {
  auto& optOut = OptOut::ofProcess();
  const MutexLock lock(optOut.processOptOutLock);
  return optOut.lockedICloudSyncDisabledForCurrentProcess;
}

bool isRunningUnderTests() {
  static const bool isRunning = looksLikeTests();
  return isRunning;
}

bool isExtensionShapedCurrentProcess() {
  static const bool isShaped = isCurrentExtensionShaped();
  return isShaped;
}

bool isBeingImportedFromCloud(std::string_view key) {
  return keysBeingImportedFromCloud().contains(key);
}

ImportScope::ImportScope(std::string_view key) : key_(key) {
  keysBeingImportedFromCloud().insert(key_);
}

ImportScope::~ImportScope() {
  auto& keys = keysBeingImportedFromCloud();
  keys.erase(keys.find(key_));
}

}  // namespace internal

void UbiquitousController::disableICloudSyncForCurrentProcess() {
  auto& optOut = OptOut::ofProcess();
  const MutexLock lock(optOut.processOptOutLock);
  optOut.lockedICloudSyncDisabledForCurrentProcess = true;
}

bool UbiquitousController::canUseICloudKeyValueStore() {
  return !internal::isICloudSyncDisabledForCurrentProcess() && !internal::isRunningUnderTests() &&
         !internal::isExtensionShapedCurrentProcess();
}

bool UbiquitousController::isExtensionShapedProcess(
    const std::optional<std::string>& bundlePathExtension,
    const std::optional<PreferenceObject::Dictionary>& infoDictionary) {
  if (bundlePathExtension && equalsIgnoringCase(*bundlePathExtension, "appex")) return true;
  if (!infoDictionary) return false;
  if (infoDictionary->contains("NSExtension")) return true;
  const auto type = infoDictionary->find("CFBundlePackageType");
  return type != infoDictionary->end() && type->second.string() != nullptr &&
         *type->second.string() == "XPC!";
}

}  // namespace tessarine
