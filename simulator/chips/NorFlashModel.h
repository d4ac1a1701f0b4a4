#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <vector>

#include "simulator/chips/FlashArray.h"
#include "simulator/timing/ByteClock.h"
#include "simulator/timing/ChipTimes.h"
#include "simulator/timing/Timing.h"

namespace orvane {

enum class Chip {
  kMicron,    // identification 20 ba 18
  kMacronix,  // identification c2 20 18
};

/// A 16 MiB serial NOR flash with three-byte addresses, as its data sheet describes it: bytes in,
/// bytes out, one chip select at a time. The chip ignores a command that it does not know, or that
/// it cannot or may not carry out now; it has no way to report an error.
///
///   06 / 04               write enable / disable      exactly this byte
///   05 -> sr sr ...       read status                 also while busy, repeats while clocked
///   15 -> cr cr ...       read configuration          kMacronix only, also while busy
///   9f -> 3 bytes         identification              then zeros
///   03 a a a -> data ...  read                        runs over the end of the array to its start
///   02 a a a data...      page program                1 or more bytes, needs write enable
///   20 / d8 a a a         erase 4 KiB / 64 KiB        exactly these bytes, needs write enable
///   60 or c7              erase the chip              exactly this byte, needs write enable
///   01 sr [cr]            write status (and, kMacronix only, configuration), needs write enable
///
/// Status: bit 0 busy, bit 1 write enable latch. With Timing::kPolls a program or an erase keeps the
/// chip busy for a fixed number of status bytes read, or for the longest instrument time that it can
/// take if nobody reads the status, and a register write for a fixed instrument time. Otherwise each
/// takes the time of the chip's data sheet, from the rise of chip select on. New register values are in
/// force from the end of their write on. While busy the chip carries out register reads only. The latch
/// falls when the work is done.
///
/// A register is sampled as each byte of its answer begins, and whether the chip is busy as the opcode
/// does.
///
/// Block protection, level L from the status register: 65536 * 2^(L-1) bytes, the whole array from
/// level 9 on, counted from the end of the array, or from address 0 when the chip's bottom bit is
/// set. kMacronix: level in status bits 2..5; bottom is configuration bit 3, which can be set once
/// and never cleared; a program or an erase that touches a protected byte is ignored and the latch
/// falls. kMicron: level in status bits 6 and 4..2, bottom is status bit 5; the latch stays set.
class NorFlashModel {
 public:
  static constexpr std::size_t kBytes = 16U << 20;
  static constexpr int kBusyReadsAfterProgram = 2;  // status bytes that show busy
  static constexpr int kBusyReadsAfterErase = 3;
  static constexpr std::chrono::nanoseconds kLongestProgram = std::chrono::milliseconds(5);
  static constexpr std::chrono::nanoseconds kLongestSectorErase = std::chrono::seconds(1);
  static constexpr std::chrono::nanoseconds kRegisterWriteTime = std::chrono::milliseconds(40);

  /// A blank chip (all 0xFF), unprotected, as delivered.
  explicit NorFlashModel(Chip chip, Timing timing = Timing::kPolls);

  /// Puts `contents` at address 0 and 0xFF after it. Takes no instrument time.
  /// @throw std::length_error when longer than kBytes; the chip keeps what it holds
  void Load(std::span<const std::uint8_t> contents);

  /// The whole array, kBytes long; valid as long as the chip, and always up to date.
  std::span<const std::uint8_t> Contents() const { return array_.Part(0, kBytes); }
  /// Its first sector, which is where an FPGA looks for what it loads.
  std::span<const std::uint8_t> FirstSector() const {
    return array_.Part(0, FlashArray::kSectorBytes);
  }

  // One moment at a time can be remembered. It costs a copy of each 64 KiB sector that changes
  // later, made at its first change.

  /// Remembers what the array holds now, instead of what was remembered before.
  void Remember() { replaced_.emplace(); }
  /// Remembers nothing.
  void Forget() { replaced_.reset(); }
  /// @return whether the array holds what is remembered; false when that is nothing
  bool IsAsRemembered() const;
  /// @return the whole array at the moment that is remembered; none: nothing is
  std::optional<std::vector<std::uint8_t>> Remembered() const;

  /// Everything between chip select falling and rising.
  /// @param mosi  what the controller drives
  /// @param miso  every byte is written, 0x00 where the chip does not drive the line; must not
  ///              overlap `mosi`
  /// @param clock  told of each byte as it passes; it may call AdvanceTime
  /// @throw std::invalid_argument when the lengths differ
  void Transfer(std::span<const std::uint8_t> mosi,
                std::span<std::uint8_t> miso,
                ByteClock& clock = ByteClock::Still());

  /// Advances the instrument time.
  void AdvanceTime(std::chrono::nanoseconds by);
  /// How long it takes until the work in progress is done; kNever: nothing is in progress.
  std::chrono::nanoseconds NextChange() const;

  /// Whether an FPGA could boot from it: present and not stuck busy.
  bool Bootable() const { return present_ && !stuckBusy_; }

  bool Busy() const {
    return busyLeft_.count() > 0 || registerWriteLeft_.count() > 0 || stuckBusy_;
  }
  /// Whether the chip has become ready, and neither a status byte nor another command has come since.
  /// Never with Timing::kPolls.
  bool AwaitsPoll() const { return awaitsPoll_; }
  /// What it is busy with. One that is stuck stays busy with its last work.
  ChipWork Work() const { return work_; }
  /// The first address of what the work is about: of the page or the sector; else 0.
  std::uint32_t WorkAddress() const { return workAddress_; }
  /// By the data sheet: the typical times with Timing::kPolls.
  const ChipTimes& Times() const { return times_; }
  /// How long all work that has begun takes by the data sheet: typically with Timing::kPolls.
  std::chrono::nanoseconds TimeOfWork() const { return timeOfWork_; }
  std::uint8_t StatusRegister() const;
  std::uint8_t ConfigurationRegister() const { return configuration_; }

  /// Sets the non-volatile bits of the registers, as an earlier run left them: of `status` bits
  /// 2..7; `configuration` on kMacronix only. The bottom bit can be cleared here.
  void LoadRegisters(std::uint8_t status, std::uint8_t configuration);

  // Faults. Programs, erases and register writes are counted from 1, beginning with the call; those
  // that the chip ignores do not count. 0 cancels a counted fault, a new call replaces the last
  // one.

  /// An absent chip drives zeros and ignores every command.
  void SetPresent(bool present) { present_ = present; }
  /// The nth page program takes its time, but programs nothing.
  void DropProgram(std::uint64_t nth) { dropProgram_ = nth; }
  /// The nth erase, of whatever size, takes its time, but erases nothing.
  void DropErase(std::uint64_t nth) { dropErase_ = nth; }
  /// The nth register write takes its time, but changes nothing.
  void DropRegisterWrite(std::uint64_t nth) { dropRegisterWrite_ = nth; }
  /// The nth program or erase, counted together, is done, but the chip stays busy.
  void StayBusyAfter(std::uint64_t nth) { stayBusyAfter_ = nth; }
  /// The page that holds `address` is not programmed any more; programs of it take their time.
  void WearOutPage(std::uint32_t address);
  /// The 64 KiB sector that holds `address` is not erased any more, in part or whole; erases of it
  /// take their time, and a chip erase leaves it out.
  void WearOutSector(std::uint32_t address);

 private:
  struct Range {
    std::size_t begin = 0;
    std::size_t end = 0;
  };

  void Execute(std::span<const std::uint8_t> command);
  void ReadArray(std::span<const std::uint8_t> mosi, std::span<std::uint8_t> miso) const;
  void ReadStatus(std::span<std::uint8_t> miso, ByteClock& clock);
  void ReadConfiguration(std::span<std::uint8_t> miso, ByteClock& clock) const;
  bool Answer(std::span<const std::uint8_t> mosi, std::span<std::uint8_t> miso) const;
  void Program(std::size_t address, std::span<const std::uint8_t> data);
  void PrepareChange(Range range);
  void Erase(Range range);
  void WriteRegisters(std::span<const std::uint8_t> values);
  void Begin(ChipWork work, std::size_t address);
  void BecomeBusy(int statusReads, std::chrono::nanoseconds longest);
  void BecomeReady();
  void EndWork();
  bool RefuseProtected(Range range);
  Range ProtectedRange() const;

  Chip chip_;
  Timing timing_;
  ChipTimes times_;
  FlashArray array_;
  // Sectors that have changed since the moment that is remembered: their first addresses, and what
  // they held then. None: nothing is remembered.
  std::optional<std::map<std::size_t, std::vector<std::uint8_t>>> replaced_;
  std::uint8_t status_ = 0;         // non-volatile bits only
  std::uint8_t configuration_ = 0;  // stays 0 on kMicron
  std::uint8_t nextStatus_ = 0;     // the values after the register write that is in progress
  std::uint8_t nextConfiguration_ = 0;
  bool writeEnabled_ = false;
  ChipWork work_ = ChipWork::kNone;
  std::uint32_t workAddress_ = 0;
  std::chrono::nanoseconds timeOfWork_{0};
  std::chrono::nanoseconds busyLeft_{0};  // of a program or an erase that is in progress
  int busyReads_ = 0;                     // likewise, with Timing::kPolls
  std::chrono::nanoseconds registerWriteLeft_{0};
  bool awaitsPoll_ = false;

  bool present_ = true;
  bool stuckBusy_ = false;
  std::uint64_t dropProgram_ = 0;
  std::uint64_t dropErase_ = 0;
  std::uint64_t dropRegisterWrite_ = 0;
  std::uint64_t stayBusyAfter_ = 0;
  std::vector<std::size_t> wornPages_;    // their first addresses
  std::vector<std::size_t> wornSectors_;  // likewise
};

}  // namespace orvane
