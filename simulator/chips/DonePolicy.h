#pragma once

#include <chrono>

namespace orvane {

/// What decides about an FPGA's DONE line. It does not decide what the FPGA has loaded, see
/// FpgaBoot::Configured().
struct DonePolicy {
  enum class Kind {
    kAuto,   // the FPGA: low in reset, high when it has booted from its flash
    kHigh,   // always high, in reset too
    kLow,    // always low
    kAfter,  // low in reset, high from exactly `delay` of instrument time after its release on,
             // whatever the flash holds; high at power-on
  };
  Kind kind = Kind::kAuto;
  std::chrono::nanoseconds delay{0};  // kAfter only
};

}  // namespace orvane
