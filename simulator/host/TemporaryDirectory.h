#pragma once

#include <string>

namespace orvane {

/// A new directory for sockets and other files of a run, which is deleted with the object, contents
/// included. It is in $TMPDIR, or in /tmp when that is not set, is no absolute path, is too long
/// for a socket's address, or has characters that LD_PRELOAD or a D-Bus address cannot hold.
class TemporaryDirectory {
 public:
  /// @throw std::system_error
  TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  ~TemporaryDirectory();

  const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace orvane
