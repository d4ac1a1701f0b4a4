#include "companion/module/ModuleAccess.h"

#include <iostream>

#include "app/SpiClock.h"
#include "companion/module/ExpanderRegisters.h"
#include "companion/module/SysfsText.h"
#include "devices/SPIDev.h"
#include "programmers/ExpanderAddress.h"
#include "programmers/ModuleSelector.h"

namespace companion {

namespace {

constexpr unsigned kNoLines = 0;

/// A PCA9535 after power-on (data sheet, configuration registers).
constexpr std::uint16_t kAllInputs = 0xFFFF;

}  // namespace

ModuleAccess::ModuleAccess(const ModulePlace& place, const Interruption& interruption)
    : place_(place),
      interruption_(interruption),
      i2c_("/dev/" + place.names.i2cBus),
      expander_(&i2c_, kExpanderFlags),
      spi_("/dev/" + place.names.spiDev, SpiClockMHz() * kHzPerMHz, kSpiMode, kSpiBitsPerWord),
      module_(place.target.createProgrammer(&expander_, spi_.Get(), place.slot)) {}

ModuleAccess::~ModuleAccess() { GiveBack(); }

void ModuleAccess::AddressExpander(std::optional<std::uint16_t>& resting) {
  if (HasExpander()) {
    OpenExpander();
    FindResting(resting);
  }
}

void ModuleAccess::OpenExpander() {
  for (int attempt = 0; attempt < kTries; ++attempt) {
    if (i2c_.open(static_cast<std::uint8_t>(ExpanderAddress(*module_.lines, place_.slot))) >= 0) {
      return;
    }
    i2c_.close();
  }
  throw StepFailed("cannot open /dev/" + place_.names.i2cBus);
}

StepFailed ModuleAccess::DoesNotAnswer() const {
  return StepFailed("the GPIO expander on /dev/" + place_.names.i2cBus + " does not answer");
}

// Two readings that agree: one alone can be wrong. Zeros are what a lost message reads as, however
// often; a register cannot hold them, since DONE is an input on every type.
void ModuleAccess::FindResting(std::optional<std::uint16_t>& resting) {
  const ExpanderRegisters registers(i2c_);
  std::optional<std::uint16_t> before;
  for (int attempt = 0; attempt < 2 * kTries && !resting; ++attempt) {
    const std::optional<std::uint16_t> now = registers.Configuration();
    if (now && *now != 0 && now == before) {
      resting = now;
    }
    before = now;
  }
}

void ModuleAccess::ConnectLines(std::optional<std::uint16_t>& resting) {
  AddressExpander(resting);
  if (HasExpander()) {
    // The program's driver changes some lines of a register from one reading, and the others with
    // them when that is lost. So it is not used while readings are.
    if (!resting) {
      throw DoesNotAnswer();
    }
    // The levels that an earlier run has left may hold the FPGA in reset, and a lost write would
    // leave them when the lines become outputs. So the levels are set, and looked at, before.
    const ExpanderRegisters registers(i2c_);
    bool set = false;
    for (int attempt = 0; attempt < kTries && !set; ++attempt) {
      set = registers.SetOutput(module_.lines->spi_flash_to_fpga_run(), module_.lines->mask());
    }
    if (!set) {
      throw DoesNotAnswer();
    }
  }
  for (int attempt = 0; attempt < kTries; ++attempt) {
    if (module_.route->ConnectLines() && LinesAreDriven()) {
      return;
    }
  }
  throw StepFailed("cannot drive the lines of the GPIO expander on /dev/" + place_.names.i2cBus);
}

bool ModuleAccess::LinesAreDriven() {
  if (!HasExpander()) {
    return true;
  }
  const unsigned mask = module_.lines->mask();
  const std::optional<std::uint16_t> directions = ExpanderRegisters(i2c_).Configuration();
  return directions && (*directions & mask) == (module_.lines->io_config() & mask);
}

DoneLine ModuleAccess::LookAtLines(unsigned pattern, unsigned driven) {
  const std::optional<std::uint16_t> levels = ExpanderRegisters(i2c_).Input();
  if (!levels) {
    return DoneLine::kUnknown;
  }
  // All zeros, or all ones, prove nothing: one of the lines with a known level must show it.
  const unsigned high = pattern & driven;
  const unsigned low = ~pattern & driven;
  if ((high != 0 && (*levels & high) == 0) || (low != 0 && (~*levels & low) == 0)) {
    return DoneLine::kUnknown;
  }
  return (*levels & module_.lines->cfg_done()) != 0 ? DoneLine::kHigh : DoneLine::kLow;
}

DoneLine ModuleAccess::LookAtDone(unsigned pattern) {
  if (!HasExpander()) {
    return module_.programmer->IsProgrammed() ? DoneLine::kHigh : DoneLine::kLow;
  }
  const unsigned driven = module_.lines->mask() & ~unsigned{module_.lines->io_config()};
  return LookAtLines(pattern, driven);
}

DoneLine ModuleAccess::AwaitDone() {
  const unsigned run = HasExpander() ? module_.lines->spi_flash_to_fpga_run() : kNoLines;
  const DoneLine done = DoneWatch([&] { return LookAtDone(run); }, interruption_).AwaitHigh();
  if (done == DoneLine::kUnknown) {
    throw StepFailed("cannot read the DONE line of the FPGA for certain");
  }
  return done;
}

void ModuleAccess::TakeFlash(bool psMode) {
  if (psMode) {
    module_.route->RouteInPsMode();
  } else {
    module_.route->RouteToController();
  }
}

SPIDev& ModuleAccess::OpenSpi() {
  for (int attempt = 0; attempt < kTries; ++attempt) {
    if (spi_.Get()->open(0) >= 0) {
      return *spi_.Get();
    }
  }
  throw StepFailed("cannot open /dev/" + place_.names.spiDev);
}

bool ModuleAccess::ResetIsDriven() {
  if (!HasExpander()) {
    return true;  // DONE shows it
  }
  const unsigned mask = module_.lines->mask();
  const std::optional<std::uint16_t> levels = ExpanderRegisters(i2c_).Output();
  return levels && (*levels & mask) == (module_.lines->spi_flash_to_fpga_reset() & mask) &&
         LinesAreDriven();
}

bool ModuleAccess::ResetFalls() {
  module_.route->RouteToFpga();
  module_.route->RouteToFpga();  // what sets it is not promised to be readable
  const unsigned reset = HasExpander() ? module_.lines->spi_flash_to_fpga_reset() : kNoLines;
  DoneWatch watch([&] { return LookAtDone(reset); }, interruption_);
  for (int attempt = 0; attempt < kTries; ++attempt) {
    inReset_ = true;
    module_.route->HoldReset();
    if (ResetIsDriven() && watch.FallsLow()) {
      return true;
    }
  }
  return false;
}

bool ModuleAccess::LoadFlash() {
  const bool done =
      module_.route->toggleFpgaResetAndWaitForProgramDone() == FpgaProgrammerInterface::Success;
  inReset_ = false;
  return done;
}

void ModuleAccess::GiveBack() {
  if (!taken_) {
    return;
  }
  taken_ = false;
  spi_.Get()->close();
  if (HasExpander()) {
    module_.route = nullptr;
    module_.programmer.reset();  // releases the lines, and the SPI path of a pyx
    return;
  }
  module_.route->RouteToFpga();
  module_.route->RouteToFpga();  // what sets it is not promised to be readable
  if (inReset_) {
    module_.route->ReleaseReset();
  }
}

std::string ModuleAccess::LookAfter(std::optional<std::uint16_t> resting) {
  const std::string expander = HasExpander() ? LookAtExpander(resting) : "";
  const std::string selector = place_.target.hasPcieEndpoint ? LookAtSelector() : "";
  return expander.empty() || selector.empty() ? expander + selector : expander + "; " + selector;
}

std::string ModuleAccess::LookAtExpander(std::optional<std::uint16_t> resting) {
  const auto inputs =
      static_cast<std::uint16_t>(resting.value_or(kAllInputs) | module_.lines->mask());
  bool answers = false;
  try {
    for (int attempt = 0; attempt < kTries; ++attempt) {
      OpenExpander();
      const ExpanderRegisters registers(i2c_);
      const std::optional<std::uint16_t> directions = registers.Configuration();
      if (directions && (*directions & inputs) == inputs) {
        return "";
      }
      answers = answers || directions.has_value();
      registers.SetConfiguration(inputs);  // also what a lost reading has had made outputs
      i2c_.close();
    }
  } catch (const StepFailed& failed) {  // GCOVR_EXCL_BR_LINE: an exception of another type
    return std::string(failed.what()) + " to see whether its lines are released";
  }
  return "the GPIO expander on /dev/" + place_.names.i2cBus +
         (answers ? " does not release its lines"
                  : " does not show whether its lines are released");
}

std::string ModuleAccess::LookAtSelector() const {
  const int slot = static_cast<int>(place_.slot);
  const std::string path = module_selector::Path(slot);
  for (int attempt = 0; attempt < kTries; ++attempt) {
    const SysfsText route = ReadSysfsText(path);
    if (route.error != 0 || route.text.starts_with(module_selector::kOtdr.text)) {
      return "";  // one that cannot be read was written when the programmer was destroyed
    }
    static_cast<void>(module_selector::Select(slot, module_selector::kOtdr, std::cerr));
  }
  return path + " does not take " + module_selector::kOtdr.text;
}

DoneLine ModuleAccess::DoneAfter() {
  // The board's resistors hold the lines at the levels with which the FPGA runs.
  const unsigned run = HasExpander() ? module_.lines->spi_flash_to_fpga_run() : kNoLines;
  DoneWatch watch([&] { return HasExpander() ? LookAtLines(run, run) : LookAtDone(run); },
                  interruption_);
  DoneLine done = DoneLine::kUnknown;
  try {
    for (int attempt = 0; attempt < kTries && done == DoneLine::kUnknown; ++attempt) {
      if (HasExpander()) {
        OpenExpander();
      }
      done = watch.Now();
    }
  } catch (const StepFailed&) {  // GCOVR_EXCL_BR_LINE: an exception of another type
    return DoneLine::kUnknown;
  }
  return done;
}

}  // namespace companion
