#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "devices/SPIDevOwner.h"
#include "flash/MT25QL128.h"
#include "tests/doubles/FakeClock.h"
#include "tests/doubles/KernelTest.h"
#include "tests/doubles/RedirectedFile.h"

/// What the SPI device prints when the kernel refuses a transfer with EIO.
inline constexpr const char* kReadError = "SpiDev::Read() SPI_IOC_MESSAGE error, errno = 5\n";
inline constexpr const char* kWriteError =
    "SpiDev::Write() SPI_IOC_MESSAGE error, errno = Input/output error file: /dev/spidev1.0\n";

/// A text for Rebuild(): 2^32, or one less where unsigned long, to which the C library converts, has
/// 32 bits.
inline constexpr const char* kBufsiz2To32 =
    sizeof(unsigned long) == sizeof(std::uint64_t) ? "4294967296\n" : "4294967295\n";

/// A flash driver over a real SPIDev on the scripted kernel: /dev/spidev1.0, 10 MHz, 8 bits,
/// transfers of at most 4096 bytes. Only the script advances the time.
class FlashTest : public KernelTest {
 protected:
  using Bytes = kernel::Bytes;

  /// Builds device and driver, closed.
  FlashTest();

  // One chip select each.
  static KernelCall Send(const Bytes& tx);
  static KernelCall Ask(const Bytes& tx, const Bytes& rx);
  /// A command whose answer does not matter: zeros.
  static KernelCall AskZeros(const Bytes& tx, std::size_t rxLength);

  /// Expects the calls of an open that succeeds, and that the driver closes `fd` at the end.
  void ExpectOpening(int fd = 7);

  /// Expects that the driver finds the device closed at the end.
  void ExpectClosedInTheEnd() { fd_ = -1; }

  /// Opens the device without the driver, as descriptor 7.
  void OpenDevice();

  /// Starts over with transfers of at most `bufsiz` bytes, the text of the kernel parameter.
  void Rebuild(const std::string& bufsiz);

  [[nodiscard]] SPIDev* Device() const { return spi_->Get(); }
  MT25QL128& Flash() { return *flash_; }

  /// Destroys the driver, which closes the device, and then the device, which closes again.
  void Destroy();

  void TearDown() override;

 private:
  FakeClock clock_;
  std::optional<RedirectedFile> bufsiz_;
  std::unique_ptr<SPIDevOwner> spi_;
  std::unique_ptr<MT25QL128> flash_;
  int fd_ = -1;
};
