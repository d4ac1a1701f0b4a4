#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "devices/SerialDeviceInterface.h"

/// One slave address on one Linux i2c-dev node (kernel document i2c/dev-interface.rst), accessed
/// with the I2C_RDWR ioctl. Prints nothing. Owns its descriptor.
class I2CDev : public SerialDeviceInterface {
 public:
  /// Does not open the node.
  /// @param path  i2c-dev node, such as "/dev/i2c-1"
  explicit I2CDev(std::string path);
  I2CDev(const I2CDev&) = delete;
  I2CDev& operator=(const I2CDev&) = delete;

  /// @return true unless the descriptor is -1
  bool is_open() override;

  /// Opens the node for one slave. While it is open, nothing happens and the address stays.
  /// @param address  7-bit slave address
  /// @return the descriptor, or the negative result of the failed open
  int open(std::uint8_t address) override;

  /// Closes the descriptor; the system call is made even when it is -1.
  void close() override;

  /// Register read in one transaction:
  ///   START | addr W | tx[0..txLen) | repeated START | addr R | rx[0..rxLen) | STOP
  /// Both messages are sent even when txLen is 0.
  /// @param rx,tx   borrowed for the call; each length is cut to its low 16 bits on the wire
  /// @return rxLen cut to 32 bits; 0 on failure (no acknowledge, bus error) or while closed
  int read(std::uint8_t* rx, std::size_t rxLen, std::uint8_t* tx, std::size_t txLen) override;

  /// Sends `txLen` bytes in one write message.
  /// @param tx  borrowed for the call; on the wire the length is cut to its low 16 bits
  /// @return txLen cut to 32 bits; 0 on failure or while closed
  int write(std::uint8_t* tx, std::size_t txLen) override;

  /// Finds the bus of one channel of the I2C multiplexer that is on `parentBus`: the first adapter,
  /// in udev's order, with the name that the kernel's i2c-mux core gives to a channel.
  /// @param parentBus  such as "i2c-1"
  /// @param channel    channel number of the kernel (chan_id)
  /// @return the channel's bus name, such as "i2c-5"; empty when there is none or udev fails
  static std::string FindI2CBusNameOfMuxChannel(std::string parentBus, int channel);

  /// Closes the descriptor as close() does.
  ~I2CDev() override;

 private:
  static constexpr int kClosed = -1;

  std::string path_;
  std::uint8_t address_ = 0;
  int fd_ = kClosed;
};
