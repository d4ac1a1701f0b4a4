#include "app/RunSequence.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
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
#include "programmers/DaxGpioProgramming.h"
#include "programmers/Pyx1FlashProgrammer.h"
#include "programmers/Pyx1GpioProgramming.h"
#include "programmers/Pyx2FlashProgrammer.h"
#include "programmers/Pyx2GpioProgramming.h"
#include "programmers/ZynqFlashProgrammer.h"

namespace {

using Status = FpgaProgrammerInterface::Status;

constexpr int kArgumentCount = 5;
constexpr unsigned kDefaultSpiClockMHz = 19;
constexpr unsigned kHzPerMHz = 1'000'000;
constexpr std::uint8_t kSpiMode = 0;
constexpr std::uint8_t kSpiBitsPerWord = 8;
constexpr unsigned char kExpanderFlags = 1;
constexpr int kDaxMuxChannel = 0;
constexpr unsigned kModuleWithoutCommand = 42;

enum class Target { kWend, kDax, kPyx1, kPyx2 };

std::optional<Target> ParseTarget(const std::string& word) {
  constexpr struct {
    const char* word;
    Target target;
  } kTargets[] = {{"wend", Target::kWend},
                  {"dax", Target::kDax},
                  {"pyx1", Target::kPyx1},
                  {"pyx2", Target::kPyx2}};
  for (const auto& row : kTargets) {
    if (word == row.word) {
      return row.target;
    }
  }
  return std::nullopt;
}

bool IsPyx(Target target) { return target == Target::kPyx1 || target == Target::kPyx2; }

/// What the command line asks for.
struct Request {
  Target target;
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
/// @return the number, cut to 32 bits; nothing when the word is none
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
  const std::optional<Target> target = ParseTarget(targetWord);
  if (!target) {
    // Deliberate: on standard output, unlike every other error line. Update scripts that drop
    // standard error must still see that this module type is not theirs to handle.
    return Refuse(std::cout, "ERROR: Module not handled");
  }
  Request request = {.target = *target};
  if (commandWord == nullptr) {
    // Deliberate: without a command the run goes on with a slot that no instrument has, and ends
    // at the inventory.
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
    // A text that is no number leaves the default, and any number is taken as it comes.
    // NOLINTNEXTLINE(cert-err34-c): the conversion's own rules are what users know
    static_cast<void>(std::sscanf(wanted, "%u", &spiClockMHz));
  }
  return spiClockMHz;
}

std::string I2CBusName(const Request& request) {
  const std::string moduleBus = getSolutionI2C(request.moduleNumber);
  // The dax expander sits behind a multiplexer on the module's bus.
  return request.target == Target::kDax
             ? I2CDev::FindI2CBusNameOfMuxChannel(moduleBus, kDaxMuxChannel)
             : moduleBus;
}

/// A programmer and the line map it borrows; the programmer goes first.
struct ModuleProgrammer {
  std::unique_ptr<GpioProgrammingInterface> lines;
  std::unique_ptr<FpgaProgrammerInterface> programmer;
};

template <typename Lines, typename Programmer>
ModuleProgrammer CreateExpanderProgrammer(PCA9535* expander, SPIDev* spi, unsigned moduleNumber) {
  auto lines = std::make_unique<Lines>();
  auto programmer = std::make_unique<Programmer>(expander, spi, lines.get(), moduleNumber);
  return {std::move(lines), std::move(programmer)};
}

/// Creates the target's programmer, after the line that names it; none for an unknown target.
ModuleProgrammer CreateProgrammer(const Request& request, PCA9535* expander, SPIDev* spi) {
  switch (request.target) {
    case Target::kWend:
      std::cout << "WEND Programming" << std::endl;
      return {nullptr, std::make_unique<ZynqFlashProgrammer>(spi, request.moduleNumber)};
    case Target::kDax:
      std::cout << "DAX Gpio Programming" << std::endl;
      return CreateExpanderProgrammer<DaxGpioProgramming, DaxFlashProgrammer>(
          expander, spi, request.moduleNumber);
    case Target::kPyx1:
      std::cout << "Pyx1 Gpio Programming" << std::endl;
      return CreateExpanderProgrammer<Pyx1GpioProgramming, Pyx1FlashProgrammer>(
          expander, spi, request.moduleNumber);
    case Target::kPyx2:
      std::cout << "Pyx2 Gpio Programming" << std::endl;
      return CreateExpanderProgrammer<Pyx2GpioProgramming, Pyx2FlashProgrammer>(
          expander, spi, request.moduleNumber);
  }
  return {};  // GCOVR_EXCL_LINE: every target that is parsed has its case above
}

/// Connects and programs, then re-enumerates the endpoint of a pyx module.
/// @return the status of the run
Status Program(const Request& request, FpgaProgrammerInterface& programmer) {
  std::cout << "Connecting ..." << std::endl;
  Status result = programmer.Connect();
  if (result == FpgaProgrammerInterface::Success) {
    result = programmer.ProgramDevice(request.bitstreamPath);
  }
  if (!IsPyx(request.target) || result == FpgaProgrammerInterface::UpToDate) {
    return result;
  }
  // Deliberate: also after a failure, even a failed Connect. The endpoint may have gone away with
  // the FPGA's configuration, and the host must see what is there now.
  const Status pcie = updatePCIE(request.moduleNumber);
  // Deliberate: a programmer's failure hides that of the endpoint, which is its consequence.
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

  ModuleProgrammer module = CreateProgrammer(request, &expander, spi.get());
  if (module.programmer == nullptr) {
    // GCOVR_EXCL_START: every target that is parsed has its programmer
    std::cerr << "ERROR: Module not recognized" << std::endl;
    return printStatus(FpgaProgrammerInterface::InvalidParams);
    // GCOVR_EXCL_STOP
  }
  const Status result = Program(request, *module.programmer);

  // The result line comes after the flash and the SPI bus are let go.
  module.programmer.reset();
  spi.reset();
  return printStatus(result);
}
