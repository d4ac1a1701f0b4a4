#include "simulator/chips/FpgaConfiguration.h"

namespace orvane {

void FpgaConfiguration::Follow(bool configured) {
  if (configured == configured_) {
    return;
  }
  configured_ = configured;
  if (configured) {
    flash_.Remember();
  } else {
    flash_.Forget();
  }
}

Loaded FpgaConfiguration::State() const {
  if (!configured_) {
    return Loaded::kNone;
  }
  return flash_.IsAsRemembered() ? Loaded::kCurrent : Loaded::kOther;
}

}  // namespace orvane
