#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "companion/module/Step.h"

class SPIDev;

namespace companion {

/// Reads the flash so that what it returns is certain, with READ and nothing else. Steps that fail
/// throw StepFailed.
///
/// A message that is lost on its way reads as zeros, and succeeds. So messages whose bytes are all the
/// same are read a second time, with other borders and with some of the bytes around them, and a run
/// of zeros that is longer than a message a third time. After all of them a place that is known to
/// hold different bytes is read again, to show that reading still works.
class FlashReader {
 public:
  /// What was found apart from the contents.
  struct Result {
    std::optional<std::uint32_t> unsteadyAddress;  ///< first block whose readings do not agree
    std::size_t blocksReadAgain = 0;
    bool looksSilent = false;  ///< zeros everywhere, as a line reads that nobody drives
  };

  /// @param bytes  read since the last call
  using Advance = std::function<void(std::size_t bytes)>;

  /// @param spi,interruption  borrowed; `spi` is open
  /// @throw StepFailed when the SPI driver's transfers are too short
  FlashReader(SPIDev& spi, const Interruption& interruption, Advance advance);

  /// Reads from address 0 on. A block of 4 KiB that differs from what is expected is read again
  /// twice; when one of the readings went wrong, until three in a row agree. Once a block is certain
  /// to differ, no other is read again.
  /// @param contents  filled
  /// @param expected  as long, or empty: everything is then read twice, and the second reading is
  ///                  what is expected of the first
  Result Read(std::span<std::uint8_t> contents, std::span<const std::uint8_t> expected);

 private:
  struct Range {
    std::size_t address;
    std::size_t bytes;
  };

  void Message(std::size_t address, std::span<std::uint8_t> bytes);
  /// Reads in messages, of which the first has half the length of the others if `shifted`.
  std::vector<Range> ReadRange(std::size_t address, std::span<std::uint8_t> bytes, bool shifted);
  void ReadUniformAgain(const std::vector<Range>& messages,
                        std::span<const std::uint8_t> contents,
                        std::vector<bool>& differs);
  static std::vector<Range>::const_iterator EndOfUniform(std::vector<Range>::const_iterator message,
                                                         std::vector<Range>::const_iterator end,
                                                         std::span<const std::uint8_t> contents);
  void Confirm(Range run,
               bool shifted,
               std::span<const std::uint8_t> contents,
               std::vector<bool>& differs);
  Result ReadAgain(std::span<std::uint8_t> contents,
                   std::span<const std::uint8_t> expected,
                   const std::vector<bool>& differs);
  /// Reads a block until its readings agree.
  /// @param bytes  of the first reading; then of the last one
  /// @return false when they do not
  bool Settle(std::size_t address, std::span<std::uint8_t> bytes);
  /// @return false when the contents cannot be told from what a line reads that nobody drives
  bool Witness(std::span<const std::uint8_t> contents);
  bool ReadsDifferentBytesElsewhere(std::uint8_t value);

  SPIDev& spi_;
  const Interruption& interruption_;
  Advance advance_;
  std::size_t messageBytes_;
};

}  // namespace companion
