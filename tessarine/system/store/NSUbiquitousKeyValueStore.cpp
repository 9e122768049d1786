#include "tessarine/system/store/NSUbiquitousKeyValueStore.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <limits>
#include <utility>

#include "tessarine/system/dispatch/Clock.hpp"
#include "tessarine/system/dispatch/Mutex.hpp"
#include "tessarine/system/dispatch/internal/QuietThread.hpp"
#include "tessarine/system/store/NotificationCenter.hpp"
#include "tessarine/system/store/UserDefaults.hpp"
#include "tessarine/system/store/internal/CloudReplica.hpp"
#include "tessarine/system/store/internal/WriteBudget.hpp"
#include "tessarine/system/store/internal/cloudColumns.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace tessarine {
namespace {

using detail::CloudReplica;
using detail::microsecondsOf;
using detail::WriteBudget;

/// A clock that differs from the hub's by more is not believed.
constexpr std::int64_t largestDrift = 300'000'000;  // microseconds

double secondsNow() { return static_cast<double>(Clock::now().uptimeNanoseconds()) * 1e-9; }

/// Wakes the thread of a store, also when the store is gone.
class Waker {
 public:
  Waker() : descriptor_(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {}
  ~Waker() {
    if (descriptor_ >= 0) ::close(descriptor_);
  }
  Waker(const Waker&) = delete;
  Waker& operator=(const Waker&) = delete;

  void wake() const {
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(descriptor_, &one, sizeof one);
  }

  /// Until `wake`, or `news` is readable, or the time is over. Whether `news` is.
  bool wait(int news, double seconds) const {
    std::array<pollfd, 2> files{{{descriptor_, POLLIN, 0}, {news, POLLIN, 0}}};
    constexpr double longest = 60;
    const double milliseconds = std::ceil(std::clamp(seconds, 0.0, longest) * 1e3);
    ::poll(files.data(), files.size(), static_cast<int>(milliseconds));
    std::uint64_t count = 0;
    [[maybe_unused]] const auto read = ::read(descriptor_, &count, sizeof count);
    return (files[1].revents & POLLIN) != 0;
  }

 private:
  const int descriptor_;
};

}  // namespace

class NSUbiquitousKeyValueStore::State {
 public:
  State(const std::string& anyPath, const Options& options)
      : path(anyPath),
        exchangesByItself(options.exchangesByItself),
        replica(path),
        limits{options.limits.bytesOfValue, options.limits.keys, options.limits.bytes},
        wantedBudget(options.budget) {}

  template <class Step>
  static void attempt(Exchange& result, Step step);
  bool save();
  std::shared_ptr<CloudTransport> present();
  bool receive(CloudTransport& from, Exchange& result);
  void send(CloudTransport& to, Exchange& result);
  double delay(const CloudTransport& to) TESSARINE_REQUIRES(exchanging);
  void note(const Exchange& result);
  void startWorker(const std::weak_ptr<NSUbiquitousKeyValueStore>& weak) TESSARINE_REQUIRES(mutex);

  /// Microseconds since 1970 by this machine's clock, corrected where that is off.
  std::int64_t now() const TESSARINE_REQUIRES(mutex) { return microsecondsOf(Date::now()) + drift; }

  /// Compares the hub's clock with this machine's.
  void hear(std::int64_t hubNow) TESSARINE_REQUIRES(mutex) {
    const std::int64_t difference = hubNow - microsecondsOf(Date::now());
    const bool isOff = std::abs(difference) > largestDrift;
    if (isOff && std::abs(difference - drift) > largestDrift) {
      std::fprintf(stderr,
                   "tessarine: this machine's clock is %.0f s off the cloud hub's; what is written"
                   " here is dated by the hub's\n",
                   static_cast<double>(-difference) * 1e-6);
    }
    drift = isOff ? difference : 0;
  }

  const std::string path;
  const bool exchangesByItself;

  /// Of the pairs and of who is signed in. Taken within `exchanging`.
  mutable Mutex mutex;
  CloudReplica replica TESSARINE_GUARDED_BY(mutex);
  CloudReplica::Limits limits TESSARINE_GUARDED_BY(mutex);
  std::shared_ptr<CloudTransport> transport TESSARINE_GUARDED_BY(mutex);  // null: signed out
  std::int64_t drift TESSARINE_GUARDED_BY(mutex) = 0;
  std::string error TESSARINE_GUARDED_BY(mutex);
  bool hasWorker TESSARINE_GUARDED_BY(mutex) = false;

  /// Held while the hub is asked.
  Mutex exchanging;
  std::optional<Budget> wantedBudget TESSARINE_GUARDED_BY(exchanging);
  std::optional<WriteBudget> budget TESSARINE_GUARDED_BY(exchanging);

  std::atomic<bool> isUnsettled = false;  // written and maybe not on the disk itself
  const std::shared_ptr<Waker> waker = std::make_shared<Waker>();
};

// ---- making ----

NSUbiquitousKeyValueStore::NSUbiquitousKeyValueStore(const std::string& path, Options options)
    : state_(std::make_unique<State>(path, options)) {}

NSUbiquitousKeyValueStore::~NSUbiquitousKeyValueStore() { state_->waker->wake(); }

std::shared_ptr<NSUbiquitousKeyValueStore> NSUbiquitousKeyValueStore::open(const std::string& path,
                                                                           Options options) {
  return std::shared_ptr<NSUbiquitousKeyValueStore>(new NSUbiquitousKeyValueStore(path, options));
}

/// Never destroyed: statics of hosts may outlive ours.
std::shared_ptr<NSUbiquitousKeyValueStore> NSUbiquitousKeyValueStore::defaultStore() {
  static const pid_t process = ::getpid();
  static auto& store = []() -> std::shared_ptr<NSUbiquitousKeyValueStore>& {
    std::atexit([] {
      if (::getpid() == process) defaultStore()->state_->save();
    });
    return *new std::shared_ptr(open(UserDefaults::directory() + "/cloud.replica"));
  }();
  return store;
}

// ---- pairs ----

std::shared_ptr<const NSUbiquitousKeyValueStore::Pairs>
NSUbiquitousKeyValueStore::dictionaryRepresentation() const {
  const MutexLock lock(state_->mutex);
  state_->replica.refresh();
  if (state_->replica.hasChangedKeys()) state_->waker->wake();  // the worker tells
  return state_->replica.pairs();
}

std::optional<PreferenceObject> NSUbiquitousKeyValueStore::object(std::string_view key) const {
  const auto pairs = dictionaryRepresentation();
  const auto found = pairs->find(key);
  return found != pairs->end() ? std::optional(found->second) : std::nullopt;
}

void NSUbiquitousKeyValueStore::set(std::optional<PreferenceObject> value, std::string_view key) {
  const std::array<PreferenceChange, 1> changes{{{std::string(key), std::move(value)}}};
  write(changes, std::nullopt);
}

bool NSUbiquitousKeyValueStore::setAll(std::span<const PreferenceChange> changes) {
  return write(changes, std::nullopt);
}

bool NSUbiquitousKeyValueStore::setAll(std::span<const PreferenceChange> changes, Date written) {
  return write(changes, written);
}

bool NSUbiquitousKeyValueStore::write(std::span<const PreferenceChange> changes,
                                      std::optional<Date> written) {
  bool isAccepted = false;
  {
    const MutexLock lock(state_->mutex);
    const std::int64_t now = state_->now();
    const std::int64_t time = written ? std::min(microsecondsOf(*written), now) : now;
    isAccepted = state_->replica.write(changes, time, written.has_value(), state_->limits);
    state_->startWorker(weak_from_this());
  }
  if (isAccepted) {
    state_->isUnsettled = true;
    state_->waker->wake();
    return true;
  }
  std::vector<std::string> keys;
  keys.reserve(changes.size());
  for (const auto& change : changes) keys.push_back(change.key);
  post(keys, NSUbiquitousKeyValueStoreChangeReason::quotaViolationChange);
  return false;
}

void NSUbiquitousKeyValueStore::setLimits(const Limits& limits) {
  const MutexLock lock(state_->mutex);
  state_->limits = {limits.bytesOfValue, limits.keys, limits.bytes};
}

void NSUbiquitousKeyValueStore::setBudget(const std::optional<Budget>& budget) {
  const MutexLock one(state_->exchanging);
  state_->wantedBudget = budget;
  state_->budget.reset();
}

void NSUbiquitousKeyValueStore::post(const std::vector<std::string>& keys,
                                     NSUbiquitousKeyValueStoreChangeReason reason) {
  if (keys.empty()) return;
  NotificationCenter::defaultCenter().post(
      NSUbiquitousKeyValueStoreDidChangeExternallyNotification, this,
      {{NSUbiquitousKeyValueStoreChangeReasonKey, static_cast<int>(reason)},
       {NSUbiquitousKeyValueStoreChangedKeysKey, keys}});
}

// ---- accounts ----

void NSUbiquitousKeyValueStore::signIn(const std::string& user,
                                       std::shared_ptr<CloudTransport> transport) {
  post(enter(user, std::move(transport)), NSUbiquitousKeyValueStoreChangeReason::accountChange);
}

/// Signs in and gives the keys whose pairs have become others.
std::vector<std::string> NSUbiquitousKeyValueStore::enter(
    const std::string& user, std::shared_ptr<CloudTransport> transport) {
  CloudReplica::Keys keys;
  std::shared_ptr<CloudTransport> former;  // destroyed after the locks
  {
    const MutexLock done(state_->exchanging);
    const MutexLock lock(state_->mutex);
    former = std::exchange(state_->transport, nullptr);
    if (state_->replica.use(user)) {
      state_->transport = std::move(transport);
      state_->error.clear();
    } else {
      state_->error = "the replica cannot be written";
    }
    keys = state_->replica.takeChangedKeys();
    state_->startWorker(weak_from_this());
  }
  state_->waker->wake();
  return keys;
}

void NSUbiquitousKeyValueStore::signOut() {
  std::shared_ptr<CloudTransport> former;  // destroyed after the locks
  const MutexLock done(state_->exchanging);
  const MutexLock lock(state_->mutex);
  former.swap(state_->transport);
}

NSUbiquitousKeyValueStore::Status NSUbiquitousKeyValueStore::status() const {
  const MutexLock lock(state_->mutex);
  auto& replica = state_->replica;
  replica.refresh();
  Status status{.user = replica.user(),
                .isSignedIn = state_->transport != nullptr,
                .waiting = replica.waitingCount(),
                .lastExchange = std::nullopt,
                .error = state_->error};
  if (const auto exchanged = replica.exchanged()) {
    status.lastExchange = Date::since1970(static_cast<double>(*exchanged) * 1e-6);
  }
  return status;
}

bool NSUbiquitousKeyValueStore::synchronize() {
  {
    const MutexLock lock(state_->mutex);
    if (!state_->transport) return false;
  }
  state_->waker->wake();
  return true;
}

// ---- exchange ----

NSUbiquitousKeyValueStore::Exchange NSUbiquitousKeyValueStore::exchange() {
  Exchange result;
  const auto transport = state_->present();
  if (!transport) {
    result.error = "nobody is signed in";
    return result;
  }
  bool isInitial = false;
  state_->attempt(result, [&] { isInitial = state_->receive(*transport, result); });
  CloudReplica::Keys keys;
  {
    const MutexLock lock(state_->mutex);
    keys = state_->replica.takeChangedKeys();
  }
  using Reason = NSUbiquitousKeyValueStoreChangeReason;
  post(keys, isInitial ? Reason::initialSyncChange : Reason::serverChange);
  if (result.isReached) state_->attempt(result, [&] { state_->send(*transport, result); });
  state_->note(result);
  return result;
}

/// Whatever a transport throws is an outage.
template <class Step>
void NSUbiquitousKeyValueStore::State::attempt(Exchange& result, Step step) try {
  step();
} catch (const std::exception& error) {
  result.error = error.what();
}

/// Brings what is only in memory into the file. False when the file refuses.
bool NSUbiquitousKeyValueStore::State::save() {
  const MutexLock lock(mutex);
  return replica.saveUnsaved();
}

std::shared_ptr<CloudTransport> NSUbiquitousKeyValueStore::State::present() {
  const MutexLock lock(mutex);
  return transport;
}

/// True when nothing had ever been received.
bool NSUbiquitousKeyValueStore::State::receive(CloudTransport& from, Exchange& result) {
  const MutexLock one(exchanging);
  UUID identity;
  std::string position;
  {
    const MutexLock lock(mutex);
    if (transport.get() != &from) return false;
    replica.refresh();
    identity = replica.identity();
    position = replica.position();
  }
  auto news = from.pull(identity, position);
  news.now = std::clamp(news.now, -detail::farthestTime, detail::farthestTime);
  result.isReached = true;
  result.received = news.entries.size();
  const MutexLock lock(mutex);
  hear(news.now);
  if (const std::size_t count = replica.bringDown(news.now + largestDrift); count > 0) {
    std::fprintf(stderr,
                 "tessarine: %zu cloud entries were dated more than %.0f s ahead of the hub and are"
                 " brought down to that\n",
                 count, static_cast<double>(largestDrift) * 1e-6);
  }
  replica.merge(news);
  isUnsettled = true;
  return position.empty();
}

void NSUbiquitousKeyValueStore::State::send(CloudTransport& to, Exchange& result) {
  const MutexLock one(exchanging);
  std::vector<CloudEntry> entries;
  {
    const MutexLock lock(mutex);
    if (transport.get() != &to || replica.waitingCount() == 0) return;
    result.delay = delay(to);
    if (result.delay > 0) return;
    entries = replica.waiting();
  }
  if (budget) budget->spend(secondsNow());  // also for what fails: it may have arrived
  to.push(entries);
  result.sent = entries.size();
  const MutexLock lock(mutex);
  replica.sent(entries);
}

/// How long the budget holds writes to this hub back.
double NSUbiquitousKeyValueStore::State::delay(const CloudTransport& to) {
  if (!wantedBudget && !to.isBudgeted()) return 0;
  if (!budget) {
    const Budget wanted = wantedBudget.value_or(Budget{});
    budget.emplace(wanted.writesPerMinute, wanted.writesPerHour);
  }
  const double now = secondsNow();
  return budget->nextAllowed(now) - now;
}

/// Tells of an outage once.
void NSUbiquitousKeyValueStore::State::note(const Exchange& result) {
  const MutexLock lock(mutex);
  if (!result.error.empty() && error.empty()) {
    std::fprintf(stderr, "tessarine: %s\n", result.error.c_str());
  }
  error = result.error;
}

// ---- the store's own thread ----

/// What the store's thread does and remembers from round to round.
class NSUbiquitousKeyValueStore::Worker {
 public:
  /// Does what is due; `hasNews`: the hub rang.
  void round(NSUbiquitousKeyValueStore& store, bool hasNews) {
    const double now = secondsNow();
    transport_ = store.state_->present();
    if (transport_.get() != former_) exchangeAt_ = now;
    former_ = transport_.get();
    const bool isWoken = !isHeldBack_;
    if (transport_ && (isWoken || hasNews || now >= exchangeAt_)) exchange(store, now);
    if (!store.state_->isUnsettled) return;
    if (settleAt_ == never) settleAt_ = now + longestUnsettled;
    if (now >= settleAt_) settle(*store.state_);
  }

  void wait(const Waker& waker, bool& hasNews) const {
    const double seconds = std::min(transport_ ? exchangeAt_ : never, settleAt_) - secondsNow();
    hasNews = waker.wait(isFailing_ || !transport_ ? -1 : transport_->newsDescriptor(), seconds);
  }

 private:
  static constexpr double never = std::numeric_limits<double>::infinity();
  static constexpr double longestUnsettled = 1;
  static constexpr double longestBackoff = 30;

  /// An observer that throws here has no caller to reach.
  static Exchange exchanged(NSUbiquitousKeyValueStore& store) try {
    return store.exchange();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tessarine: an observer of the cloud store threw: %s\n", error.what());
    return {};
  }

  void exchange(NSUbiquitousKeyValueStore& store, double now) {
    const Exchange result = exchanged(store);
    isFailing_ = !result.error.empty();
    backoff_ = isFailing_ ? std::clamp(2 * backoff_, 1.0, longestBackoff) : 0;
    isHeldBack_ = isFailing_ || result.delay > 0;
    // Without a bell the hub is asked now and then; with one also, should it have been missed.
    const double interval = transport_->newsDescriptor() >= 0 ? 60 : 5;
    exchangeAt_ = now + (isFailing_ ? backoff_ : result.delay > 0 ? result.delay : interval);
  }

  void settle(State& state) {
    settleAt_ = never;
    state.isUnsettled = !state.save();
    CloudReplica::checkpoint(state.path);
  }

  std::shared_ptr<CloudTransport> transport_;
  const CloudTransport* former_ = nullptr;
  double exchangeAt_ = 0;
  double settleAt_ = never;
  double backoff_ = 0;
  bool isFailing_ = false;
  bool isHeldBack_ = false;  // by an outage or the budget: a wake is no reason to try
};

/// The thread keeps the store alive only while it works.
void NSUbiquitousKeyValueStore::State::startWorker(
    const std::weak_ptr<NSUbiquitousKeyValueStore>& weak) {
  if (hasWorker || !exchangesByItself) return;
  hasWorker = detail::startQuietThread("tessarine-cloud", [weak, bell = waker] {
    Worker worker;
    bool hasNews = false;
    while (auto store = weak.lock()) {
      worker.round(*store, hasNews);
      store.reset();
      worker.wait(*bell, hasNews);
    }
  });
}

}  // namespace tessarine
