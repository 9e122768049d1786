#pragma once

#include <any>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "tessarine/export.hpp"
#include "tessarine/system/dispatch/Mutex.hpp"

namespace tessarine {

/// What a poster wants to tell besides the name: values of any type under text keys. Read them with
/// `dynamicCast<T>(userInfo.at(key))`.
using UserInfo = std::map<std::string, std::any, std::less<>>;

struct Notification {
  std::string name;
  /// Whom it is about, by identity; null when about nobody in particular.
  const void* object = nullptr;
  UserInfo userInfo;
};

/// Carries notifications from posters to observers inside one process. Any thread.
///
/// Observers are called on the posting thread, in the order of their registration, with no lock
/// held. They may register, remove and post themselves; an observer registered during a post does
/// not hear that post. When an observer throws, the others are still called and the first exception
/// then reaches the poster.
class TESSARINE_EXPORT NotificationCenter {
 public:
  using Handler = std::function<void(const Notification&)>;
  /// Keeps a registration alive; letting go of the last copy ends it. A call that has already begun
  /// on another thread may still be running then.
  using Token = std::shared_ptr<void>;

  /// The process-wide centre.
  static NotificationCenter& defaultCenter();

  /// Calls `handler` for each notification of `name` about `object` (null: about anybody) as long
  /// as the token lives.
  [[nodiscard]] Token addObserver(std::string_view name, const void* object, Handler handler);

  /// The same for as long as `observer` lives, which `handler` is given. Nothing need be kept.
  template <class Observer, class Call>
  void addObserver(const std::shared_ptr<Observer>& observer, std::string_view name,
                   const void* object, Call handler) {
    add(name, observer, observer.get(), object,
        [weak = std::weak_ptr<Observer>(observer),
         call = std::move(handler)](const Notification& notification) {
          if (const auto alive = weak.lock()) std::invoke(call, *alive, notification);
        });
  }

  /// Ends the registrations of `observer` under `name` about `object` (null: whatever it is about).
  void removeObserver(const void* observer, std::string_view name, const void* object = nullptr);

  /// Calls every matching observer before it returns.
  void post(const Notification& notification);
  void post(std::string_view name, const void* object = nullptr, UserInfo userInfo = {}) {
    post(Notification{std::string(name), object, std::move(userInfo)});
  }

 private:
  struct Registration {
    std::weak_ptr<const void> alive;
    const void* observer;
    const void* object;
    std::shared_ptr<const Handler> handler;
  };
  using Registrations = std::vector<Registration>;

  void add(std::string_view name, std::weak_ptr<const void> alive, const void* observer,
           const void* object, Handler handler);

  Mutex mutex_;
  std::unordered_map<std::string, Registrations> registrations_ TESSARINE_GUARDED_BY(mutex_);
};

}  // namespace tessarine
