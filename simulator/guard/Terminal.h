#pragma once

#include <sys/types.h>

namespace orvane {

/// The terminal that is our standard input. One process group at a time is in its foreground: only
/// that reads from it and gets the signals of its keys. The caller blocks SIGTTOU, or a change from
/// the background would stop it.
class Terminal {
 public:
  /// @param isStandardInput  false: there is none, and nothing here has an effect
  explicit Terminal(bool isStandardInput);

  bool Exists() const { return exists_; }
  /// Whether our own group is in the foreground.
  bool IsOurs() const;
  /// Puts a group into the foreground. May be called between fork and exec.
  void Set(pid_t group) const;
  /// Puts our group back into the foreground when `group` is there, or one without processes.
  /// A foreground that a shell has given to somebody else is left alone.
  void TakeBack(pid_t group) const;

 private:
  bool exists_;
};

}  // namespace orvane
