#include "tessarine/preferences/UbiquitousController.hpp"

#include <algorithm>
#include <any>
#include <latch>
#include <limits>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tessarine/system/desktop/NSWorkspace.hpp"
#include "tessarine/system/dispatch/MainQueue.hpp"
#include "tessarine/system/dispatch/ManualClock.hpp"
#include "tessarine/system/store/EmbeddedCloudHub.hpp"
#include "tessarine/values/ManualDate.hpp"
#include "tests/system/store/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

using Keys = std::vector<std::string>;
using Object = std::optional<PreferenceObject>;
using DataStore = UbiquitousControllerDataStore;

Date later(Date date, double seconds) {
  return Date(date.timeIntervalSinceReferenceDate() + seconds);
}

/// A controller between a domain in memory and a mock, both clocks standing still.
class UbiquitousControllerTest : public testing::Test {
 protected:
  static constexpr Date start{800'000'000};

  UbiquitousControllerTest() {
    controller_->setVesperline({[this](const std::string& text, LogType) { log_.push_back(text); },
                                {LogType::debug, LogType::verbose, LogType::error}});
  }

  /// As another machine would: the dates, then the value.
  void writeRemotely(const std::string& key, std::optional<PreferenceObject> value, Date date) {
    remote_->set(date, "udcDate." + key);
    remote_->set(std::move(value), key);
    remote_->set(date, "udcDate");  // the last, so that the notification of the key is not dropped
  }
  void notify(const Keys& keys) {
    NotificationCenter::defaultCenter().post(
        NSUbiquitousKeyValueStoreDidChangeExternallyNotification, remote_.get(),
        {{NSUbiquitousKeyValueStoreChangedKeysKey, keys}});
    clock_.settle();
  }
  void write(const std::string& key, std::optional<PreferenceObject> value) {
    date_.advance(1);
    local_->set(std::move(value), key);
    clock_.settle();
  }
  static std::optional<Date> dateIn(const std::optional<PreferenceObject>& object) {
    return dynamicCast<Date>(object);
  }
  std::size_t exportsOf(const std::string& key) const {
    const auto keys = remote_->recordedWriteKeys();
    return static_cast<std::size_t>(std::count(keys.begin(), keys.end(), key));
  }

  ManualClock clock_;
  ManualDate date_{start};
  std::shared_ptr<UserDefaults> local_ = UserDefaults::temporary();
  std::shared_ptr<MockUbiquitousDefaultsProviding> remote_ =
      std::make_shared<MockUbiquitousDefaultsProviding>();
  std::shared_ptr<UbiquitousController> controller_ =
      UbiquitousController::make(local_, remote_, true);
  std::vector<std::string> log_;
};

TEST(UbiquitousProcess, TellsExtensionsByTheirShape) {
  using Dictionary = PreferenceObject::Dictionary;
  struct Row {
    std::optional<std::string> extension;
    std::optional<Dictionary> information;
    bool isExtension;
  };
  const Row rows[] = {
      {"APPEX", std::nullopt, true},
      {"app", Dictionary{{"NSExtension", 0}}, true},
      {std::nullopt, Dictionary{{"CFBundlePackageType", "XPC!"}}, true},
      {std::nullopt, Dictionary{{"CFBundlePackageType", "xpc!"}}, false},
      {std::nullopt, Dictionary{{"CFBundlePackageType", 1}}, false},
      {"app", std::nullopt, false},
      {std::nullopt, std::nullopt, false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(UbiquitousController::isExtensionShapedProcess(row.extension, row.information),
              row.isExtension);
  }
}

TEST_F(UbiquitousControllerTest, ExportsAWriteWithItsDates) {
  controller_->startObserving({"k", "k", "a.b"});
  EXPECT_EQ(controller_->observedKeys(), Keys{"k"});
  EXPECT_EQ(log_, std::vector<std::string>{
                      "iCloud Pref: Refusing to observe dot-containing key 'a.b'; UserDefaults KVO "
                      "cannot observe key paths."});
  EXPECT_TRUE(remote_->recordedWriteKeys().empty()) << "enrolling writes nothing";

  write("k", 1);
  EXPECT_EQ(remote_->recordedWriteKeys(), (Keys{"udcDate", "udcDate.k", "k"}));
  EXPECT_EQ(remote_->object("k"), PreferenceObject(1));
  EXPECT_EQ(dateIn(local_->object("udcDate.k")), later(start, 1));
  EXPECT_EQ(local_->object("udcDate.k"), remote_->object("udcDate.k"));
  EXPECT_EQ(dateIn(remote_->object("udcDate")), later(start, 1));
  EXPECT_EQ(dateIn(local_->object("udcDate")), later(start, 1));

  write("k", std::nullopt);
  EXPECT_EQ(remote_->object("k"), std::nullopt);
  EXPECT_EQ(dateIn(remote_->object("udcDate.k")), later(start, 2));
  EXPECT_EQ(local_->object("udcDate.k"), remote_->object("udcDate.k"));

  // Disabled, the base date is still noted.
  controller_->setEnabled(false);
  write("k", 2);
  EXPECT_EQ(remote_->object("k"), std::nullopt);
  EXPECT_EQ(dateIn(local_->object("udcDate")), later(start, 3));
  controller_->setEnabled(true);
  controller_->stopObserving({"k", "unknown"});
  write("k", 3);
  EXPECT_EQ(exportsOf("k"), 2U);
}

TEST_F(UbiquitousControllerTest, ImportsWhatIsNewerAndDoesNotSendItBack) {
  controller_->startObserving({"k"});
  std::vector<std::string> posts;
  const auto token = NotificationCenter::defaultCenter().addObserver(
      UbiquitousController::keysDidChangeOnCloudNotification, controller_.get(),
      [&](const Notification&) { posts.emplace_back("post"); });
  int calls = 0;
  const auto observation = local_->observe("k", [&](const auto&) { ++calls; });

  writeRemotely("k", 5, later(start, 10));
  notify({"k", "unenrolled"});
  EXPECT_EQ(dynamicCast<int>(local_->object("k")), 5);
  EXPECT_EQ(dateIn(local_->object("udcDate.k")), later(start, 10));
  EXPECT_EQ(calls, 1) << "one import, one call";
  EXPECT_EQ(exportsOf("k"), 1U) << "only the peer's own write";
  EXPECT_TRUE(posts.empty());
  clock_.advance(0.11);
  EXPECT_EQ(posts.size(), 1U);

  // Equal key dates: stale, told; equal base dates: dropped in silence.
  log_.clear();
  local_->set(later(start, 5), "udcDate");
  notify({"k"});
  EXPECT_EQ(log_, std::vector<std::string>{"iCloud Pref: Ignored stale remote change for 'k'."});
  log_.clear();
  local_->set(later(start, 10), "udcDate");
  remote_->set(later(start, 20), "udcDate.k");
  notify({"k"});
  EXPECT_TRUE(log_.empty());
  EXPECT_EQ(dateIn(local_->object("udcDate.k")), later(start, 10));

  // A removal elsewhere.
  date_.set(later(start, 15));
  writeRemotely("k", std::nullopt, later(start, 30));
  notify({"k"});
  EXPECT_EQ(local_->object("k"), std::nullopt);
  EXPECT_EQ(dateIn(local_->object("udcDate.k")), later(start, 30));
}

TEST_F(UbiquitousControllerTest, IgnoresNotificationsThatMakeNoSense) {
  controller_->startObserving({"k"});
  auto& center = NotificationCenter::defaultCenter();
  constexpr auto name = NSUbiquitousKeyValueStoreDidChangeExternallyNotification;
  constexpr auto keys = NSUbiquitousKeyValueStoreChangedKeysKey;
  notify({"k"});  // no base date in the cloud
  remote_->set("no date", "udcDate");
  notify({"k"});
  remote_->set(7, "k");
  remote_->set("no date", "udcDate.k");
  remote_->set(later(start, 1), "udcDate");
  center.post(name, remote_.get());
  center.post(name, remote_.get(), {{keys, std::string("k")}});
  center.post(name, remote_.get(), {{keys, 1}});
  notify({});
  clock_.settle();
  EXPECT_EQ(local_->object("k"), std::nullopt);
  // Never dated here: the key takes what the cloud has; a date of another type counts as missing.
  notify({"k"});
  EXPECT_EQ(dynamicCast<int>(local_->object("k")), 7);
  EXPECT_EQ(local_->object("udcDate.k"), std::nullopt);
  for (const double seconds :
       {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()}) {
    remote_->set(Date(seconds), "udcDate");
    remote_->set(Date(seconds), "udcDate.k");
    notify({"k"});
  }
  EXPECT_EQ(dynamicCast<int>(local_->object("k")), 7);
}

TEST_F(UbiquitousControllerTest, SyncsKeysTheWayTheirDatesSay) {
  local_->set(1, "lacking");
  local_->set(1, "removed");
  local_->set(start, "udcDate.removed");
  remote_->set(later(start, 1), "udcDate.removed");
  local_->set(1, "older");
  local_->set(later(start, 2), "udcDate.older");
  remote_->set(0, "older");
  remote_->set(later(start, 1), "udcDate.older");
  controller_->startObserving({"lacking", "removed", "older"});
  controller_->sync({"lacking", "removed", "older"});
  clock_.settle();
  EXPECT_EQ(remote_->object("lacking"), PreferenceObject(1));
  EXPECT_EQ(local_->object("removed"), std::nullopt);
  EXPECT_EQ(dateIn(local_->object("udcDate.removed")), later(start, 1));
  EXPECT_EQ(remote_->object("older"), PreferenceObject(1)) << "the local value goes out again";

  // The cloud has nothing of the key, and is asked to win.
  remote_->removeObject("lacking");
  remote_->removeObject("udcDate.lacking");
  controller_->sync({"lacking"}, DataStore::remote);
  clock_.settle();
  EXPECT_EQ(local_->object("lacking"), std::nullopt);
  EXPECT_EQ(local_->object("udcDate.lacking"), std::nullopt);
}

TEST_F(UbiquitousControllerTest, SyncsEverythingFromTheSideWithTheLaterDate) {
  controller_->setDebugEnabled(true);
  controller_->startObserving({"k", "gone"});
  remote_->set(1, "gone");
  local_->set(2, "k");
  clock_.settle();
  log_.clear();
  controller_->sync();
  EXPECT_EQ(log_.front(), "iCloud Pref: Started synchronization FROM iCloud")
      << "equal base dates: the cloud";
  log_.clear();
  local_->set(later(start, 100), "udcDate");
  controller_->sync();
  EXPECT_EQ(log_,
            (Keys{"iCloud Pref: Started synchronization TO iCloud.", "iCloud Pref: syncToCloud: ",
                  "iCloud Pref: Synchronized key 'k' with value '2' TO iCloud.",
                  "iCloud Pref: Synchronized key 'gone' with value 'nil' TO iCloud.",
                  "iCloud Pref: Finished synchronization TO iCloud."}));
  EXPECT_EQ(remote_->object("gone"), std::nullopt) << "missing here, so removed there";

  // From the cloud everything comes, enrolled or not, and nothing is removed.
  remote_->set(9, "unenrolled");
  remote_->removeObject("k");
  controller_->sync({}, DataStore::remote);
  clock_.settle();
  EXPECT_EQ(dynamicCast<int>(local_->object("unenrolled")), 9);
  EXPECT_EQ(dynamicCast<int>(local_->object("k")), 2);
  EXPECT_EQ(local_->object("udcDate"), remote_->object("udcDate"));

  // Disabled: the frame of a whole sync is logged, a keyed one says nothing.
  controller_->setEnabled(false);
  log_.clear();
  controller_->sync({"k"}, DataStore::local);
  EXPECT_TRUE(log_.empty());
  controller_->sync({}, DataStore::local);
  EXPECT_EQ(log_.size(), 2U);
}

TEST_F(UbiquitousControllerTest, CopiesImportsToMirrors) {
  const TemporaryFolder folder;
  UserDefaults::setDirectory(folder / "");
  const auto mirror = UserDefaults::suite("mirror");
  controller_->mirrorCloudImports("k", "mirror");
  controller_->mirrorCloudImports("k", "no/such");
  // The mirror's own controller observes the key too, and does not take the import for a change.
  const auto other = UbiquitousController::make(mirror, remote_, true);
  other->startObserving({"k"});
  controller_->startObserving({"k"});
  writeRemotely("k", 5, later(start, 10));
  notify({"k"});
  EXPECT_EQ(dynamicCast<int>(mirror->object("k")), 5);
  EXPECT_EQ(exportsOf("k"), 1U);
  writeRemotely("k", std::nullopt, later(start, 20));
  notify({"k"});
  EXPECT_EQ(mirror->object("k"), std::nullopt);
}

TEST_F(UbiquitousControllerTest, TakesKeysInWhileItSendsOthers) {
  local_->set(1, "a");
  local_->set(1, "b");
  controller_->startObserving({"a", "b"});
  int count = 0;
  const auto token = NotificationCenter::defaultCenter().addObserver(
      NSUbiquitousKeyValueStoreDidChangeExternallyNotification, remote_.get(),
      [&](const Notification&) {
        Keys keys{"b"};
        controller_->stopObserving(keys);
        for (int i = 0; i < 50; ++i) keys.push_back("new" + std::to_string(++count));
        controller_->startObserving(keys);
      });
  controller_->sync({}, DataStore::local);
  EXPECT_EQ(remote_->object("a"), PreferenceObject(1));
  EXPECT_EQ(remote_->object("b"), PreferenceObject(1));
  clock_.settle();
}

TEST_F(UbiquitousControllerTest, RegistersOnceAndLeavesNothingBehind) {
  controller_->start(true);
  controller_->start(true);
  controller_->startObserving({"k"});
  remote_->set(later(start, 1), "udcDate");
  remote_->set(1, "k");
  clock_.settle();
  log_.clear();
  notify({"k"});
  EXPECT_EQ(log_, std::vector<std::string>{"iCloud Pref: syncFromCloud: k"});
  const std::weak_ptr<UbiquitousController> weak = controller_;
  controller_.reset();
  clock_.settle();
  EXPECT_TRUE(weak.expired());
  NSWorkspace::shared().notificationCenter().post(NSWorkspaceDidWakeNotification);
  notify({"k"});
  local_->set(3, "k");
  clock_.settle();
  EXPECT_EQ(remote_->object("k"), PreferenceObject(1));
}

/// A cloud store whose writes wait at a gate, and with them the controller's queue.
class GatedStore final : public UbiquitousDefaultsProviding {
 public:
  std::shared_ptr<const Pairs> dictionaryRepresentation() const override {
    return std::make_shared<Pairs>();
  }
  Object object(std::string_view /*key*/) const override { return std::nullopt; }
  void set(Object /*value*/, std::string_view /*key*/) override { gate.wait(); }
  void removeObject(std::string_view /*key*/) override { gate.wait(); }
  bool synchronize() override { return true; }

  std::latch gate{1};
};

TEST(UbiquitousThreads, AWriterNeverWaitsForTheQueue) {
  const auto local = UserDefaults::temporary();
  const auto gated = std::make_shared<GatedStore>();
  const auto controller = UbiquitousController::make(local, gated, true);
  controller->setVesperline({nullptr, {}});
  controller->startObserving({"k"});
  for (int i = 0; i < 100; ++i) local->set(i, "k");  // would stand still here
  gated->gate.count_down();
  EXPECT_EQ(controller->observedKeys(), Keys{"k"});
}

TEST(UbiquitousThreads, ControllersComeAndGoWhileBothSidesWrite) {
  const auto local = UserDefaults::temporary();
  const auto remote = std::make_shared<MockUbiquitousDefaultsProviding>();
  const auto writeOn = [&](auto write) {
    return std::thread([write] {
      for (int i = 0; i < 300; ++i) write(i);
    });
  };
  std::thread writers[] = {
      writeOn([&](int i) { local->set(i, "k"); }),
      writeOn([&](int i) {
        remote->set(Date::now(), "udcDate");
        remote->set(i, "k");
      }),
  };
  for (int round = 0; round < 30; ++round) {
    auto controller = UbiquitousController::make(local, remote, true);
    controller->setVesperline({nullptr, {}});
    controller->start(true);
    controller->startObserving({"k", "l"});
    std::thread other([&] {  // from the main thread and another, neither waits for the main queue
      controller->sync({"k"});
      controller->setEnabled(round % 3 != 0);
    });
    controller->sync({"k", "l"}, DataStore::remote);
    controller->stopObserving({"l"});
    other.join();
    if (round % 2 == 0) controller.reset();
    MainQueue::drain();
  }
  for (auto& writer : writers) writer.join();
  while (MainQueue::drain() > 0) continue;
}

/// A controller on a store that keeps the later write.
class RealStoreTest : public testing::Test {
 protected:
  using Store = NSUbiquitousKeyValueStore;

  static std::shared_ptr<Store> open() {
    return Store::open("", {.limits = {.bytesOfValue = 100}, .exchangesByItself = false});
  }
  RealStoreTest() {
    controller_->setVesperline({nullptr, {}});
    controller_->startObserving({"k"});
    store_->signIn("ann", std::make_shared<EmbeddedCloudHub>(folder_ / "hub", "ann"));
    other_->signIn("ann", std::make_shared<EmbeddedCloudHub>(folder_ / "hub", "ann"));
  }
  void write(PreferenceObject value) {
    date_.advance(1);
    local_->set(std::move(value), "k");
    clock_.settle();
  }
  void exchange() {
    store_->exchange();
    other_->exchange();
    store_->exchange();
    clock_.settle();
  }

  const TemporaryFolder folder_;
  ManualClock clock_;
  ManualDate date_{Date(800'000'000)};
  std::shared_ptr<UserDefaults> local_ = UserDefaults::temporary();
  std::shared_ptr<Store> store_ = open();
  std::shared_ptr<Store> other_ = open();
  std::shared_ptr<UbiquitousController> controller_ =
      UbiquitousController::make(local_, ubiquitousDefaults(store_), true);
};

TEST_F(RealStoreTest, ARefusedWriteStaysHere) {
  write(1);
  const PreferenceObject large(std::string(200, 'x'));
  write(large);
  exchange();
  EXPECT_EQ(local_->object("k"), large) << "the former value does not come back";
  EXPECT_EQ(other_->object("k"), PreferenceObject(1));
  controller_->stopObserving({"k"});
  controller_->startObserving({"k"});
  clock_.settle();
  EXPECT_EQ(local_->object("k"), large);
  store_->setLimits({});
  controller_->sync({"k"});
  clock_.settle();
  exchange();
  EXPECT_EQ(other_->object("k"), large) << "once it may";
  // What another machine writes later takes its place all the same.
  date_.advance(1);
  other_->setAll(std::vector<PreferenceChange>{
      {"udcDate", Date::now()}, {"udcDate.k", Date::now()}, {"k", 3}});
  exchange();
  exchange();
  EXPECT_EQ(local_->object("k"), PreferenceObject(3));
}

TEST_F(RealStoreTest, SendsWhatAnObserverAnswersToAnImport) {
  write(1);
  exchange();
  const auto observation = local_->observe("k", [&](const auto&) {
    if (dynamicCast<int>(local_->object("k")) > 10) local_->set(10, "k");
  });
  date_.advance(1);
  other_->setAll(std::vector<PreferenceChange>{{"udcDate.k", Date::now()}, {"k", 99}});
  date_.advance(1);
  exchange();
  exchange();
  EXPECT_EQ(local_->object("k"), PreferenceObject(10));
  EXPECT_EQ(other_->object("k"), PreferenceObject(10));
}

}  // namespace
}  // namespace tessarine
