#include "companion/process/SpidevLimit.h"

#include <cstddef>
#include <iostream>
#include <optional>
#include <sstream>

#include "devices/SPIDev.h"

namespace companion {

namespace {

/// `tarnwick` cuts an image into pieces of this limit, and each piece into pages of the flash, which
/// must not cross the border of a page: so it must be whole pages. A page program has four bytes more
/// than a page, and there are kernels that round its length up before they compare: so it must be two
/// of them.
constexpr std::size_t kPageBytes = 256;
constexpr std::size_t kLeastBytes = 512;

constexpr int kReadings = 4;

/// Takes what is printed on std::cerr, while it lives.
class Silence {
 public:
  Silence() : former_(std::cerr.rdbuf(taken_.rdbuf())) {}
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;
  ~Silence() { std::cerr.rdbuf(former_); }

  [[nodiscard]] bool IsBroken() const { return !taken_.view().empty(); }

 private:
  std::ostringstream taken_;
  std::streambuf* former_;
};

/// What two readings in a row say: one alone can be wrong. A limit that cannot be read counts as the
/// kernel's usual one, as it does for `tarnwick`.
std::size_t Limit() {
  std::optional<std::size_t> before;
  for (int reading = 1;; ++reading) {
    const Silence silence;
    const std::size_t limit = SPIDev::GetBufsiz();
    if (limit == before || reading == kReadings) {
      return limit;
    }
    before = silence.IsBroken() ? std::nullopt : std::optional(limit);
  }
}

}  // namespace

std::string SpidevLimitProblem() {
  const std::size_t limit = Limit();
  if (limit >= kLeastBytes && limit % kPageBytes == 0) {
    return "";
  }
  return "the limit of a SPI transfer, parameter 'bufsiz' of the kernel module spidev, is " +
         std::to_string(limit) +
         ": set it to a multiple of 256, at least 512, such as 4096, and load the module again";
}

}  // namespace companion
