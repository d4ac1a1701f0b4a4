#pragma once

#include "programmers/BitstreamFlashProgrammer.h"

/// Programs the pyx1 module. The SPI path of its slot is switched to the controller for the
/// lifetime of the programmer.
class Pyx1FlashProgrammer : public BitstreamFlashProgrammer {
 public:
  /// Creates the flash driver and selects the SPI master; the parameters are those of
  /// ExpanderFlashProgrammer. When selecting throws, only the driver is destroyed.
  Pyx1FlashProgrammer(PCA9535* expander,
                      SPIDev* spi,
                      GpioProgrammingInterface* lines,
                      unsigned int module);
  Pyx1FlashProgrammer(const Pyx1FlashProgrammer&) = delete;
  Pyx1FlashProgrammer& operator=(const Pyx1FlashProgrammer&) = delete;

  /// Routes the slot's SPI lines to the controller. A selector file that cannot be opened is
  /// reported on standard output, any other failure on standard error.
  /// @return 0, or -1 after one line
  int Select_SPIMaster(int module);

  /// Routes the slot's SPI lines back to the OTDR.
  /// @return 0, or -1 after one line on standard error
  int Select_OTDR(int module);

  /// Releases the expander lines, selects the OTDR path, then destroys the flash driver.
  ~Pyx1FlashProgrammer() override;

 private:
  void ReportNoTimeStamp(const std::string& file) override;
};
