#pragma once

#include <sys/types.h>
#include <time.h>

#include <cstddef>

/// The system calls that our objects make through the link seams (KernelSeam.cpp). While an object
/// of this class lives, it handles all those of its thread, also those of the test itself;
/// otherwise they reach the operating system. One object at a time. Calls inside the C and C++
/// libraries are not replaced.
class Kernel {
 public:
  Kernel();
  Kernel(const Kernel&) = delete;
  Kernel& operator=(const Kernel&) = delete;
  virtual ~Kernel();

  /// @return the one that lives, or null
  static Kernel* Current();

  /// @return whether this object handles calls on the descriptor; others reach the operating system
  [[nodiscard]] virtual bool Owns(int /*fd*/) const { return true; }

  // Results and errno as the system calls of the same names give them.

  /// @param mode  0 unless `flags` creates a file
  virtual int Open(const char* path, int flags, mode_t mode) = 0;
  virtual int Close(int fd) = 0;
  virtual ssize_t Read(int fd, void* buffer, std::size_t length) = 0;
  virtual ssize_t Write(int fd, const void* buffer, std::size_t length) = 0;
  virtual off_t Seek(int fd, off_t offset, int whence) = 0;
  virtual int Ioctl(int fd, unsigned long request, void* argument) = 0;
  virtual int Usleep(useconds_t microseconds) = 0;
  virtual unsigned Sleep(unsigned seconds) = 0;
  /// std::this_thread::sleep_for() as well.
  virtual int Nanosleep(const timespec* duration, timespec* left) = 0;
};
