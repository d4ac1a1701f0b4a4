#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "programmers/FlashRouteInterface.h"
#include "programmers/FpgaProgrammerInterface.h"

class MT25QL128;
class SPIDev;

/// Programs the wend module, whose FPGA is a Zynq. Sysfs control files assign its QSPI flash to the
/// controller, hold it in reset and report DONE. When a control file cannot be opened, written,
/// read or closed, the process ends with exit status 1, after one perror line.
class ZynqFlashProgrammer : public FpgaProgrammerInterface, public FlashRouteInterface {
 public:
  /// Creates the flash driver; touches no hardware.
  /// @param spi     borrowed, also by the flash driver, which destroys it when it cannot be opened
  /// @param module  slot number
  ZynqFlashProgrammer(SPIDev* spi, unsigned int module);
  ZynqFlashProgrammer(const ZynqFlashProgrammer&) = delete;
  ZynqFlashProgrammer& operator=(const ZynqFlashProgrammer&) = delete;

  /// Hands the flash to the controller and identifies it.
  /// @return Success or ConnectFailed
  Status Connect() override;

  /// Compares the boot headers of flash and image and, where they differ, rewrites the flash,
  /// compares again, gives the flash back to the Zynq and resets it. Leaves the dumps of the first
  /// 4096 bytes in ./FlashDevice.bin and ./FlashDevice_verif.bin.
  ///
  /// On every return before that the controller keeps the flash and the Zynq is not reset.
  /// @return Success, UpToDate, ConnectFailed, EraseFailed, ProgramFailed or ConfigDoneNotAsserted.
  ///         Throws std::logic_error when the boot header of a dump or of the image cannot be read.
  Status ProgramDevice(std::string imagePath) override;

  /// @return true when the Zynq reports configuration done
  bool IsProgrammed() override;

  /// Writes "1" (the controller owns the flash) or "0" (the Zynq owns it).
  /// @return 0
  int set_qspi_prg(std::string value);

  /// Writes "0" (reset) or "1" (released).
  /// @return 0
  int set_zynq_hw_reset_n(std::string value);

  /// Reads "0" or "1"; anything else ends the process with exit status 1.
  /// @return 0
  int get_zynq_done(std::string& value);

  /// Holds the Zynq in reset for 5 s, then releases it.
  void toggleReset();

  /// Reads DONE at once, then every millisecond, as often as the time-out has milliseconds.
  /// @return true when DONE was high in the first n - 1 reads, with a time-out of n ms
  bool waitForDoneToGoHigh(const std::chrono::milliseconds& timeout);

  bool ConnectLines() override;
  void RouteToController() override;
  void RouteInPsMode() override;
  void RouteToFpga() override;
  void HoldReset() override;
  void ReleaseReset() override;
  Status toggleFpgaResetAndWaitForProgramDone() override;

  /// Destroys the flash driver; the control files keep their values.
  ~ZynqFlashProgrammer() override;

 private:
  /// Dumps the first 4096 bytes of the flash into a scratch file.
  /// @return false, after one line on standard error, when that failed
  bool DumpFlash(const char* path);

  std::unique_ptr<MT25QL128> flash_;
  unsigned int module_;
};
