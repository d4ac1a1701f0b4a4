#pragma once

#include <string>

/// The line that ends a run.
namespace program_test {

inline const std::string kSuccess = "FPGA programmed successfully.";
inline const std::string kConnectFailed =
    "Could not connect to the device. Check Module # and power.";
inline const std::string kOpenFailed = "Could not open source file.";
inline const std::string kEraseFailed = "Could not erase the device.";
inline const std::string kProgramFailed = "Programming operation failed.";
inline const std::string kNoDone = "FPGA did not assert configuration completed.";
inline const std::string kPcieFailed = "Unable to update PCIe endpoint.";
inline const std::string kUpToDate = "FPGA is up to date.";

}  // namespace program_test
