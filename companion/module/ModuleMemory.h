#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "companion/image/ImageFile.h"
#include "companion/module/ModuleInterface.h"

namespace companion {

/// A text in shared memory. What does not fit is cut off.
class SharedText {
 public:
  static constexpr std::size_t kMostBytes = 1024;

  void Set(std::string_view text) {
    bytes_ = std::min(text.size(), kMostBytes);
    std::copy_n(text.begin(), bytes_, text_.begin());
  }
  [[nodiscard]] std::string Get() const { return {text_.data(), bytes_}; }

 private:
  std::size_t bytes_ = 0;
  std::array<char, kMostBytes> text_;
};

/// What one worker reports.
struct WorkerReport {
  bool succeeded = false;  ///< what was asked for is here
  bool ended = false;      ///< the worker has done everything, the module is given back
  SharedText problem;
  SharedText notGivenBack;

  bool populated = false;
  SharedText i2cBus;
  SharedText spiDev;

  Chip chip;
  DoneLine done = DoneLine::kUnknown;
  DoneLine doneAfter = DoneLine::kUnknown;
  bool psMode = false;
  bool seenLow = false;
  Endpoint endpoint = Endpoint::kNone;
  std::optional<std::uint32_t> unsteadyAddress;
  std::size_t blocksReadAgain = 0;
  bool looksSilent = false;
};

/// What a process shares with its workers.
struct ModuleMemory {
  std::atomic<bool> stop = false;
  std::atomic<std::size_t> advanced = 0;  ///< bytes read
  std::optional<std::uint16_t> resting;   ///< directions of the expander's lines before anything
  WorkerReport report;
  WorkerReport restoration;  ///< of the worker that gives back what another has left
  std::array<std::uint8_t, kFlashBytes> contents;
};

}  // namespace companion
