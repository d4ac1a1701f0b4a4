#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "simulator/chips/NorFlashModel.h"

namespace orvane {

struct Range {
  std::size_t begin = 0;
  std::size_t end = 0;

  bool Contains(std::size_t address) const { return begin <= address && address < end; }
  bool Overlaps(Range other) const { return begin < other.end && other.begin < end; }
  bool Empty() const { return begin == end; }
};

/// What can be seen of a chip from outside. Of the array, a page and more on each side of every
/// border.
struct FlashView {
  explicit FlashView(const NorFlashModel& model);

  bool Latch() const { return (status & 0x02) != 0; }
  /// The non-volatile bits of both registers.
  std::pair<int, int> Stored() const { return {status & 0xFC, configuration}; }
  Range Protected(Chip chip) const;

  std::uint8_t status;
  std::uint8_t configuration;
  bool busy;
  std::vector<std::uint8_t> cells;
};

struct FlashCell {
  std::size_t address;
  std::uint8_t before;
  std::uint8_t after;
};

/// A step of a session, and the chip before and after it.
struct TakenStep {
  /// All that are in view.
  std::vector<FlashCell> Cells() const;
  /// Those that are different now.
  std::vector<FlashCell> Changes() const;

  bool Waits() const { return mosi.empty(); }
  int Opcode() const { return Waits() ? -1 : mosi[0]; }
  std::size_t Length() const { return mosi.size(); }
  /// @throw std::out_of_range when chip select rose within it
  std::size_t Address() const;
  bool StartsWork() const { return !before.busy && after.busy; }

  /// What a well-formed command is told to erase or to program; empty for any other.
  Range Erased() const;
  Range Programmed() const;
  /// What a page program leaves in an erased cell of its page: the last byte sent there.
  std::uint8_t ByteFor(std::size_t address) const;

  std::chrono::nanoseconds wait;
  std::vector<std::uint8_t> mosi;  // nothing while time passes
  FlashView before;
  std::vector<std::uint8_t> answer;
  FlashView after;

 private:
  Range Unit(std::size_t bytes) const;
};

}  // namespace orvane
