#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "devices/SerialDeviceInterface.h"

/// One Linux spidev node (kernel document spi/spidev.rst), accessed with the SPI_IOC_MESSAGE ioctl:
/// chip select stays asserted for exactly one write() or one read().
/// Owns its descriptor. Single-threaded, one object per node.
class SPIDev : public SerialDeviceInterface {
 public:
  /// Reads the transfer limit, see GetBufsiz(); does not open the node.
  /// @param path   spidev node, such as "/dev/spidev1.0"
  /// @param speed  clock rate in Hz, put into every transfer
  /// @param mode   SPI mode byte (SPI_MODE_* bits), set when the node is opened
  /// @param bits   bits per word
  SPIDev(std::string path, unsigned int speed, std::uint8_t mode, std::uint8_t bits);
  SPIDev(const SPIDev&) = delete;
  SPIDev& operator=(const SPIDev&) = delete;

  /// @return true unless the descriptor is -1
  bool is_open() override;

  /// Opens the node and sets the mode; the driver's own maximum speed is left as it was. Does not
  /// check whether the node is open already: a second call overwrites the first descriptor, which
  /// stays open.
  /// @param address  ignored
  /// @return the descriptor, or a negative value; nothing is printed
  int open(std::uint8_t address) override;

  /// Closes the descriptor; the system call is made even when it is -1.
  void close() override;

  /// Sends `txLen` bytes, then receives `rxLen` bytes, under one chip select:
  ///   CS low | tx[0..txLen) | rx[0..rxLen) | CS high
  /// @param rx     at least rxLen bytes, borrowed for the call
  /// @param tx     borrowed for the call; null, or txLen 0, skips the command phase
  /// @return rxLen cut to 32 bits; 0 on failure (one line on standard error) or while closed.
  ///         Never splits: the caller keeps each length within GetMaxTransferSize() bytes.
  int read(std::uint8_t* rx, std::size_t rxLen, std::uint8_t* tx, std::size_t txLen) override;

  /// Sends `txLen` bytes under one chip select; what the device sends back is discarded. Uses words
  /// of 8 bits when `txLen` is no whole number of words.
  /// @param tx  borrowed for the call
  /// @return txLen cut to 32 bits; 0 on failure (one line on standard error) or while closed
  int write(std::uint8_t* tx, std::size_t txLen) override;

  /// @return the clock rate asked for, in Hz
  [[nodiscard]] std::uint32_t GetSpeed() const;

  /// @return the longest transfer in bytes that the kernel driver takes
  [[nodiscard]] std::size_t GetMaxTransferSize() const;

  /// @return the path of the node
  [[nodiscard]] std::string getName() const;

  /// Reads the spidev buffer size, module parameter "bufsiz".
  /// @return bytes, not range-checked; 4096 when the parameter cannot be read, or is empty or no
  ///         number (one line on standard error, none for an empty one)
  static std::size_t GetBufsiz();

  /// Closes the descriptor as close() does.
  ~SPIDev() override;

 private:
  static constexpr int kClosed = -1;
  static constexpr std::uint32_t kDefaultDriverMaxSpeedHz = 64'000'000;

  std::string path_;
  int fd_ = kClosed;
  std::uint32_t speed_;
  std::uint8_t mode_;
  std::uint8_t bits_;
  std::uint32_t driverMaxSpeed_ = kDefaultDriverMaxSpeedHz;
  std::size_t maxTransferSize_;
};
