#include "companion/module/ModuleInterface.h"
#include "flash/NorCommands.h"

namespace companion {

namespace {

constexpr std::uint8_t kMicron = 0x20;
constexpr int kWholeArrayLevel = 9;

// The bits of the status register that protect blocks.
constexpr std::uint8_t kLockableBits = 0x3C;  // BP0..BP3 in bits 2..5
constexpr std::uint8_t kMicronBits = 0x5C;    // BP0..BP2 in bits 2..4, BP3 in bit 6
constexpr std::uint8_t kOtherBits = 0x1C;     // BP0..BP2 in bits 2..4, as most makers have them

}  // namespace

bool Chip::IsLockable() const { return id[0] == nor::kLockableMaker; }

bool Chip::IsLockedWhole() const {
  const int level = status >> nor::kStatusLevelShift & nor::kLevelMask;
  return IsLockable() && level >= kWholeArrayLevel &&
         (config.value_or(0) & nor::kConfigBottom) != 0;
}

bool Chip::IsProtected() const {
  const std::uint8_t bits = IsLockable()       ? kLockableBits
                            : id[0] == kMicron ? kMicronBits
                                               : kOtherBits;
  return (status & bits) != 0;
}

}  // namespace companion
