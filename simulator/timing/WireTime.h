#pragma once

#include <chrono>
#include <cstdint>

namespace orvane {

inline constexpr std::uint32_t kI2cHz = 100'000;
inline constexpr unsigned kBitsPerSpiByte = 8;
inline constexpr unsigned kBitsPerI2cByte = 9;  // with the acknowledge bit
inline constexpr unsigned kI2cStartBits = 1;    // also a repeated start
inline constexpr unsigned kI2cStopBits = 1;

/// How long so many bits take, rounded up to whole nanoseconds: a wire is never faster than its clock.
/// @param bits   up to 2^33
/// @param hertz  not 0
constexpr std::chrono::nanoseconds WireTime(std::uint64_t bits, std::uint32_t hertz) {
  constexpr std::uint64_t kNanosecondsPerSecond = 1'000'000'000;
  return std::chrono::nanoseconds((bits * kNanosecondsPerSecond + hertz - 1) / hertz);
}

}  // namespace orvane
