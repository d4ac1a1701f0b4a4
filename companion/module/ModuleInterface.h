#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace companion {

/// Why an operation on the module did not succeed, for a reader. Empty: it did.
struct Problem {
  std::string text;     ///< one line: what could not be done, and what was seen
  std::string console;  ///< what the program's classes printed meanwhile
  explicit operator bool() const { return !text.empty(); }
};

/// The names of a module's devices, from the bus.
struct ModuleNames {
  bool populated = false;  ///< the slot is in the inventory
  std::string i2cBus;      ///< of the expander: "i2c-4", or the multiplexer's channel
  std::string spiDev;      ///< "spidev4.0"
};

enum class DoneLine { kUnknown, kLow, kHigh };

/// The PCIe endpoint of a pyx, as /sys/bus/pci shows it.
enum class Endpoint {
  kNone,       ///< the type has none
  kNotListed,  ///< the slot is not found there
  kUnknown,    ///< the slot is found there, and cannot be read
  kAbsent,
  kDisabled,
  kEnabled,
};

/// Identification and registers of the flash chip.
struct Chip {
  std::array<std::uint8_t, 3> id{};    ///< maker, type, capacity
  std::uint8_t status = 0;             ///< status register
  std::optional<std::uint8_t> config;  ///< configuration register, of a lockable chip
  /// @return true for a chip whose protection `tarnwick` manages
  [[nodiscard]] bool IsLockable() const;
  /// @return true when the whole array is protected, counted from address 0, as `tarnwick` leaves it
  [[nodiscard]] bool IsLockedWhole() const;
  /// @return true when any block is protected, on a chip of any maker
  [[nodiscard]] bool IsProtected() const;
};

/// How contents differ from an image. All addresses are in bytes.
struct Difference {
  std::uint32_t firstAddress = 0;
  std::uint8_t expected = 0;
  std::uint8_t found = 0;
  std::size_t pages = 0;  ///< pages of 256 bytes that differ
  bool operator==(const Difference&) const = default;
};

/// What a reading of the whole module found. The flash contents are certain when `problem` is empty
/// and `unsteadyAddress` has no value.
struct ModuleReading {
  Problem problem;                          ///< not reached, or not read to the end
  Chip chip;                                ///< identified before and after the reading
  DoneLine done = DoneLine::kUnknown;       ///< before the flash was taken
  DoneLine doneAfter = DoneLine::kUnknown;  ///< after it was given back
  bool psMode = false;                      ///< a dax or pyx1 with DONE low went through PS mode
  Endpoint endpoint = Endpoint::kNone;
  std::vector<std::uint8_t> contents;            ///< from address 0, as many bytes as asked for
  std::optional<Difference> difference;          ///< from the expected bytes
  std::optional<std::uint32_t> unsteadyAddress;  ///< first block whose three readings differ
  std::size_t blocksReadAgain = 0;
  bool looksSilent = false;  ///< zeros everywhere, as a line reads that nobody drives
  Problem notGivenBack;      ///< what could not be given back, or looked at after it
};

/// What bringing the flash contents into use came to. A step that failed is named in `problem`.
struct IntoUse {
  Problem problem;
  DoneLine done = DoneLine::kUnknown;   ///< at the end
  bool seenLow = false;                 ///< DONE fell in reset
  Endpoint endpoint = Endpoint::kNone;  ///< at the end
  Problem notGivenBack;
};

/// Everything that is done with the module itself. Each operation runs in a worker process and has
/// given the module back when it returns, unless it says otherwise; each can be repeated.
class ModuleInterface {
 public:
  /// @param done,total  bytes
  using Progress = std::function<void(std::size_t done, std::size_t total)>;

  virtual ~ModuleInterface() = default;

  /// Asks the inventory and the module resources.
  virtual Problem Find(ModuleNames& names) = 0;

  /// Reads the flash and the module's state. Changes nothing in the flash and its chip, and resets
  /// no FPGA that runs. A 4 KiB block that differs from `expected` is read again twice, until one is
  /// certain to differ.
  /// @param length    bytes from address 0, at most kFlashBytes
  /// @param expected  of `length` bytes; empty: read everything twice instead, and take the blocks
  ///                  that differ between both as those that differ
  virtual ModuleReading Read(const ModuleNames& names,
                             std::size_t length,
                             std::span<const std::uint8_t> expected,
                             const Progress& progress) = 0;

  /// Erases the first 64 KiB and programs `page` at address 0, and reads it back.
  virtual Problem WriteHead(const ModuleNames& names, std::span<const std::uint8_t> page) = 0;

  /// Resets the FPGA, waits for DONE and enumerates the endpoint again. Not for a dax.
  virtual IntoUse TakeIntoUse(const ModuleNames& names) = 0;

  /// Protects a lockable chip whole, and reads that back. Nothing on other chips.
  virtual Problem Lock(const ModuleNames& names) = 0;

  /// Gives back what a killed worker or `tarnwick` has left: lines, selector, `qspi_prg`, a reset.
  virtual Problem GiveBack(const ModuleNames& names) = 0;

  /// @param announce  called once, before an FPGA that is not configured is brought into PS mode
  virtual void OnPsMode(std::function<void()> announce) = 0;

  /// From now on a running operation ends as soon as the module is given back, with a problem. Only
  /// Lock() and GiveBack() are still carried out. May be called in a progress callback.
  virtual void Stop() = 0;
};

}  // namespace companion
