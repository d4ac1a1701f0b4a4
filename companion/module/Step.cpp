#include "companion/module/Step.h"

namespace companion {

void Interruption::Check() const {
  if (stop_) {
    throw StepFailed("stopped");
  }
  if (side_.ParentIsGone()) {
    throw StepFailed("the process that waits for the result has ended");
  }
}

}  // namespace companion
