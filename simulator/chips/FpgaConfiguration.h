#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "simulator/chips/NorFlashModel.h"

namespace orvane {

/// What an FPGA has loaded, compared with what its flash holds now.
enum class Loaded {
  kNone,     // nothing
  kOther,    // something else than the flash holds
  kCurrent,  // what the flash holds, byte for byte over the whole array
};

/// The configuration memory of an FPGA. It holds what the flash held when the FPGA had booted from
/// it, until the next reset clears it.
class FpgaConfiguration {
 public:
  /// Nothing is loaded.
  /// @param flash  borrowed; remembers what is loaded; outlives this object
  explicit FpgaConfiguration(NorFlashModel& flash) : flash_(flash) { flash_.Forget(); }

  /// To be called whenever FpgaBoot::Configured() may have changed.
  void Follow(bool configured);

  Loaded State() const;

  /// @return the whole flash as it was when the FPGA loaded it; none: nothing is loaded
  std::optional<std::vector<std::uint8_t>> Contents() const { return flash_.Remembered(); }

 private:
  NorFlashModel& flash_;
  bool configured_ = false;
};

}  // namespace orvane
