#pragma once

#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/timing/ChipTimes.h"

namespace orvane {

/// When something happens, in instrument time since the start of the run.
struct Period {
  std::chrono::nanoseconds begin{0};
  std::chrono::nanoseconds end{0};
};

/// Whether something had its effect.
enum class Outcome {
  kDone,
  kLost,    // it took its time, but had no effect: an SPI or I2C message was not on the bus
  kFailed,  // with an errno or a D-Bus error
};

/// Bytes of a chip select at one clock rate.
struct ClockedBytes {
  std::uint32_t bytes = 0;
  std::uint32_t hertz = 0;
};

/// What passes between chip select falling and rising. Its bytes follow each other without a gap; those
/// of each element of `clocked` take 8 * bytes / hertz, rounded up to whole nanoseconds.
struct ObservedSelect {
  Period period;
  std::string command;             // as the log shows it: "PP 0x001000 +256"
  std::vector<std::uint8_t> mosi;  // zeros where nothing is sent
  std::vector<std::uint8_t> miso;  // as long; what the chip drives, whatever the program is given
  std::vector<ClockedBytes> clocked;
};

struct ObservedSpi {
  std::string_view path;  // of the node
  Period period;          // the cost of the message included, with which it begins
  std::chrono::nanoseconds cost{0};
  std::span<const ObservedSelect>
      selects;  // none of a message that fails, or cannot be carried out
  Outcome outcome = Outcome::kDone;
};

struct ObservedI2cMessage {
  std::uint16_t address = 0;
  bool reads = false;
  bool acknowledged = true;         // its address; if not, it has no bytes, and is the last one
  std::vector<std::uint8_t> bytes;  // what is on the bus, whatever the program is given
};

/// A whole transfer: a start, its messages with a repeated start between them, a stop. Each byte, also
/// that of the address, is 9 bits, each start and the stop is one. All have the same length, 10 us.
struct ObservedI2c {
  std::string_view path;  // of the node
  Period period;
  std::span<const ObservedI2cMessage> messages;  // none of a transfer that fails by a fault rule
  Outcome outcome = Outcome::kDone;  // kFailed: a chip has not acknowledged, or a fault rule
};

/// A read or a write of a control file.
struct ObservedAccess {
  std::string_view path;
  bool writes = false;
  std::string_view bytes;
  std::chrono::nanoseconds at{0};
  Outcome outcome = Outcome::kDone;
};

/// Which of its lines a module has depends on its type. A line that is never told of is not there.
enum class Line {
  kDone,             // DONE
  kReset,            // zynq_hw_reset_n of a wend, PROGRAM_B of the others: low in reset
  kQspiPrg,          // wend: the controller owns the flash
  kSelector,         // pyx: the selector of its slot is on "SPIFIFO"
  kEndpointPresent,  // pyx
  kEndpointEnabled,  // pyx
};

/// The name of a line, as a word: "DONE".
std::string_view LineName(Line line);

struct LineLevel {
  Line line = Line::kDone;
  bool high = false;
};

/// A module at the start of the run.
struct ObservedModule {
  unsigned slot = 0;
  std::string type;                   // "wend"
  std::string spiPath;                // of its node; empty: there is none
  std::vector<std::string> i2cPaths;  // of the nodes of its buses
  std::vector<LineLevel> lines;       // in the order of Line
  ChipTimes chipTimes{};              // of its flash
};

/// Is told what happens on the instrument, in the order in which it happens: no period begins before
/// the one told before it has ended, except that a chip is busy while other things happen. Not with
/// Timing::kPolls. Nothing that it is given lives longer than the call. A function that is not
/// overridden does nothing.
class RunObserver {
 public:
  RunObserver() = default;
  RunObserver(const RunObserver&) = delete;
  RunObserver& operator=(const RunObserver&) = delete;
  virtual ~RunObserver() = default;

  /// Once, before everything else. `chassisI2c`: the nodes of buses that belong to no module.
  virtual void OnStart(std::span<const ObservedModule> /*modules*/,
                       std::span<const std::string> /*chassisI2c*/) {}
  virtual void OnSpi(const ObservedSpi& /*message*/) {}
  virtual void OnI2c(const ObservedI2c& /*transfer*/) {}
  virtual void OnAccess(const ObservedAccess& /*access*/) {}
  /// @param call  as the log shows it: "GetI2CBus 1"
  virtual void OnDBus(std::string_view /*call*/,
                      std::chrono::nanoseconds /*at*/,
                      Outcome /*outcome*/) {}
  virtual void OnSleep(Period /*period*/) {}
  /// The program has looked at its clock, or waited in vain, before what is told next.
  virtual void OnUnseen(Period /*period*/) {}
  /// What the command has printed. `descriptor`: 1 or 2.
  virtual void OnConsole(int /*descriptor*/,
                         std::string_view /*bytes*/,
                         std::chrono::nanoseconds /*at*/) {}
  /// Any other event, such as an open.
  /// @param text  as the log shows it, with its kind and its result: "open ./no O_RDWR = ENOENT"
  virtual void OnOther(std::string_view /*text*/, std::chrono::nanoseconds /*at*/) {}

  /// A chip begins to work, at the end of a chip select, of which OnSpi tells later.
  /// @param address  of the page or the sector; 0 for kChipErase and kRegisterWrite
  virtual void OnChipBusy(unsigned /*slot*/,
                          ChipWork /*work*/,
                          std::uint32_t /*address*/,
                          std::chrono::nanoseconds /*at*/) {}
  virtual void OnChipReady(unsigned /*slot*/, std::chrono::nanoseconds /*at*/) {}
  /// Also within what OnSpi, OnI2c, OnAccess or OnSleep tells of later.
  virtual void OnLine(unsigned /*slot*/, LineLevel /*level*/, std::chrono::nanoseconds /*at*/) {}

  /// Once, after everything else.
  virtual void OnEnd(std::chrono::nanoseconds /*at*/) {}
};

}  // namespace orvane
