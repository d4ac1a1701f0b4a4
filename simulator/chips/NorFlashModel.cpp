#include "simulator/chips/NorFlashModel.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

#include "simulator/timing/ClockedPart.h"

namespace orvane {
namespace {

// Command set: opcode, then the bytes that follow it.
constexpr std::uint8_t kWriteRegisters = 0x01;      // status, on kMacronix configuration too
constexpr std::uint8_t kPageProgram = 0x02;         // 3 address bytes, data
constexpr std::uint8_t kRead = 0x03;                // 3 address bytes, data back
constexpr std::uint8_t kWriteDisable = 0x04;        // no more bytes
constexpr std::uint8_t kReadStatus = 0x05;          // status back, repeated while clocked
constexpr std::uint8_t kWriteEnable = 0x06;         // no more bytes
constexpr std::uint8_t kReadConfiguration = 0x15;   // configuration back, repeated while clocked
constexpr std::uint8_t kEraseSubsector = 0x20;      // 3 address bytes
constexpr std::uint8_t kEraseChip = 0x60;           // no more bytes
constexpr std::uint8_t kReadIdentification = 0x9F;  // 3 bytes back
constexpr std::uint8_t kEraseChipToo = 0xC7;        // no more bytes
constexpr std::uint8_t kEraseSector = 0xD8;         // 3 address bytes

constexpr std::size_t kCommandBytes = 4;  // opcode and address
constexpr std::size_t kPageBytes = 256;
constexpr std::size_t kSubsectorBytes = 4096;
constexpr std::size_t kSectorBytes = FlashArray::kSectorBytes;

constexpr std::uint8_t kStatusBusy = 0x01;
constexpr std::uint8_t kStatusWriteEnabled = 0x02;
constexpr std::uint8_t kStatusStored = 0xFC;  // non-volatile
constexpr unsigned kWholeArrayLevel = 9;

constexpr std::uint8_t kMacronixBottom = 0x08;         // configuration: protect from address 0
constexpr std::uint8_t kMacronixConfigStored = 0xCF;   // bits 4 and 5 are reserved
constexpr std::uint8_t kMacronixConfigDefault = 0x07;  // output drivers as delivered
constexpr std::uint8_t kMicronBottom = 0x20;           // status: protect from address 0

constexpr std::array<std::uint8_t, 3> kMicronIdentification = {0x20, 0xBA, 0x18};
constexpr std::array<std::uint8_t, 3> kMacronixIdentification = {0xC2, 0x20, 0x18};

/// The address of a command that is long enough to have one.
std::size_t Address(std::span<const std::uint8_t> command) {
  return std::size_t{command[1]} << 16U | std::size_t{command[2]} << 8U | command[3];
}

unsigned ProtectLevel(Chip chip, std::uint8_t status) {
  return chip == Chip::kMacronix ? (status >> 2U) & 0x0FU
                                 : ((status >> 2U) & 0x07U) | ((status >> 3U) & 0x08U);
}

/// Counts one event.
/// @param countdown  how many events are left, the wanted one included; 0: none is wanted
/// @return whether this is that event
bool CountDown(std::uint64_t& countdown) { return countdown > 0 && --countdown == 0; }

}  // namespace

NorFlashModel::NorFlashModel(Chip chip, Timing timing)
    : chip_(chip),
      timing_(timing),
      times_(chip == Chip::kMacronix ? MacronixTimes(timing) : MicronTimes(timing)),
      array_(kBytes / kSectorBytes),
      configuration_(chip == Chip::kMacronix ? kMacronixConfigDefault : 0) {}

void NorFlashModel::Load(std::span<const std::uint8_t> contents) {
  if (contents.size() > kBytes) {
    throw std::length_error("more than 16 MiB for the flash");
  }
  PrepareChange({.begin = 0, .end = kBytes});
  array_.Load(contents);
}

/// To be called before the array changes.
void NorFlashModel::PrepareChange(Range range) {
  if (!replaced_) {
    return;
  }
  for (std::size_t at = range.begin / kSectorBytes * kSectorBytes; at < range.end;
       at += kSectorBytes) {
    const auto sector = std::as_const(array_).Part(at, kSectorBytes);
    replaced_->try_emplace(at, sector.begin(), sector.end());
  }
}

bool NorFlashModel::IsAsRemembered() const {
  return replaced_ && std::all_of(replaced_->begin(), replaced_->end(), [this](const auto& sector) {
           return std::equal(sector.second.begin(),
                             sector.second.end(),
                             array_.Part(sector.first, sector.second.size()).begin());
         });
}

std::optional<std::vector<std::uint8_t>> NorFlashModel::Remembered() const {
  if (!replaced_) {
    return std::nullopt;
  }
  std::vector<std::uint8_t> contents(Contents().begin(), Contents().end());
  for (const auto& [at, bytes] : *replaced_) {
    std::copy(bytes.begin(), bytes.end(), contents.begin() + static_cast<std::ptrdiff_t>(at));
  }
  return contents;
}

void NorFlashModel::Transfer(std::span<const std::uint8_t> mosi,
                             std::span<std::uint8_t> miso,
                             ByteClock& clock) {
  if (mosi.size() != miso.size()) {
    throw std::invalid_argument("every byte out has a byte in");
  }
  std::fill(miso.begin(), miso.end(), std::uint8_t{0});
  if (!present_ || mosi.empty()) {
    clock.Pass(mosi.size());
    return;
  }
  // The registers can be read at any time; no other command is decoded while busy.
  if (mosi[0] == kReadStatus) {
    clock.Pass(1);
    ReadStatus(miso.subspan(1), clock);
    return;
  }
  awaitsPoll_ = false;
  if (mosi[0] == kReadConfiguration) {
    clock.Pass(1);
    ReadConfiguration(miso.subspan(1), clock);
    return;
  }
  const bool decodes = !Busy();
  const bool answers = decodes && Answer(mosi, miso);
  clock.Pass(mosi.size());
  if (decodes && !answers) {
    Execute(mosi);
  }
}

/// Commands with an answer, but for register reads.
/// @return false for any other
bool NorFlashModel::Answer(std::span<const std::uint8_t> mosi, std::span<std::uint8_t> miso) const {
  if (mosi[0] == kRead) {
    ReadArray(mosi, miso);
    return true;
  }
  if (mosi[0] == kReadIdentification) {
    // What follows the three bytes differs between parts.
    const auto& id = chip_ == Chip::kMacronix ? kMacronixIdentification : kMicronIdentification;
    std::copy_n(id.begin(), std::min(id.size(), miso.size() - 1), miso.begin() + 1);
    return true;
  }
  return false;
}

void NorFlashModel::ReadArray(std::span<const std::uint8_t> mosi,
                              std::span<std::uint8_t> miso) const {
  if (mosi.size() <= kCommandBytes) {
    return;
  }
  miso = miso.subspan(kCommandBytes);
  for (std::size_t at = Address(mosi); !miso.empty(); at = 0) {
    const std::size_t run = std::min(miso.size(), kBytes - at);
    std::copy_n(array_.Part(at, run).data(), run, miso.begin());
    miso = miso.subspan(run);
  }
}

void NorFlashModel::ReadStatus(std::span<std::uint8_t> miso, ByteClock& clock) {
  for (std::uint8_t& byte : miso) {
    byte = StatusRegister();
    awaitsPoll_ = awaitsPoll_ && Busy();
    if (busyReads_ > 0 && --busyReads_ == 0) {
      BecomeReady();
    }
    clock.Pass(1);
  }
}

void NorFlashModel::ReadConfiguration(std::span<std::uint8_t> miso, ByteClock& clock) const {
  for (std::uint8_t& byte : miso) {
    byte = configuration_;  // 0 on a chip that has none
    clock.Pass(1);
  }
}

/// Commands without an answer. Each is carried out when chip select rises after exactly the
/// bytes it consists of, and ignored otherwise.
void NorFlashModel::Execute(std::span<const std::uint8_t> command) {
  if (command[0] == kWriteEnable || command[0] == kWriteDisable) {
    if (command.size() == 1) {
      writeEnabled_ = command[0] == kWriteEnable;
    }
    return;
  }
  if (!writeEnabled_) {
    return;
  }
  switch (command[0]) {
    case kPageProgram:
      if (command.size() > kCommandBytes) {
        Program(Address(command), command.subspan(kCommandBytes));
      }
      break;
    case kEraseSubsector:
    case kEraseSector:
      if (command.size() == kCommandBytes) {
        const std::size_t bytes = command[0] == kEraseSector ? kSectorBytes : kSubsectorBytes;
        const std::size_t begin = Address(command) / bytes * bytes;
        Erase({.begin = begin, .end = begin + bytes});
      }
      break;
    case kEraseChip:
    case kEraseChipToo:
      if (command.size() == 1) {
        Erase({.begin = 0, .end = kBytes});
      }
      break;
    case kWriteRegisters:
      WriteRegisters(command.subspan(1));
      break;
    default:
      break;
  }
}

void NorFlashModel::Program(std::size_t address, std::span<const std::uint8_t> data) {
  const std::size_t page = address / kPageBytes * kPageBytes;
  if (RefuseProtected({.begin = page, .end = page + kPageBytes})) {
    return;
  }
  const bool lost = CountDown(dropProgram_) ||
                    std::find(wornPages_.begin(), wornPages_.end(), page) != wornPages_.end();
  if (!lost) {
    PrepareChange({.begin = page, .end = page + kPageBytes});
    if (data.size() > kPageBytes) {  // the page buffer wraps: the last bytes count
      address += data.size() - kPageBytes;
      data = data.last(kPageBytes);
    }
    const auto bytes = array_.Part(page, kPageBytes);
    for (std::size_t i = 0; i < data.size(); ++i) {
      bytes[(address + i) % kPageBytes] &= data[i];
    }
  }
  Begin(ChipWork::kPageProgram, page);
  BecomeBusy(kBusyReadsAfterProgram, kLongestProgram);
}

void NorFlashModel::Erase(Range range) {
  if (RefuseProtected(range)) {
    return;
  }
  if (!CountDown(dropErase_)) {
    for (std::size_t at = range.begin; at < range.end;) {  // in runs within one sector
      const std::size_t sector = at / kSectorBytes * kSectorBytes;
      const std::size_t end = std::min(range.end, sector + kSectorBytes);
      if (std::find(wornSectors_.begin(), wornSectors_.end(), sector) == wornSectors_.end()) {
        PrepareChange({.begin = at, .end = end});
        array_.Erase(at, end - at);
      }
      at = end;
    }
  }
  const std::size_t bytes = range.end - range.begin;
  Begin(bytes == kBytes         ? ChipWork::kChipErase
        : bytes == kSectorBytes ? ChipWork::kSectorErase
                                : ChipWork::kSubsectorErase,
        range.begin);
  const std::size_t sectors = std::max<std::size_t>(1, bytes / kSectorBytes);
  BecomeBusy(kBusyReadsAfterErase, static_cast<int>(sectors) * kLongestSectorErase);
}

void NorFlashModel::WriteRegisters(std::span<const std::uint8_t> values) {
  const std::size_t most = chip_ == Chip::kMacronix ? 2 : 1;
  if (values.empty() || values.size() > most) {
    return;
  }
  nextStatus_ = status_;
  nextConfiguration_ = configuration_;
  if (!CountDown(dropRegisterWrite_)) {
    nextStatus_ = values[0] & kStatusStored;
    if (values.size() == 2) {
      // The bottom bit is one-time programmable.
      nextConfiguration_ = static_cast<std::uint8_t>((values[1] & kMacronixConfigStored) |
                                                     (configuration_ & kMacronixBottom));
    }
  }
  Begin(ChipWork::kRegisterWrite, 0);
  registerWriteLeft_ = timing_ == Timing::kPolls ? kRegisterWriteTime : times_.registerWrite;
}

void NorFlashModel::AdvanceTime(std::chrono::nanoseconds by) {
  if (busyLeft_.count() > 0) {
    busyLeft_ -= std::min(by, busyLeft_);
    if (busyLeft_.count() == 0) {
      BecomeReady();
    }
  }
  if (registerWriteLeft_.count() == 0) {
    return;
  }
  registerWriteLeft_ -= std::min(by, registerWriteLeft_);
  if (registerWriteLeft_.count() == 0) {
    status_ = nextStatus_;
    configuration_ = nextConfiguration_;
    writeEnabled_ = false;
    EndWork();
  }
}

std::chrono::nanoseconds NorFlashModel::NextChange() const {
  if (busyLeft_.count() > 0) {
    return busyLeft_;
  }
  return registerWriteLeft_.count() > 0 ? registerWriteLeft_ : kNever;
}

void NorFlashModel::Begin(ChipWork work, std::size_t address) {
  work_ = work;
  workAddress_ = static_cast<std::uint32_t>(address);
  timeOfWork_ += times_.Of(work);
}

/// @param statusReads  with Timing::kPolls, as the next one
void NorFlashModel::BecomeBusy(int statusReads, std::chrono::nanoseconds longest) {
  if (timing_ == Timing::kPolls) {
    busyReads_ = statusReads;
    busyLeft_ = longest;
  } else {
    busyLeft_ = times_.Of(work_);
  }
  if (CountDown(stayBusyAfter_)) {
    stuckBusy_ = true;
  }
}

void NorFlashModel::BecomeReady() {
  busyReads_ = 0;
  busyLeft_ = std::chrono::nanoseconds(0);
  writeEnabled_ = writeEnabled_ && stuckBusy_;
  EndWork();
}

void NorFlashModel::EndWork() {
  if (!stuckBusy_) {
    work_ = ChipWork::kNone;
    awaitsPoll_ = timing_ != Timing::kPolls;
  }
}

std::uint8_t NorFlashModel::StatusRegister() const {
  return static_cast<std::uint8_t>(status_ | (writeEnabled_ ? kStatusWriteEnabled : 0) |
                                   (Busy() ? kStatusBusy : 0));
}

void NorFlashModel::LoadRegisters(std::uint8_t status, std::uint8_t configuration) {
  status_ = status & kStatusStored;
  if (chip_ == Chip::kMacronix) {
    configuration_ = configuration & kMacronixConfigStored;
  }
}

NorFlashModel::Range NorFlashModel::ProtectedRange() const {
  const unsigned level = ProtectLevel(chip_, status_);
  if (level == 0) {
    return {};
  }
  const std::size_t bytes = level >= kWholeArrayLevel ? kBytes : kSectorBytes << (level - 1);
  const bool bottom = chip_ == Chip::kMacronix ? (configuration_ & kMacronixBottom) != 0
                                               : (status_ & kMicronBottom) != 0;
  return bottom ? Range{.begin = 0, .end = bytes} : Range{.begin = kBytes - bytes, .end = kBytes};
}

/// @return whether part of the range is protected; the latch of a kMacronix then falls
bool NorFlashModel::RefuseProtected(Range range) {
  const Range locked = ProtectedRange();
  if (range.begin >= locked.end || range.end <= locked.begin) {
    return false;
  }
  // A kMicron keeps its latch until its flags are cleared or a write disable arrives.
  writeEnabled_ = writeEnabled_ && chip_ == Chip::kMicron;
  return true;
}

void NorFlashModel::WearOutPage(std::uint32_t address) {
  wornPages_.push_back(address % kBytes / kPageBytes * kPageBytes);
}

void NorFlashModel::WearOutSector(std::uint32_t address) {
  wornSectors_.push_back(address % kBytes / kSectorBytes * kSectorBytes);
}

}  // namespace orvane
