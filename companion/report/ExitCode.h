#pragma once

namespace companion {

/// What `tarnwickctl` exits with.
enum class ExitCode {
  kDone = 0,         ///< fit; read; equal; flash proven and in use (dax: at its next power-on)
  kNot = 1,          ///< unfit; differs; not proven
  kRefused = 2,      ///< words, file, image, own folder, slot; the module was not touched
  kPowerCycle = 3,   ///< flash proven, but FPGA or endpoint does not come up
  kLocked = 4,       ///< by another
  kStopped = 5,      ///< by a signal, before there was a verdict
  kUnreachable = 6,  ///< the module cannot be reached or read for certain; flash not changed
};

}  // namespace companion
