#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "programmers/FpgaProgrammerInterface.h"

class GpioProgrammingInterface;
class MT25QL128;
class PCA9535;
class SPIDev;

/// What the programmers behind a GPIO expander share: a PCA9535 switches the SPI bus between
/// controller, flash and FPGA, holds the FPGA in reset and reads its DONE. Every line comes from
/// the module's map. A module type is a row of Traits and three operations.
class ExpanderFlashProgrammer : public FpgaProgrammerInterface {
 public:
  /// How a module type differs where a value says it all.
  struct Traits {
    const char* readDeviceLine;    ///< printed by ReadDevice()
    bool reportsExpanderConnect;   ///< prints how connecting the expander went
    bool opensImageBeforeErasing;  ///< OpenFileFailed for an image that cannot be opened
    bool resetsFpgaAfterWriting;   ///< and waits for its DONE; otherwise the run ends there
  };

  ExpanderFlashProgrammer(const ExpanderFlashProgrammer&) = delete;
  ExpanderFlashProgrammer& operator=(const ExpanderFlashProgrammer&) = delete;

  /// Takes the expander lines and the flash over from the FPGA and identifies the flash.
  /// @return Success, or ConnectFailed with the flash handed back to the FPGA
  Status Connect() override;

  /// Compares the heads of flash and image and, where they differ, rewrites the flash. Leaves the
  /// first 512 bytes of flash in dumpflash.bin. No read-back follows the write.
  /// @return Success, UpToDate, ConnectFailed, OpenFileFailed, EraseFailed, ProgramFailed or
  ///         ConfigDoneNotAsserted
  Status ProgramDevice(std::string imagePath) override;

  /// @return true when the FPGA's DONE line is high
  bool IsProgrammed() override;

  /// Dumps the first `size` bytes of the flash into a file, which is created but not truncated.
  /// @return Success, and the file stays open; OpenFileFailed or ProgramFailed
  Status ReadDevice(std::string path, int size);

  /// Pulses the FPGA's reset, then makes every masked line an input again.
  /// @return true when the expander answered at the end
  bool toggleReset();

  /// Polls every millisecond, at most as often as the time-out has milliseconds.
  /// @param bits     the expander lines to watch
  /// @param timeout  below 1 ms the expander is not asked at all
  /// @return true when one was high with at least one poll left
  bool waitForSignalToGoHigh(unsigned short bits, const std::chrono::milliseconds& timeout);

  /// @return Success or ConfigDoneNotAsserted
  Status toggleFpgaResetAndWaitForProgramDone();

  /// Destroys the flash driver. The module type's own destructor has released the lines before.
  ~ExpanderFlashProgrammer() override;

 protected:
  /// Creates the flash driver; touches no hardware.
  /// @param expander,lines  borrowed
  /// @param spi     borrowed, also by the flash driver, which destroys it when it cannot be opened
  /// @param module  slot number
  /// @param traits  outlive the programmer
  ExpanderFlashProgrammer(PCA9535* expander,
                          SPIDev* spi,
                          GpioProgrammingInterface* lines,
                          unsigned int module,
                          const Traits& traits);

  /// Releases the masked lines: they become inputs.
  void ReleaseLines();

  /// Drives the masked lines to a pattern of the map.
  void Drive(unsigned short pattern);

  [[nodiscard]] GpioProgrammingInterface& Lines() { return *lines_; }
  [[nodiscard]] int Module() const { return static_cast<int>(module_); }

 private:
  /// Routes the controller's SPI to the flash, as Connect() needs it.
  virtual void TakeFlashOver() = 0;

  /// Resets the FPGA, as far as driving lines does it.
  virtual void PulseReset() = 0;

  /// Reports what identifies the builds of flash and image.
  /// @param dumpPath  file with the head of the flash
  /// @return true when flash and image are the same build
  virtual bool CompareBuilds(const std::string& dumpPath, const std::string& imagePath) = 0;

  PCA9535* expander_;
  std::unique_ptr<MT25QL128> flash_;
  GpioProgrammingInterface* lines_;
  unsigned int module_;
  const Traits& traits_;
};
