#include "programmers/lines/Pyx1GpioProgramming.h"

namespace {

constexpr GpioLines kLines = {
    .address = 0x20,
    .ioConfig = 0x0140,
    .mask = 0xEDDF,
    .spiFlashToFpgaRun = 0x2C80,
    .spiFlashToFpgaReset = 0x2C00,
    .spiDefaultPath = 0x2C80,
    .spiImxToFpgaReset = 0xEC1D,
    .spiImxToFpga = 0xEC9D,
    .spiImxToFlash = 0x2C9D,
    .spiImxToFlashReset = 0xEC1D,
    .cfgDone = 0x0100,
    .cfgProgramB = 0x0080,
    .cfgInitB = 0x0040,
};

}  // namespace

Pyx1GpioProgramming::Pyx1GpioProgramming() : GpioLineMap(kLines) {}
