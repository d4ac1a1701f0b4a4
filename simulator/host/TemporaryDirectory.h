#pragma once

#include <string>

namespace orvane {

/// A fresh directory for sockets and the like, which goes with the object, contents included. It
/// lies in $TMPDIR, or in /tmp when that path is too long for a socket's address or contains what
/// LD_PRELOAD or a D-Bus address cannot carry.
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
