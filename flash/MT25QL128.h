#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "flash/SPIFlashInterface.h"

class SPIDev;

/// Driver of an MT25QL128 serial NOR flash (16 MiB, 3-byte addresses, 256-byte pages, 4 KiB
/// subsectors, 64 KiB sectors) and of Macronix-compatible parts, whose block protection it manages.
/// Every operation blocks until the flash is done.
///
/// The SPI device is borrowed, with one exception: Connect() destroys it when its node cannot be
/// opened. Its owner must be able to notice that (SPIDevOwner does). After that every operation
/// fails without bus traffic, and the destructor does nothing.
class MT25QL128 : public SPIFlashInterface {
 public:
  /// Results of the operations that return int; each operation says below when it returns which.
  static constexpr int kDone = 0;
  static constexpr int kUnavailable = 1;  ///< no SPI device, no answer of the chip, or no image
  static constexpr int kNoDevice = 2;
  static constexpr int kEraseFailed = 3;
  static constexpr int kNotWritten = 4;
  static constexpr int kReadFailed = 5;

  /// Stores the pointer and warns on standard error about a clock of 20 MHz or more. No traffic.
  /// @param spi  may be null; see above for who destroys it
  explicit MT25QL128(SPIDev* spi);
  MT25QL128(const MT25QL128&) = delete;
  MT25QL128& operator=(const MT25QL128&) = delete;

  // --- Whole device -----------------------------------------------------------------------------

  /// Opens the SPI device and identifies the chip; on a lockable chip the whole array is protected.
  /// @param verbose  print the identification on standard output
  /// @return 0; 1 when there is no SPI device, it cannot be opened (it is then destroyed), or no
  ///         chip answers
  int Connect(bool verbose) override;

  /// Writes an image, plain or gzip-compressed, in 256-byte pages. The area must have been erased.
  /// @param startAddr  multiple of 256
  /// @return 0; 1 when the image cannot be opened or there is no SPI device; 2 when the SPI device
  ///         opens as descriptor 0; 4 when startAddr is protected (one line on standard error) or
  ///         a page was not written (the rest is written all the same).
  ///         An image that zlib cannot decompress keeps this from returning.
  int ProgramDevice(int startAddr, std::string file) override;

  /// Erases whole units, rounding `length` down as Erase() does.
  /// @return 0; 2 without an SPI device; 3 when an erase failed; 4 when startAddr is protected (one
  ///         line on standard error)
  int EraseDevice(int startAddr, int length) override;

  /// Erases what the decompressed image will occupy, rounded up to whole 64 KiB sectors.
  /// @return 0; 1 when the image cannot be opened; 2 without an SPI device; 3 when an erase failed;
  ///         4 when startAddr is protected (one line on standard error).
  ///         An image that zlib cannot decompress keeps this from returning.
  int EraseDevice(int startAddr, std::string file);

  /// Writes `length` bytes of flash contents to an open descriptor, borrowed, from its offset on;
  /// discards them when it is -1.
  /// @return 0; 2 without an SPI device; 5 when reading or writing to `fd` failed
  int ReadDevice(int startAddr, int length, int fd) override;

  /// Protects the whole array of a lockable chip. Does not close the SPI device.
  void Disconnect() override;

  /// Removes the protection of a lockable chip.
  void UnlockMemory() override;

  // --- Block protection -------------------------------------------------------------------------

  /// Sets the protect level, with protection starting at address 0, then sleeps 0.5 s. On failure
  /// prints one line on standard error and does not sleep.
  /// @param sectors  protect level, 0..15 (more is capped): 2^(level-1) 64 KiB sectors, 0 for none
  void LockMemorySectors(unsigned sectors);

  /// @return protect level 0..15; 0 on a chip without one and on failure (one line on standard
  ///         error)
  int GetProtectLevel();

  /// @return bytes protected from address 0 on; 0 on a chip without protection and on failure;
  ///         32768 when only the second of its two reads of the level fails
  int GetProtectedSize();

  // --- Commands ---------------------------------------------------------------------------------
  // All return true on success; false without an SPI device or when a transfer fails.

  /// CS low | cmd | CS high
  bool SendCommand(std::uint8_t cmd);

  /// CS low | 06 | CS high
  bool SetWriteEnable();

  /// CS low | cmd | out | CS high
  /// @param out  unchanged on failure
  bool GetStatus(std::uint8_t cmd, std::uint8_t& out);

  /// CS low | 05 | out | CS high
  /// @param out  unchanged on failure
  bool ReadStatusReg(std::uint8_t& out);

  /// CS low | 9F | maker | type | capacity | CS high
  /// @param id  the three bytes in this order; unchanged on failure
  bool ReadId(std::array<std::uint8_t, 3>& id);

  /// ReadId(), then enables the lock logic for maker C2.
  /// With `verbose`, standard output is left in hexadecimal mode with '0' fill.
  /// @return true when the maker byte is not zero
  bool ReadManufIDReg(bool verbose);

  /// CS low | 06 | CS high, then CS low | cmd | 3 address bytes | data[0..len) | CS high, then the
  /// status register until the chip is ready; false when it is still busy after 5 s.
  /// @param data  borrowed; may be null
  /// @param len   bytes of data, -4 or more (false below that); a negative length cuts off the last
  ///              bytes of opcode and address
  bool WriteCommand(std::uint8_t cmd, int addr, int len, std::uint8_t* data);

  /// Programs up to 256 bytes; the chip wraps at the end of the page.
  bool WritePage(int addr, int len, std::uint8_t* data);

  /// Programs `len` bytes in chunks of 256 from `addr` on, which is a multiple of 256. Stops at the
  /// first chunk that fails.
  /// @param data  borrowed; `len` bytes
  bool Write(int addr, int len, std::uint8_t* data);

  /// Erases from `addr` on: whole sectors when `len` is 65536 or more, else whole subsectors. The
  /// rest of `len` stays unerased.
  bool Erase(int addr, int len);

  /// Writes `len` bytes to `fd`, read in one transfer, or discards them when `fd` is -1.
  bool ReadBlock(int fd, int addr, int len);

  /// Writes `len` bytes to `fd`, read in transfers of at most the SPI device's maximum size; fails
  /// when that size is 0.
  bool ReadBlocks(int fd, int addr, int len);

  /// Writes `len` bytes to `fd`, with reads split at 32, 64 and 96 MiB. What lies at a negative
  /// address is not read, nor what lies above 96 MiB when it ends beyond 0x7FFFFFF; both give true.
  bool Read(int fd, int addr, int len);

  /// Closes the SPI device, if it is still there. Does not destroy it.
  ~MT25QL128() override;

 private:
  /// Reads the protected size from the chip.
  /// @return true, after one line on standard error, when startAddr is protected
  bool RefuseIfProtected(int startAddr);

  /// @return bytes to decompress of an image at a time; 0 without an SPI device
  [[nodiscard]] std::size_t ImageChunkBytes() const;

  SPIDev* spi_;
  bool lockLogic_ = false;
};
