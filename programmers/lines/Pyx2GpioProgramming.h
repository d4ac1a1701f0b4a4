#pragma once

#include "programmers/lines/GpioLineMap.h"

/// Expander lines of the pyx2 module. Run and reset differ in line 9 alone; DONE, INIT_B, PROGRAM_B
/// and line 11 are inputs.
class Pyx2GpioProgramming final : public GpioLineMap {
 public:
  Pyx2GpioProgramming();
};
