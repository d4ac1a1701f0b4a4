#pragma once

#include "simulator/boards/Module.h"
#include "simulator/chips/ZynqModel.h"

namespace orvane {

/// A wend: a Zynq with three control files; nothing is on its I2C bus.
///
///   /sys/platform_m<slot>/qspi_prg/value         written; "1": the controller owns the flash
///   /sys/platform_m<slot>/zynq_hw_reset_n/value  written; "0": in reset
///   /sys/platform_m<slot>/zynq_done/value        read; "1": configured
class WendModule : public Module {
 public:
  WendModule(const ModuleOptions& options, std::span<const std::uint8_t> flashContents);

  void Transfer(std::span<const std::uint8_t> mosi,
                std::span<std::uint8_t> miso,
                ByteClock& clock) override;
  std::vector<std::string> AttributePaths() const override;
  std::optional<std::string> ReadAttribute(std::string_view path) override;
  int WriteAttribute(std::string_view path, std::string_view value) override;
  void AdvanceTime(std::chrono::nanoseconds by) override;
  std::chrono::nanoseconds NextChange() const override;
  std::vector<LineLevel> Lines() const override;
  std::string DescribeState() const override;

 private:
  std::string qspiPrgPath_;
  std::string hwResetPath_;
  std::string donePath_;
  ZynqModel zynq_;
};

}  // namespace orvane
