#include "simulator/boards/Module.h"

#include <utility>

namespace orvane {

Module::Module(ModuleOptions options, std::span<const std::uint8_t> flashContents)
    : options_(std::move(options)), flash_(options_.chip) {
  flash_.Load(flashContents);
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

std::string Module::LoadedWord(const FpgaConfiguration& configuration) {
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

}  // namespace orvane
