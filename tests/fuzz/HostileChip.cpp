#include "tests/fuzz/HostileChip.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "tests/doubles/FakeClock.h"
#include "tests/doubles/Require.h"

namespace {

constexpr std::uint8_t kFails = 0xFF;
constexpr std::uint8_t kMovesTooLittle = 0xFE;
constexpr std::uint8_t kTakesLong = 0xFD;

constexpr int kRead = 0x03;

constexpr std::chrono::milliseconds kLong{6000};
constexpr std::chrono::milliseconds kWhileBusy{2600};

/// More than any operation here needs.
constexpr std::size_t kMaxCalls = 2'000'000;

}  // namespace

std::uint32_t HostileChip::Frame::Address() const {
  return sent.size() < 4 ? 0U : sent[1] * 0x10000U + sent[2] * 0x100U + sent[3];
}

HostileChip::HostileChip(unsigned speedHz, HostileBytes& answers, End end, bool& destroyed)
    : SPIDev("/dev/spidev1.0", speedHz, 0, 8),
      answers_(answers),
      end_(end),
      destroyed_(destroyed) {}

HostileChip::~HostileChip() { destroyed_ = true; }

std::uint8_t HostileChip::Memory(std::uint32_t address) {
  return static_cast<std::uint8_t>(address * 0x9E3779B1U >> 24U);
}

bool HostileChip::is_open() { return open_; }

int HostileChip::open(std::uint8_t /*address*/) {
  switch (answers_.Byte()) {
    case kFails:
      lastOpenResult = -1;
      break;
    case kMovesTooLittle:
      lastOpenResult = 0;
      break;
    default:
      lastOpenResult = 3;
  }
  open_ = lastOpenResult >= 0;
  return lastOpenResult;
}

void HostileChip::close() { open_ = false; }

int HostileChip::Answer(Frame frame, std::size_t length) {
  Require(++calls_ < kMaxCalls, "every operation comes to an end");
  const bool gone = end_ == End::kGone && answers_.IsEmpty();
  const std::uint8_t answer = gone ? kFails : answers_.Byte();
  FakeClock::Advance(answer == kTakesLong ? kLong : std::chrono::milliseconds(0));
  frame.carriedOut = answer != kFails && answer != kMovesTooLittle;
  frames.push_back(std::move(frame));
  if (answer == kFails) {
    return 0;
  }
  // One byte too little is also "nothing" for one byte, and one too many for none.
  return static_cast<int>(answer == kMovesTooLittle ? length - 1 : length);
}

int HostileChip::read(std::uint8_t* rx, std::size_t rxLen, std::uint8_t* tx, std::size_t txLen) {
  Frame frame = {.sent = {tx, tx + txLen}, .received = rxLen};
  if (frame.Opcode() == kRead) {
    std::uint32_t address = frame.Address();
    std::generate_n(rx, rxLen, [&] { return Memory(address++); });
  } else {
    const bool busy = end_ == End::kBusy && answers_.IsEmpty();
    FakeClock::Advance(busy ? kWhileBusy : std::chrono::milliseconds(0));
    std::generate_n(rx, rxLen, [&] { return busy ? std::uint8_t{1} : answers_.Byte(); });
  }
  frame.answer = rxLen == 0 ? std::uint8_t{0} : rx[0];
  return Answer(std::move(frame), rxLen);
}

int HostileChip::write(std::uint8_t* tx, std::size_t txLen) {
  return Answer({.sent = {tx, tx + txLen}, .received = 0, .answer = 0}, txLen);
}
