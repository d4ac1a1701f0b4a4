#include "tests/unit/app/RunDoubles.h"

#include <stdexcept>
#include <utility>

#include "devices/I2CDev.h"
#include "devices/SPIDev.h"
#include "flash/MT25QL128.h"
#include "programmers/DaxFlashProgrammer.h"
#include "programmers/Pyx1FlashProgrammer.h"
#include "programmers/Pyx2FlashProgrammer.h"
#include "programmers/ZynqFlashProgrammer.h"
#include "programmers/lines/GpioProgrammingInterface.h"

RunDoubles* RunDoubles::current = nullptr;

RunDoubles::RunDoubles(EventLog& eventLog) : log(eventLog) { current = this; }

RunDoubles::~RunDoubles() { current = nullptr; }

namespace {

RunDoubles& World() { return *RunDoubles::current; }

}  // namespace

// --- I2CDev -------------------------------------------------------------------------------------

I2CDev::I2CDev(std::string path) : path_(std::move(path)) {
  World().i2c = this;
  World().log.Add("I2CDev: construct " + path_);
}

I2CDev::~I2CDev() { World().log.Add("I2CDev: destroy"); }

bool I2CDev::is_open() {
  World().log.Add("I2CDev: is_open");
  return fd_ != kClosed;
}

int I2CDev::open(std::uint8_t address) {
  address_ = address;
  World().log.Add("I2CDev: open " + std::to_string(address_));
  return fd_;
}

void I2CDev::close() { World().log.Add("I2CDev: close"); }

int I2CDev::read(std::uint8_t* /*rx*/,
                 std::size_t /*rxLen*/,
                 std::uint8_t* /*tx*/,
                 std::size_t /*txLen*/) {
  World().log.Add("I2CDev: read");
  return 0;
}

int I2CDev::write(std::uint8_t* /*tx*/, std::size_t /*txLen*/) {
  World().log.Add("I2CDev: write");
  return 0;
}

std::string I2CDev::FindI2CBusNameOfMuxChannel(std::string parentBus, int channel) {
  World().log.Add("I2CDev: find channel " + std::to_string(channel) + " behind '" + parentBus +
                  "'");
  return World().muxChannels[parentBus];
}

// --- SPIDev -------------------------------------------------------------------------------------

SPIDev::SPIDev(std::string path, unsigned int speed, std::uint8_t mode, std::uint8_t bits)
    : path_(std::move(path)), speed_(speed), mode_(mode), bits_(bits), maxTransferSize_(0) {
  World().spi = this;
  World().log.Add("SPIDev: construct " + path_ + " " + std::to_string(speed_) + " Hz mode " +
                  std::to_string(mode_) + " bits " + std::to_string(bits_));
}

SPIDev::~SPIDev() { World().log.Add("SPIDev: destroy"); }

bool SPIDev::is_open() {
  World().log.Add("SPIDev: is_open");
  return false;
}

int SPIDev::open(std::uint8_t /*address*/) {
  World().log.Add("SPIDev: open");
  return fd_;
}

void SPIDev::close() { World().log.Add("SPIDev: close"); }

int SPIDev::read(std::uint8_t* /*rx*/,
                 std::size_t /*rxLen*/,
                 std::uint8_t* /*tx*/,
                 std::size_t /*txLen*/) {
  World().log.Add("SPIDev: read");
  return 0;
}

int SPIDev::write(std::uint8_t* /*tx*/, std::size_t /*txLen*/) {
  World().log.Add("SPIDev: write");
  return 0;
}

// --- ZynqFlashProgrammer ------------------------------------------------------------------------

ZynqFlashProgrammer::ZynqFlashProgrammer(SPIDev* spi, unsigned int module) : module_(module) {
  World().programmerSpi = spi;
  World().log.Add("programmer: construct for module " + std::to_string(module_));
}

ZynqFlashProgrammer::~ZynqFlashProgrammer() { World().log.Add("programmer: destroy"); }

FpgaProgrammerInterface::Status ZynqFlashProgrammer::Connect() {
  World().log.Add("programmer: Connect");
  if (World().connectDestroysTheSpiDevice) {
    delete World().programmerSpi;
  }
  return World().connectResult;
}

FpgaProgrammerInterface::Status ZynqFlashProgrammer::ProgramDevice(std::string imagePath) {
  World().log.Add("programmer: ProgramDevice '" + imagePath + "'");
  if (World().unreadableHeader) {
    throw std::logic_error("unreadable header");
  }
  return World().programResult;
}

bool ZynqFlashProgrammer::IsProgrammed() {
  World().log.Add("programmer: IsProgrammed");
  return true;
}

// --- The programmers behind an expander: what their common base does counts ----------------------

namespace {

constexpr ExpanderFlashProgrammer::Traits kNoTraits = {};

}  // namespace

ExpanderFlashProgrammer::ExpanderFlashProgrammer(PCA9535* expander,
                                                 SPIDev* spi,
                                                 GpioProgrammingInterface* lines,
                                                 unsigned int module,
                                                 const Traits& traits)
    : expander_(expander), lines_(lines), module_(module), traits_(traits) {
  World().programmerSpi = spi;
  World().log.Add("programmer: construct for module " + std::to_string(module_) +
                  " with lines at " + std::to_string(lines_->address()));
}

ExpanderFlashProgrammer::~ExpanderFlashProgrammer() { World().log.Add("programmer: destroy"); }

FpgaProgrammerInterface::Status ExpanderFlashProgrammer::Connect() {
  World().log.Add("programmer: Connect");
  if (World().connectDestroysTheSpiDevice) {
    delete World().programmerSpi;
  }
  return World().connectResult;
}

FpgaProgrammerInterface::Status ExpanderFlashProgrammer::ProgramDevice(std::string imagePath) {
  World().log.Add("programmer: ProgramDevice '" + imagePath + "'");
  return World().programResult;
}

bool ExpanderFlashProgrammer::IsProgrammed() {
  World().log.Add("programmer: IsProgrammed");
  return true;
}

void BitstreamFlashProgrammer::TakeFlashOver() {}
void BitstreamFlashProgrammer::PulseReset() {}
bool BitstreamFlashProgrammer::CompareBuilds(const std::string& /*dumpPath*/,
                                           const std::string& /*imagePath*/) {
  return false;
}

DaxFlashProgrammer::DaxFlashProgrammer(PCA9535* expander,
                                       SPIDev* spi,
                                       GpioProgrammingInterface* lines,
                                       unsigned int module)
    : BitstreamFlashProgrammer(expander, spi, lines, module, kNoTraits) {
  World().log.Add("programmer: is a dax's");
}
DaxFlashProgrammer::~DaxFlashProgrammer() = default;
void DaxFlashProgrammer::ReportNoTimeStamp(const std::string& /*file*/) {}

Pyx1FlashProgrammer::Pyx1FlashProgrammer(PCA9535* expander,
                                         SPIDev* spi,
                                         GpioProgrammingInterface* lines,
                                         unsigned int module)
    : BitstreamFlashProgrammer(expander, spi, lines, module, kNoTraits) {
  World().log.Add("programmer: is a pyx1's");
}
Pyx1FlashProgrammer::~Pyx1FlashProgrammer() = default;
void Pyx1FlashProgrammer::ReportNoTimeStamp(const std::string& /*file*/) {}

Pyx2FlashProgrammer::Pyx2FlashProgrammer(PCA9535* expander,
                                         SPIDev* spi,
                                         GpioProgrammingInterface* lines,
                                         unsigned int module)
    : ExpanderFlashProgrammer(expander, spi, lines, module, kNoTraits) {
  World().log.Add("programmer: is a pyx2's");
}
Pyx2FlashProgrammer::~Pyx2FlashProgrammer() = default;
void Pyx2FlashProgrammer::TakeFlashOver() {}
void Pyx2FlashProgrammer::PulseReset() {}
bool Pyx2FlashProgrammer::CompareBuilds(const std::string& /*dumpPath*/,
                                      const std::string& /*imagePath*/) {
  return false;
}
