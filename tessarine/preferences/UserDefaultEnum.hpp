#pragma once

#include <concepts>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include "tessarine/preferences/PreferenceAccessor.hpp"
#include "tessarine/preferences/PreferenceConversion.hpp"
#include "tessarine/preferences/UserDefaultConfiguration.hpp"
#include "tessarine/preferences/userDefaultChanged.hpp"
#include "tessarine/system/store/UserDefaults.hpp"
#include "tessarine/values/EnumCases.hpp"
#include "tessarine/values/NSNumber.hpp"

namespace tessarine {

/// What a preference that is an enumeration may ask for besides its key.
template <class T>
struct UserDefaultEnumOptions {
  /// What a read gives when the store has no number, or one that is no case.
  T defaultValue;
  /// The domain; the standard one when absent, and also when no domain can have that name.
  std::optional<std::string> suiteName = std::nullopt;
  /// A second domain that every write goes to as well. No mirror when no domain can have that name.
  std::optional<std::string> copyToSuiteName = std::nullopt;
  /// Keep the value in memory until somebody else changes the key.
  bool cacheValues = false;
  /// Applied to every value that a read returns, never to what is stored or cached.
  std::function<T(T)> alternateValueCallback = nullptr;
  /// Keep the key in step with the user's other machines, where a cloud store can be used.
  bool iCloud = false;
  /// The store itself, for domains that have no suite name, such as temporary ones.
  std::shared_ptr<UserDefaults> userDefaults = nullptr;
  std::shared_ptr<UserDefaults> copyToUserDefaults = nullptr;
};

namespace detail {

/// An enumeration stored as a number of the type `Stored`, a signed or unsigned 64-bit integer.
template <class T, class Stored>
class EnumAccessor : public PreferenceAccessor<T, T, CachedAbsence::isMiss> {
  static_assert(EnumWithIntegerCases<T>,
                "tell which values of the enumeration are its cases, with integers as raw values, "
                "by specialising tessarine::EnumCases (tessarine/values/EnumCases.hpp)");

 public:
  EnumAccessor(std::string key, const UserDefaultEnumOptions<T>& options)
      : PreferenceAccessor<T, T, CachedAbsence::isMiss>(std::move(key), options) {}

  T wrappedValue() const {
    return this->readValue([](const auto& object) { return caseOf(object); });
  }

  /// Stores the raw value of `newValue` in store and mirror; also when nothing changes. Returns
  /// when that is safe from the death of the process.
  void setWrappedValue(T newValue) {
    const auto form = [&] { return PreferenceObject(numberOf(newValue)); };
    if (!UserDefaultConfiguration::publishesOwnChanges()) {
      this->writeValue(newValue, form, [] {});
      return;
    }
    std::shared_ptr<UserDefaults> found;
    const bool wasStored = this->store(found)->object(this->key_).has_value();
    const T oldValue = wrappedValue();
    this->writeValue(newValue, form, [&] {
      publishEnumWrapperOwnedChange(this->key_, oldValue, newValue,
                                    wasStored ? std::optional(numberOf(oldValue)) : std::nullopt,
                                    numberOf(newValue));
    });
  }

 private:
  static NSNumber numberOf(T value) noexcept {
    return static_cast<Stored>(static_cast<std::underlying_type_t<T>>(value));
  }

  static std::optional<T> caseOf(const std::optional<PreferenceObject>& object) {
    const auto number = userDefaultNumberValue(object);
    if (!number) return std::nullopt;
    const std::int64_t value = number->longLongValue();
    if (std::is_unsigned_v<Stored> && value < 0) return std::nullopt;
    const auto raw = NSNumber(value).exactly<RawValueOf<T>>();
    return raw ? enumFromRawValue<T>(*raw) : std::nullopt;
  }
};

}  // namespace detail

/// A typed preference that is an enumeration, stored as its raw value, a signed 64-bit integer. The
/// host tells once by `EnumCases` which values are cases; a stored number that is none reads as
/// `defaultValue` and stays stored until the next write. A numeric text is as good as a number, and
/// a fraction is cut off.
///
/// ```cpp
/// enum class Size { small = 1, large = 2 };
/// template <> struct tessarine::EnumCases<Size> {
///   static constexpr std::array all{Size::small, Size::large};
/// };
/// tessarine::UserDefaultIntEnum<Size> size{"size", {.defaultValue = Size::small}};
/// ```
///
/// A value type: copies share store and cache. Threads, exceptions and costs are those of
/// `UserDefaultNullable`, but a write reads the old value only to publish it. Raw values beyond
/// the range of the stored integer are a breach of contract: what is stored is not defined then.
template <class T>
class UserDefaultIntEnum : public detail::EnumAccessor<T, std::int64_t> {
  using detail::EnumAccessor<T, std::int64_t>::EnumAccessor;
};

/// The same stored as an unsigned 64-bit integer. A negative stored number is no case; neither is
/// one from 2^63 on, which is written but reads back as `defaultValue`.
template <class T>
class UserDefaultUIntEnum : public detail::EnumAccessor<T, std::uint64_t> {
  using detail::EnumAccessor<T, std::uint64_t>::EnumAccessor;
};

}  // namespace tessarine
