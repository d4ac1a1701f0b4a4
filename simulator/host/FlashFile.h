#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "base/FileDescriptor.h"
#include "simulator/host/WholeFile.h"

namespace orvane {

/// The file with the contents of a flash. It is locked for as long as the object exists, so that no
/// other instrument uses it, and is replaced whole or not at all, see WholeFile.
class FlashFile {
 public:
  /// Opens and locks the file, and finds out whether it can be saved. Does not wait: neither for a
  /// lock nor for the other end of a pipe. Removes what runs that were killed have left for it.
  /// @throw std::runtime_error, with a text for the user
  explicit FlashFile(const std::string& path);

  /// What the flash holds at power-on: at most NorFlashModel::kBytes.
  /// @throw std::runtime_error, with a text for the user, when it cannot be read or is larger
  std::vector<std::uint8_t> Load() const;

  /// Replaces the contents, once. A file that holds them already is not written. A file that
  /// somebody else has replaced, removed or changed since it was opened is left as it is, which is
  /// an error.
  /// @throw std::runtime_error, with a text for the user
  void Save(std::span<const std::uint8_t> contents) const;

 private:
  struct Locked {
    WholeFile whole;
    FileDescriptor file;
  };
  FlashFile(const std::string& path, Locked locked);
  static Locked OpenLocked(const std::string& path);
  void Read(const std::function<bool(std::span<const std::uint8_t>)>& take) const;
  bool Holds(std::span<const std::uint8_t> contents) const;
  void RefuseChanged() const;

  std::string path_;
  WholeFile whole_;
  FileDescriptor file_;
  struct stat opened_ {};
};

}  // namespace orvane
