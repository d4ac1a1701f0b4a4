#include "simulator/timing/ChipTimes.h"

namespace orvane {

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

// The figures are those of the data sheets that are named; no edition of them is named, because none was
// at hand to compare them with.

// Micron MT25QL128ABA, 128 Mb, 3 V: data sheet, AC characteristics and operating conditions.
constexpr ChipTimes kMicronTypical = {
    .pageProgram = microseconds(120),     // tPP
    .subsectorErase = milliseconds(50),   // tSSE, 4 KiB
    .sectorErase = milliseconds(150),     // tSE, 64 KiB
    .chipErase = seconds(38),             // tBE
    .registerWrite = microseconds(1'300)  // tW
};
constexpr ChipTimes kMicronLongest = {
    .pageProgram = microseconds(1'800),   // tPP
    .subsectorErase = milliseconds(400),  // tSSE, 4 KiB
    .sectorErase = seconds(1),            // tSE, 64 KiB
    .chipErase = seconds(114),            // tBE
    .registerWrite = milliseconds(8)      // tW
};

// Macronix MX25L12835F, 128 Mb, 3 V: data sheet, AC characteristics. It has no typical tW: the longest
// one stands for it.
constexpr ChipTimes kMacronixTypical = {
    .pageProgram = microseconds(500),    // tPP
    .subsectorErase = milliseconds(43),  // tSE, 4 KiB
    .sectorErase = milliseconds(340),    // tBE, 64 KiB
    .chipErase = seconds(70),            // tCE
    .registerWrite = milliseconds(40)    // tW
};
constexpr ChipTimes kMacronixLongest = {
    .pageProgram = microseconds(1'500),   // tPP
    .subsectorErase = milliseconds(200),  // tSE, 4 KiB
    .sectorErase = seconds(2),            // tBE, 64 KiB
    .chipErase = seconds(200),            // tCE
    .registerWrite = milliseconds(40)     // tW
};

}  // namespace

std::chrono::nanoseconds ChipTimes::Of(ChipWork work) const {
  switch (work) {
    case ChipWork::kPageProgram:
      return pageProgram;
    case ChipWork::kSubsectorErase:
      return subsectorErase;
    case ChipWork::kSectorErase:
      return sectorErase;
    case ChipWork::kChipErase:
      return chipErase;
    case ChipWork::kRegisterWrite:
      return registerWrite;
    case ChipWork::kNone:
      break;
  }
  return std::chrono::nanoseconds(0);
}

ChipTimes MicronTimes(Timing timing) {
  return timing == Timing::kLongest ? kMicronLongest : kMicronTypical;
}

ChipTimes MacronixTimes(Timing timing) {
  return timing == Timing::kLongest ? kMacronixLongest : kMacronixTypical;
}

}  // namespace orvane
