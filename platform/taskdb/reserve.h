// Disk space kept back beside the database, so that a failure can be recorded on a full disk.
#pragma once

#include <string>

namespace TaskDB {

/// 1 MiB: room for the write-ahead log of any record (2.5 MB of result are refused by the API, usual ones are
/// some KB).
inline constexpr long long kReserveBytes = 1024LL * 1024;

/// The file "<database>-reserve", allocated and never read. Any thread, any process.
class Reserve {
 public:
  explicit Reserve(std::string const& databasePath) : path_(databasePath + "-reserve") {}

  /// Makes the file when it isn't there and there is room for it.
  void Ensure() const;
  /// Gives the space back to the file system; false when there was none.
  bool Release() const;

 private:
  std::string path_;
};

}  // namespace TaskDB
