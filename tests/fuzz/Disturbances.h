#pragma once

#include <cerrno>
#include <cstdint>
#include <string>

#include "tests/doubles/FileKernel.h"
#include "tests/fuzz/HostileBytes.h"

/// How a call on a file ends, decided by one byte of the fuzzer: with 0 it is carried out, with 255
/// it fails, with any other value a read or a write moves at most so many bytes.
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
