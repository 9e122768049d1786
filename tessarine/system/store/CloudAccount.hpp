#pragma once

#include <memory>
#include <optional>
#include <string>

#include "tessarine/export.hpp"
#include "tessarine/system/store/CloudTransport.hpp"

namespace tessarine {

/// Who is signed in to the cloud in this process: whose pairs `NSUbiquitousKeyValueStore` holds and
/// where it exchanges them. The host signs in at each start; nobody is until then. Any thread.
struct TESSARINE_EXPORT CloudAccount {
  /// The user's identity, the same on all machines; any text but the empty one.
  std::string user;
  /// Where the machines meet: "file:PATH" for the hub that the processes of one machine share.
  std::string hub;
  /// What the hub asks for; the one in a file asks for nothing.
  std::string credentials = {};

  /// Signs in, or over from another account. Throws `std::invalid_argument` for a user without a
  /// name and for a hub of no known kind; whether the hub can be reached shows later.
  static void signIn(const CloudAccount& account);
  /// The same by a way to the hub that the host brings.
  static void signIn(const CloudAccount& account, std::shared_ptr<CloudTransport> transport);
  static void signOut();

  /// The account that is signed in.
  static std::optional<CloudAccount> current();
};

}  // namespace tessarine
