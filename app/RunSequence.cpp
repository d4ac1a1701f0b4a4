#include "app/RunSequence.h"

#include <iostream>
#include <optional>
#include <string>

#include "app/Help.h"
#include "app/ModuleResources.h"
#include "app/PcieUpdate.h"
#include "app/SpiClock.h"
#include "app/StatusText.h"
#include "app/Targets.h"
#include "devices/I2CDev.h"
#include "devices/SPIDevOwner.h"
#include "platform/PCA9535.h"

namespace {

using Status = FpgaProgrammerInterface::Status;

constexpr int kArgumentCount = 5;
constexpr unsigned kModuleWithoutCommand = 42;

/// What the command line asks for.
struct Request {
  const Target& target;
  unsigned moduleNumber = kModuleWithoutCommand;
  std::string bitstreamPath;
};

/// Either a request, or the exit code of a run that ends here.
struct ParsedArguments {
  std::optional<Request> request;
  int exitCode = 0;
};

ParsedArguments Refuse(std::ostream& stream, const char* message) {
  stream << message << std::endl;
  return {.exitCode = printStatus(FpgaProgrammerInterface::InvalidParams)};
}

ParsedArguments ShowHelp() {
  showHelp();
  return {.exitCode = 0};
}

/// Reads 64 bits on every machine, also where `unsigned long` has 32.
/// @return the low 32 bits of the number; nothing when the word is null, or no number, or too large
std::optional<unsigned> ParseModuleNumber(const char* word) {
  if (word == nullptr) {
    return std::nullopt;
  }
  try {
    return static_cast<unsigned>(std::stoull(word));
  } catch (...) {
    return std::nullopt;
  }
}

ParsedArguments ParseArguments(int argc, char** argv) {
  if (argc != kArgumentCount) {
    return ShowHelp();
  }
  const char* const targetWord = argv[1];
  const char* const commandWord = argv[2];
  const char* const moduleWord = argv[3];
  const char* const fileWord = argv[4];

  if (targetWord == nullptr) {
    return Refuse(std::cerr, "ERROR: Invalid input params");
  }
  const Target* const target = FindTarget(targetWord);
  if (target == nullptr) {
    // Deliberate: on standard output, unlike the other error lines here; fixed and observable; do
    // not change.
    return Refuse(std::cout, "ERROR: Module not handled");
  }
  Request request = {.target = *target};
  if (commandWord == nullptr) {
    // Deliberate: without a command the run goes on, for module 42 and with an empty path; fixed
    // and observable; do not change.
    return {.request = request};
  }
  const std::string command = commandWord;
  if (command != "-sf" && command != "--spi-flash") {
    if (command == "-h" || command == "--help") {
      return ShowHelp();
    }
    return Refuse(std::cerr, "ERROR: Command not recognized");
  }
  std::cout << "programming mode: " << command << std::endl;

  const std::optional<unsigned> moduleNumber = ParseModuleNumber(moduleWord);
  if (!moduleNumber) {
    // Deliberate: the word HETNET; fixed and observable; do not change.
    return Refuse(std::cerr, "ERROR: Could not resolve the HETNET address param");
  }
  request.moduleNumber = *moduleNumber;
  std::cout << "module number: " << request.moduleNumber << std::endl;

  if (fileWord == nullptr) {
    return Refuse(std::cerr, "ERROR: Could not resolve the FPGA bitstream param");
  }
  request.bitstreamPath = fileWord;
  std::cout << "FPGA bitstream: '" << request.bitstreamPath << "'" << std::endl;
  return {.request = request};
}

/// Connects and programs; then, unless the flash was up to date, re-enumerates the PCIe endpoint of
/// a pyx module.
/// @return the status of the run
Status Program(const Request& request, FpgaProgrammerInterface& programmer) {
  std::cout << "Connecting ..." << std::endl;
  Status result = programmer.Connect();
  if (result == FpgaProgrammerInterface::Success) {
    result = programmer.ProgramDevice(request.bitstreamPath);
  }
  if (!request.target.hasPcieEndpoint || result == FpgaProgrammerInterface::UpToDate) {
    return result;
  }
  // Deliberate: also after a failure, even a failed Connect; fixed and observable; do not change.
  const Status pcie = updatePCIE(request.moduleNumber);
  // Deliberate: a programmer's failure hides that of the endpoint; fixed and observable; do not
  // change.
  return result != FpgaProgrammerInterface::Success ? result : pcie;
}

}  // namespace

int runTarnwick(int argc, char** argv) {
  const ParsedArguments arguments = ParseArguments(argc, argv);
  if (!arguments.request) {
    return arguments.exitCode;
  }
  const Request& request = *arguments.request;

  const std::string i2cBusName = FindI2CBusName(request.target, request.moduleNumber);
  if (i2cBusName.empty()) {
    std::cerr << "ERROR: No I2C device found" << std::endl;
    return printStatus(FpgaProgrammerInterface::ConnectFailed);
  }
  I2CDev i2c("/dev/" + i2cBusName);
  PCA9535 expander(&i2c, kExpanderFlags);

  const std::string spiDevName = getSolutionSpiDev(request.moduleNumber);
  if (spiDevName.empty()) {
    std::cerr << "ERROR: No SPI device found" << std::endl;
    return printStatus(FpgaProgrammerInterface::ConnectFailed);
  }
  const unsigned spiClockMHz = SpiClockMHz();
  std::cout << "SPI clock rate =" << spiClockMHz << "MHz" << std::endl;
  SPIDevOwner spi("/dev/" + spiDevName, spiClockMHz * kHzPerMHz, kSpiMode, kSpiBitsPerWord);

  std::cout << request.target.line << std::endl;
  ModuleProgrammer module =
      request.target.createProgrammer(&expander, spi.Get(), request.moduleNumber);
  const Status result = Program(request, *module.programmer);

  // Both are destroyed before the result line is printed.
  module.programmer.reset();
  spi.Reset();
  return printStatus(result);
}
