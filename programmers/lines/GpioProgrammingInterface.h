#pragma once

/// The GPIO expander lines of one module type: a table of constants. Bit n is expander line n, port
/// 0 is bits 0 to 7, port 1 is bits 8 to 15. Patterns hold output levels.
class GpioProgrammingInterface {
 public:
  GpioProgrammingInterface() = default;
  GpioProgrammingInterface(const GpioProgrammingInterface&) = delete;
  GpioProgrammingInterface& operator=(const GpioProgrammingInterface&) = delete;

  virtual ~GpioProgrammingInterface() = default;

  /// @return 7-bit I2C address of the module's PCA9535, in the low byte
  virtual unsigned short address() = 0;
  /// @return direction word, 1 marks an input
  virtual unsigned short io_config() = 0;
  /// @return the lines that a programmer may change
  virtual unsigned short mask() = 0;

  /// Flash routed to the FPGA, FPGA released: it runs from flash.
  virtual unsigned short spi_flash_to_fpga_run() = 0;
  /// Flash routed to the FPGA, FPGA held in reset.
  virtual unsigned short spi_flash_to_fpga_reset() = 0;
  /// The routing at power-on.
  virtual unsigned short spi_default_path() = 0;
  /// Controller SPI routed to the FPGA, FPGA held in reset.
  virtual unsigned short spi_imx_to_fpga_reset() = 0;
  /// Controller SPI routed to the FPGA, FPGA running.
  virtual unsigned short spi_imx_to_fpga() = 0;
  /// Controller SPI routed to the flash: the path to read and write it.
  virtual unsigned short spi_imx_to_flash() = 0;
  /// Controller SPI routed to the flash, FPGA held in reset.
  virtual unsigned short spi_imx_to_flash_reset() = 0;

  /// @return the bit of the FPGA's DONE output
  virtual unsigned short cfg_done() = 0;
  /// @return the bit of the FPGA's PROGRAM_B input
  virtual unsigned short cfg_program_b() = 0;
  /// @return the bit of the FPGA's INIT_B line
  virtual unsigned short cfg_init_b() = 0;
};
