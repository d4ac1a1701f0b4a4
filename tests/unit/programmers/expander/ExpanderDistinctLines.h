#pragma once

#include "programmers/lines/GpioProgrammingInterface.h"

/// A line map without two equal values, so that the log tells which one was taken. The tables of
/// the modules repeat patterns.
class ExpanderDistinctLines final : public GpioProgrammingInterface {
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
