#include "tests/unit/simulator/chips/NaiveNorFlash.h"

#include <algorithm>
#include <initializer_list>
#include <map>
#include <utility>

namespace orvane {
namespace {

constexpr std::size_t kArrayBytes = 16777216;
constexpr std::size_t kSectorPages = 256;
constexpr std::size_t kSectorBytes = 65536;
constexpr std::size_t kSectors = 256;

// How many sectors each protection level covers.
constexpr std::size_t kProtectedSectors[16] = {
    0, 1, 2, 4, 8, 16, 32, 64, 128, 256, 256, 256, 256, 256, 256, 256};

bool Bit(std::uint8_t value, int number) { return (value >> number) % 2 == 1; }

/// `value` with the bits of these numbers cleared.
std::uint8_t Without(std::uint8_t value, std::initializer_list<int> numbers) {
  for (const int number : numbers) {
    if (Bit(value, number)) {
      value = static_cast<std::uint8_t>(value - (1 << number));
    }
  }
  return value;
}

std::uint8_t StoredStatus(std::uint8_t value) { return Without(value, {0, 1}); }
std::uint8_t StoredConfiguration(std::uint8_t value) { return Without(value, {4, 5}); }  // reserved

}  // namespace

NaiveNorFlash::NaiveNorFlash(Chip chip, NorFlashFaults faults, std::vector<std::uint8_t>& memory)
    : chip_(chip),
      faults_(std::move(faults)),
      memory_(memory),
      configuration_(chip == Chip::kMacronix ? 0x07 : 0x00) {}

void NaiveNorFlash::LoadRegisters(std::uint8_t status, std::uint8_t configuration) {
  storedStatus_ = StoredStatus(status);
  if (chip_ == Chip::kMacronix) {
    configuration_ = StoredConfiguration(configuration);
  }
}

std::vector<std::uint8_t> NaiveNorFlash::Select(const std::vector<std::uint8_t>& sent,
                                                std::size_t received) {
  std::vector<std::uint8_t> answer;
  answer.reserve(sent.size() + received);
  for (const std::uint8_t byte : sent) {
    answer.push_back(Clock(byte));
  }
  for (std::size_t i = 0; i < received; ++i) {
    answer.push_back(Clock(0x00));
  }
  Deselect();
  return answer;
}

std::uint8_t NaiveNorFlash::Clock(std::uint8_t in) {
  const std::size_t before = heard_.size();
  heard_.push_back(in);
  if (faults_.absent || before == 0) {
    return 0x00;
  }
  switch (heard_[0]) {
    case 0x05:
      return PolledStatus();
    case 0x15:
      return chip_ == Chip::kMacronix ? configuration_ : 0x00;
    case 0x9F:
      return Busy() ? 0x00 : Identification(before - 1);
    case 0x03:
      return Busy() || before < 4 ? 0x00 : ReadData(before - 4);
    default:
      return 0x00;
  }
}

void NaiveNorFlash::Deselect() {
  const bool hears = !faults_.absent && !heard_.empty() && !Busy();
  if (hears) {
    const std::size_t length = heard_.size();
    switch (heard_[0]) {
      case 0x06:
        latch_ = latch_ || length == 1;
        break;
      case 0x04:
        latch_ = latch_ && length != 1;
        break;
      case 0x02:
        if (latch_ && length >= 5) {
          Program();
        }
        break;
      case 0x20:
        if (latch_ && length == 4) {
          Erase(4096);
        }
        break;
      case 0xD8:
        if (latch_ && length == 4) {
          Erase(65536);
        }
        break;
      case 0x60:
      case 0xC7:
        if (latch_ && length == 1) {
          Erase(kArrayBytes);
        }
        break;
      case 0x01:
        if (latch_ && (length == 2 || (length == 3 && chip_ == Chip::kMacronix))) {
          WriteRegisters();
        }
        break;
      default:
        break;
    }
  }
  heard_.clear();
}

void NaiveNorFlash::Wait(std::chrono::nanoseconds time) {
  if (pollsLeft_ > 0) {
    workTimeLeft_ -= time;
    if (workTimeLeft_.count() <= 0) {
      pollsLeft_ = 0;
      latch_ = latch_ && stuck_;
    }
  }
  if (timeLeft_.count() > 0) {
    timeLeft_ -= time;
    if (timeLeft_.count() <= 0) {
      timeLeft_ = std::chrono::nanoseconds(0);
      FinishRegisterWrite();
    }
  }
}

bool NaiveNorFlash::Busy() const { return stuck_ || pollsLeft_ > 0 || timeLeft_.count() > 0; }

std::uint8_t NaiveNorFlash::Status() const {
  return static_cast<std::uint8_t>(storedStatus_ + (latch_ ? 2 : 0) + (Busy() ? 1 : 0));
}

std::uint8_t NaiveNorFlash::PolledStatus() {
  const std::uint8_t status = Status();
  if (pollsLeft_ > 0) {
    --pollsLeft_;
    if (!Busy()) {
      latch_ = false;
    }
  }
  return status;
}

std::uint8_t NaiveNorFlash::Identification(std::size_t index) const {
  const std::vector<std::uint8_t> bytes = chip_ == Chip::kMacronix
                                              ? std::vector<std::uint8_t>{0xC2, 0x20, 0x18}
                                              : std::vector<std::uint8_t>{0x20, 0xBA, 0x18};
  return index < bytes.size() ? bytes[index] : 0x00;
}

std::uint8_t NaiveNorFlash::ReadData(std::size_t index) const {
  return memory_[(Address() + index) % kArrayBytes];
}

/// The data go to a buffer of one page, from the address on, and wrap within it.
void NaiveNorFlash::Program() {
  const std::size_t page = Address() / 256;
  if (!MayChange(page * 256, 256)) {
    return;
  }
  std::map<std::size_t, std::uint8_t> buffer;
  std::size_t column = Address() % 256;
  for (std::size_t i = 4; i < heard_.size(); ++i) {
    buffer[column] = heard_[i];
    column = column == 255 ? 0 : column + 1;
  }
  ++programs_;
  if (programs_ != faults_.dropProgram && !WornPage(page)) {
    for (const auto& [place, byte] : buffer) {
      std::uint8_t& cell = memory_[page * 256 + place];
      cell = static_cast<std::uint8_t>(cell & byte);
    }
  }
  StartWork(2, std::chrono::milliseconds(5));
}

void NaiveNorFlash::Erase(std::size_t unitBytes) {
  const std::size_t begin = unitBytes == kArrayBytes ? 0 : Address() - Address() % unitBytes;
  if (!MayChange(begin, unitBytes)) {
    return;
  }
  ++erases_;
  if (erases_ != faults_.dropErase) {
    for (std::size_t page = begin / 256; page < (begin + unitBytes) / 256; ++page) {
      if (!WornSector(page / kSectorPages)) {
        std::fill_n(&memory_[page * 256], 256, std::uint8_t{0xFF});
      }
    }
  }
  StartWork(3, std::chrono::seconds(unitBytes == kArrayBytes ? 256 : 1));
}

void NaiveNorFlash::WriteRegisters() {
  ++registerWrites_;
  registersToCome_.assign(heard_.begin() + 1, heard_.end());
  if (registerWrites_ == faults_.dropRegisterWrite) {
    registersToCome_.clear();
  }
  timeLeft_ = std::chrono::milliseconds(40);
}

void NaiveNorFlash::FinishRegisterWrite() {
  if (!registersToCome_.empty()) {
    storedStatus_ = StoredStatus(registersToCome_[0]);
  }
  if (registersToCome_.size() == 2) {
    const bool bottomForEver = Bit(configuration_, 3);
    configuration_ = StoredConfiguration(registersToCome_[1]);
    if (bottomForEver && !Bit(configuration_, 3)) {
      configuration_ = static_cast<std::uint8_t>(configuration_ + 8);
    }
  }
  latch_ = false;
}

void NaiveNorFlash::StartWork(int polls, std::chrono::nanoseconds longest) {
  pollsLeft_ = polls;
  workTimeLeft_ = longest;
  stuck_ = programs_ + erases_ == faults_.stayBusyAfter;
}

std::size_t NaiveNorFlash::Address() const {
  return heard_[1] * std::size_t{65536} + heard_[2] * std::size_t{256} + heard_[3];
}

/// Whether nothing there is protected; if something is, sets the latch as the chip does.
bool NaiveNorFlash::MayChange(std::size_t address, std::size_t bytes) {
  for (std::size_t at = address; at < address + bytes; at += 256) {
    if (Protected(at / kSectorBytes)) {
      if (chip_ == Chip::kMacronix) {
        latch_ = false;
      }
      return false;
    }
  }
  return true;
}

bool NaiveNorFlash::Protected(std::size_t sector) const {
  std::size_t level = 0;
  bool fromBottom = false;
  if (chip_ == Chip::kMacronix) {
    level = storedStatus_ / 4 % 16;
    fromBottom = Bit(configuration_, 3);
  } else {
    level = storedStatus_ / 4 % 8 + (Bit(storedStatus_, 6) ? 8 : 0);
    fromBottom = Bit(storedStatus_, 5);
  }
  const std::size_t count = kProtectedSectors[level];
  return fromBottom ? sector < count : sector >= kSectors - count;
}

bool NaiveNorFlash::WornPage(std::size_t page) const {
  return std::any_of(faults_.wornPages.begin(), faults_.wornPages.end(), [&](std::uint32_t worn) {
    return worn / 256 == page;
  });
}

bool NaiveNorFlash::WornSector(std::size_t sector) const {
  return std::any_of(faults_.wornSectors.begin(),
                     faults_.wornSectors.end(),
                     [&](std::uint32_t worn) { return worn / kSectorBytes == sector; });
}

}  // namespace orvane
