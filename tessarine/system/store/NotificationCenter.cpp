#include "tessarine/system/store/NotificationCenter.hpp"

#include <algorithm>

#include "tessarine/system/store/internal/CallAll.hpp"

namespace tessarine {
namespace {

/// Takes out the elements that `isRemoved` holds for. They are given back to be destroyed after the
/// lock is let go, since a handler may own anything.
template <class Elements, class Predicate>
Elements extract(Elements& elements, Predicate isRemoved) {
  const auto removed = std::stable_partition(elements.begin(), elements.end(),
                                             [&](const auto& e) { return !isRemoved(e); });
  Elements extracted(std::make_move_iterator(removed), std::make_move_iterator(elements.end()));
  elements.erase(removed, elements.end());
  return extracted;
}

}  // namespace

NotificationCenter& NotificationCenter::defaultCenter() {
  static auto& center =
      *new NotificationCenter;  // never destroyed: statics of hosts may outlive us
  return center;
}

NotificationCenter::Token NotificationCenter::addObserver(std::string_view name, const void* object,
                                                          Handler handler) {
  Token token = std::make_shared<char>();
  add(name, token, token.get(), object, std::move(handler));
  return token;
}

void NotificationCenter::add(std::string_view name, std::weak_ptr<const void> alive,
                             const void* observer, const void* object, Handler handler) {
  Registration registration{std::move(alive), observer, object,
                            std::make_shared<const Handler>(std::move(handler))};
  Registrations expired;
  const MutexLock lock(mutex_);
  auto& registrations = registrations_[std::string(name)];
  expired = extract(registrations, [](const auto& other) { return other.alive.expired(); });
  registrations.push_back(std::move(registration));
}

void NotificationCenter::removeObserver(const void* observer, std::string_view name,
                                        const void* object) {
  Registrations removed;
  const MutexLock lock(mutex_);
  const auto found = registrations_.find(std::string(name));
  if (found == registrations_.end()) return;
  removed = extract(found->second, [&](const auto& registration) {
    return registration.observer == observer &&
           (object == nullptr || registration.object == object);
  });
}

void NotificationCenter::post(const Notification& notification) {
  struct Call {
    std::shared_ptr<const void> alive;
    std::shared_ptr<const Handler> handler;
  };
  std::vector<Call> calls;
  {
    const MutexLock lock(mutex_);
    const auto found = registrations_.find(notification.name);
    if (found == registrations_.end()) return;
    for (const auto& registration : found->second) {
      if (registration.object != nullptr && registration.object != notification.object) continue;
      if (auto alive = registration.alive.lock()) {
        calls.push_back({std::move(alive), registration.handler});
      }
    }
  }
  detail::callAll(calls, [&](const Call& call) { (*call.handler)(notification); });
}

}  // namespace tessarine
