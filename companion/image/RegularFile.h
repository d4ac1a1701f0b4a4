#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "base/FileDescriptor.h"

namespace companion {

/// A regular file that is open for reading. Nothing else is opened: a device is not touched, and a
/// pipe does not make the process wait.
class RegularFile {
 public:
  explicit RegularFile(const std::string& path);

  /// @return why it cannot be read (one line); empty as long as it can
  [[nodiscard]] const std::string& Refusal() const { return refusal_; }

  /// @return its size when it was opened, in bytes
  [[nodiscard]] std::uint64_t Size() const { return size_; }

  /// Reads on until `bytes` has `total` bytes or the file ends. Not after a refusal; Refusal() tells
  /// of a failure.
  void ReadUpTo(std::size_t total, std::vector<std::uint8_t>& bytes);

 private:
  int Open(const std::string& path);
  void RefuseForErrno(const char* what);

  std::string name_;
  std::string refusal_;
  std::uint64_t size_ = 0;
  FileDescriptor file_;  // last: the others are set when it is opened
};

}  // namespace companion
