#pragma once

#include <string>
#include <string_view>

#include "simulator/boards/I2cTopology.h"

struct _UMockdevTestbed;  // NOLINT(bugprone-reserved-identifier): the library's name for it

namespace orvane {

/// The trees that programs see instead of /sys and on top of /dev. Device nodes are empty files:
/// the calls of programs on them go over the link. The trees are deleted with the object.
class Testbed {
 public:
  /// @param directory  where the trees are built
  /// @throw std::runtime_error
  explicit Testbed(const std::string& directory);
  Testbed(const Testbed&) = delete;
  Testbed& operator=(const Testbed&) = delete;
  ~Testbed();

  /// The real path, in the trees, of a path of the instrument.
  std::string RealPath(std::string_view path) const;

  /// Creates a file, and the directories above it.
  /// @throw std::runtime_error or std::filesystem::filesystem_error
  void AddFile(std::string_view path, std::string_view contents) const;

  /// Replaces the contents of an existing file. Other processes never find it empty.
  /// @throw std::system_error
  void SetFile(std::string_view path, std::string_view contents) const;

  /// Deletes a file.
  void RemoveFile(std::string_view path) const;

  /// Adds a device of subsystem i2c that udev finds.
  void AddAdapter(const I2cAdapter& adapter);
  void AddClient(const I2cClient& client);

 private:
  void AddI2cDevice(const std::string& path, const std::string& name);

  std::string root_;
  _UMockdevTestbed* testbed_;  // owned
};

}  // namespace orvane
