#include "app/PcieUpdate.h"

#include "platform/PEX8606BA.h"

FpgaProgrammerInterface::Status updatePCIE(unsigned module) {
  PEX8606BA pcieSwitch;
  const bool updated = pcieSwitch.RemoveDevice(module) && pcieSwitch.RescanPciBus(module) &&
                       pcieSwitch.EnableDevice(module);
  return updated ? FpgaProgrammerInterface::Success : FpgaProgrammerInterface::PcieUpdateFailed;
}
