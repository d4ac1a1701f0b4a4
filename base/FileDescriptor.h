#pragma once

#include <unistd.h>

#include <utility>

/// Sole owner of an open file within one function. Copying is impossible, and so is assigning over
/// an open one. The destructor closes what is still open.
class FileDescriptor {
 public:
  static constexpr int kClosed = -1;

  /// @param fd  what open() returned; a negative value stands for "nothing open"
  explicit FileDescriptor(int fd = kClosed) : fd_(fd) {}
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(other.Release()) {}
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  FileDescriptor& operator=(FileDescriptor&&) = delete;
  ~FileDescriptor() {
    if (fd_ >= 0) {
      ::close(fd_);
    }
  }

  [[nodiscard]] bool IsOpen() const { return fd_ >= 0; }
  [[nodiscard]] int Get() const { return fd_; }

  /// Hands the descriptor over without closing it; the caller owns it, or leaves it open on
  /// purpose.
  /// @return the descriptor; kClosed when nothing is open
  [[nodiscard]] int Release() { return std::exchange(fd_, kClosed); }

  /// Closes now; the destructor then does nothing.
  /// @return what close() returned, with its errno; -1 (EBADF) when nothing is open
  [[nodiscard]] int Close() { return ::close(Release()); }

 private:
  int fd_;
};
