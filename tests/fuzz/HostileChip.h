#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "devices/SPIDev.h"
#include "tests/fuzz/HostileBytes.h"

/// A flash. One byte of the fuzzer decides how each call ends: 0 as with a sound chip, 0xFF with a
/// failure, 0xFE with too few bytes, 0xFD after six seconds. The contents of registers are further
/// bytes; the memory holds a pattern.
class HostileChip : public SPIDev {
 public:
  /// One chip select.
  struct Frame {
    std::vector<std::uint8_t> sent;
    std::size_t received;
    bool carriedOut;
    std::uint8_t answer;  // the first byte received

    [[nodiscard]] int Opcode() const { return sent.empty() ? -1 : sent.front(); }
    [[nodiscard]] std::uint32_t Address() const;
  };

  /// How the chip behaves after the end of the answers.
  enum class End { kObedient, kBusy, kGone };

  /// @param answers    borrowed
  /// @param destroyed  set when the chip is
  HostileChip(unsigned speedHz, HostileBytes& answers, End end, bool& destroyed);
  HostileChip(const HostileChip&) = delete;
  HostileChip& operator=(const HostileChip&) = delete;
  ~HostileChip() override;

  /// @return the byte at an address
  static std::uint8_t Memory(std::uint32_t address);

  bool is_open() override;
  int open(std::uint8_t address) override;
  void close() override;
  int read(std::uint8_t* rx, std::size_t rxLen, std::uint8_t* tx, std::size_t txLen) override;
  int write(std::uint8_t* tx, std::size_t txLen) override;

  std::vector<Frame> frames;
  int lastOpenResult = -1;

 private:
  /// Notes a frame, and advances the clock by its time.
  /// @return the count to return for `length` bytes
  int Answer(Frame frame, std::size_t length);

  HostileBytes& answers_;
  End end_;
  bool& destroyed_;
  bool open_ = false;
  std::size_t calls_ = 0;
};
