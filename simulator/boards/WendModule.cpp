#include "simulator/boards/WendModule.h"

#include <algorithm>

namespace orvane {

namespace {

std::string Path(unsigned slot, const char* name) {
  return "/sys/platform_m" + std::to_string(slot) + "/" + name + "/value";
}

}  // namespace

WendModule::WendModule(const ModuleOptions& options, std::span<const std::uint8_t> flashContents)
    : Module(options, flashContents),
      qspiPrgPath_(Path(options.slot, "qspi_prg")),
      hwResetPath_(Path(options.slot, "zynq_hw_reset_n")),
      donePath_(Path(options.slot, "zynq_done")),
      zynq_(FlashChip(), options.done) {}

void WendModule::Transfer(std::span<const std::uint8_t> mosi,
                          std::span<std::uint8_t> miso,
                          ByteClock& clock) {
  if (zynq_.ControllerOwnsFlash()) {
    FlashChip().Transfer(mosi, miso, clock);
  } else {
    std::fill(miso.begin(), miso.end(), std::uint8_t{0});
    clock.Pass(mosi.size());
  }
}

std::vector<std::string> WendModule::AttributePaths() const {
  if (!Options().controlFiles) {
    return {};
  }
  return {qspiPrgPath_, hwResetPath_, donePath_};
}

std::optional<std::string> WendModule::ReadAttribute(std::string_view path) {
  bool high = false;
  if (path == qspiPrgPath_) {
    high = zynq_.ControllerOwnsFlash();
  } else if (path == hwResetPath_) {
    high = !zynq_.InReset();
  } else {
    high = zynq_.Done();
  }
  return high ? "1\n" : "0\n";
}

int WendModule::WriteAttribute(std::string_view path, std::string_view value) {
  if (path == qspiPrgPath_) {
    zynq_.WriteQspiPrg(WithoutNewline(value));
  } else if (path == hwResetPath_) {
    zynq_.WriteHwReset(WithoutNewline(value));
  }
  return 0;
}

void WendModule::AdvanceTime(std::chrono::nanoseconds by) {
  Module::AdvanceTime(by);
  zynq_.AdvanceTime(by);
}

std::chrono::nanoseconds WendModule::NextChange() const {
  return std::min(Module::NextChange(), zynq_.NextChange());
}

std::vector<LineLevel> WendModule::Lines() const {
  return {{Line::kDone, zynq_.Done()},
          {Line::kReset, !zynq_.InReset()},
          {Line::kQspiPrg, zynq_.ControllerOwnsFlash()}};
}

std::string WendModule::DescribeState() const {
  return std::string("done=") + (zynq_.Done() ? "1" : "0") +
         " qspi_prg=" + (zynq_.ControllerOwnsFlash() ? "1 " : "0 ") +
         LastWords(zynq_.Configuration());
}

}  // namespace orvane
