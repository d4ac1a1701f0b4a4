#include "companion/module/FlashChip.h"

#include <unistd.h>

#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include "flash/NorCommands.h"

namespace companion {

namespace {

constexpr int kReadyPolls = 1000;
constexpr useconds_t kPollMicroseconds = 10'000;
/// One alone can be the answer of a line that is silent.
constexpr int kReadyInARow = 2;

constexpr unsigned kWholeArrayLevel = 9;

constexpr std::uint8_t kNoChipLow = 0x00;  // what a line that nobody drives reads as
constexpr std::uint8_t kNoChipHigh = 0xFF;

std::string Hex(const std::array<std::uint8_t, nor::kIdBytes>& id) {
  std::array<char, sizeof "00 00 00"> text;
  static_cast<void>(std::snprintf(text.data(),
                                  text.size(),
                                  "%02x %02x %02x",
                                  unsigned{id[0]},
                                  unsigned{id[1]},
                                  unsigned{id[2]}));
  return text.data();
}

}  // namespace

std::uint8_t FlashChip::Register(std::uint8_t command, const char* name) {
  std::uint8_t value = 0;
  for (int attempt = 0; attempt < kTries; ++attempt) {
    interruption_.Check();
    if (driver_.GetStatus(command, value)) {
      return value;
    }
  }
  throw StepFailed(std::string("cannot read the ") + name + " register of the flash chip");
}

std::uint8_t FlashChip::SteadyRegister(std::uint8_t command, const char* name) {
  std::uint8_t before = Register(command, name);
  for (int attempt = 0; attempt < kTries; ++attempt) {
    const std::uint8_t now = Register(command, name);
    if (now == before) {
      return now;
    }
    before = now;
  }
  throw StepFailed(std::string("the ") + name + " register of the flash chip is unsteady");
}

void FlashChip::AwaitReady() {
  int ready = 0;
  for (int poll = 0; poll < kReadyPolls; ++poll) {
    if ((Register(nor::kReadStatus, "status") & nor::kStatusBusy) != 0) {
      ready = 0;
      ::usleep(kPollMicroseconds);
    } else if (++ready == kReadyInARow) {
      return;
    }
  }
  throw StepFailed("the flash chip stays busy");
}

Chip FlashChip::Identify() {
  Chip chip;
  std::string seen = "no answer";
  for (int attempt = 0; attempt < kTries; ++attempt) {
    interruption_.Check();
    if (!driver_.ReadId(chip.id)) {
      continue;
    }
    seen = "identification " + Hex(chip.id);
    if (chip.id[0] != kNoChipLow && chip.id[0] != kNoChipHigh) {
      chip.status = SteadyRegister(nor::kReadStatus, "status");
      if (chip.IsLockable()) {
        chip.config = SteadyRegister(nor::kReadConfig, "configuration");
      }
      return chip;
    }
  }
  throw StepFailed("no flash chip answers (" + seen + ")");
}

void FlashChip::Protect(bool whole) {
  for (int attempt = 0; attempt < kTries; ++attempt) {
    const Chip chip = Identify();
    if (!chip.IsLockable() || (whole ? chip.IsLockedWhole() : !chip.IsProtected())) {
      return;
    }
    driver_.LockMemorySectors(whole ? kWholeArrayLevel : 0);
    AwaitReady();
  }
  const Chip chip = Identify();
  if (!(whole ? chip.IsLockedWhole() : !chip.IsProtected())) {
    throw StepFailed(whole ? "the flash chip does not take its protection"
                           : "the flash chip does not give up its protection");
  }
}

void FlashChip::RewriteHead(std::span<const std::uint8_t> page) {
  interruption_.Check();
  std::vector<std::uint8_t> bytes(page.begin(), page.end());
  if (!driver_.Erase(0, nor::kSectorBytes)) {
    throw StepFailed("cannot erase the first 64 KiB of the flash");
  }
  if (!driver_.Write(0, static_cast<int>(bytes.size()), bytes.data())) {
    throw StepFailed("cannot program the first page of the flash");
  }
}

}  // namespace companion
