#include "simulator/instrument/SpiWire.h"

#include <algorithm>
#include <utility>

#include "simulator/timing/TimeTotals.h"
#include "simulator/timing/WireTime.h"

namespace orvane {

namespace {

std::chrono::nanoseconds TimeOf(std::uint64_t bytes, std::uint32_t hertz) {
  return WireTime(bytes * kBitsPerSpiByte, hertz);
}

}  // namespace

std::uint32_t RateOf(const SpiTransfer& transfer, std::uint32_t usualHertz) {
  return transfer.speedHz == 0 ? usualHertz : transfer.speedHz;
}

void SpiWire::Pass(std::size_t bytes) {
  while (bytes > 0 && !transfers_.empty()) {
    const SpiTransfer& transfer = transfers_.front();
    const auto now =
        static_cast<std::uint32_t>(std::min<std::size_t>(bytes, transfer.length - passed_));
    PassWithin(transfer, now);
    bytes -= now;
    if (passed_ == transfer.length) {
      transfers_ = transfers_.subspan(1);
      passed_ = 0;
      passedTime_ = std::chrono::nanoseconds(0);
    }
  }
}

void SpiWire::PassWithin(const SpiTransfer& transfer, std::uint32_t bytes) {
  if (bytes == 0) {
    return;
  }
  const std::uint32_t hertz = RateOf(transfer, usualHertz_);
  if (passed_ == 0 || clocked_.empty()) {
    clocked_.push_back({0, hertz});
  }
  clocked_.back().bytes += bytes;
  passed_ += bytes;
  const std::chrono::nanoseconds time = TimeOf(passed_, hertz);
  clock_.Advance(Cause::kWire, time - passedTime_);
  passedTime_ = time;
}

std::vector<ClockedBytes> SpiWire::TakeClocked() { return std::exchange(clocked_, {}); }

std::chrono::nanoseconds WireTimeOf(std::span<const SpiTransfer> transfers,
                                    std::uint32_t usualHertz) {
  std::chrono::nanoseconds time{0};
  for (const SpiTransfer& transfer : transfers) {
    time += TimeOf(transfer.length, RateOf(transfer, usualHertz));
  }
  return time;
}

}  // namespace orvane
