#pragma once

#include "programmers/lines/GpioLineMap.h"

/// @param address  7-bit I2C address of the module's expander
/// @return the lines of a module whose flash holds a bitstream: run and reset differ in line 7
///         (PROGRAM_B) alone; DONE and INIT_B are inputs
constexpr GpioLines BitstreamLines(unsigned short address) {
  return {
      .address = address,
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
}
