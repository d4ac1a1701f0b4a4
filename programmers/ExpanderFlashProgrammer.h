#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "programmers/FlashRouteInterface.h"
#include "programmers/FpgaProgrammerInterface.h"

class GpioProgrammingInterface;
class MT25QL128;
class PCA9535;
class SPIDev;

/// What the programmers of modules with a GPIO expander share: a PCA9535 switches the SPI bus
/// between controller, flash and FPGA, holds the FPGA in reset and reads its DONE. Every line
/// pattern comes from the module's map. Module types differ in their Traits and in the private
/// operations.
class ExpanderFlashProgrammer : public FpgaProgrammerInterface, public FlashRouteInterface {
 public:
  /// The differences between module types that are plain values.
  struct Traits {
    const char* readDeviceLine;    ///< printed by ReadDevice()
    bool reportsExpanderConnect;   ///< prints how connecting the expander went
    bool opensImageBeforeErasing;  ///< OpenFileFailed for an image that cannot be opened
    bool resetsFpgaAfterWriting;   ///< and waits for its DONE; false: Success after the write
  };

  ExpanderFlashProgrammer(const ExpanderFlashProgrammer&) = delete;
  ExpanderFlashProgrammer& operator=(const ExpanderFlashProgrammer&) = delete;

  /// Takes over the expander lines and the flash from the FPGA and identifies the flash.
  /// @return Success, or ConnectFailed: the expander did not answer, or the flash did not, which is
  ///         then routed back to the FPGA
  Status Connect() override;

  /// Compares the builds of flash and image and, where they differ, rewrites the flash. Leaves the
  /// first 512 bytes of flash in dumpflash.bin. No read-back follows the write.
  /// @return Success, UpToDate, ConnectFailed, OpenFileFailed, EraseFailed, ProgramFailed or
  ///         ConfigDoneNotAsserted.
  ///         Throws what the comparison of builds throws (pyx2: std::logic_error, BootHeader.h).
  Status ProgramDevice(std::string imagePath) override;

  /// @return true when the FPGA's DONE line is high
  bool IsProgrammed() override;

  /// Dumps the first `size` bytes of the flash into a file, which is created but not truncated.
  /// @return Success, and the file stays open; OpenFileFailed or ProgramFailed
  Status ReadDevice(std::string path, int size);

  /// Pulses the FPGA's reset, then makes every masked line an input again.
  /// @return true when the expander answered at the end
  bool toggleReset();

  /// Reads the lines every millisecond, at most as often as the time-out has milliseconds.
  /// @param bits     mask of the expander lines to watch
  /// @param timeout  below 1 ms the expander is not read at all
  /// @return true when one of them was high in the first n - 1 reads of the n that n ms permit
  bool waitForSignalToGoHigh(unsigned short bits, const std::chrono::milliseconds& timeout);

  bool ConnectLines() override;
  void RouteToController() override;
  void RouteInPsMode() override;
  void RouteToFpga() override;
  void HoldReset() override;
  void ReleaseReset() override;
  Status toggleFpgaResetAndWaitForProgramDone() override;

  /// Destroys the flash driver. The destructor of the module type has released the lines already.
  ~ExpanderFlashProgrammer() override;

 protected:
  /// Creates the flash driver; touches no hardware.
  /// @param expander,lines  borrowed
  /// @param spi     borrowed, also by the flash driver, which destroys it when it cannot be opened
  /// @param module  slot number
  /// @param traits  borrowed; must outlive the programmer
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
  /// Routes the flash to the controller, or goes into PS mode, as Connect() needs it.
  virtual void TakeFlashOver() = 0;

  /// Drives the line patterns of a reset. toggleReset() makes the lines inputs afterwards.
  virtual void PulseReset() = 0;

  /// Prints what identifies the builds of flash and image, and compares it.
  /// @param dumpPath  file with the head of the flash
  /// @return true when flash and image are the same build
  virtual bool CompareBuilds(const std::string& dumpPath, const std::string& imagePath) = 0;

  PCA9535* expander_;
  std::unique_ptr<MT25QL128> flash_;
  GpioProgrammingInterface* lines_;
  unsigned int module_;
  const Traits& traits_;
};
