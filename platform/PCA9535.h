#pragma once

class SerialDeviceInterface;

/// The instrument platform's driver of a PCA9535 16-bit I2C GPIO expander. Bit n of every word is
/// line n: port 0 is bits 0 to 7, port 1 is bits 8 to 15.
class PCA9535 {
 public:
  /// @param bus    borrowed; must outlive this object, which opens and closes it. No bus traffic.
  /// @param flags  always 1 here; the meaning is the library's own
  PCA9535(SerialDeviceInterface* bus, unsigned char flags);
  PCA9535(const PCA9535&) = delete;
  PCA9535& operator=(const PCA9535&) = delete;
  ~PCA9535();

  /// Addresses the expander and sets up the lines in `mask`: their levels, then their directions.
  /// @param address    7-bit I2C address
  /// @param direction  1 marks an input
  /// @param outputs    level of each output line
  /// @param mask       the lines that may change
  /// @param flags      always 0 here; the meaning is the library's own
  /// @return false at the first step that fails
  bool connect(unsigned char address,
               unsigned short direction,
               unsigned short outputs,
               unsigned short mask,
               unsigned char flags);

  /// Drives the lines in `mask` to `outputs`. A failure is not reported.
  void setPortActually(unsigned short outputs, unsigned short mask);

  /// @return the levels of the lines in `bits`; 0 when they cannot be read
  unsigned short getPort(unsigned short bits);

  /// Makes the lines in `mask` inputs and closes the bus. A failure is not reported.
  void disconnect(unsigned short mask);

 private:
  SerialDeviceInterface* bus_;
};
