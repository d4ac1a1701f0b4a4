#pragma once

#include <rapidcheck.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <vector>

#include "simulator/chips/NorFlashModel.h"
#include "tests/unit/simulator/chips/NaiveNorFlash.h"

namespace orvane {

constexpr std::size_t kFlashBytes = 16777216;

/// One chip select; or, when nothing is sent, instrument time that passes.
struct FlashStep {
  std::vector<std::uint8_t> sent;
  std::size_t received = 0;
  std::chrono::nanoseconds wait{0};

  /// What the controller drives: zeros while it receives.
  std::vector<std::uint8_t> Mosi() const;
};

/// The state of a chip at the start, and then its commands.
struct FlashSession {
  Chip chip = Chip::kMicron;
  bool written = false;  // holds bytes that differ from page to page, rather than being blank
  std::uint8_t status = 0;
  std::uint8_t configuration = 0;
  NorFlashFaults faults;
  std::vector<FlashStep> steps;

  /// What the whole array holds at first.
  const std::vector<std::uint8_t>& Contents() const;
};

/// Addresses on both sides of every border that the chip knows: of pages, subsectors, sectors,
/// protected ranges and the array. Most of a session happens there.
const std::vector<std::size_t>& FlashBorders();

/// Any three-byte address, most often one close to a border.
rc::Gen<std::size_t> FlashAddresses();

/// Sessions that mix whole operations with stray, cut and overlong commands.
rc::Gen<FlashSession> FlashSessions();        // of sound chips
rc::Gen<FlashSession> FaultyFlashSessions();  // of chips with faults

/// As in the simulator's log, with the data: "PP 0x0000ff +3: 11 22 33", "sleep 40 ms".
void showValue(const FlashStep& step, std::ostream& out);
/// The chip on one line, then a step a line.
void showValue(const FlashSession& session, std::ostream& out);

}  // namespace orvane
