#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "devices/SPIDev.h"
#include "tests/fuzz/HostileBytes.h"

/// A flash whose every answer comes from the fuzzer, which gives one byte per call: 0 for an
/// obedient chip, 0xFF for a call that fails, 0xFE for one that moves too little, 0xFD for one that
/// takes six seconds. What a register answers are further bytes; the memory holds a pattern.
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

  /// What the chip is behind the end of the answers.
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
  /// Notes a frame, and lets its time pass.
  /// @return the count to return for `length` bytes
  int Answer(Frame frame, std::size_t length);

  HostileBytes& answers_;
  End end_;
  bool& destroyed_;
  bool open_ = false;
  std::size_t calls_ = 0;
};
