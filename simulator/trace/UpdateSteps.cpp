#include "simulator/trace/UpdateSteps.h"

#include <algorithm>
#include <array>
#include <iterator>

#include "simulator/trace/CommandName.h"

namespace orvane {

namespace {

constexpr std::string_view kSelectorFolder = "/sys/platform/module_selector/";
constexpr std::string_view kQspiPrg = "/qspi_prg/value";
constexpr std::string_view kResetFile = "/zynq_hw_reset_n/value";
constexpr std::string_view kPciDevices = "/sys/bus/pci/";
constexpr std::string_view kPciBuses = "/sys/class/pci_bus/";

/// What a command of the flash tells about the step.
enum class Meaning { kPrepares, kAsksStatus, kIdentifies, kProtects, kReads, kErases, kPrograms };

struct CommandMeaning {
  std::string_view name;
  Meaning meaning;
};

constexpr CommandMeaning kCommandMeanings[] = {
    {"WREN", Meaning::kPrepares},
    {"WRDI", Meaning::kPrepares},
    {"RDCR", Meaning::kPrepares},
    {"RDSR", Meaning::kAsksStatus},
    {"RDID", Meaning::kIdentifies},
    {"WRSR", Meaning::kProtects},
    {"READ", Meaning::kReads},
    {"SSE", Meaning::kErases},
    {"SE", Meaning::kErases},
    {"CE", Meaning::kErases},
    {"PP", Meaning::kPrograms},
};

/// Registers of a PCA9535 come in pairs, one for each port (data sheet, command byte).
enum class RegisterPair { kInput, kOutput, kPolarity, kConfiguration, kNone };

RegisterPair RegistersOf(const ObservedI2c& transfer) {
  if (transfer.messages.empty() || transfer.messages[0].reads ||
      transfer.messages[0].bytes.empty()) {
    return RegisterPair::kNone;
  }
  constexpr std::array kPairs = {RegisterPair::kInput,
                                 RegisterPair::kOutput,
                                 RegisterPair::kPolarity,
                                 RegisterPair::kConfiguration};
  const std::size_t pair = transfer.messages[0].bytes[0] / 2U;
  return pair < kPairs.size() ? kPairs.at(pair) : RegisterPair::kNone;
}

bool IsBelowPci(std::string_view path) {
  return path.starts_with(kPciDevices) || path.starts_with(kPciBuses);
}

}  // namespace

std::string_view StepName(UpdateStep step) {
  constexpr std::array<std::string_view, kUpdateSteps> kNames = {"finding",
                                                                 "connecting",
                                                                 "protection",
                                                                 "reading the head",
                                                                 "reading the rest",
                                                                 "erasing",
                                                                 "programming",
                                                                 "verifying",
                                                                 "reset and DONE",
                                                                 "PCIe",
                                                                 "disconnecting"};
  return kNames.at(static_cast<std::size_t>(step));
}

void UpdateSteps::Decide(UpdateStep step) {
  if (step != last_) {
    hasLookedAtDone_ = false;
  }
  last_ = step;
  isDecided_ = true;
  hasFallen_ = false;
  hasAsked_ = hasAsked_ || step == UpdateStep::kFinding;
  isUpdate_ = isUpdate_ || (hasAsked_ && step == UpdateStep::kConnecting);
}

/// Whether the flash has been used since it was led to the controller.
bool UpdateSteps::UsesFlash() const {
  return last_ >= UpdateStep::kProtection && last_ <= UpdateStep::kVerifying;
}

void UpdateSteps::OnSpi(const ObservedSpi& message) {
  for (const ObservedSelect& select : message.selects) {
    TakeCommand(message.path, select);
  }
}

void UpdateSteps::TakeCommand(std::string_view path, const ObservedSelect& select) {
  const std::string_view name = CommandName(select.command);
  const auto* const known = std::find_if(
      std::begin(kCommandMeanings), std::end(kCommandMeanings), [&](const CommandMeaning& command) {
        return command.name == name;
      });
  if (known == std::end(kCommandMeanings)) {
    return;
  }
  const Meaning meaning = known->meaning;
  const bool asksAboutWork = isWorking_ && meaning == Meaning::kAsksStatus;
  isWorking_ = asksAboutWork || meaning == Meaning::kProtects || meaning == Meaning::kErases ||
               meaning == Meaning::kPrograms;
  switch (meaning) {
    case Meaning::kPrepares:
      Await();
      break;
    case Meaning::kAsksStatus:
      if (!asksAboutWork) {
        Await();
      }
      break;
    case Meaning::kIdentifies:
      Decide(UsesFlash() ? last_ : UpdateStep::kConnecting);
      break;
    case Meaning::kProtects:
      Decide(UpdateStep::kProtection);
      break;
    case Meaning::kReads:
      Decide(StepOfRead(path, select));
      break;
    case Meaning::kErases:
      Decide(UpdateStep::kErasing);
      break;
    case Meaning::kPrograms:
      programmed_.emplace(path);
      Decide(UpdateStep::kProgramming);
      break;
  }
}

UpdateStep UpdateSteps::StepOfRead(std::string_view path, const ObservedSelect& select) const {
  constexpr std::uint32_t kHeadBytes = 4096;
  if (programmed_.find(path) != programmed_.end()) {
    return UpdateStep::kVerifying;
  }
  const std::uint32_t address = std::uint32_t{select.mosi.at(1)} << 16U |
                                std::uint32_t{select.mosi.at(2)} << 8U |
                                std::uint32_t{select.mosi.at(3)};
  return address < kHeadBytes ? UpdateStep::kReadingHead : UpdateStep::kReadingRest;
}

void UpdateSteps::OnI2c(const ObservedI2c& transfer) {
  const RegisterPair registers = RegistersOf(transfer);
  switch (last_) {
    case UpdateStep::kFinding:
      Decide(UpdateStep::kConnecting);
      break;
    case UpdateStep::kConnecting:
      if (hasFallen_ && registers == RegisterPair::kInput) {
        Decide(UpdateStep::kReset);
      }
      break;
    case UpdateStep::kReset:
      if (hasLookedAtDone_ && registers == RegisterPair::kConfiguration) {
        Decide(UpdateStep::kDisconnecting);
      } else {
        hasLookedAtDone_ = registers == RegisterPair::kInput ||
                           (hasLookedAtDone_ && registers != RegisterPair::kOutput);
      }
      break;
    case UpdateStep::kPcie:
    case UpdateStep::kDisconnecting:
      Decide(registers == RegisterPair::kOutput ? UpdateStep::kConnecting
                                                : UpdateStep::kDisconnecting);
      break;
    case UpdateStep::kProtection:
    case UpdateStep::kReadingHead:
    case UpdateStep::kReadingRest:
    case UpdateStep::kErasing:
    case UpdateStep::kProgramming:
    case UpdateStep::kVerifying:
      if (registers == RegisterPair::kOutput) {
        Decide(UpdateStep::kReset);
      } else if (registers == RegisterPair::kConfiguration) {
        Decide(UpdateStep::kDisconnecting);
      }
      break;
  }
}

void UpdateSteps::OnAccess(const ObservedAccess& access) {
  if (!access.writes) {
    return;
  }
  if (access.path.starts_with(kSelectorFolder)) {
    Decide(access.bytes.starts_with("SPIFIFO") ? UpdateStep::kConnecting
                                               : UpdateStep::kDisconnecting);
  } else if (access.path.ends_with(kQspiPrg)) {
    if (access.bytes.starts_with('1')) {
      Decide(UpdateStep::kConnecting);
    } else {
      Await();
    }
  } else if (access.path.ends_with(kResetFile)) {
    Decide(UpdateStep::kReset);
  } else if (IsBelowPci(access.path)) {
    Decide(UpdateStep::kPcie);
  }
}

void UpdateSteps::OnDBus(std::string_view /*call*/,
                         std::chrono::nanoseconds /*at*/,
                         Outcome /*outcome*/) {
  Decide(UpdateStep::kFinding);
}

void UpdateSteps::OnOther(std::string_view text, std::chrono::nanoseconds /*at*/) {
  constexpr std::string_view kOpen = "open ";
  if (text.starts_with(kOpen) && text.substr(kOpen.size()).starts_with(kSelectorFolder)) {
    Await();
  }
}

void UpdateSteps::OnLine(unsigned /*slot*/, LineLevel level, std::chrono::nanoseconds /*at*/) {
  if (level.line == Line::kReset && !level.high && last_ == UpdateStep::kConnecting) {
    hasFallen_ = true;
    Await();
  }
}

void UpdateSteps::OnEnd(std::chrono::nanoseconds /*at*/) { isDecided_ = true; }

}  // namespace orvane
