#pragma once

#include <optional>

#include "simulator/boards/Module.h"
#include "simulator/boards/PcieSlotFiles.h"
#include "simulator/chips/ExpanderFpgaModel.h"
#include "simulator/chips/ModuleSelectorModel.h"

namespace orvane {

/// A dax, pyx1 or pyx2: an FPGA with a GPIO expander. The expander of a dax is on channel 0 of
/// the multiplexer on the module's bus. A pyx has a PCIe endpoint, and its SPI bus reaches it only
/// while the module selector has its slot on the SPI master.
class ExpanderBoard : public Module {
 public:
  /// @param selector  borrowed; outlives this object
  ExpanderBoard(const ModuleOptions& options,
                std::span<const std::uint8_t> flashContents,
                const ModuleSelectorModel& selector);

  void Transfer(std::span<const std::uint8_t> mosi,
                std::span<std::uint8_t> miso,
                ByteClock& clock) override;
  bool HasMux() const override { return !IsPyx(); }
  I2cDevice* FindI2c(std::optional<unsigned> channel, std::uint16_t address) override;
  std::vector<std::string> AttributePaths() const override;
  std::optional<std::string> ReadAttribute(std::string_view path) override;
  int WriteAttribute(std::string_view path, std::string_view value) override;
  void AdvanceTime(std::chrono::nanoseconds by) override;
  std::chrono::nanoseconds NextChange() const override;
  std::vector<LineLevel> Lines() const override;
  std::string DescribeState() const override;

 private:
  /// The expander as the I2C bus sees it.
  class Expander : public I2cDevice {
   public:
    explicit Expander(ExpanderFpgaModel& fpga) : fpga_(fpga) {}
    void Write(std::span<const std::uint8_t> bytes) override { fpga_.WriteExpander(bytes); }
    void Read(std::span<std::uint8_t> bytes) override { fpga_.ReadExpander(bytes); }

   private:
    ExpanderFpgaModel& fpga_;
  };

  bool IsPyx() const { return Options().type != ModuleType::kDax; }

  const ModuleSelectorModel& selector_;
  ExpanderFpgaModel fpga_;
  Expander expander_;
  PcieSlotFiles pcie_;
};

}  // namespace orvane
