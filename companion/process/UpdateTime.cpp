#include "companion/process/UpdateTime.h"

#include <algorithm>
#include <cstdint>

namespace companion {

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

// MT25QL128 data sheet, chapter "AC characteristics and operating conditions", longest times.
constexpr microseconds kPageProgram{1800};
constexpr milliseconds kSectorErase{1000};
constexpr std::size_t kPageBytes = 256;
constexpr std::size_t kSectorBytes = 64 * std::size_t{1024};

// What is clocked for a page: write enable, opcode, address and data, and a poll of the status.
constexpr std::size_t kWireBytesPerPage = 1 + 4 + kPageBytes + 2;
constexpr std::int64_t kBitsPerByte = 8;
/// `tarnwick` asks for this clock, in MHz, unless it is told another one. The controller may be slower
/// than a faster one that is asked for.
constexpr unsigned kUsualClockMHz = 19;

/// An allowance for the system between two SPI messages, and the messages of a page.
constexpr microseconds kMessageOverhead{200};
constexpr std::int64_t kMessagesPerPage = 3;

// What `tarnwick` itself waits for: the time-out of a call on the system bus (sd-bus, its default)
// and the number of its calls; the reset of a Zynq and DONE after it; each write to the status
// register of a lockable chip (connect, unlock, lock).
constexpr seconds kBusCallTimeout{25};
constexpr int kBusCalls = 4;
constexpr seconds kReset{5};
constexpr seconds kDoneTimeout{10};
constexpr milliseconds kStatusWrite{500};
constexpr int kStatusWrites = 3;

// For chips of other makers and for a busy system.
constexpr int kMarginFactor = 2;
constexpr seconds kMargin{60};

std::int64_t Units(std::size_t bytes, std::size_t unitBytes) {
  return static_cast<std::int64_t>((bytes + unitBytes - 1) / unitBytes);
}

}  // namespace

seconds LongestUpdate(std::size_t imageBytes, unsigned spiClockMHz) {
  const std::int64_t pages = Units(imageBytes, kPageBytes);
  const std::int64_t bitsPerMicrosecond = std::clamp(spiClockMHz, 1U, kUsualClockMHz);
  const microseconds wire(pages * std::int64_t{kWireBytesPerPage} * kBitsPerByte /
                          bitsPerMicrosecond);
  const microseconds writing = Units(imageBytes, kSectorBytes) * kSectorErase +
                               pages * (kPageProgram + kMessagesPerPage * kMessageOverhead) + wire;
  const microseconds waiting =
      kBusCalls * kBusCallTimeout + kReset + kDoneTimeout + kStatusWrites * kStatusWrite;
  return std::chrono::ceil<seconds>(kMarginFactor * (writing + waiting)) + kMargin;
}

}  // namespace companion
