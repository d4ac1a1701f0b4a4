#pragma once

#include <cstddef>
#include <cstdint>

/// A device on a serial bus that is accessed in whole transactions. Success is a count equal to the
/// one asked for; 0 is failure, so a request of length zero looks the same as a failed one. The
/// closed expander class calls an implementation through its table of virtual functions: their
/// order is fixed.
class SerialDeviceInterface {
 public:
  SerialDeviceInterface() = default;
  SerialDeviceInterface(const SerialDeviceInterface&) = delete;
  SerialDeviceInterface& operator=(const SerialDeviceInterface&) = delete;

  /// @return true while a device is open
  virtual bool is_open() = 0;

  /// Opens the device.
  /// @param address  address on the bus, where the bus has addresses (I2C: 7 bits)
  /// @return the file descriptor (zero or more), or a negative value on failure
  virtual int open(std::uint8_t address) = 0;

  /// Closes the device. A device that is not open stays so.
  virtual void close() = 0;

  /// Sends `txLen` bytes from `tx`, when given, and then receives `rxLen` bytes into `rx`, as one
  /// transaction. Both buffers are borrowed for the call. The receive buffer comes first.
  /// @return rxLen, cut to 32 bits, or 0 on failure
  virtual int read(std::uint8_t* rx, std::size_t rxLen, std::uint8_t* tx, std::size_t txLen) = 0;

  /// Sends `txLen` bytes from `tx`, borrowed for the call, as one transaction.
  /// @return txLen, cut to 32 bits, or 0 on failure
  virtual int write(std::uint8_t* tx, std::size_t txLen) = 0;

  /// Every implementation closes its device.
  virtual ~SerialDeviceInterface() = default;
};
