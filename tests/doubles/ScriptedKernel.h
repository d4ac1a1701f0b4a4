#pragma once

#include <linux/spi/spidev.h>

#include <deque>
#include <initializer_list>
#include <string>
#include <vector>

#include "tests/doubles/Kernel.h"
#include "tests/doubles/KernelCall.h"

/// A kernel that follows a script of calls. The first call that is not the next one of the script
/// fails the test and shows both; from then on every call fails with EIO and nothing more is
/// reported, because it would only be a consequence.
class ScriptedKernel : public Kernel {
 public:
  ScriptedKernel() = default;
  /// Fails the test when the script is not at its end.
  ~ScriptedKernel() override;

  /// Adds to the end of the script.
  void Expect(const std::vector<KernelCall>& calls);

  /// Fails the test when the script is not at its end, and empties it.
  void Verify();

  /// @return the transfers of the last SPI message, as the code under test handed them over
  [[nodiscard]] const std::vector<spi_ioc_transfer>& LastSpiMessage() const { return spi_; }

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
  struct Buffer {
    std::uint8_t* data;
    std::size_t length;
  };

  /// Answers the call: advances the FakeClock, fills the buffers, sets errno.
  /// @return the scripted call, or one that fails with EIO
  KernelCall Answer(const KernelCall& made, const std::vector<Buffer>& receive = {});

  std::deque<KernelCall> script_;
  bool derailed_ = false;
  std::vector<spi_ioc_transfer> spi_;
};
