#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "simulator/chips/NorFlashModel.h"

namespace orvane {

/// What is broken about a flash chip. Counts start at 1, 0 means never.
struct NorFlashFaults {
  bool absent = false;
  std::uint64_t dropProgram = 0;
  std::uint64_t dropErase = 0;
  std::uint64_t dropRegisterWrite = 0;
  std::uint64_t stayBusyAfter = 0;
  std::vector<std::uint32_t> wornPages;
  std::vector<std::uint32_t> wornSectors;
};

/// A second model of the chip that NorFlashModel.h describes, to compare with. It takes one byte at
/// a time, has one function for each rule, and is slow where that is simpler.
class NaiveNorFlash {
 public:
  /// @param memory  the array, borrowed: 16 MiB that hold what the chip holds
  NaiveNorFlash(Chip chip, NorFlashFaults faults, std::vector<std::uint8_t>& memory);

  /// Sets the non-volatile bits, as earlier commands left them.
  void LoadRegisters(std::uint8_t status, std::uint8_t configuration);

  /// One chip select: `sent`, then zeros for as long as bytes are received.
  /// @return what the chip drives from the first byte on
  std::vector<std::uint8_t> Select(const std::vector<std::uint8_t>& sent, std::size_t received);
  void Wait(std::chrono::nanoseconds time);

  bool Busy() const;
  std::uint8_t Status() const;
  std::uint8_t Configuration() const { return configuration_; }
  const std::vector<std::uint8_t>& Memory() const { return memory_; }

 private:
  std::uint8_t Clock(std::uint8_t in);
  void Deselect();

  std::uint8_t PolledStatus();
  std::uint8_t Identification(std::size_t index) const;
  std::uint8_t ReadData(std::size_t index) const;
  void Program();
  void Erase(std::size_t unitBytes);
  void WriteRegisters();
  void FinishRegisterWrite();
  void StartWork(int polls, std::chrono::nanoseconds longest);

  std::size_t Address() const;
  bool MayChange(std::size_t address, std::size_t bytes);
  bool Protected(std::size_t sector) const;
  bool WornPage(std::size_t page) const;
  bool WornSector(std::size_t sector) const;

  Chip chip_;
  NorFlashFaults faults_;
  std::vector<std::uint8_t>& memory_;
  std::uint8_t storedStatus_ = 0;
  std::uint8_t configuration_;
  std::vector<std::uint8_t> heard_;  // received since chip select fell
  bool latch_ = false;
  bool stuck_ = false;
  int pollsLeft_ = 0;                         // of a program or an erase
  std::chrono::nanoseconds workTimeLeft_{0};  // of the same
  std::chrono::nanoseconds timeLeft_{0};
  std::vector<std::uint8_t> registersToCome_;
  std::uint64_t programs_ = 0;
  std::uint64_t erases_ = 0;
  std::uint64_t registerWrites_ = 0;
};

}  // namespace orvane
