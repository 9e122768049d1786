#include "tessarine/system/store/UserDefaults.hpp"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <unordered_map>
#include <vector>

#include "tessarine/system/dispatch/Mutex.hpp"
#include "tessarine/system/store/internal/Domain.hpp"
#include "tessarine/values/NSNull.hpp"

#include <pwd.h>
#include <unistd.h>

namespace tessarine {
namespace {

constexpr auto standardName = "standard";
constexpr std::size_t longestName = 200;

bool isFileName(std::string_view name) {
  return !name.empty() && name.size() <= longestName && name != "." && name != ".." &&
         name.find('/') == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

std::string homeDirectory() {
  std::vector<char> buffer(1024);
  passwd entry{};
  passwd* found = nullptr;
  while (::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found) == ERANGE) {
    buffer.resize(buffer.size() * 2);
  }
  return found != nullptr ? found->pw_dir : "/";
}

std::string userDirectory() {
  return homeDirectory() + "/.config/" + ::program_invocation_short_name;
}

std::any anyOf(const detail::Domain::Object& object) {
  return object ? std::any(*object) : std::any(NSNull());
}

bool asksFor(KeyValueObservingOptions options, KeyValueObservingOptions option) {
  return (static_cast<unsigned>(options) & static_cast<unsigned>(option)) != 0;
}

ChangeDictionary changeDictionary(const detail::Domain::Object& before,
                                  const detail::Domain::Object& now,
                                  KeyValueObservingOptions options) {
  ChangeDictionary change{{NSKeyValueChangeKindKey, 1}};
  if (asksFor(options, KeyValueObservingOptions::newValue)) {
    change.emplace(NSKeyValueChangeNewKey, anyOf(now));
  }
  if (asksFor(options, KeyValueObservingOptions::oldValue)) {
    change.emplace(NSKeyValueChangeOldKey, anyOf(before));
  }
  return change;
}

struct NameHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view name) const noexcept {
    return std::hash<std::string_view>{}(name);
  }
};

std::vector<detail::Domain::Write> writesOf(std::span<const PreferenceChange> changes) {
  std::vector<detail::Domain::Write> writes;
  writes.reserve(changes.size());
  for (const auto& change : changes) writes.push_back({change.key, change.value});
  return writes;
}

}  // namespace

/// The domains of the process, by the path of their files. Never destroyed, since statics of hosts
/// may outlive ours; at exit the journals are carried into the databases.
struct UserDefaultsRegistry {
  Mutex mutex;
  std::string directory TESSARINE_GUARDED_BY(mutex);
  std::unordered_map<std::string, std::shared_ptr<UserDefaults>> domains
      TESSARINE_GUARDED_BY(mutex);
  /// Those of the present directory by their names, so that looking one up builds no path.
  std::unordered_map<std::string, std::shared_ptr<UserDefaults>, NameHash, std::equal_to<>> named
      TESSARINE_GUARDED_BY(mutex);
  std::atomic<int> temporaries = 0;
  const pid_t process = ::getpid();

  static UserDefaultsRegistry& shared() {
    static auto& registry = [&]() -> UserDefaultsRegistry& {
      std::atexit([] { UserDefaultsRegistry::shared().settle(); });
      return *new UserDefaultsRegistry;
    }();
    return registry;
  }

  const std::string& folder() TESSARINE_REQUIRES(mutex) {
    if (directory.empty()) directory = userDirectory();
    return directory;
  }

  std::shared_ptr<UserDefaults> open(std::string_view name) {
    const MutexLock lock(mutex);
    if (const auto found = named.find(name); found != named.end()) return found->second;
    const std::string path = folder() + "/" + std::string(name);
    auto& defaults = domains[path];
    if (!defaults) defaults = make(std::string(name), std::make_unique<detail::Domain>(path));
    named.emplace(name, defaults);
    return defaults;
  }

  static std::shared_ptr<UserDefaults> make(std::string name,
                                            std::unique_ptr<detail::Domain> domain) {
    return std::shared_ptr<UserDefaults>(new UserDefaults(std::move(name), std::move(domain)));
  }

  void settle() {
    if (::getpid() != process) return;  // a child that never called exec has no threads of ours
    std::vector<std::shared_ptr<UserDefaults>> all;
    {
      const MutexLock lock(mutex);
      for (const auto& [path, defaults] : domains) all.push_back(defaults);
    }
    for (const auto& defaults : all) defaults->domain_->settle();
  }
};

KeyValueObserving::~KeyValueObserving() = default;

UserDefaults::UserDefaults(std::string name, std::unique_ptr<detail::Domain> domain)
    : name_(std::move(name)), domain_(std::move(domain)), freshness_(domain_->freshness()) {}

UserDefaults::~UserDefaults() = default;

std::shared_ptr<UserDefaults> UserDefaults::standard() {
  return UserDefaultsRegistry::shared().open(standardName);
}

std::shared_ptr<UserDefaults> UserDefaults::suite(std::string_view suiteName) {
  return isFileName(suiteName) ? UserDefaultsRegistry::shared().open(suiteName) : nullptr;
}

std::shared_ptr<UserDefaults> UserDefaults::temporary() {
  const int number = ++UserDefaultsRegistry::shared().temporaries;
  // The slash keeps it apart from the name of any suite.
  return UserDefaultsRegistry::make("temporary/" + std::to_string(number),
                                    std::make_unique<detail::Domain>());
}

void UserDefaults::setDirectory(const std::string& directory) {
  auto& registry = UserDefaultsRegistry::shared();
  const MutexLock lock(registry.mutex);
  registry.named.clear();
  registry.directory =
      directory.empty() ? directory : std::filesystem::absolute(directory).string();
}

std::string UserDefaults::directory() {
  auto& registry = UserDefaultsRegistry::shared();
  const MutexLock lock(registry.mutex);
  return registry.folder();
}

std::optional<PreferenceObject> UserDefaults::object(std::string_view key) const {
  return domain_->object(key);
}

void UserDefaults::set(std::optional<PreferenceObject> value, std::string_view key) {
  const std::array<detail::Domain::Write, 1> writes{{{key, std::move(value)}}};
  domain_->write(writes);
}

void UserDefaults::setAll(const PreferenceObject::Dictionary& values) {
  std::vector<detail::Domain::Write> writes;
  writes.reserve(values.size());
  for (const auto& [key, value] : values) writes.push_back({key, value});
  domain_->write(writes);
}

void UserDefaults::setAll(std::span<const PreferenceChange> changes) {
  domain_->write(writesOf(changes));
}

bool UserDefaults::setAll(std::span<const PreferenceChange> changes, std::string_view key,
                          std::optional<Date> lastWritten) {
  detail::Domain::Expectation expectation{key, std::nullopt};
  if (lastWritten) expectation.written = lastWritten->timeIntervalSinceReferenceDate();
  return domain_->write(writesOf(changes), expectation);
}

PreferenceObject::Dictionary UserDefaults::dictionaryRepresentation() const {
  return domain_->dictionary();
}

std::optional<Date> UserDefaults::lastWritten(std::string_view key) const {
  const auto written = domain_->lastWritten(key);
  return written ? std::optional(Date(*written)) : std::nullopt;
}

bool UserDefaults::synchronize() { return domain_->synchronize(); }

void UserDefaults::refresh() const { domain_->refresh(); }

void UserDefaults::addObserver(const std::shared_ptr<KeyValueObserving>& observer,
                               std::string_view keyPath, KeyValueObservingOptions options,
                               void* context) {
  domain_->addObserver(keyPath, observer, context,
                       [this, raw = observer.get(), options, context](
                           std::string_view key, const auto& before, const auto& now) {
                         raw->observeValue(key, *this, changeDictionary(before, now, options),
                                           context);
                       });
}

void UserDefaults::removeObserver(const KeyValueObserving& observer, std::string_view keyPath,
                                  void* context) {
  domain_->removeObserver(keyPath, &observer, context);
}

std::shared_ptr<void> UserDefaults::observe(std::string_view key, ChangeHandler handler,
                                            KeyValueObservingOptions options) {
  auto token = std::make_shared<char>();
  domain_->addObserver(key, token, nullptr,
                       [handler = std::move(handler), options](
                           std::string_view /*key*/, const auto& before, const auto& now) {
                         handler(changeDictionary(before, now, options));
                       });
  return token;
}

std::shared_ptr<void> UserDefaults::observeAllKeys(KeyedChangeHandler handler,
                                                   KeyValueObservingOptions options) {
  auto token = std::make_shared<char>();
  domain_->addObserverOfAllKeys(
      token, [handler = std::move(handler), options](std::string_view key, const auto& before,
                                                     const auto& now) {
        handler(key, changeDictionary(before, now, options));
      });
  return token;
}

}  // namespace tessarine
