#pragma once

#include "programmers/ExpanderFlashProgrammer.h"

/// Programs the pyx2 module, whose flash holds a Zynq boot image, compared by its build date.
/// Connect() never reads DONE. The SPI path of its slot is switched to the controller for the
/// lifetime of the programmer.
class Pyx2FlashProgrammer : public ExpanderFlashProgrammer {
 public:
  /// Creates the flash driver and selects the SPI master; the parameters are those of
  /// ExpanderFlashProgrammer. When selecting throws, only the driver is destroyed.
  Pyx2FlashProgrammer(PCA9535* expander,
                      SPIDev* spi,
                      GpioProgrammingInterface* lines,
                      unsigned int module);
  Pyx2FlashProgrammer(const Pyx2FlashProgrammer&) = delete;
  Pyx2FlashProgrammer& operator=(const Pyx2FlashProgrammer&) = delete;

  /// As the free function in BootHeader.h, with its own line for a field without '#'.
  std::string SearchBuildDateInUDFHeader(std::string file);

  /// As the free function in BootHeader.h, without the file name.
  bool IsFlashUpgradeRequired(std::string dump, std::string image);

  /// Routes the slot's SPI lines to the controller.
  /// @return 0, or -1 after one line on standard error
  int Select_SPIMaster(int module);

  /// Routes the slot's SPI lines back to the OTDR.
  /// @return 0, or -1 after one line on standard error
  int Select_OTDR(int module);

  /// Releases the expander lines, selects the OTDR path, then destroys the flash driver.
  ~Pyx2FlashProgrammer() override;

 private:
  void TakeFlashOver() override;
  void PulseReset() override;
  bool CompareBuilds(const std::string& dumpPath, const std::string& imagePath) override;
};
