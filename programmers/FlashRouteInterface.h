#pragma once

#include "programmers/FpgaProgrammerInterface.h"

/// Switches the flash of one module between controller and FPGA, and resets the FPGA, without
/// touching the flash itself. These are the steps that the module's programmer takes; a caller may
/// take them one by one. Except for ConnectLines() none reports whether it worked: what the FPGA or
/// the flash does shows that. A wend whose control files fail ends the process with exit status 1,
/// after one perror line.
class FlashRouteInterface {
 public:
  FlashRouteInterface() = default;
  FlashRouteInterface(const FlashRouteInterface&) = delete;
  FlashRouteInterface& operator=(const FlashRouteInterface&) = delete;

  /// Connects the module's expander at the address of its slot, its lines driven so that the FPGA
  /// runs from the flash. Must come before every other operation here.
  /// dax: prints how that went, "Connect:101" or "Connect:121". wend: touches nothing.
  /// @return false when the expander does not answer; always true for a wend
  virtual bool ConnectLines() = 0;

  /// Routes the flash to the controller; the FPGA is not reset.
  virtual void RouteToController() = 0;

  /// Routes the controller's SPI to the FPGA, in PS mode: dax and pyx1 hold the FPGA in reset for
  /// 1 s before, which ends what it ran, after one line on standard output. wend and pyx2: as
  /// RouteToController().
  virtual void RouteInPsMode() = 0;

  /// Routes the flash back to the FPGA, which runs from it.
  virtual void RouteToFpga() = 0;

  /// Routes the flash of a module with an expander to the FPGA, and holds the FPGA in reset until
  /// it is released.
  virtual void HoldReset() = 0;

  /// Releases the FPGA from its reset: it loads what the flash holds.
  virtual void ReleaseReset() = 0;

  /// Resets the FPGA, then waits for its DONE for up to 10 s; one progress line on standard output.
  /// Afterwards the masked lines of an expander are inputs.
  /// @return Success or ConfigDoneNotAsserted
  virtual FpgaProgrammerInterface::Status toggleFpgaResetAndWaitForProgramDone() = 0;

  virtual ~FlashRouteInterface() = default;
};
