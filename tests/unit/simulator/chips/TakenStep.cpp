#include "tests/unit/simulator/chips/TakenStep.h"

#include <algorithm>

#include "tests/unit/simulator/chips/FlashSession.h"

namespace orvane {
namespace {

const std::vector<Range>& Watched() {
  static const std::vector<Range> watched = [] {
    constexpr std::size_t kAround = 300;
    std::vector<Range> ranges = {{kFlashBytes - kAround, kFlashBytes}};
    for (const std::size_t border : FlashBorders()) {
      ranges.push_back({border - std::min(border, kAround), border + kAround});
    }
    return ranges;
  }();
  return watched;
}

}  // namespace

FlashView::FlashView(const NorFlashModel& model)
    : status(model.StatusRegister()),
      configuration(model.ConfigurationRegister()),
      busy(model.Busy()) {
  for (const Range range : Watched()) {
    const auto part = model.Contents().subspan(range.begin, range.end - range.begin);
    cells.insert(cells.end(), part.begin(), part.end());
  }
}

Range FlashView::Protected(Chip chip) const {
  const bool micron = chip == Chip::kMicron;
  const int level = micron ? (status & 0x1C) >> 2 | (status & 0x40) >> 3 : (status & 0x3C) >> 2;
  const bool bottom = micron ? (status & 0x20) != 0 : (configuration & 0x08) != 0;
  if (level == 0) {
    return {};
  }
  const std::size_t bytes = std::min(kFlashBytes, std::size_t{0x8000} << level);
  return bottom ? Range{0, bytes} : Range{kFlashBytes - bytes, kFlashBytes};
}

std::vector<FlashCell> TakenStep::Cells() const {
  std::vector<FlashCell> all;
  all.reserve(before.cells.size());
  for (const Range range : Watched()) {
    for (std::size_t address = range.begin; address < range.end; ++address) {
      const std::size_t i = all.size();
      all.push_back({address, before.cells[i], after.cells[i]});
    }
  }
  return all;
}

std::vector<FlashCell> TakenStep::Changes() const {
  if (before.cells == after.cells) {
    return {};
  }
  std::vector<FlashCell> changes = Cells();
  std::erase_if(changes, [](const FlashCell& cell) { return cell.before == cell.after; });
  return changes;
}

std::size_t TakenStep::Address() const {
  return std::size_t{mosi.at(1)} << 16U | std::size_t{mosi.at(2)} << 8U | mosi.at(3);
}

Range TakenStep::Unit(std::size_t bytes) const {
  const std::size_t begin = Address() / bytes * bytes;
  return {begin, begin + bytes};
}

Range TakenStep::Erased() const {
  switch (Opcode()) {
    case 0x20:
      return Length() == 4 ? Unit(0x1000) : Range{};
    case 0xD8:
      return Length() == 4 ? Unit(0x10000) : Range{};
    case 0x60:
    case 0xC7:
      return Length() == 1 ? Range{0, kFlashBytes} : Range{};
    default:
      return {};
  }
}

Range TakenStep::Programmed() const {
  return Opcode() == 0x02 && Length() > 4 ? Unit(0x100) : Range{};
}

std::uint8_t TakenStep::ByteFor(std::size_t address) const {
  for (std::size_t i = Length() - 4; i-- > 0;) {
    if ((Address() + i) % 256 == address % 256) {
      return mosi[4 + i];
    }
  }
  return 0xFF;
}

}  // namespace orvane
