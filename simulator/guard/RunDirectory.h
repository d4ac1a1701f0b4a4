#pragma once

#include <optional>
#include <string>

#include "base/FileDescriptor.h"

namespace orvane {

/// A new directory for sockets and other files of a run, which is deleted with the object, contents
/// included. It is in $TMPDIR, or in /tmp when that is not set, is no absolute path, is too long
/// for a socket's address, or has characters that LD_PRELOAD or a D-Bus address cannot hold.
///
/// It is locked (flock) as long as this process, or one that it has forked, lives. Directories of
/// ours there that nobody has locked any more are what killed runs have left, and are deleted first.
class RunDirectory {
 public:
  /// @throw std::system_error
  RunDirectory();
  RunDirectory(const RunDirectory&) = delete;
  RunDirectory& operator=(const RunDirectory&) = delete;
  ~RunDirectory();

  const std::string& Path() const { return path_; }

  /// Deletes such a directory, with one descriptor at a time. What cannot be deleted stays.
  static void Remove(const std::string& path);

 private:
  std::string path_;
  std::optional<FileDescriptor> lock_;
};

}  // namespace orvane
