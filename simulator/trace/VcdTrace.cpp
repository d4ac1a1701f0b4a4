#include "simulator/trace/VcdTrace.h"

#include <algorithm>
#include <cstddef>

#include "simulator/timing/WireTime.h"

namespace orvane {

namespace {

using std::chrono::nanoseconds;

// Chip select can fall a quarter of a bit after it rose, then the clock rises, falls and chip select
// rises, all at different times.
constexpr nanoseconds kShortestSpiBit{4};
constexpr std::uint32_t kHighestHertz = 250'000'000;

constexpr unsigned kBits = kBitsPerSpiByte;  // of a byte

constexpr nanoseconds kI2cBit = WireTime(1, kI2cHz);
constexpr nanoseconds kQuarter = kI2cBit / 4;

/// "spidev1_0" for "/dev/spidev1.0".
std::string NameOf(std::string_view path) {
  std::string name(path.substr(path.rfind('/') + 1));
  std::replace(name.begin(), name.end(), '.', '_');
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
}

/// How long so many bits of SPI take in the file.
nanoseconds TimeOf(std::uint64_t bits, std::uint32_t hertz) {
  return hertz > kHighestHertz ? kShortestSpiBit * static_cast<std::int64_t>(bits)
                               : WireTime(bits, hertz);
}

/// The highest bit is on the wire first.
/// @param number  0 is the first one
bool BitOf(std::uint8_t byte, unsigned number) { return (byte >> (kBits - 1 - number) & 1U) != 0; }

}  // namespace

VcdTrace::VcdTrace(std::ostream& out) : file_(out) {}

void VcdTrace::OnStart(std::span<const ObservedModule> modules,
                       std::span<const std::string> chassisI2c) {
  for (const ObservedModule& module : modules) {
    file_.AddScope(module.type + "_" + std::to_string(module.slot));
    if (!module.spiPath.empty()) {
      AddSpi(module.spiPath);
    }
    std::ranges::for_each(module.i2cPaths, [this](const auto& path) { AddI2c(path); });
  }
  if (!chassisI2c.empty()) {
    file_.AddScope("chassis");
    std::ranges::for_each(chassisI2c, [this](const auto& path) { AddI2c(path); });
  }
  file_.Start();
}

void VcdTrace::AddSpi(const std::string& path) {
  const std::string name = NameOf(path);
  spi_[path] = {.select = file_.AddSignal(name + "_CS", true),
                .clock = file_.AddSignal(name + "_CLK", false),
                .mosi = file_.AddSignal(name + "_MOSI", false),
                .miso = file_.AddSignal(name + "_MISO", false)};
}

void VcdTrace::AddI2c(const std::string& path) {
  const std::string name = NameOf(path);
  i2c_[path] = {.scl = file_.AddSignal(name + "_SCL", true),
                .sda = file_.AddSignal(name + "_SDA", true)};
}

void VcdTrace::OnEnd(nanoseconds at) { file_.End(std::max(now_, at)); }

// --- SPI ----------------------------------------------------------------------------------------

void VcdTrace::OnSpi(const ObservedSpi& message) {
  if (message.outcome != Outcome::kDone) {
    return;
  }
  for (const ObservedSelect& select : message.selects) {
    if (!select.mosi.empty()) {
      DrawSelect(spi_.find(message.path)->second, select);
    }
  }
}

void VcdTrace::DrawSelect(SpiBus& bus, const ObservedSelect& select) {
  nanoseconds begin = std::max(now_, select.period.begin);
  nanoseconds fall = begin;
  if (begin == bus.idleSince) {  // chip select has risen just now, and is high for a moment
    fall += TimeOf(1, select.clocked.front().hertz) / 4;
  }
  file_.Set(bus.select, false, fall);
  file_.Set(bus.mosi, BitOf(select.mosi.front(), 0), fall);
  file_.Set(bus.miso, BitOf(select.miso.front(), 0), fall);
  std::size_t at = 0;
  Period bit;
  for (const ClockedBytes& clocked : select.clocked) {
    for (std::uint64_t number = 0; number < std::uint64_t{clocked.bytes} * kBits; ++number) {
      bit = {begin + TimeOf(number, clocked.hertz), begin + TimeOf(number + 1, clocked.hertz)};
      const std::size_t byte = at / kBits;
      const unsigned place = at % kBits;
      DrawSpiBit(bus, BitOf(select.mosi[byte], place), BitOf(select.miso[byte], place), bit);
      ++at;
    }
    begin = bit.end;
  }
  file_.Set(bus.clock, false, bit.begin + (bit.end - bit.begin) * 3 / 4);
  file_.Set(bus.select, true, bit.end);
  bus.idleSince = bit.end;
  now_ = bit.end;
}

void VcdTrace::DrawSpiBit(const SpiBus& bus, bool mosi, bool miso, Period period) {
  file_.Set(bus.clock, false, period.begin);
  file_.Set(bus.mosi, mosi, period.begin);
  file_.Set(bus.miso, miso, period.begin);
  file_.Set(bus.clock, true, period.begin + (period.end - period.begin) / 2);
}

// --- I2C ----------------------------------------------------------------------------------------

// In each bit SCL falls at the start, SDA changes after a quarter, and SCL rises after a half. In a
// start and a stop SDA changes once more after three quarters, while SCL is high.

void VcdTrace::OnI2c(const ObservedI2c& transfer) {
  if (transfer.messages.empty()) {  // nothing of it was on the bus
    return;
  }
  const I2cBus& bus = i2c_.find(transfer.path)->second;
  now_ = std::max(now_, transfer.period.begin);
  bool isRepeated = false;
  for (const ObservedI2cMessage& message : transfer.messages) {
    DrawI2cStart(bus, isRepeated);
    isRepeated = true;
    const unsigned address = unsigned{message.address} << 1U | (message.reads ? 1U : 0U);
    DrawI2cByte(bus, static_cast<std::uint8_t>(address), message.acknowledged);
    for (std::size_t i = 0; i < message.bytes.size(); ++i) {
      // Whoever reads acknowledges each byte but the last one.
      const bool isLast = i + 1 == message.bytes.size();
      DrawI2cByte(bus, message.bytes[i], !(message.reads && isLast));
    }
  }
  DrawI2cStop(bus);
}

/// A repeated start lets both lines rise first.
void VcdTrace::DrawI2cStart(const I2cBus& bus, bool isRepeated) {
  if (isRepeated) {
    DrawI2cBit(bus, true);
  } else {
    now_ += kI2cBit;
  }
  file_.Set(bus.sda, false, now_ - kQuarter);
}

void VcdTrace::DrawI2cStop(const I2cBus& bus) {
  DrawI2cBit(bus, false);
  file_.Set(bus.sda, true, now_ - kQuarter);
}

void VcdTrace::DrawI2cByte(const I2cBus& bus, std::uint8_t byte, bool acknowledged) {
  for (unsigned place = 0; place < kBits; ++place) {
    DrawI2cBit(bus, BitOf(byte, place));
  }
  DrawI2cBit(bus, !acknowledged);
}

void VcdTrace::DrawI2cBit(const I2cBus& bus, bool high) {
  file_.Set(bus.scl, false, now_);
  file_.Set(bus.sda, high, now_ + kQuarter);
  file_.Set(bus.scl, true, now_ + kI2cBit / 2);
  now_ += kI2cBit;
}

}  // namespace orvane
