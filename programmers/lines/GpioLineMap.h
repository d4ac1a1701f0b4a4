#pragma once

#include "programmers/lines/GpioProgrammingInterface.h"

/// The values that GpioProgrammingInterface returns, one member per accessor.
struct GpioLines {
  unsigned short address;
  unsigned short ioConfig;
  unsigned short mask;
  unsigned short spiFlashToFpgaRun;
  unsigned short spiFlashToFpgaReset;
  unsigned short spiDefaultPath;
  unsigned short spiImxToFpgaReset;
  unsigned short spiImxToFpga;
  unsigned short spiImxToFlash;
  unsigned short spiImxToFlashReset;
  unsigned short cfgDone;
  unsigned short cfgProgramB;
  unsigned short cfgInitB;
};

/// Returns the values of one table, borrowed, which must outlive this object.
class GpioLineMap : public GpioProgrammingInterface {
 public:
  unsigned short address() override;
  unsigned short io_config() override;
  unsigned short mask() override;
  unsigned short spi_flash_to_fpga_run() override;
  unsigned short spi_flash_to_fpga_reset() override;
  unsigned short spi_default_path() override;
  unsigned short spi_imx_to_fpga_reset() override;
  unsigned short spi_imx_to_fpga() override;
  unsigned short spi_imx_to_flash() override;
  unsigned short spi_imx_to_flash_reset() override;
  unsigned short cfg_done() override;
  unsigned short cfg_program_b() override;
  unsigned short cfg_init_b() override;

 protected:
  explicit GpioLineMap(const GpioLines& lines) : lines_(lines) {}

 private:
  const GpioLines& lines_;
};
