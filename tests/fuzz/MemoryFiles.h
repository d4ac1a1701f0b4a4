#pragma once

#include <cstddef>
#include <map>
#include <string>

#include "tests/doubles/Kernel.h"
#include "tests/fuzz/HostileBytes.h"

/// A kernel that keeps its files in memory and disturbs the calls as the fuzzer says, which gives
/// one byte per call: 0 leaves it alone, 255 fails it, anything between cuts a read or a write to
/// so many bytes.
class MemoryFiles : public Kernel {
 public:
  /// @param disturbances  borrowed
  explicit MemoryFiles(HostileBytes& disturbances) : disturbances_(disturbances) {}

  std::map<std::string, std::string> files;

  /// @return whether any call but a close has been failed or cut short
  [[nodiscard]] bool Disturbed() const { return disturbed_; }

  /// @return how many descriptors are open
  [[nodiscard]] std::size_t OpenCount() const { return open_.size(); }
  /// @return the same, of one file
  [[nodiscard]] std::size_t OpenCount(const std::string& path) const;

  /// @return the one that lives, which is also Kernel::Current(); or null
  static MemoryFiles* Current();

  int Open(const char* path, int flags, mode_t mode) override;
  int Close(int fd) override;
  ssize_t Read(int fd, void* buffer, std::size_t length) override;
  ssize_t Write(int fd, const void* buffer, std::size_t length) override;
  off_t Seek(int fd, off_t offset, int whence);
  int Ioctl(int fd, unsigned long request, void* argument) override;
  int Usleep(useconds_t microseconds) override;
  unsigned Sleep(unsigned seconds) override;
  int Nanosleep(const timespec* duration, timespec* left) override;

 protected:
  struct Position {
    std::string path;
    std::size_t at = 0;
  };

  /// @return whether this call fails; errno is EIO then
  bool Fails();

  /// @return the path behind an open descriptor
  const std::string& PathOf(int fd);

 private:
  /// Of the next call that moves data.
  /// @return how many of `length` bytes it moves, negative when it fails
  ssize_t Moved(std::size_t length);

  Position& At(int fd);

  HostileBytes& disturbances_;
  bool disturbed_ = false;
  std::map<int, Position> open_;
  int next_ = 100;  // no descriptor that the process has
};
