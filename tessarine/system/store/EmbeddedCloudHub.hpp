#pragma once

#include <memory>
#include <span>
#include <string>

#include "tessarine/export.hpp"
#include "tessarine/system/store/CloudTransport.hpp"

namespace tessarine {

/// The hub as a file that the processes of one machine open: an SQLite database with the entries of
/// every user, and a small file beside it, PATH.bell, by which news is noticed at once. Both have
/// mode 0600; the file is made when missing, also when it goes away later.
///
/// A file that is damaged, locked by another program for too long, not writable, or of
/// a newer version is left as it is and told by the error; it is opened anew at the next call.
/// Removals are remembered until every replica has seen them, or for 180 days; a replica that does
/// not ask for so long is forgotten. The hub's clock is the machine's. Pushes are not budgeted.
class TESSARINE_EXPORT EmbeddedCloudHub : public CloudTransport {
 public:
  /// `user`: whose entries. `longestWait`: for another program that holds the file locked, seconds.
  /// Opens nothing yet.
  EmbeddedCloudHub(std::string path, std::string user, double longestWait = 2);
  ~EmbeddedCloudHub() override;

  News pull(const UUID& replica, const std::string& position) override;
  void push(std::span<const CloudEntry> entries) override;
  int newsDescriptor() const override;
  bool isBudgeted() const override { return false; }

 private:
  class File;
  class Bell;
  File& file();
  template <class Work>
  void attempt(const char* what, Work work);

  const std::string path_;
  const std::string user_;
  const double longestWait_;
  std::unique_ptr<File> file_;
  std::unique_ptr<Bell> bell_;
};

}  // namespace tessarine
