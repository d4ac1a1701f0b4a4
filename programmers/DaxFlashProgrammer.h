#pragma once

#include "programmers/BitstreamFlashProgrammer.h"

/// Programs the dax module. After the write its FPGA is neither reset nor asked for DONE. Its
/// expander alone routes the SPI bus: there is no module selector to switch.
class DaxFlashProgrammer : public BitstreamFlashProgrammer {
 public:
  /// Creates the flash driver; touches no hardware. The parameters are those of
  /// ExpanderFlashProgrammer.
  DaxFlashProgrammer(PCA9535* expander,
                     SPIDev* spi,
                     GpioProgrammingInterface* lines,
                     unsigned int module);
  DaxFlashProgrammer(const DaxFlashProgrammer&) = delete;
  DaxFlashProgrammer& operator=(const DaxFlashProgrammer&) = delete;

  /// Stubs: nothing to select.
  /// @return 0
  int Select_SPIMaster(int module);
  int Select_OTDR(int module);

  /// Releases the expander lines, then destroys the flash driver.
  ~DaxFlashProgrammer() override;

 private:
  void ReportNoTimeStamp(const std::string& file) override;
};
