#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "tessarine/export.hpp"
#include "tessarine/system/store/CloudStamp.hpp"
#include "tessarine/values/UUID.hpp"

namespace tessarine {

/// One pair of the cloud store on its way between machines.
struct CloudEntry {
  std::string key;
  /// The value in its stored form, which is for the replicas alone to read; absent: removed.
  std::optional<std::string> value;
  CloudStamp stamp;
};

/// Why a hub could not be asked: out of reach, locked, not writable, damaged, of a newer version.
class TESSARINE_EXPORT CloudTransportError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
  CloudTransportError(const CloudTransportError&) = default;
  CloudTransportError& operator=(const CloudTransportError&) = default;
  ~CloudTransportError() override;
};

/// The way from one replica to the hub of its user, where the replicas meet. A hub keeps the latest
/// entry of each key and hands out what came since a position.
///
/// Called by one thread at a time. What cannot be done throws `CloudTransportError` and is tried
/// again later; nothing is lost by a call whose effect took place though it threw, nor by one that
/// is repeated.
class TESSARINE_EXPORT CloudTransport {
 public:
  CloudTransport() = default;
  CloudTransport(const CloudTransport&) = delete;
  CloudTransport& operator=(const CloudTransport&) = delete;
  virtual ~CloudTransport();

  struct News {
    /// At most one a key: the latest. What was pushed together is here together.
    std::vector<CloudEntry> entries;
    /// Where the next `pull` goes on; the hub's own text.
    std::string position;
    /// Whether `entries` are all that the hub holds, for it does not know the position asked for:
    /// the first time, or when the hub was restored from a copy.
    bool isWhole = false;
    /// The hub's clock, microseconds since 1970.
    std::int64_t now = 0;
    /// Up to this time of stamps the hub may have forgotten removals that not every replica saw.
    std::int64_t forgottenUntil = 0;
  };

  /// What has come to the hub behind `position`, for `replica` and from whomever, itself included;
  /// an empty position is the start.
  virtual News pull(const UUID& replica, const std::string& position) = 0;

  /// Brings all of the entries to the hub in one step. It takes each that is later than what it
  /// holds under the key, and has no effect for the others.
  virtual void push(std::span<const CloudEntry> entries) = 0;

  /// A file descriptor that is readable when there may be news, until the next `pull`; -1 when
  /// there is none and the replica has to ask now and then.
  virtual int newsDescriptor() const { return -1; }

  /// Whether pushes are counted against the budget of writes by default.
  virtual bool isBudgeted() const { return true; }
};

}  // namespace tessarine
