// What holds for a whole process is tried in processes of their own, each with its own folder.
#include <cstdlib>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "tessarine/preferences.hpp"
#include "tessarine/system/dispatch/MainQueue.hpp"
#include "tessarine/system/store/EmbeddedCloudHub.hpp"
#include "tessarine/system/store/FileManager.hpp"
#include "tests/system/store/support/ChildProcess.hpp"
#include "tests/system/store/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

/// Runs `body` in a process of its own and shows there what did not hold.
template <class Body>
void inProcess(Body body) {
  const TemporaryFolder folder;
  ChildProcess child([&](const Channel& /*parent*/) {
    UserDefaults::setDirectory(folder / "prefs");
    body(folder);
    return !testing::Test::HasFailure();
  });
  EXPECT_TRUE(child.end());
}

/// Runs what waits on the controller's queue and the main queue.
void settle(UbiquitousController& controller) {
  do {
    static_cast<void>(controller.observedKeys());
  } while (MainQueue::drain() > 0);
}

const auto silent = Vesperline(nullptr, {});

TEST(CloudProcessDeathTest, AccessorsEnrolTheirKeys) {
  inProcess([](const TemporaryFolder& folder) {
    const std::string hub = folder / "hub";
    EXPECT_EQ(FileManager::defaultManager().ubiquityIdentityToken(), std::nullopt);
    EXPECT_THROW(CloudAccount::signIn({.user = "ann", .hub = "ftp://x"}), std::invalid_argument);
    EXPECT_THROW(CloudAccount::signIn({.user = "", .hub = "file:" + hub}), std::invalid_argument);
    UserDefault<int> size{"size", {.defaultValue = 1, .copyToSuiteName = "mirror", .iCloud = true}};
    const auto controller = size.ubiquitousController();
    ASSERT_EQ(controller, UbiquitousController::shared());
    EXPECT_EQ(controller, UbiquitousController::controller(std::nullopt, false));
    EXPECT_TRUE(controller->isEnabled());
    EXPECT_TRUE(controller->remoteDefaults()->isRealCloudStore());
    const UserDefaultNullable<int> other{"other", {.suiteName = "suite", .iCloud = true}};
    EXPECT_EQ(other.ubiquitousController(), UbiquitousController::controller("suite", false));
    EXPECT_EQ(UserDefault<int>("local", {.defaultValue = 1}).ubiquitousController(), nullptr);
    controller->setVesperline(silent);

    // Without an account the values wait; they go out when somebody signs in.
    size.setWrappedValue(12);
    settle(*controller);
    const auto store = NSUbiquitousKeyValueStore::defaultStore();
    EXPECT_EQ(store->object("size"), PreferenceObject(12));
    EXPECT_FALSE(store->synchronize());
    CloudAccount::signIn({.user = "ann", .hub = "file:" + hub});
    EXPECT_TRUE(FileManager::defaultManager().ubiquityIdentityToken().has_value());
    EXPECT_EQ(store->exchange().error, "");

    const auto remote =
        NSUbiquitousKeyValueStore::open(folder / "remote", {.exchangesByItself = false});
    remote->signIn("ann", std::make_shared<EmbeddedCloudHub>(hub, "ann"));
    remote->exchange();
    EXPECT_EQ(remote->object("size"), PreferenceObject(12));
    remote->setAll(std::vector<PreferenceChange>{{"size", 14}, {"udcDate.size", Date::now()}});
    remote->exchange();
    // The store's own thread may come first; both ways end in the same import.
    store->exchange();
    while (size.wrappedValue() != 14) settle(*controller);
    EXPECT_EQ(dynamicCast<int>(UserDefaults::suite("mirror")->object("size")), 14);
    CloudAccount::signOut();
    EXPECT_EQ(FileManager::defaultManager().ubiquityIdentityToken(), std::nullopt);
  });
}

TEST(CloudProcessDeathTest, OptingOutEndsTheExchangeForGood) {
  inProcess([](const TemporaryFolder& /*folder*/) {
    auto& shared = *UbiquitousController::shared();
    shared.setVesperline(silent);
    shared.startObserving({"k"});
    UserDefaults::standard()->set(1, "k");
    settle(shared);
    UbiquitousController::disableICloudSyncForCurrentProcess();
    EXPECT_FALSE(UbiquitousController::canUseICloudKeyValueStore());
    UserDefaults::standard()->set(2, "k");
    settle(shared);
    EXPECT_EQ(shared.remoteDefaults()->object("k"), PreferenceObject(1));
    const auto suite = UbiquitousController::controller("suite", true);
    EXPECT_EQ(suite->remoteDefaults(), NoopUbiquitousDefaultsProviding::defaultStore());
    EXPECT_FALSE(suite->remoteDefaults()->synchronize());
    suite->setVesperline(silent);
    suite->startObserving({"k"});
    suite->localDefaults()->set(1, "k");
    settle(*suite);
    EXPECT_TRUE(suite->localDefaults()->object("udcDate.k").has_value())
        << "an export runs to its end against the store that holds nothing";
    EXPECT_EQ(UserDefault<int>("k", {.defaultValue = 0, .iCloud = true}).ubiquitousController(),
              nullptr);
  });
}

/// A hub that nothing comes from.
class EmptyHub : public CloudTransport {
 public:
  News pull(const UUID& /*replica*/, const std::string& /*position*/) override { return {}; }
  void push(std::span<const CloudEntry> /*entries*/) override {}
};

TEST(CloudProcessDeathTest, AccountAndStoreAreOfOneUser) {
  inProcess([](const TemporaryFolder& /*folder*/) {
    const auto store = NSUbiquitousKeyValueStore::defaultStore();
    for (int round = 0; round < 100; ++round) {
      std::vector<std::thread> threads;
      for (const std::string user : {"ann", "bob", ""}) {
        threads.emplace_back([user] {
          if (user.empty()) return CloudAccount::signOut();
          CloudAccount::signIn({.user = user, .hub = "none"}, std::make_shared<EmptyHub>());
        });
      }
      for (auto& thread : threads) thread.join();
      const auto account = CloudAccount::current();
      const auto status = store->status();
      ASSERT_EQ(account.has_value(), status.isSignedIn);
      if (account) {
        ASSERT_EQ(account->user, status.user);
      }
    }
    CloudAccount::signOut();
  });
}

TEST(CloudProcessDeathTest, TestProcessesStayLocal) {
  inProcess([](const TemporaryFolder& /*folder*/) {
    ::setenv("SWIFT_TESTING_ENABLED", "", 1);
    EXPECT_FALSE(UbiquitousController::canUseICloudKeyValueStore());
    EXPECT_FALSE(UbiquitousController::shared()->remoteDefaults()->isRealCloudStore());
  });
}

}  // namespace
}  // namespace tessarine
