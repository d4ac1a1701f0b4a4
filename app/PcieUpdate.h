#pragma once

#include "programmers/FpgaProgrammerInterface.h"

/// Has the PCIe switch remove, rescan and enable the module's endpoint, in this order, without
/// delay or retry; the first step that fails ends the update.
/// @param module  slot number
/// @return Success or PcieUpdateFailed; prints nothing
FpgaProgrammerInterface::Status updatePCIE(unsigned module);
