#pragma once

#include <cstdint>
#include <string>

/// Brings the configuration flash of one module up to date. Used once: Connect(), then, only after
/// Success, ProgramDevice(), then destruction.
class FpgaProgrammerInterface {
 public:
  /// Result of every step and of the run. The values are the program's exit codes; 4, 5 and 8 are
  /// not used.
  enum Status : std::int32_t {
    InvalidParams = -1,
    Success = 0,
    ConnectFailed = 1,
    OpenFileFailed = 2,
    EraseFailed = 3,
    ProgramFailed = 6,
    ConfigDoneNotAsserted = 7,
    PcieBarCountMismatch = 9,  // reserved: inventory and EEPROM disagree about the PCIe BARs
    PcieUpdateFailed = 10,
    UpToDate = 11,
  };

  FpgaProgrammerInterface() = default;
  FpgaProgrammerInterface(const FpgaProgrammerInterface&) = delete;
  FpgaProgrammerInterface& operator=(const FpgaProgrammerInterface&) = delete;

  /// Takes control of the module and connects to its flash.
  /// @return Success or the reason of the failure
  virtual Status Connect() = 0;

  /// Brings the flash up to date with the image at a path.
  /// @return Success, UpToDate or the reason of the failure
  virtual Status ProgramDevice(std::string imagePath) = 0;

  /// Extension points that no programmer implements.
  /// @return ProgramFailed, with one line on standard error
  virtual Status OptionalOperationA();
  virtual Status OptionalOperationB();
  virtual Status OptionalOperationC();

  /// @return true when the FPGA reports configuration done
  virtual bool IsProgrammed() = 0;

  virtual ~FpgaProgrammerInterface() = default;
};
