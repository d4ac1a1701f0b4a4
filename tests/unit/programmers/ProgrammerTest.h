#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "devices/SPIDevOwner.h"
#include "platform/PCA9535.h"
#include "programmers/lines/GpioProgrammingInterface.h"
#include "tests/doubles/Console.h"
#include "tests/doubles/EventLog.h"
#include "tests/doubles/FileKernel.h"
#include "tests/doubles/KernelCall.h"
#include "tests/doubles/PlatformDoubles.h"
#include "tests/doubles/RedirectedFile.h"

/// A line map without two equal values, so that the log shows which one was used. In the maps of
/// the modules some patterns are equal.
class DistinctLines final : public GpioProgrammingInterface {
 public:
  unsigned short address() override { return 0xAB31; }
  unsigned short io_config() override { return 0x1002; }
  unsigned short mask() override { return 0x1003; }
  unsigned short spi_flash_to_fpga_run() override { return 0x1004; }
  unsigned short spi_flash_to_fpga_reset() override { return 0x1005; }
  unsigned short spi_default_path() override { return 0x1006; }
  unsigned short spi_imx_to_fpga_reset() override { return 0x1007; }
  unsigned short spi_imx_to_fpga() override { return 0x1008; }
  unsigned short spi_imx_to_flash() override { return 0x1009; }
  unsigned short spi_imx_to_flash_reset() override { return 0x100A; }
  unsigned short cfg_done() override { return 0x100B; }
  unsigned short cfg_program_b() override { return 0x100C; }
  unsigned short cfg_init_b() override { return 0x100D; }
};

/// What a programmer uses, with one log of all of it: system calls, the expander and the console.
/// There is no spidev node, so the flash never answers.
class ProgrammerTest : public testing::Test {
 protected:
  static constexpr unsigned kHz = 20'000'000;  // a flash driver reports that when it is created

  ProgrammerTest() { Forget(); }

  /// Every test says which files stay open; none, unless it does.
  ~ProgrammerTest() override { EXPECT_EQ(kernel_.OpenFiles(), leftOpen_); }

  /// A programmer of a module with an expander.
  template <typename Programmer>
  std::unique_ptr<Programmer> Make(unsigned module = 5) {
    auto programmer = std::make_unique<Programmer>(&expander_, spi_.Get(), &lines_, module);
    Forget();
    return programmer;
  }

  /// Drops what has been logged and printed so far.
  void Forget() {
    static_cast<void>(log_.Take());
    static_cast<void>(console_.TakeOut() + console_.TakeErr());
  }

  EventLog log_;
  Console console_{&log_};
  PlatformDoubles platform_{log_};
  FileKernel kernel_{&log_};
  RedirectedFile bufsiz_{"/sys/module/spidev/parameters/bufsiz", "4096\n"};
  RedirectedFile slotA_{"/sys/platform/module_selector/slotA", "SPISOMETHING\n"};
  RedirectedFile slotB_{"/sys/platform/module_selector/slotB", "SPISOMETHING\n"};
  SPIDevOwner spi_{"/dev/spidev1.0", kHz, 0, 8};
  PCA9535 expander_{nullptr, 1};
  DistinctLines lines_;
  std::vector<std::string> leftOpen_;
};
