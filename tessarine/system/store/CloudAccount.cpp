#include "tessarine/system/store/CloudAccount.hpp"

#include <stdexcept>
#include <utility>
#include <vector>

#include "tessarine/system/dispatch/Mutex.hpp"
#include "tessarine/system/store/EmbeddedCloudHub.hpp"
#include "tessarine/system/store/FileManager.hpp"
#include "tessarine/system/store/NSUbiquitousKeyValueStore.hpp"

namespace tessarine {
namespace {

struct Present {
  Mutex changing;  // held while account and store become another's; taken before `mutex`
  Mutex mutex;
  std::optional<CloudAccount> account TESSARINE_GUARDED_BY(mutex);

  void set(const std::optional<CloudAccount>& next) {
    const MutexLock lock(mutex);
    account = next;
  }
  static Present& shared() {
    static auto& present = *new Present;
    return present;
  }
};

std::shared_ptr<CloudTransport> transportOf(const CloudAccount& account) {
  constexpr std::string_view fileScheme = "file:";
  if (!account.hub.starts_with(fileScheme) || account.hub.size() == fileScheme.size()) {
    throw std::invalid_argument("no kind of cloud hub is known for " + account.hub);
  }
  return std::make_shared<EmbeddedCloudHub>(account.hub.substr(fileScheme.size()), account.user);
}

}  // namespace

void CloudAccount::signIn(const CloudAccount& account) { signIn(account, transportOf(account)); }

void CloudAccount::signIn(const CloudAccount& account, std::shared_ptr<CloudTransport> transport) {
  if (account.user.empty()) throw std::invalid_argument("the user of a cloud account has no name");
  auto& present = Present::shared();
  auto& store = *NSUbiquitousKeyValueStore::defaultStore();
  std::vector<std::string> keys;
  {
    const MutexLock change(present.changing);
    present.set(account);
    keys = store.enter(account.user, std::move(transport));
  }
  store.post(keys, NSUbiquitousKeyValueStoreChangeReason::accountChange);
}

void CloudAccount::signOut() {
  auto& present = Present::shared();
  const MutexLock change(present.changing);
  present.set(std::nullopt);
  NSUbiquitousKeyValueStore::defaultStore()->signOut();
}

std::optional<CloudAccount> CloudAccount::current() {
  auto& present = Present::shared();
  const MutexLock lock(present.mutex);
  return present.account;
}

FileManager& FileManager::defaultManager() {
  static FileManager manager;
  return manager;
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): of the manager
std::optional<Data> FileManager::ubiquityIdentityToken() const {
  const auto account = CloudAccount::current();
  return account ? std::optional(Data::fromText(account->user)) : std::nullopt;
}

}  // namespace tessarine
