#pragma once

class GpioProgrammingInterface;

/// @param lines   the module's line map, borrowed for the call
/// @param module  slot number
/// @return 7-bit I2C address, in the low byte, of the expander of a module in this slot
unsigned short ExpanderAddress(GpioProgrammingInterface& lines, unsigned module);
