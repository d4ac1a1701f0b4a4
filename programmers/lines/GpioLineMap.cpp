#include "programmers/lines/GpioLineMap.h"

unsigned short GpioLineMap::address() { return lines_.address; }
unsigned short GpioLineMap::io_config() { return lines_.ioConfig; }
unsigned short GpioLineMap::mask() { return lines_.mask; }
unsigned short GpioLineMap::spi_flash_to_fpga_run() { return lines_.spiFlashToFpgaRun; }
unsigned short GpioLineMap::spi_flash_to_fpga_reset() { return lines_.spiFlashToFpgaReset; }
unsigned short GpioLineMap::spi_default_path() { return lines_.spiDefaultPath; }
unsigned short GpioLineMap::spi_imx_to_fpga_reset() { return lines_.spiImxToFpgaReset; }
unsigned short GpioLineMap::spi_imx_to_fpga() { return lines_.spiImxToFpga; }
unsigned short GpioLineMap::spi_imx_to_flash() { return lines_.spiImxToFlash; }
unsigned short GpioLineMap::spi_imx_to_flash_reset() { return lines_.spiImxToFlashReset; }
unsigned short GpioLineMap::cfg_done() { return lines_.cfgDone; }
unsigned short GpioLineMap::cfg_program_b() { return lines_.cfgProgramB; }
unsigned short GpioLineMap::cfg_init_b() { return lines_.cfgInitB; }
