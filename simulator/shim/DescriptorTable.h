#pragma once

#include <cstdint>

#include "simulator/shim/LinkProtocol.h"

namespace orvane::shim {

/// What the descriptors of this process were opened as; link::kNoHandle for those that the host
/// does not know. A descriptor beyond the table is never known.
class DescriptorTable {
 public:
  static constexpr int kDescriptors = 1 << 16;

  struct Entry {
    std::uint32_t handle = link::kNoHandle;
    link::Kind kind = link::Kind::kFile;
  };

  Entry Get(int descriptor) const {
    if (!Holds(descriptor)) {
      return {};
    }
    const std::uint32_t packed = entries_[descriptor];
    return {packed >> link::kKindBits,
            static_cast<link::Kind>(packed & ((1U << link::kKindBits) - 1U))};
  }

  void Set(int descriptor, Entry entry) {
    if (Holds(descriptor)) {
      entries_[descriptor] =
          entry.handle << link::kKindBits | static_cast<std::uint32_t>(entry.kind);
    }
  }

 private:
  static bool Holds(int descriptor) { return descriptor >= 0 && descriptor < kDescriptors; }

  std::uint32_t entries_[kDescriptors];
};

}  // namespace orvane::shim
