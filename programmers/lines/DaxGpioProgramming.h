#pragma once

#include "programmers/lines/GpioLineMap.h"

/// Expander lines of the dax module. Run and reset differ in PROGRAM_B alone; DONE and INIT_B are
/// the inputs.
class DaxGpioProgramming final : public GpioLineMap {
 public:
  DaxGpioProgramming();
};
