#pragma once

#include <string>

#include "base/FileDescriptor.h"

namespace orvane {

/// A directory for sockets and other files of a run. The guard chooses its name and deletes it with
/// this object, contents included; the host creates it. So at each moment at which it is there, there
/// are two processes that know of it. It is in $TMPDIR, or in /tmp when that is not set, is no
/// absolute path, is too long for a socket's address, or has characters that LD_PRELOAD or a D-Bus
/// address cannot hold.
///
/// It is locked (flock) as long as the host lives. Directories of ours there that nobody has locked
/// any more are what killed runs have left, and are deleted first.
class RunDirectory {
 public:
  /// Creates nothing.
  /// @throw std::system_error
  RunDirectory();
  RunDirectory(const RunDirectory&) = delete;
  RunDirectory& operator=(const RunDirectory&) = delete;
  ~RunDirectory();

  const std::string& Path() const { return path_; }

  /// The directory while it is there. Deletes it too, when the process that has created it goes on to
  /// its end: the guard may have been killed then.
  class Contents {
   public:
    /// Creates it.
    /// @throw std::system_error
    explicit Contents(const RunDirectory& directory);
    Contents(const Contents&) = delete;
    Contents& operator=(const Contents&) = delete;
    ~Contents() { Remove(path_); }

   private:
    std::string path_;
    FileDescriptor lock_;
  };

  /// Deletes such a directory, with one descriptor at a time. What cannot be deleted stays.
  static void Remove(const std::string& path);

 private:
  static FileDescriptor Create(const std::string& path);

  std::string path_;
};

}  // namespace orvane
