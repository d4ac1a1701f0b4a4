#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace orvane {

/// What a test has the system calls with which files are written do, for as long as it exists. One
/// at a time. To be linked with WRAP openat write linkat renameat fsync fchown fchmod unlinkat flock.
class FileCalls {
 public:
  FileCalls();
  FileCalls(const FileCalls&) = delete;
  FileCalls& operator=(const FileCalls&) = delete;
  ~FileCalls();
  static FileCalls* Current();

  /// 0: none has a special effect. From then on, counted from 1, this call kills the process, or
  /// fails with an errno.
  int killAt = 0;
  int failAt = 0;
  int failure = 0;
  /// Every call of this name fails so.
  std::string failingName;
  /// Whether open() fails with this errno for files without a name; 0: it does not.
  int unnamedFailure = 0;
  /// The most that a write() writes; 0: everything.
  std::size_t mostWritten = 0;
  /// So many write() fail with EINTR first.
  int interruptedWrites = 0;
  /// Called before each call.
  std::function<void(const std::string& name)> before;

  std::vector<std::string> names;  // of all calls so far

  /// @return whether the call fails, with errno set
  bool Fails(const std::string& name);
};

}  // namespace orvane
