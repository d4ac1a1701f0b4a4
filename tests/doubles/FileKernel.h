#pragma once

#include <cstddef>
#include <functional>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "tests/doubles/EventLog.h"
#include "tests/doubles/Kernel.h"

/// A kernel that keeps its files in memory. Its descriptors count from 100; a call on any other
/// one, but for negative ones, reaches the operating system. A call on a descriptor of its own that
/// is not open ends the process. It has no ioctl(). A sleep takes time on the FakeClock only.
class FileKernel : public Kernel {
 public:
  /// How a call ends.
  struct Fate {
    int error = 0;  ///< the errno that it fails with; 0 for none
    std::size_t most = std::numeric_limits<std::size_t>::max();  ///< the bytes it moves at most
  };

  /// Called before open, close, read, write, lseek and nanosleep, by these names.
  /// @param path  empty for nanosleep, which leaves half of its time when it fails
  using Decide = std::function<Fate(const char* call, const std::string& path)>;

  /// @param log  borrowed; takes each call in the words of KernelCall; null for none
  explicit FileKernel(EventLog* log = nullptr, Decide decide = nullptr);

  std::map<std::string, std::string> files;  ///< contents, by path
  Decide decide;                             ///< null lets every call go through

  /// @return whether a Fate made any call on a file, except a close, fail or move less
  [[nodiscard]] bool Disturbed() const { return disturbed_; }

  /// @return the paths that are open, one for each descriptor, in the order of their opening
  [[nodiscard]] std::vector<std::string> OpenFiles() const;

  /// @return how many descriptors of one file are open
  [[nodiscard]] std::size_t OpenCount(const std::string& path) const;

  [[nodiscard]] bool Owns(int fd) const override;
  int Open(const char* path, int flags, mode_t mode) override;
  int Close(int fd) override;
  ssize_t Read(int fd, void* buffer, std::size_t length) override;
  ssize_t Write(int fd, const void* buffer, std::size_t length) override;
  off_t Seek(int fd, off_t offset, int whence) override;
  int Ioctl(int fd, unsigned long request, void* argument) override;
  int Usleep(useconds_t microseconds) override;
  unsigned Sleep(unsigned seconds) override;
  int Nanosleep(const timespec* duration, timespec* left) override;

 protected:
  /// @return the path of an open descriptor
  const std::string& PathOf(int fd) { return At(fd).path; }

 private:
  struct Position {
    std::string path;
    std::size_t at = 0;
  };

  Position& At(int fd);
  /// @return how a call ends; notes whether that is a disturbance
  Fate NextFate(const char* call, const std::string& path, std::size_t length = 0);
  /// @param call  returns the KernelCall to log; not called without a log
  template <typename Call>
  void Log(Call call);

  EventLog* log_;
  bool disturbed_ = false;
  std::map<int, Position> open_;
  int next_;
};
