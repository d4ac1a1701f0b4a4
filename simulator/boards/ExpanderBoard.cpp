#include "simulator/boards/ExpanderBoard.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace orvane {

namespace {

constexpr unsigned kDaxMuxChannel = 0;

ExpanderModule KindOf(ModuleType type) {
  switch (type) {
    case ModuleType::kDax:
      return ExpanderModule::kDax;
    case ModuleType::kPyx1:
      return ExpanderModule::kPyx1;
    case ModuleType::kPyx2:
      return ExpanderModule::kPyx2;
    case ModuleType::kWend:
      break;
  }
  throw std::logic_error("no module with an expander");
}

}  // namespace

ExpanderBoard::ExpanderBoard(const ModuleOptions& options,
                             std::span<const std::uint8_t> flashContents,
                             const ModuleSelectorModel& selector)
    : Module(options, flashContents),
      selector_(selector),
      fpga_(KindOf(options.type), options.slot, FlashChip(), options.done),
      expander_(fpga_),
      pcie_(options.slot) {
  fpga_.HoldLines(options.heldLines, options.heldLevels);
}

void ExpanderBoard::Transfer(std::span<const std::uint8_t> mosi,
                             std::span<std::uint8_t> miso,
                             ByteClock& clock) {
  const bool selected = !IsPyx() || selector_.OnSpiMaster(Slot());
  if (selected && fpga_.FlashAnswersController()) {
    FlashChip().Transfer(mosi, miso, clock);
  } else {
    std::fill(miso.begin(), miso.end(), std::uint8_t{0});
    clock.Pass(mosi.size());
  }
}

I2cDevice* ExpanderBoard::FindI2c(std::optional<unsigned> channel, std::uint16_t address) {
  const bool here = IsPyx() ? !channel.has_value() : channel == kDaxMuxChannel;
  return here && Options().expander && address == fpga_.ExpanderAddress() ? &expander_ : nullptr;
}

std::vector<std::string> ExpanderBoard::AttributePaths() const {
  return IsPyx() ? pcie_.AttributePaths() : std::vector<std::string>{};
}

std::optional<std::string> ExpanderBoard::ReadAttribute(std::string_view path) {
  return pcie_.ReadAttribute(path);
}

int ExpanderBoard::WriteAttribute(std::string_view path, std::string_view value) {
  return pcie_.WriteAttribute(path, value);
}

void ExpanderBoard::AdvanceTime(std::chrono::nanoseconds by) {
  Module::AdvanceTime(by);
  fpga_.AdvanceTime(by);
}

std::chrono::nanoseconds ExpanderBoard::NextChange() const {
  return std::min(Module::NextChange(), fpga_.NextChange());
}

std::vector<LineLevel> ExpanderBoard::Lines() const {
  std::vector<LineLevel> lines = {{Line::kDone, fpga_.Done()}, {Line::kReset, !fpga_.InReset()}};
  if (IsPyx()) {
    lines.push_back({Line::kSelector, selector_.OnSpiMaster(Slot())});
    lines.push_back({Line::kEndpointPresent, pcie_.Endpoint().Present()});
    lines.push_back({Line::kEndpointEnabled, pcie_.Endpoint().Enabled()});
  }
  return lines;
}

std::string ExpanderBoard::DescribeState() const {
  char lines[] = "driven=0x0000";
  static_cast<void>(
      std::snprintf(lines, sizeof lines, "driven=0x%04x", unsigned{fpga_.DrivenLines()}));
  std::string text = std::string("done=") + (fpga_.Done() ? "1 " : "0 ") + lines;
  if (IsPyx()) {
    text += std::string(" pcie=") + (pcie_.Endpoint().Enabled()   ? "enabled"
                                     : pcie_.Endpoint().Present() ? "present"
                                                                  : "absent");
    text += std::string(" selector=") + (selector_.OnSpiMaster(Slot()) ? "SPIFIFO" : "SPILVDS");
  }
  return text + ' ' + LastWords(fpga_.Configuration());
}

}  // namespace orvane
