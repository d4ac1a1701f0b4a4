#include "app/StatusText.h"

#include <iostream>

std::string returnStatusDescription(FpgaProgrammerInterface::Status status) {
  switch (status) {
    case FpgaProgrammerInterface::InvalidParams:
      return "Could not run program with command line parameters provided.";
    case FpgaProgrammerInterface::Success:
      return "FPGA programmed successfully.";
    case FpgaProgrammerInterface::ConnectFailed:
      return "Could not connect to the device. Check Module # and power.";
    case FpgaProgrammerInterface::OpenFileFailed:
      return "Could not open source file.";
    case FpgaProgrammerInterface::EraseFailed:
      return "Could not erase the device.";
    case FpgaProgrammerInterface::ProgramFailed:
      return "Programming operation failed.";
    case FpgaProgrammerInterface::ConfigDoneNotAsserted:
      return "FPGA did not assert configuration completed.";
    case FpgaProgrammerInterface::PcieBarCountMismatch:
      return "Non-fatal: The number of PCIe BARs in system inventory does not match eeprom "
             "contents.";
    case FpgaProgrammerInterface::PcieUpdateFailed:
      return "Unable to update PCIe endpoint.";
    case FpgaProgrammerInterface::UpToDate:
      return "FPGA is up to date.";
  }
  return "Unknown Status.";
}

int printStatus(FpgaProgrammerInterface::Status status) {
  std::cout << returnStatusDescription(status) << std::endl;
  return status;
}
