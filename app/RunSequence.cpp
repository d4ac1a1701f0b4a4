#include "app/RunSequence.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "app/Help.h"
#include "app/ModuleResources.h"
#include "app/PcieUpdate.h"
#include "app/StatusText.h"
#include "devices/I2CDev.h"
#include "devices/SPIDevOwner.h"
#include "platform/PCA9535.h"
#include "programmers/DaxFlashProgrammer.h"
#include "programmers/Pyx1FlashProgrammer.h"
#include "programmers/Pyx2FlashProgrammer.h"
#include "programmers/ZynqFlashProgrammer.h"
#include "programmers/lines/DaxGpioProgramming.h"
#include "programmers/lines/Pyx1GpioProgramming.h"
#include "programmers/lines/Pyx2GpioProgramming.h"

namespace {

using Status = FpgaProgrammerInterface::Status;

constexpr int kArgumentCount = 5;
constexpr unsigned kDefaultSpiClockMHz = 19;
constexpr unsigned kHzPerMHz = 1'000'000;
constexpr std::uint8_t kSpiMode = 0;
constexpr std::uint8_t kSpiBitsPerWord = 8;
constexpr unsigned char kExpanderFlags = 1;
constexpr unsigned kModuleWithoutCommand = 42;

/// A programmer, and the line map that it borrows (null for a wend). The programmer is destroyed
/// first.
struct ModuleProgrammer {
  std::unique_ptr<GpioProgrammingInterface> lines;
  std::unique_ptr<FpgaProgrammerInterface> programmer;
};

ModuleProgrammer CreateZynqProgrammer(PCA9535* /*expander*/, SPIDev* spi, unsigned moduleNumber) {
  return {nullptr, std::make_unique<ZynqFlashProgrammer>(spi, moduleNumber)};
}

template <typename Lines, typename Programmer>
ModuleProgrammer CreateExpanderProgrammer(PCA9535* expander, SPIDev* spi, unsigned moduleNumber) {
  auto lines = std::make_unique<Lines>();
  auto programmer = std::make_unique<Programmer>(expander, spi, lines.get(), moduleNumber);
  return {std::move(lines), std::move(programmer)};
}

/// What differs between the module types in the run sequence.
struct Target {
  const char* word;               ///< on the command line
  const char* line;               ///< printed before the programmer is created
  std::optional<int> muxChannel;  ///< leads to the expander; none: it is on the module's bus
  bool hasPcieEndpoint;           ///< enumerated again unless the result is UpToDate
  ModuleProgrammer (*createProgrammer)(PCA9535* expander, SPIDev* spi, unsigned moduleNumber);
};

constexpr Target kTargets[] = {
    {"wend", "WEND Programming", std::nullopt, false, CreateZynqProgrammer},
    {"dax",
     "DAX Gpio Programming",
     0,
     false,
     CreateExpanderProgrammer<DaxGpioProgramming, DaxFlashProgrammer>},
    {"pyx1",
     "Pyx1 Gpio Programming",
     std::nullopt,
     true,
     CreateExpanderProgrammer<Pyx1GpioProgramming, Pyx1FlashProgrammer>},
    {"pyx2",
     "Pyx2 Gpio Programming",
     std::nullopt,
     true,
     CreateExpanderProgrammer<Pyx2GpioProgramming, Pyx2FlashProgrammer>},
};

/// @return the row of the table, not owned; null for a word that names no module type
const Target* FindTarget(const std::string& word) {
  const auto* const found = std::find_if(std::begin(kTargets),
                                         std::end(kTargets),
                                         [&](const Target& target) { return word == target.word; });
  return found == std::end(kTargets) ? nullptr : found;
}

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

unsigned SpiClockMHz() {
  unsigned spiClockMHz = kDefaultSpiClockMHz;
  const char* const wanted = std::getenv("SPI_CLOCK_SPEED");
  if (wanted != nullptr) {
    // A text that is no number leaves the default. A number is used without a range check.
    // NOLINTNEXTLINE(cert-err34-c): the rules of "%u" are fixed and observable
    static_cast<void>(std::sscanf(wanted, "%u", &spiClockMHz));
  }
  return spiClockMHz;
}

std::string I2CBusName(const Request& request) {
  const std::string moduleBus = getSolutionI2C(request.moduleNumber);
  const std::optional<int> muxChannel = request.target.muxChannel;
  return muxChannel ? I2CDev::FindI2CBusNameOfMuxChannel(moduleBus, *muxChannel) : moduleBus;
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

  const std::string i2cBusName = I2CBusName(request);
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
