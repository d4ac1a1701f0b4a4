#pragma once

#include <optional>
#include <string>
#include <utility>

#include "base/FileDescriptor.h"
#include "simulator/host/FilePlace.h"

namespace orvane {

/// A file that a run writes: one that is there already or not; a device or a pipe; or a descriptor
/// that the run was started with, such as /dev/stderr. This one is copied, so that it writes at the
/// same position as every other user of it.
class OutputFile {
 public:
  /// Opens nothing and creates nothing.
  /// @param kind  for texts: "log file"
  /// @throw std::system_error, with a text for the user
  OutputFile(const std::string& kind, std::string path);

  const FilePlace& Place() const { return place_; }
  /// Hands the place over, after which this object has none.
  FilePlace TakePlace() { return std::move(place_); }
  /// How texts of exceptions start: "cannot write log file 'x'".
  const std::string& Failing() const { return failing_; }

  /// Whether it is an ordinary file, or none yet: not a device, a pipe or a descriptor.
  bool IsOrdinary() const;

  /// Opens it for writing, creates it if there is none, and keeps what it holds. Does not wait: a
  /// pipe that nobody reads is refused with ENXIO. Calls of write() then wait as usual. May be called
  /// once.
  /// @throw std::system_error, with a text for the user
  FileDescriptor Open();

  [[noreturn]] void Fail() const;

 private:
  std::string path_;
  std::string failing_;
  FilePlace place_;
  std::optional<FileDescriptor> own_;
};

}  // namespace orvane
