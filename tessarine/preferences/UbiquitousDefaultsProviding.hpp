#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tessarine/export.hpp"
#include "tessarine/system/dispatch/Mutex.hpp"
#include "tessarine/system/store/NSUbiquitousKeyValueStore.hpp"
#include "tessarine/values/Date.hpp"
#include "tessarine/values/PreferenceChange.hpp"
#include "tessarine/values/PreferenceObject.hpp"

namespace tessarine {

/// A cloud key-value store as `UbiquitousController` sees it. A host may bring one of its own. Any
/// thread.
///
/// When pairs come from another machine it posts
/// `NSUbiquitousKeyValueStoreDidChangeExternallyNotification` on the default centre, with
/// `notificationObject` as object.
class TESSARINE_EXPORT UbiquitousDefaultsProviding {
 public:
  using Pairs = PreferenceObject::Dictionary;

  UbiquitousDefaultsProviding() = default;
  UbiquitousDefaultsProviding(const UbiquitousDefaultsProviding&) = delete;
  UbiquitousDefaultsProviding& operator=(const UbiquitousDefaultsProviding&) = delete;
  virtual ~UbiquitousDefaultsProviding();

  /// All pairs now in the store; what is given does not change any more.
  virtual std::shared_ptr<const Pairs> dictionaryRepresentation() const = 0;
  /// Whether what is written leaves the machine.
  virtual bool isRealCloudStore() const { return false; }
  virtual std::optional<PreferenceObject> object(std::string_view key) const = 0;
  /// Stores `value` under `key`; an absent one removes the key.
  virtual void set(std::optional<PreferenceObject> value, std::string_view key) = 0;
  virtual void removeObject(std::string_view key) = 0;
  /// Asks the store to exchange data with the cloud now.
  virtual bool synchronize() = 0;

  /// Performs all changes in order, in one step where the store knows how. False when the store
  /// refused them, and nothing is done.
  virtual bool setAll(std::span<const PreferenceChange> changes);

  /// Whether the store itself keeps of two writes of a key the one made later, on whatever machine.
  /// Then what it holds is never older than what this machine wrote, and dates need no comparing.
  virtual bool keepsLatest() const { return false; }
  /// For such a store: what was written at `written`, which takes effect only where nothing was
  /// written since. By default like `setAll` without a date.
  virtual bool setAll(std::span<const PreferenceChange> changes, Date written);

  virtual const void* notificationObject() const { return this; }
};

/// The pairs of `store` behind the interface.
TESSARINE_EXPORT std::shared_ptr<UbiquitousDefaultsProviding> ubiquitousDefaults(
    std::shared_ptr<NSUbiquitousKeyValueStore> store);

/// Stands in where the cloud may not be used: it holds nothing and takes nothing.
class TESSARINE_EXPORT NoopUbiquitousDefaultsProviding final : public UbiquitousDefaultsProviding {
 public:
  static const std::shared_ptr<NoopUbiquitousDefaultsProviding>& defaultStore();

  std::shared_ptr<const Pairs> dictionaryRepresentation() const override;
  std::optional<PreferenceObject> object(std::string_view key) const override;
  void set(std::optional<PreferenceObject> value, std::string_view key) override;
  void removeObject(std::string_view key) override;
  bool synchronize() override { return false; }
};

/// For tests: a store in memory that behaves like a peer that changes a key. Each write posts the
/// change notification for its key before it returns.
class TESSARINE_EXPORT MockUbiquitousDefaultsProviding final : public UbiquitousDefaultsProviding {
 public:
  std::shared_ptr<const Pairs> dictionaryRepresentation() const override;
  std::optional<PreferenceObject> object(std::string_view key) const override;
  void set(std::optional<PreferenceObject> value, std::string_view key) override;
  void removeObject(std::string_view key) override;
  bool synchronize() override { return true; }

  /// The keys of all writes and removals, in order.
  std::vector<std::string> recordedWriteKeys() const;

 private:
  void recordWrite(std::string_view key);
  void notifyChange(std::string_view key) const;

  mutable Mutex dictionaryLock_;
  Pairs dictionaryRepresentation_ TESSARINE_GUARDED_BY(dictionaryLock_);
  mutable Mutex recordedWriteKeysLock_;
  std::vector<std::string> lockedRecordedWriteKeys_ TESSARINE_GUARDED_BY(recordedWriteKeysLock_);
};

}  // namespace tessarine
