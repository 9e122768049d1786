#include "tessarine/system/store/EmbeddedCloudHub.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <optional>
#include <string_view>
#include <utility>

#include "tessarine/system/store/internal/SQLite.hpp"
#include "tessarine/system/store/internal/cloudColumns.hpp"
#include "tessarine/values/Date.hpp"

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tessarine {
namespace {

using detail::DatabaseError;
using detail::SQLite;

constexpr std::int64_t microsecondsADay = 86'400'000'000;
/// Positions of pushes further back are not known any more; whoever asks for them gets everything.
constexpr std::int64_t pushesRemembered = 1'000;

constexpr SQLite::Schema schema{
    .applicationId = 0x54455348,  // "TESH"
    .version = 1,
    .tables =
        "CREATE TABLE entries(user BLOB, key BLOB, value BLOB, time INTEGER NOT NULL,"
        " counter INTEGER NOT NULL, replica BLOB NOT NULL, push INTEGER NOT NULL,"
        " PRIMARY KEY(user, key)) WITHOUT ROWID;"
        "CREATE INDEX entriesByPush ON entries(user, push);"
        "CREATE TABLE pushes(user BLOB, push INTEGER, identity BLOB NOT NULL,"
        " PRIMARY KEY(user, push)) WITHOUT ROWID;"
        "CREATE TABLE replicas(user BLOB, replica BLOB, seen INTEGER NOT NULL,"
        " asked INTEGER NOT NULL, PRIMARY KEY(user, replica)) WITHOUT ROWID;"
        "CREATE TABLE forgotten(user BLOB PRIMARY KEY, until INTEGER NOT NULL) WITHOUT ROWID"};

/// Where a replica stands: the number of a push and its identity, which tells a hub that was
/// restored from a copy from the one that the number was given by.
struct Position {
  std::int64_t push = 0;
  std::string identity;

  static Position of(const std::string& text) {
    const std::size_t space = text.find(' ');
    if (space == std::string::npos) return {};
    Position position;
    std::from_chars(text.data(), text.data() + space, position.push);
    position.identity = text.substr(space + 1);
    return position;
  }
  std::string text() const { return std::to_string(push).append(" ").append(identity); }
};

/// The device and number of a file; absent when there is none.
std::optional<std::pair<dev_t, ino_t>> identityOf(const std::string& path) {
  struct stat found {};
  if (::stat(path.c_str(), &found) != 0) return std::nullopt;
  return std::pair(found.st_dev, found.st_ino);
}

}  // namespace

// ---- the bell ----

/// A file of one byte that is written after each push, and a watch on it.
class EmbeddedCloudHub::Bell {
 public:
  explicit Bell(std::string path)
      : path_(std::move(path)), watch_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {}
  ~Bell() {
    if (watch_ >= 0) ::close(watch_);
  }
  Bell(const Bell&) = delete;
  Bell& operator=(const Bell&) = delete;

  /// -1 while the file cannot be watched. Any thread.
  int descriptor() const { return isWatching_ ? watch_ : -1; }

  /// Makes the file when missing, and watches it when it is another than before.
  void watch() {
    const auto present = identityOf(path_);
    if (present && present == watched_) return;
    const int file = open();
    if (file >= 0) ::close(file);
    isWatching_ = ::inotify_add_watch(watch_, path_.c_str(), IN_MODIFY) >= 0;
    watched_ = isWatching_ ? identityOf(path_) : std::nullopt;
  }

  void ring() const {
    const int file = open();
    if (file < 0) return;
    // Who misses it hears of the push with the next one, or when it asks by itself.
    [[maybe_unused]] const auto written = ::pwrite(file, "!", 1, 0);
    ::close(file);
  }

  void clear() const {
    std::array<char, 4096>
        events;  // NOLINT(cppcoreguidelines-pro-type-member-init): only read into
    while (::read(watch_, events.data(), events.size()) > 0) continue;
  }

 private:
  /// Never waits, whatever lies there.
  int open() const {
    return ::open(path_.c_str(), O_RDWR | O_CREAT | O_NONBLOCK | O_CLOEXEC, 0600);
  }

  const std::string path_;
  const int watch_;
  std::atomic<bool> isWatching_ = false;
  std::optional<std::pair<dev_t, ino_t>> watched_;
};

// ---- the file ----

class EmbeddedCloudHub::File {
 public:
  File(const std::string& path, const std::string& user, double longestWait)
      : user_(user),
        database_(path, schema,
                  {.isSynchronous = false,
                   .longestWaitMilliseconds = static_cast<int>(longestWait * 1e3)}),
        identity_(identityOf(path)),
        push_(database_.prepare("SELECT push, identity FROM pushes WHERE user = ?1"
                                " ORDER BY push DESC LIMIT 1")),
        known_(database_.prepare("SELECT 1 FROM pushes WHERE user = ?1 AND push = ?2"
                                 " AND identity = ?3")),
        news_(database_.prepare("SELECT key, value, time, counter, replica FROM entries"
                                " WHERE user = ?1 AND push > ?2 ORDER BY push")),
        find_(database_.prepare("SELECT time, counter, replica FROM entries"
                                " WHERE user = ?1 AND key = ?2")),
        put_(database_.prepare("INSERT INTO entries VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7)"
                               " ON CONFLICT(user, key) DO UPDATE SET value = excluded.value,"
                               " time = excluded.time, counter = excluded.counter,"
                               " replica = excluded.replica, push = excluded.push")),
        replica_(database_.prepare("SELECT asked FROM replicas"
                                   " WHERE user = ?1 AND replica = ?2")),
        count_(database_.prepare("INSERT INTO pushes VALUES(?1, ?2, ?3)")),
        forgotten_(database_.prepare("SELECT until FROM forgotten WHERE user = ?1")) {}

  bool isOf(const std::string& path) const { return identity_ && identity_ == identityOf(path); }

  News pull(const UUID& replica, const std::string& text) {
    News news;
    Position position = Position::of(text);
    database_.read([&] {
      const Position present = latest();
      news.position = present.text();
      // To a replica that was forgotten it may never have been told what was removed.
      if (!isKnown(position)) position = {};
      news.isWhole = position.identity.empty() || !askedAt(replica);
      news_.run(user_, news.isWhole ? std::int64_t{-1} : position.push);
      while (news_.next()) {
        news.entries.push_back(
            {std::string(news_.text(0)), detail::ownedText(news_, 1), detail::stampOf(news_, 2)});
      }
      news.forgottenUntil = forgottenUntil();
    });
    news.now = now();
    remember(replica, position.push);
    return news;
  }

  /// Whether anything was new to the hub.
  bool push(std::span<const CloudEntry> entries) {
    bool isNew = false;
    database_.write([&] {
      const std::int64_t number = latest().push + 1;
      for (const CloudEntry& entry : entries) isNew = put(entry, number) || isNew;
      if (!isNew) return;
      const auto identity = UUID::random();
      count_.execute(user_, number, detail::bytesOf(identity));
      collect(number);
    });
    return isNew;
  }

 private:
  static std::int64_t now() { return detail::microsecondsOf(Date::now()); }

  Position latest() {
    Position position;
    push_.run(user_);
    while (push_.next()) {
      position = {push_.integer(0), std::string(push_.text(1))};
    }
    return position;
  }

  bool isKnown(const Position& position) {
    known_.run(user_, position.push, position.identity);
    bool isKnown = false;
    while (known_.next()) isKnown = true;
    return isKnown;
  }

  std::int64_t forgottenUntil() {
    std::int64_t until = 0;
    forgotten_.run(user_);
    while (forgotten_.next()) until = forgotten_.integer(0);
    return until;
  }

  bool put(const CloudEntry& entry, std::int64_t number) {
    find_.run(user_, entry.key);
    std::optional<CloudStamp> held;
    while (find_.next()) held = detail::stampOf(find_, 0);
    if (held && !(*held < entry.stamp)) return false;
    put_.execute(user_, entry.key, entry.value, entry.stamp.time, std::int64_t{entry.stamp.counter},
                 detail::bytesOf(entry.stamp.replica), number);
    return true;
  }

  /// When a replica was noted; absent for one that is not known, or not any more.
  std::optional<std::int64_t> askedAt(const UUID& replica) {
    replica_.run(user_, detail::bytesOf(replica));
    std::optional<std::int64_t> asked;
    while (replica_.next()) asked = replica_.integer(0);
    return asked;
  }

  /// Notes how far a replica has seen, once a day or when it is new: what it delays is only the
  /// forgetting of removals. A hub that cannot be written can still be read.
  void remember(const UUID& replica, std::int64_t seen) try {
    const std::int64_t time = now();
    const auto asked = askedAt(replica);
    if (asked && time - *asked < microsecondsADay && time >= *asked) return;
    database_.prepare("INSERT OR REPLACE INTO replicas VALUES(?1, ?2, ?3, ?4)")
        .execute(user_, detail::bytesOf(replica), seen, time);
  } catch (const DatabaseError&) {
  }

  /// Forgets removals that every replica has seen, old ones, and the numbers of old pushes.
  void collect(std::int64_t number) {
    constexpr std::int64_t round = 64;
    if (number % round != 0) return;
    database_.prepare("DELETE FROM pushes WHERE user = ?1 AND push <= ?2")
        .execute(user_, number - pushesRemembered);
    const std::int64_t oldest = now() - detail::longestRemembered;
    // What such a replica has seen and the hub does not hold was removed in its absence.
    database_
        .prepare(
            "INSERT INTO forgotten SELECT ?1, max(asked) + ?3 FROM replicas WHERE user = ?1"
            " AND asked < ?2 HAVING count(*) > 0"
            " ON CONFLICT(user) DO UPDATE SET until = max(until, excluded.until)")
        .execute(user_, oldest, 2 * microsecondsADay);
    database_.prepare("DELETE FROM replicas WHERE user = ?1 AND asked < ?2").execute(user_, oldest);
    database_
        .prepare(
            "INSERT INTO forgotten SELECT ?1, max(time) FROM entries WHERE user = ?1"
            " AND value IS NULL AND time < ?2 HAVING count(*) > 0"
            " ON CONFLICT(user) DO UPDATE SET until = max(until, excluded.until)")
        .execute(user_, oldest);
    database_.prepare("DELETE FROM entries WHERE user = ?1 AND value IS NULL AND time < ?2")
        .execute(user_, oldest);
    database_
        .prepare(
            "DELETE FROM entries WHERE user = ?1 AND value IS NULL"
            " AND push <= (SELECT min(seen) FROM replicas WHERE user = ?1)")
        .execute(user_);
  }

  const std::string& user_;
  SQLite database_;
  const std::optional<std::pair<dev_t, ino_t>> identity_;
  SQLite::Statement push_;
  SQLite::Statement known_;
  SQLite::Statement news_;
  SQLite::Statement find_;
  SQLite::Statement put_;
  SQLite::Statement replica_;
  SQLite::Statement count_;
  SQLite::Statement forgotten_;
};

// ---- the hub ----

EmbeddedCloudHub::EmbeddedCloudHub(std::string path, std::string user, double longestWait)
    : path_(std::move(path)),
      user_(std::move(user)),
      longestWait_(longestWait),
      bell_(std::make_unique<Bell>(path_ + ".bell")) {}

EmbeddedCloudHub::~EmbeddedCloudHub() = default;

/// The file that lies there now: it may have been replaced by a copy.
EmbeddedCloudHub::File& EmbeddedCloudHub::file() {
  if (file_ && !file_->isOf(path_)) file_.reset();
  if (!file_) file_ = std::make_unique<File>(path_, user_, longestWait_);
  return *file_;
}

template <class Work>
void EmbeddedCloudHub::attempt(const char* what, Work work) try {
  work(file());
} catch (const DatabaseError& error) {
  file_.reset();
  throw CloudTransportError("the cloud hub " + path_ + " could not be " + what + ": " +
                            error.what() + (error.damage ? " (the file is damaged)" : ""));
}

CloudTransport::News EmbeddedCloudHub::pull(const UUID& replica, const std::string& position) {
  bell_->watch();
  bell_->clear();  // before reading, so that nothing is missed
  News news;
  attempt("read", [&](File& file) { news = file.pull(replica, position); });
  return news;
}

void EmbeddedCloudHub::push(std::span<const CloudEntry> entries) {
  bool isNew = false;
  attempt("written", [&](File& file) { isNew = file.push(entries); });
  if (isNew) bell_->ring();
}

int EmbeddedCloudHub::newsDescriptor() const { return bell_->descriptor(); }

}  // namespace tessarine
