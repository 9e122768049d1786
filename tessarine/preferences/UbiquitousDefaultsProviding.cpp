#include "tessarine/preferences/UbiquitousDefaultsProviding.hpp"

#include <utility>

#include "tessarine/system/store/NotificationCenter.hpp"

namespace tessarine {

// ---- the interface ----

UbiquitousDefaultsProviding::~UbiquitousDefaultsProviding() = default;

bool UbiquitousDefaultsProviding::setAll(std::span<const PreferenceChange> changes) {
  for (const auto& [key, value] : changes) {
    if (value) {
      set(value, key);
    } else {
      removeObject(key);
    }
  }
  return true;
}

bool UbiquitousDefaultsProviding::setAll(std::span<const PreferenceChange> changes,
                                         Date /*written*/) {
  return setAll(changes);
}

// ---- the real one ----

namespace {

class CloudStoreDefaults final : public UbiquitousDefaultsProviding {
 public:
  explicit CloudStoreDefaults(std::shared_ptr<NSUbiquitousKeyValueStore> store)
      : store_(std::move(store)) {}

  std::shared_ptr<const Pairs> dictionaryRepresentation() const override {
    return store_->dictionaryRepresentation();
  }
  bool isRealCloudStore() const override { return true; }
  std::optional<PreferenceObject> object(std::string_view key) const override {
    return store_->object(key);
  }
  void set(std::optional<PreferenceObject> value, std::string_view key) override {
    store_->set(std::move(value), key);
  }
  void removeObject(std::string_view key) override { store_->removeObject(key); }
  bool synchronize() override { return store_->synchronize(); }
  bool setAll(std::span<const PreferenceChange> changes) override {
    return store_->setAll(changes);
  }
  bool keepsLatest() const override { return true; }
  bool setAll(std::span<const PreferenceChange> changes, Date written) override {
    return store_->setAll(changes, written);
  }
  const void* notificationObject() const override { return store_.get(); }

 private:
  const std::shared_ptr<NSUbiquitousKeyValueStore> store_;
};

}  // namespace

std::shared_ptr<UbiquitousDefaultsProviding> ubiquitousDefaults(
    std::shared_ptr<NSUbiquitousKeyValueStore> store) {
  return std::make_shared<CloudStoreDefaults>(std::move(store));
}

// ---- none ----

const std::shared_ptr<NoopUbiquitousDefaultsProviding>&
NoopUbiquitousDefaultsProviding::defaultStore() {
  static auto& store = *new std::shared_ptr(std::make_shared<NoopUbiquitousDefaultsProviding>());
  return store;
}

std::shared_ptr<const UbiquitousDefaultsProviding::Pairs>
NoopUbiquitousDefaultsProviding::dictionaryRepresentation() const {
  return std::make_shared<Pairs>();
}

std::optional<PreferenceObject> NoopUbiquitousDefaultsProviding::object(
    std::string_view /*key*/) const {
  return std::nullopt;
}

void NoopUbiquitousDefaultsProviding::set(std::optional<PreferenceObject> /*value*/,
                                          std::string_view /*key*/) {}

void NoopUbiquitousDefaultsProviding::removeObject(std::string_view /*key*/) {}

// ---- in memory ----

std::shared_ptr<const UbiquitousDefaultsProviding::Pairs>
MockUbiquitousDefaultsProviding::dictionaryRepresentation() const {
  const MutexLock lock(dictionaryLock_);
  return std::make_shared<Pairs>(dictionaryRepresentation_);
}

std::optional<PreferenceObject> MockUbiquitousDefaultsProviding::object(
    std::string_view key) const {
  const MutexLock lock(dictionaryLock_);
  const auto found = dictionaryRepresentation_.find(key);
  return found != dictionaryRepresentation_.end() ? std::optional(found->second) : std::nullopt;
}

void MockUbiquitousDefaultsProviding::set(std::optional<PreferenceObject> value,
                                          std::string_view key) {
  {
    const MutexLock lock(dictionaryLock_);
    if (value) {
      dictionaryRepresentation_.insert_or_assign(std::string(key), *std::move(value));
    } else {
      dictionaryRepresentation_.erase(std::string(key));
    }
  }
  recordWrite(key);
  notifyChange(key);
}

void MockUbiquitousDefaultsProviding::removeObject(std::string_view key) { set(std::nullopt, key); }

std::vector<std::string> MockUbiquitousDefaultsProviding::recordedWriteKeys() const {
  const MutexLock lock(recordedWriteKeysLock_);
  return lockedRecordedWriteKeys_;
}

void MockUbiquitousDefaultsProviding::recordWrite(std::string_view key) {
  const MutexLock lock(recordedWriteKeysLock_);
  lockedRecordedWriteKeys_.emplace_back(key);
}

void MockUbiquitousDefaultsProviding::notifyChange(std::string_view key) const {
  NotificationCenter::defaultCenter().post(
      NSUbiquitousKeyValueStoreDidChangeExternallyNotification, this,
      {{NSUbiquitousKeyValueStoreChangeReasonKey, 0},
       {NSUbiquitousKeyValueStoreChangedKeysKey, std::vector<std::string>{std::string(key)}}});
}

}  // namespace tessarine
