#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "base/FileDescriptor.h"

namespace companion {

/// A file that is made whole or not at all: written beside its place, synchronised, then renamed.
/// What is found at its place must be a regular file, whose owner, group and mode are kept; a link is
/// not followed. Both operations return why they failed, one line; empty when they did not.
class OutputFile {
 public:
  explicit OutputFile(const std::string& path);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  /// Removes what has not been stored.
  ~OutputFile();

  /// Creates the file beside its place.
  std::string Prepare();

  /// Once, after Prepare().
  std::string Store(std::span<const std::uint8_t> contents);

 private:
  /// Who can use a file.
  struct Access {
    uid_t owner = 0;
    gid_t group = 0;
    mode_t mode = 0;
  };

  [[nodiscard]] std::string OpenFolder();
  [[nodiscard]] std::string RefuseOther();
  void KeepAccess() const;
  [[nodiscard]] std::string Create();
  [[nodiscard]] std::string Write(std::span<const std::uint8_t> contents) const;
  [[nodiscard]] std::string Failure(const char* verb, int error) const;

  std::string path_;
  std::string folderPath_;
  std::string name_;
  std::string temporary_;         // its name; empty: there is none
  std::optional<Access> former_;  // of the file at its place; empty: there is none
  int folder_ = FileDescriptor::kClosed;
  int file_ = FileDescriptor::kClosed;
};

}  // namespace companion
