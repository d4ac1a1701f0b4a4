#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/boards/AttributeFiles.h"
#include "simulator/boards/ModuleOptions.h"
#include "simulator/chips/FpgaConfiguration.h"
#include "simulator/chips/NorFlashModel.h"
#include "simulator/timing/ByteClock.h"
#include "simulator/timing/ClockedPart.h"
#include "simulator/trace/RunObserver.h"

namespace orvane {

/// A chip on an I2C bus.
class I2cDevice {
 public:
  I2cDevice() = default;
  I2cDevice(const I2cDevice&) = delete;
  I2cDevice& operator=(const I2cDevice&) = delete;
  virtual ~I2cDevice() = default;

  /// The bytes of one message to the chip.
  virtual void Write(std::span<const std::uint8_t> bytes) = 0;
  /// Fills `bytes` with one message from the chip.
  virtual void Read(std::span<std::uint8_t> bytes) = 0;
};

/// A plug-in module: a board with a configuration flash, and what decides who can access it. The
/// derived classes add what a kind of board has beyond that.
class Module : public AttributeFiles, public ClockedPart {
 public:
  /// @param flashContents  what the flash holds at power-on, at most NorFlashModel::kBytes
  Module(ModuleOptions options, std::span<const std::uint8_t> flashContents);
  const ModuleOptions& Options() const { return options_; }
  unsigned Slot() const { return options_.slot; }
  const NorFlashModel& Flash() const { return flash_; }

  /// Everything between chip select falling and rising on the module's SPI bus.
  /// @param miso   as long as `mosi`; every byte is written
  /// @param clock  told of each byte as it passes; it may call AdvanceTime
  virtual void Transfer(std::span<const std::uint8_t> mosi,
                        std::span<std::uint8_t> miso,
                        ByteClock& clock) = 0;

  /// Whether the module's I2C bus has a multiplexer, whose channels are adapters of their own.
  virtual bool HasMux() const { return false; }

  /// @param channel  of the multiplexer; none: the bus of the module itself
  /// @return the chip that acknowledges this address, owned by the module; or null
  virtual I2cDevice* FindI2c(std::optional<unsigned> channel, std::uint16_t address);

  void AdvanceTime(std::chrono::nanoseconds by) override;
  std::chrono::nanoseconds NextChange() const override { return flash_.NextChange(); }
  bool ChipBusy() const override { return flash_.Busy(); }
  bool AwaitsPoll() const override { return flash_.AwaitsPoll(); }

  /// The lines of the board that an observer is told of, in the order of Line.
  virtual std::vector<LineLevel> Lines() const = 0;

  /// How the module is, as words NAME=VALUE: "done=1", more by board, all of which can be seen from
  /// outside, and then LastWords().
  virtual std::string DescribeState() const = 0;

  /// @return what the module's FPGA has loaded: the whole flash as it was then; none: nothing
  std::optional<std::vector<std::uint8_t>> LoadedContents() const { return flash_.Remembered(); }

 protected:
  /// What every board has: "registers=24:0f", the chip's registers without the bits that it loses
  /// with its power, where the options name them; and "loaded=current" when what is loaded is what
  /// the flash holds now, else "loaded=other", or "loaded=none" when nothing is loaded.
  std::string LastWords(const FpgaConfiguration& configuration) const;
  NorFlashModel& FlashChip() { return flash_; }

 private:
  ModuleOptions options_;
  NorFlashModel flash_;
};

}  // namespace orvane
