#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "simulator/chips/NorFlashModel.h"
#include "tests/doubles/Kernel.h"
#include "tests/doubles/KernelCall.h"

/// A kernel whose only device is the spidev node of a serial NOR flash: each message is one chip
/// select, and a sleep advances the chip's time. As the kernel does, it refuses messages
/// whose sent or received bytes exceed the buffer size. Any other call fails the test.
class ChipKernel : public Kernel {
 public:
  /// @param chip    borrowed
  /// @param bufsiz  bytes, sent and received each
  ChipKernel(orvane::NorFlashModel& chip, std::size_t bufsiz) : chip_(chip), bufsiz_(bufsiz) {}
  /// Fails the test unless just the descriptors that LeaveOpen() names are open.
  ~ChipKernel() override;

  /// These descriptors stay open; they count from 100. Calls on lower ones reach the system.
  void LeaveOpen(std::vector<int> descriptors) { leftOpen_ = std::move(descriptors); }

  /// Lets time pass with each message; none does before.
  void SetMessageTime(std::chrono::nanoseconds time) { messageTime_ = time; }

  /// @return the bytes sent under each chip select so far: all of a write, the command of a read
  [[nodiscard]] const std::vector<kernel::Bytes>& Sent() const { return sent_; }

  /// @return how many of them began with `opcode`
  [[nodiscard]] int CountSent(std::uint8_t opcode) const;

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

 private:
  int Message(const spi_ioc_transfer* transfers, std::size_t count);
  void LetTimePass(std::chrono::nanoseconds time);

  orvane::NorFlashModel& chip_;
  std::size_t bufsiz_;
  std::chrono::nanoseconds messageTime_{0};
  int nextFd_ = 100;
  std::vector<int> open_;
  std::vector<int> leftOpen_;
  std::vector<kernel::Bytes> sent_;
};
