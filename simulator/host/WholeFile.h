#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "base/FileDescriptor.h"
#include "simulator/host/FilePlace.h"

namespace orvane {

/// A regular file whose contents are replaced whole or not at all. The new contents are a new file
/// in the folder of the old one, which is synchronised and then renamed over it: whenever the
/// process is killed, the place holds the old file or the new one. Symbolic links on the way to the
/// file stay, other hard links keep the old contents. Mode and, where allowed, owner and group are
/// kept.
///
/// The new file has no name until it is complete. Then, and from its start in a folder whose file
/// system has no files without a name, it is called ".NAME.orvane-sim-PID", with the process that
/// writes and as much of NAME as fits. A process that is killed then leaves it; RemoveTemporary()
/// removes it.
class WholeFile {
 public:
  /// Looks at nothing yet.
  /// @param failing  how the text of an exception starts: "cannot write flash file 'a.bin'"
  WholeFile(FilePlace place, std::string failing);

  const FilePlace& Place() const { return place_; }

  /// Finds out, without leaving a trace, whether Write() can work here: the file, if there is one,
  /// is regular, writable and can be renamed over, and the folder takes a new one.
  /// @throw std::system_error
  void Check() const;

  /// @param lastCheck  called before the new file replaces the old one; what it throws keeps that
  /// @throw std::system_error; the old contents are still there then, unless only the folder could
  ///        not be synchronised
  void Write(std::span<const std::uint8_t> contents,
             const std::function<void()>& lastCheck = nullptr) const;

  /// Removes what a process that was killed in Write() has left for this file, if anything.
  /// @param path  of the file, as the process was given it
  static void RemoveTemporary(const std::string& path, pid_t writer);
  /// Likewise for every process that does not exist any more.
  void RemoveLeftovers() const;

 private:
  void CheckTarget() const;
  void CheckFolder() const;
  FileDescriptor Create(const std::string& temporary, bool& isNamed) const;
  void Fill(const FileDescriptor& file, std::span<const std::uint8_t> contents) const;
  void Name(const FileDescriptor& file, const std::string& temporary) const;
  void SynchroniseFolder() const;
  [[noreturn]] void Fail() const;

  FilePlace place_;
  std::string failing_;
};

}  // namespace orvane
