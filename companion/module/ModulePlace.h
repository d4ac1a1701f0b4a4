#pragma once

#include "app/Targets.h"
#include "companion/module/ModuleInterface.h"

namespace companion {

/// Which module an operation is about.
struct ModulePlace {
  const Target& target;
  unsigned slot;
  ModuleNames names;

  /// @return true for a type whose FPGA, while it is not configured, is brought into PS mode before
  ///         its flash is read
  [[nodiscard]] bool HasPsMode() const;
};

}  // namespace companion
