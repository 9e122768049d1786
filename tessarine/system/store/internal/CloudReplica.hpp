#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tessarine/system/store/CloudStamp.hpp"
#include "tessarine/system/store/CloudTransport.hpp"
#include "tessarine/system/store/internal/SQLite.hpp"
#include "tessarine/values/PreferenceChange.hpp"
#include "tessarine/values/PreferenceObject.hpp"
#include "tessarine/values/UUID.hpp"

namespace tessarine::detail {

/// The pairs of the cloud store as this machine has them, with their stamps, in a file that all of
/// its processes share; and which of them the hub does not have yet. Each user that was signed in
/// has pairs of their own; before anyone was, they are nobody's, and the first user's then.
///
/// A write is in the file when the call returns, and survives the process. What only notes that the
/// hub has something may get there later: it would be found out again. While the file cannot be
/// written, what was written since is in memory and goes into the file with the next change that
/// can be. A damaged file is set aside as PATH.damaged-TIME.
///
/// One thread at a time. Only what says so throws.
class CloudReplica {
 public:
  using Pairs = PreferenceObject::Dictionary;
  using Keys = std::vector<std::string>;

  struct Limits {
    std::size_t bytesOfValue;
    std::size_t keys;
    std::size_t bytes;  // of all keys and values together
  };

  /// Opens or creates the file; an empty path stands for none, and pairs in memory only.
  explicit CloudReplica(std::string path);
  ~CloudReplica();
  CloudReplica(const CloudReplica&) = delete;
  CloudReplica& operator=(const CloudReplica&) = delete;

  /// Takes over what other processes of this machine changed.
  void refresh();

  /// The keys whose pairs have become others since the last call, except by `write`; each once.
  Keys takeChangedKeys();
  bool hasChangedKeys() const { return !changedKeys_.empty(); }

  /// A state of all pairs that does not change any more.
  std::shared_ptr<const Pairs> pairs() const { return pairs_; }

  const UUID& identity() const { return identity_; }
  const std::string& user() const { return user_; }
  const std::string& position() const { return position_; }
  /// When the hub was last heard, microseconds since 1970.
  std::optional<std::int64_t> exchanged() const { return exchanged_; }
  /// How many pairs and removals the hub does not have yet.
  std::size_t waitingCount() const { return waiting_; }

  /// The pairs of `user` from now on, whomever other processes choose; before it is called they are
  /// those of the user that any of them chose last. False when the file does not let it.
  bool use(const std::string& user);

  /// Writes the changes in one step, unless that would pass a limit: then false, and nothing is
  /// done. The stamp is that of `now`, or later so that it passes those of what is replaced. With
  /// `isPast` it is exactly that of `now`, and what was written later stays.
  bool write(std::span<const PreferenceChange> changes, std::int64_t now, bool isPast,
             const Limits& limits);

  /// Brings stamps of what the hub does not have yet down to `latest` where they are beyond it, in
  /// their order. How many. To be done before a merge, so that they are compared as they go out.
  std::size_t bringDown(std::int64_t latest);

  /// Takes what came from the hub, key by key the later one. What the hub should have and has not
  /// waits to be sent again.
  void merge(const CloudTransport::News& news);

  /// What the hub does not have yet.
  std::vector<CloudEntry> waiting() const;
  /// Notes that the hub was sent these, as far as they have not been replaced meanwhile. The next
  /// merge has to bring them back, or they wait again.
  void sent(std::span<const CloudEntry> entries);

  /// Tries again to bring into the file what it refused. False when it still does.
  bool saveUnsaved();

  /// Brings what is in the file at `path` to the disk itself, out of reach of a power cut. For any
  /// thread: it holds nobody up.
  static void checkpoint(const std::string& path);

 private:
  /// What the hub has of an entry: it has it for good, knows nothing of it, or was sent it; that it
  /// kept it shows when it comes back. `waitingAbove`: it waits, and took the place of one that the
  /// hub has with a later time than the clock's, so it must keep a greater stamp than that.
  enum class Standing : std::uint8_t { there, waiting, sent, waitingAbove };
  struct Entry {
    CloudStamp stamp;
    std::optional<std::string> value;  // in its stored form
    Standing standing = Standing::there;

    bool isWaiting() const {
      return standing == Standing::waiting || standing == Standing::waitingAbove;
    }
  };
  using Entries = std::map<std::string, Entry, std::less<>>;
  using Changed = std::map<std::string, Entry, std::less<>>;
  class File;

  void open();
  void load();
  void takeOver();
  enum class Origin { here, elsewhere };
  void apply(std::string_view key, Entry entry, Origin origin);
  void forgetPairs();
  void showPair(std::string_view key, const std::optional<std::string>& value);
  static Standing standingOver(const Entry& held, std::int64_t now);
  static Standing standingAfter(const Entry& held, const CloudEntry& arrived);
  Changed mergedOf(const CloudTransport::News& news) const;
  void mergeAbsent(const CloudTransport::News& news, Changed& changed) const;
  void defer(const Changed& changed);
  void chooseInFile(const std::string& user);
  template <class Decide>
  void commit(Origin origin, Decide decide);
  template <class Decide>
  bool commitToFile(Changed& changed, Decide decide);
  bool isWithin(const Changed& changed, const Limits& limits) const;
  void report(const std::string& reason);

  const std::string path_;
  std::unique_ptr<File> file_;
  bool isReported_ = false;

  UUID identity_;
  std::string user_;
  std::string position_;
  std::optional<std::int64_t> exchanged_;
  std::int64_t account_ = 0;
  std::int64_t chosen_ = 0;   // by `use`; 0: the account that any process chose last
  std::int64_t applied_ = 0;  // the last change of the file that is in memory
  std::int64_t version_ = 0;  // of the file, as this connection counts what others commit
  Entries entries_;
  Changed unsaved_;  // in memory and not in the file, since it refused or to spare a transaction
  bool isPositionUnsaved_ = false;
  std::shared_ptr<Pairs> pairs_ = std::make_shared<Pairs>();
  Keys changedKeys_;
  std::size_t waiting_ = 0;
  std::size_t keys_ = 0;  // that have a value, also one that cannot be read
  std::size_t bytes_ = 0;
};

}  // namespace tessarine::detail
