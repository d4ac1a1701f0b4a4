#pragma once

#include <cerrno>
#include <cstdint>
#include <string>

#include "tests/doubles/FileKernel.h"
#include "tests/fuzz/HostileBytes.h"

/// What becomes of a call on a file, as the fuzzer says by one byte: 0 leaves it alone, 255 fails
/// it, anything between cuts a read or a write to so many bytes.
inline FileKernel::Fate FateOf(std::uint8_t disturbance) {
  constexpr std::uint8_t kFails = 0xFF;
  if (disturbance == 0) {
    return {};
  }
  return disturbance == kFails ? FileKernel::Fate{.error = EIO}
                               : FileKernel::Fate{.most = disturbance};
}

/// @param bytes  borrowed; gives one for each call
inline FileKernel::Decide DisturbedBy(HostileBytes& bytes) {
  return
      [&bytes](const char* /*call*/, const std::string& /*path*/) { return FateOf(bytes.Byte()); };
}
