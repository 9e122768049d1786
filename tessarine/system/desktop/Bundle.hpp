#pragma once

#include <map>
#include <optional>
#include <shared_mutex>
#include <string>
#include <string_view>

#include "tessarine/export.hpp"
#include "tessarine/values/PreferenceObject.hpp"

namespace tessarine {

/// What belongs to the host application. Any thread.
class TESSARINE_EXPORT Bundle {
 public:
  using Strings = std::map<std::string, std::string, std::less<>>;

  Bundle(const Bundle&) = delete;
  Bundle& operator=(const Bundle&) = delete;

  /// That of the running program.
  static Bundle& main();

  /// The host's texts in the language of its user, by their keys. Takes the place of those before.
  void setLocalizedStrings(Strings strings);
  /// The text of a key; the key itself when the host has none.
  std::string localizedString(std::string_view key) const;

  /// The folder that the running program lies in; empty where the system does not tell.
  static std::string bundlePath();

  /// What the host says of itself, under its keys. Takes the place of what it said before.
  void setInfoDictionary(PreferenceObject::Dictionary dictionary);
  /// Absent until the host has said something.
  std::optional<PreferenceObject::Dictionary> infoDictionary() const;

 private:
  Bundle() = default;
  ~Bundle() = default;

  mutable std::shared_mutex mutex_;  // guards what follows
  Strings strings_;
  std::optional<PreferenceObject::Dictionary> information_;
};

}  // namespace tessarine
