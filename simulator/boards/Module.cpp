#include "simulator/boards/Module.h"

#include <utility>

namespace orvane {

namespace {

constexpr std::uint8_t kVolatileStatusBits = 0x03;  // busy, write enable latch

std::string HexByte(std::uint8_t byte) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  return {kDigits[byte >> 4U], kDigits[byte & 0x0FU]};
}

std::string LoadedWord(const FpgaConfiguration& configuration) {
  switch (configuration.State()) {
    case Loaded::kCurrent:
      return "loaded=current";
    case Loaded::kOther:
      return "loaded=other";
    case Loaded::kNone:
      break;
  }
  return "loaded=none";
}

}  // namespace

Module::Module(ModuleOptions options, std::span<const std::uint8_t> flashContents)
    : options_(std::move(options)), flash_(options_.chip, options_.timing) {
  flash_.Load(flashContents);
  if (const auto& registers = options_.registers) {
    flash_.LoadRegisters(registers->status, registers->configuration);
  }
  const FlashDefects& defects = options_.defects;
  flash_.SetPresent(!defects.absent);
  flash_.DropProgram(defects.lostProgram);
  flash_.DropErase(defects.lostErase);
  flash_.DropRegisterWrite(defects.lostRegisterWrite);
  flash_.StayBusyAfter(defects.busyAfter);
  for (const std::uint32_t address : defects.wornPages) {
    flash_.WearOutPage(address);
  }
  for (const std::uint32_t address : defects.wornSectors) {
    flash_.WearOutSector(address);
  }
}

I2cDevice* Module::FindI2c(std::optional<unsigned> /*channel*/, std::uint16_t /*address*/) {
  return nullptr;
}

void Module::AdvanceTime(std::chrono::nanoseconds by) { flash_.AdvanceTime(by); }

std::string Module::LastWords(const FpgaConfiguration& configuration) const {
  std::string words;
  if (options_.registers) {
    const auto status = static_cast<std::uint8_t>(flash_.StatusRegister() & ~kVolatileStatusBits);
    words = "registers=" + HexByte(status) + ":" + HexByte(flash_.ConfigurationRegister()) + " ";
  }
  return words + LoadedWord(configuration);
}

}  // namespace orvane
