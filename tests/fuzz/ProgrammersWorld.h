#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/doubles/FileKernel.h"
#include "tests/doubles/RedirectedFile.h"
#include "tests/fuzz/HostileBytes.h"

struct spi_ioc_transfer;
struct i2c_msg;

/// What a programmer uses of an instrument with one module: a spidev node with a flash, an I2C node
/// with an expander, the wend module's control files, the module selector, scratch files. Each call
/// takes one byte of the fuzzer: with 0 it succeeds, with 255 it fails. Control files never fail,
/// because that ends the process.
class ProgrammersWorld : public FileKernel {
 public:
  static constexpr const char* kSpiNode = "/dev/spidev1.0";
  static constexpr const char* kI2cNode = "/dev/i2c-1";

  /// The state of the module at the start, and how it reacts to a reset.
  struct Module {
    unsigned number;
    std::string bufsiz;        // text of the module parameter; empty for none
    std::uint8_t id[3];        // of the flash
    std::string memory;        // the flash from address 0 on
    unsigned readsBeforeDone;  // how often DONE is read low; kNeverDone for ever
    char doneText;             // what a wend module's DONE reads, high: '1'; '0' for a broken one
    std::function<void()> onChange;  // before the first erase or page program
  };
  static constexpr unsigned kNeverDone = 255;

  /// @param disturbances  borrowed
  ProgrammersWorld(const Module& module, HostileBytes& disturbances);
  ProgrammersWorld(const ProgrammersWorld&) = delete;
  ProgrammersWorld& operator=(const ProgrammersWorld&) = delete;

  /// The flash's first bytes, as far as a dump or an image here may reach.
  [[nodiscard]] const std::string& Memory() const { return memory_; }

  /// @return whether an erase or a page program has been sent
  [[nodiscard]] bool HasChanged() const { return changed_; }
  /// @return whether the protection has been taken off
  [[nodiscard]] bool HasUnlocked() const { return unlocked_; }
  /// @return whether the flash has carried out all commands
  [[nodiscard]] bool FlashObeyed() const { return flashObeyed_; }

  /// @return the expander's directions, 1 for an input
  [[nodiscard]] unsigned Directions() const { return registers_[6] | registers_[7] * 0x100U; }
  /// @return whether the expander has answered every transaction, with its true contents
  [[nodiscard]] bool ExpanderObeyed() const { return expanderObeyed_; }
  /// @return whether the last transaction with the expander failed
  [[nodiscard]] bool ExpanderFailedLast() const { return expanderFailedLast_; }

  /// One opening of a slot's file of the module selector.
  struct Selection {
    std::string path;
    std::unique_ptr<RedirectedFile> file;  // what takes the text; null when that does not work
  };
  [[nodiscard]] const std::vector<Selection>& Selections() const { return selections_; }

  /// @return the path of a control file of the module, "qspi_prg" or another
  [[nodiscard]] std::string ControlFile(const std::string& name) const;

  // What the seams call.
  ssize_t Read(int fd, void* buffer, std::size_t length) override;
  int Ioctl(int fd, unsigned long request, void* argument) override;
  int Usleep(useconds_t microseconds) override;

 private:
  using Bytes = std::vector<std::uint8_t>;

  Fate DecideNext(const std::string& call, const std::string& path);
  std::FILE* OpenSelector(const std::string& path, const char* mode);
  int SpiMessage(const spi_ioc_transfer* transfers, std::size_t count);
  /// One chip select.
  /// @param rx  filled
  void Command(const Bytes& tx, std::uint8_t* rx, std::size_t rxBytes);
  void Change(const Bytes& tx);
  int I2cTransaction(const i2c_msg* messages, std::size_t count);
  bool NextReadIsDone();
  void CountCall();

  Module module_;
  HostileBytes& disturbances_;
  std::string memory_;
  bool changed_ = false;
  bool unlocked_ = false;
  bool flashObeyed_ = true;
  bool writeEnabled_ = false;
  std::uint8_t status_ = 0;
  std::uint8_t registers_[8] = {0, 0, 0xFF, 0xFF, 0, 0, 0xFF, 0xFF};
  bool expanderFailedLast_ = false;
  bool expanderObeyed_ = true;
  unsigned doneReads_ = 0;
  std::size_t calls_ = 0;
  std::vector<Selection> selections_;
  RedirectedFile bufsiz_;
  RedirectedFile slotA_;
  RedirectedFile slotB_;
};
