#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <map>
#include <ostream>
#include <string>

#include "tests/e2e/FlashContents.h"
#include "tests/e2e/Judgement.h"
#include "tests/e2e/ResultLines.h"
#include "tests/e2e/RunLog.h"
#include "tests/e2e/VirtualInstrument.h"

/// Runs on a module behind a GPIO expander, whose flash holds an older image.
namespace program_test::expander {

using namespace run_log;

inline constexpr int kImageBytes = 600;  // two pages and 88 bytes

inline const std::string kNoUpdate = "No need to update Flash device ";

inline const std::string kNoSelector = "Could not open the module_selector file";

inline const std::string kDoneHigh =
    "FPGA DONE detected, do not reset the FPGA  and try to read the flash header ";
inline const std::string kDoneLow =
    "FPGA DONE not detected, force FPGA is PS mode to keep clock management ";

/// What differs from module type to module type, as an engineer reads it off the boards.
struct Board {
  const char* word;
  const char* line;  // that names its programmer
  int slot;          // where it stands in these tests
  int bus;           // of its expander
  const char* address;
  const char* released;  // expander outputs: run pattern
  const char* routed;    // controller to flash
  const char* inReset;   // flash to FPGA, in reset
  const char* letGo;     // all outputs of the mask low
  const char* directions;
  const char* lines[3];  // read with nothing driven: clearing, loading, DONE
};

inline const Board kDax = {"dax",
                           "DAX Gpio Programming",
                           2,
                           11,
                           "0x21",
                           "a0 3e",
                           "bd 3e",
                           "20 3e",
                           "20 12",
                           "60 13",
                           {"80 2c", "c0 2c", "c0 2d"}};
inline const Board kPyx1 = {"pyx1",
                            "Pyx1 Gpio Programming",
                            4,
                            4,
                            "0x20",
                            "a0 3e",
                            "bd 3e",
                            "20 3e",
                            "20 12",
                            "60 13",
                            {"80 2c", "c0 2c", "c0 2d"}};
inline const Board kPyx2 = {"pyx2",
                            "Pyx2 Gpio Programming",
                            6,
                            6,
                            "0x20",
                            "e8 f7",
                            "ec f7",
                            "e8 f5",
                            "e8 f5",
                            "fb fd",
                            {"10 02", "12 02", "13 02"}};

inline void PrintTo(const Board& board, std::ostream* out) { *out << board.word; }

class ExpanderProgram : public testing::Test {
 protected:
  explicit ExpanderProgram(const Board& board);

  bool IsPyx() const { return board_.word[0] == 'p'; }
  bool IsPyx2() const { return std::string(board_.word) == "pyx2"; }

  /// A build of the year: a bitstream stamped 06/05 07:08:09, or a boot image dated so.
  Bytes Image(int year, std::size_t bytes) const;

  void PlugIn(const std::string& keys = "");
  void Fault(const std::string& rule) { instrument_.Option({"--fault", rule}); }

  Outcome Update() { return instrument_.Run({board_.word, "-sf", Slot(), "image.bin"}); }

  void ExpectUpdate(int exitCode, const Lines& log) { ExpectRun(Update(), exitCode, log); }

  void ExpectFlash(const Bytes& contents);
  void ExpectFlashUntouched() { ExpectFlash(old_); }
  void ExpectFlashRewritten() { ExpectFlash(Flashed(image_, old_)); }

  // --- The steps of a run

  std::string Slot() const { return std::to_string(board_.slot); }
  std::string Bus() const { return "/dev/i2c-" + std::to_string(board_.bus); }
  std::string I2c() const { return "i2c " + Bus() + " " + board_.address + " "; }

  Lines AskForBus() const;  ///< the words echoed, then the name of the module's bus
  Lines Find() const;
  Lines Select(const std::string& route) const;
  Lines Drive(const std::string& before, const std::string& after) const;
  Lines ConnectExpander() const;
  Lines TakeFlash() const;
  Lines Connect() const;
  Lines Dump() const;
  Lines NoStamp(const std::string& file) const;
  static Lines Stamp(const std::string& file, const std::string& text);
  static Lines Date(const std::string& file, const std::string& line);
  Lines Compare(const std::string& flashYear) const;
  Lines Decide() const { return Join({Connect(), Dump(), Compare("2023"), OpenCheck()}); }

  /// Of the dax alone, whose descriptor is closed on the way out.
  Lines OpenCheck() const { return IsPyx() ? Lines{} : Lines{"open image.bin O_RDONLY"}; }
  Lines CloseCheck() const { return IsPyx() ? Lines{} : Lines{"close image.bin"}; }

  Lines BeginRewrite(int bytes = kImageBytes) const;  ///< up to the first page
  Lines Rewrite(int bytes = kImageBytes) const;

  /// The reset of a pyx module; DONE rises 20 ms after the last line is let go.
  Lines Reset(int polls) const;
  Lines DoneSeen() const { return {I2c() + "w 00 r " + board_.lines[2]}; }

  Lines Restart() const;
  Lines Pcie() const;

  /// @param directions  of the expander before its lines are released
  Lines End(const std::string& directions, const std::string& result, int exitCode) const;

  /// What the directions are at the end of a successful run.
  std::string FinalDirections() const { return IsPyx() ? "ff ff" : board_.directions; }

  /// A run whose flash answers nothing but zeros, on a module that was running.
  Lines FlashOutOfReach() const;

  VirtualInstrument instrument_;
  Board board_;
  std::string otherLocations_;                         ///< in front of the module's: "1 2 "
  std::map<std::string, std::string> selectorErrors_;  ///< of opening it, by the route
  Bytes old_;
  Bytes image_;
};

}  // namespace program_test::expander
