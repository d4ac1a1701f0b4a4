#include "app/SpiClock.h"

#include <cstdio>
#include <cstdlib>

namespace {

constexpr unsigned kDefaultSpiClockMHz = 19;

}  // namespace

unsigned SpiClockMHz() {
  unsigned spiClockMHz = kDefaultSpiClockMHz;
  const char* const wanted = std::getenv("SPI_CLOCK_SPEED");
  if (wanted != nullptr) {
    // A text that is no number leaves the default. A number is used without a range check.
    // NOLINTNEXTLINE(cert-err34-c): the rules of "%u" are fixed and observable
    static_cast<void>(std::sscanf(wanted, "%u", &spiClockMHz));
  }
  return spiClockMHz;
}
