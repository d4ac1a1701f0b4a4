#pragma once

#include <linux/i2c.h>
#include <linux/spi/spidev.h>
#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

/// A system call in words, as ScriptedKernel compares it, and the kernel's answer to it.
///   kernel::Open("/dev/spidev1.0", O_RDWR).Returns(7)
///   kernel::SpiMessage(7, {kernel::Tx({0x9F}, 1'000'000, 8), kernel::Rx(3, 1'000'000, 8)})
///       .Receives({0x20, 0xBA, 0x18})
struct KernelCall {
  using Bytes = std::vector<std::uint8_t>;

  std::string text;
  long result = 0;
  int error = 0;                     // errno of a failed call, else 0
  Bytes received;                    // what the call puts into its receive buffers, in order
  std::uint32_t value = 0;           // what it puts where its argument points
  std::chrono::nanoseconds time{0};  // how long it takes, on the FakeClock
  std::function<void()> action;

  [[nodiscard]] KernelCall Returns(long newResult) const;
  /// Returns -1 with this errno, and moves no data.
  [[nodiscard]] KernelCall Fails(int newError) const;
  /// @param bytes  as many as the call asks for, or none: the buffers then stay as they are
  [[nodiscard]] KernelCall Receives(Bytes bytes) const;
  [[nodiscard]] KernelCall Takes(std::chrono::nanoseconds newTime) const;
  /// Does something during the call.
  [[nodiscard]] KernelCall Then(std::function<void()> newAction) const;
};

namespace kernel {

using Bytes = KernelCall::Bytes;

/// One transfer of an SPI message, one message of an I2C transaction.
struct Segment {
  std::string text;
  std::size_t length = 0;
};

/// "9f 00 01"
std::string Hex(std::span<const std::uint8_t> bytes);

/// A transfer that only sends, every other field zero.
Segment Tx(const Bytes& bytes, std::uint32_t speedHz, int bits);
/// A transfer that only receives, every other field zero.
Segment Rx(std::uint32_t length, std::uint32_t speedHz, int bits);
/// A transfer of length zero whose transmit buffer is null, every other field zero.
Segment NoBuffer(std::uint32_t speedHz, int bits);

/// An I2C message that writes, respectively reads.
Segment I2cTx(int address, const Bytes& bytes);
Segment I2cRx(int address, int length);
/// A write of length zero without a buffer.
Segment I2cNoBuffer(int address);

KernelCall Open(const std::string& path, int flags, mode_t mode = 0);
KernelCall Close(int fd);
KernelCall Read(int fd, const Bytes& bytes);
KernelCall Write(int fd, const Bytes& bytes);
/// Returns the offset.
KernelCall Seek(int fd, off_t offset, int whence);
KernelCall Usleep(unsigned microseconds);
KernelCall Sleep(unsigned seconds);
KernelCall Nanosleep(std::chrono::nanoseconds duration);
KernelCall SpiWriteMode(int fd, int mode);
/// Puts `answer` where the argument points.
KernelCall SpiReadMaxSpeed(int fd, std::uint32_t answer);
KernelCall SpiWriteMaxSpeed(int fd, std::uint32_t speedHz);
/// Returns the sum of the lengths, as the kernel does.
KernelCall SpiMessage(int fd, const std::vector<Segment>& transfers);
/// Returns the number of messages, as the kernel does.
KernelCall I2cTransfer(int fd, const std::vector<Segment>& messages);
KernelCall UnknownIoctl(int fd, unsigned long request);

/// @return a buffer of an SPI transfer, which the kernel's struct carries as a number
std::uint8_t* Pointer(std::uint64_t address);

// The same from the arguments of the code under test; every field of every struct is in the text.
Segment Describe(const spi_ioc_transfer& transfer);
Segment Describe(const i2c_msg& message);

}  // namespace kernel
