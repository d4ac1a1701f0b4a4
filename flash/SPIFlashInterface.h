#pragma once

#include <string>

/// A serial flash device as the programmers use it. The int-returning operations return 0 on
/// success and one small code per kind of failure; the codes are the implementation's contract.
class SPIFlashInterface {
 public:
  SPIFlashInterface() = default;
  SPIFlashInterface(const SPIFlashInterface&) = delete;
  SPIFlashInterface& operator=(const SPIFlashInterface&) = delete;

  /// Opens the bus and identifies the chip.
  virtual int Connect(bool verbose) = 0;

  /// Writes the image in `file` from `startAddr` on. Never erases.
  virtual int ProgramDevice(int startAddr, std::string file) = 0;

  /// Erases `length` bytes from `startAddr` on.
  virtual int EraseDevice(int startAddr, int length) = 0;

  /// Writes `length` bytes of flash from `startAddr` on to the open descriptor `fd`, borrowed.
  virtual int ReadDevice(int startAddr, int length, int fd) = 0;

  /// Protects the contents again, where the chip can. The bus stays open.
  virtual void Disconnect() = 0;

  /// Removes the protection, where the chip has one.
  virtual void UnlockMemory() = 0;

  virtual ~SPIFlashInterface() = default;
};
