#pragma once

#include "programmers/lines/GpioLineMap.h"

/// Expander lines of the pyx1 module: those of the dax module, at another expander address.
class Pyx1GpioProgramming final : public GpioLineMap {
 public:
  Pyx1GpioProgramming();
};
