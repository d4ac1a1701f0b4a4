#include "programmers/lines/Pyx2GpioProgramming.h"

namespace {

// Deliberate: three operations share the pattern 0x0000; fixed and observable; do not change.
constexpr GpioLines kLines = {
    .address = 0x20,
    .ioConfig = 0x0813,
    .mask = 0x0A17,
    .spiFlashToFpgaRun = 0x0200,
    .spiFlashToFpgaReset = 0x0000,
    .spiDefaultPath = 0x0200,
    .spiImxToFpgaReset = 0x0000,
    .spiImxToFpga = 0x0000,
    .spiImxToFlash = 0x0604,
    .spiImxToFlashReset = 0x0200,
    .cfgDone = 0x0001,
    .cfgProgramB = 0x0010,
    .cfgInitB = 0x0002,
};

}  // namespace

Pyx2GpioProgramming::Pyx2GpioProgramming() : GpioLineMap(kLines) {}
