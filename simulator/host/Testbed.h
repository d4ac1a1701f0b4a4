#pragma once

#include <string>
#include <string_view>

#include "simulator/boards/I2cTopology.h"

struct _UMockdevTestbed;  // NOLINT(bugprone-reserved-identifier): the library's name for it

namespace orvane {

/// The trees that programs see instead of /sys and in front of /dev. Device nodes are empty files:
/// whoever opens them is served by the link. The directory goes with the object.
class Testbed {
 public:
  /// @param directory  where the trees are built
  /// @throw std::runtime_error
  explicit Testbed(const std::string& directory);
  Testbed(const Testbed&) = delete;
  Testbed& operator=(const Testbed&) = delete;
  ~Testbed();

  /// Where a path of the instrument really is: below the trees.
  std::string RealPath(std::string_view path) const;

  /// Creates a file, and the directories above it.
  /// @throw std::runtime_error
  void AddFile(std::string_view path, std::string_view contents) const;

  /// Gives a file that is there other contents. At no time is it empty for others to see.
  /// @throw std::system_error
  void SetFile(std::string_view path, std::string_view contents) const;

  /// Takes a file away.
  void RemoveFile(std::string_view path) const;

  /// Adds a device of subsystem i2c that udev finds.
  void AddAdapter(const I2cAdapter& adapter);

 private:
  std::string root_;
  _UMockdevTestbed* testbed_;  // owned
};

}  // namespace orvane
