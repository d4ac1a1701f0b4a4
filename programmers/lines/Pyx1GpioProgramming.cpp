#include "programmers/lines/Pyx1GpioProgramming.h"

#include "programmers/lines/BitstreamLines.h"

namespace {

constexpr GpioLines kLines = BitstreamLines(0x20);

}  // namespace

Pyx1GpioProgramming::Pyx1GpioProgramming() : GpioLineMap(kLines) {}
