#include "simulator/chips/FlashArray.h"

#include <algorithm>

namespace orvane {
namespace {

/// Each byte is compared with the next one: a comparison of memory, which is much faster than a loop.
bool IsErased(std::span<const std::uint8_t> bytes) {
  return bytes.empty() || (bytes.front() == FlashArray::kErased &&
                           std::equal(bytes.begin(), bytes.end() - 1, bytes.begin() + 1));
}

}  // namespace

FlashArray::FlashArray(std::size_t sectors)
    : held_(sectors),
      bytes_(std::make_unique_for_overwrite<std::uint8_t[]>(sectors * kSectorBytes)) {}

FlashArray::FlashArray(const FlashArray& other) : FlashArray(other.held_.size()) { *this = other; }

FlashArray& FlashArray::operator=(const FlashArray& other) {
  if (this == &other) {
    return *this;
  }
  if (held_.size() != other.held_.size()) {
    *this = FlashArray(other.held_.size());
  }
  for (std::size_t at = 0; at < held_.size() * kSectorBytes; at += kSectorBytes) {
    if (other.held_[at / kSectorBytes]) {
      std::copy_n(other.bytes_.get() + at, kSectorBytes, Part(at, kSectorBytes).data());
    } else {
      Erase(at, kSectorBytes);
    }
  }
  return *this;
}

void FlashArray::Load(std::span<const std::uint8_t> contents) {
  for (std::size_t sector = 0; sector < held_.size(); ++sector) {
    const std::size_t at = sector * kSectorBytes;
    const auto bytes = contents.first(std::min(contents.size(), kSectorBytes));
    contents = contents.subspan(bytes.size());
    if (IsErased(bytes)) {
      Erase(at, kSectorBytes);
    } else {
      std::copy_n(bytes.data(), bytes.size(), Part(at, kSectorBytes).data());
      Erase(at + bytes.size(), kSectorBytes - bytes.size());
    }
  }
}

void FlashArray::Erase(std::size_t at, std::size_t count) {
  if (count > 0 && held_[at / kSectorBytes]) {  // else it is erased, and stays without memory
    std::fill_n(bytes_.get() + at, count, kErased);
  }
}

/// Gives memory to the sectors of a range.
void FlashArray::Hold(std::size_t at, std::size_t count) const {
  for (std::size_t sector = at / kSectorBytes; sector * kSectorBytes < at + count; ++sector) {
    if (!held_[sector]) {
      std::fill_n(bytes_.get() + sector * kSectorBytes, kSectorBytes, kErased);
      held_[sector] = true;
    }
  }
}

}  // namespace orvane
