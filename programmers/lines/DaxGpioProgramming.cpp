#include "programmers/lines/DaxGpioProgramming.h"

#include "programmers/lines/BitstreamLines.h"

namespace {

constexpr GpioLines kLines = BitstreamLines(0x21);

}  // namespace

DaxGpioProgramming::DaxGpioProgramming() : GpioLineMap(kLines) {}
