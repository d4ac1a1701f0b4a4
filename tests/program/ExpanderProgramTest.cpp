// The whole job on the modules behind a GPIO expander: dax, pyx1 and pyx2. Where a test compares
// the log, it compares all of it: console lines, I2C, SPI, sysfs and D-Bus in their true order.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "simulator/Bitstream.h"
#include "simulator/BootImage.h"
#include "simulator/Gzip.h"
#include "simulator/NorFlashModel.h"
#include "tests/program/RunLog.h"
#include "tests/program/VirtualInstrument.h"

namespace {

using namespace program_test::run_log;
using program_test::Bytes;
using program_test::Outcome;
using program_test::VirtualInstrument;

constexpr int kImageBytes = 600;  // two pages and 88 bytes

const std::string kSuccess = "FPGA programmed successfully.";
const std::string kConnectFailed = "Could not connect to the device. Check Module # and power.";
const std::string kOpenFailed = "Could not open source file.";
const std::string kEraseFailed = "Could not erase the device.";
const std::string kProgramFailed = "Programming operation failed.";
const std::string kNoDone = "FPGA did not assert configuration completed.";
const std::string kPcieFailed = "Unable to update PCIe endpoint.";
const std::string kUpToDate = "FPGA is up to date.";
const std::string kNoUpdate = "No need to update Flash device ";

const std::string kDoneHigh =
    "FPGA DONE detected, do not reset the FPGA  and try to read the flash header ";
const std::string kDoneLow =
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

const Board kDax = {"dax",
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
const Board kPyx1 = {"pyx1",
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
const Board kPyx2 = {"pyx2",
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

class ExpanderProgramTest : public testing::TestWithParam<Board> {
 protected:
  ExpanderProgramTest() : board_(GetParam()) {
    old_ = Image(2023, 100'000);
    image_ = Image(2024, kImageBytes);
    instrument_.WriteFile("flash.bin", old_);
    instrument_.WriteFile("image.bin", image_);
  }

  bool IsPyx() const { return board_.word[0] == 'p'; }
  bool IsPyx2() const { return std::string(board_.word) == "pyx2"; }

  /// A build of the year: a bitstream stamped 06/05 07:08:09, or a boot image dated so.
  Bytes Image(int year, std::size_t bytes) const {
    return IsPyx2() ? orvane::MakeZynqImage(
                          {.buildDate = std::to_string(year) + "-05-06 07:08:09", .bytes = bytes})
                    : orvane::MakeBitstream(
                          {.bytes = bytes, .userAccess = orvane::PackStamp({year, 5, 6, 7, 8, 9})});
  }

  void PlugIn(const std::string& keys = "") {
    instrument_.Option({"--module",
                        std::string(board_.word) + "@" + Slot() +
                            ",flash=" + instrument_.File("flash.bin").string() + keys});
  }
  void Fault(const std::string& rule) { instrument_.Option({"--fault", rule}); }

  Outcome Update() { return instrument_.Run({board_.word, "-sf", Slot(), "image.bin"}); }

  void ExpectUpdate(int exitCode, const Lines& log) {
    const Outcome outcome = Update();
    EXPECT_EQ(outcome.out, ConsoleText(log, "stdout"));
    EXPECT_EQ(outcome.err, ConsoleText(log, "stderr"));
    EXPECT_EQ(outcome.exitCode, exitCode);
    EXPECT_EQ(FirstDifference(log, outcome.log), "");
  }

  void ExpectFlash(Bytes contents) {
    contents.resize(orvane::NorFlashModel::kBytes, 0xFF);
    EXPECT_TRUE(instrument_.ReadFile("flash.bin") == contents);
  }
  void ExpectFlashUntouched() { ExpectFlash(old_); }
  void ExpectFlashRewritten() {
    Bytes flash = old_;
    flash.resize(std::max<std::size_t>(old_.size(), 65536), 0xFF);
    std::fill_n(flash.begin(), 65536, 0xFF);
    std::copy(image_.begin(), image_.end(), flash.begin());
    ExpectFlash(flash);
  }

  // --- The steps of a run

  std::string Slot() const { return std::to_string(board_.slot); }
  std::string Bus() const { return "/dev/i2c-" + std::to_string(board_.bus); }
  std::string I2c() const { return "i2c " + Bus() + " " + board_.address + " "; }

  Lines Find() const {
    const std::string slot = Slot();
    Lines lines = Join({Console("programming mode: -sf"),
                        Console("module number: " + slot),
                        Console("FPGA bitstream: 'image.bin'"),
                        {"dbus GetModuleLocations = " + slot,
                         "dbus GetI2CBus " + slot + " = \"i2c-" + slot + "\""}});
    if (!IsPyx()) {
      for (const auto& [path, name] : {std::pair{"i2c-2", "Orvane slot 2"},
                                       std::pair{"i2c-2/i2c-11", "i2c-2-mux (chan_id 0)"}}) {
        const std::string file = std::string("/sys/devices/platform/soc/") + path + "/name";
        lines = Join({lines,
                      {"open " + file + " O_RDONLY",
                       "read " + file + " \"" + name + "\\n\"",
                       "close " + file}});
      }
    }
    return Join({lines,
                 {"dbus GetModuleLocations = " + slot,
                  "dbus GetSPIDev " + slot + " = \"spidev" + slot + ".0\""},
                 Clock(),
                 Console(board_.line),
                 Select("SPIFIFO"),
                 Console("Connecting ...")});
  }

  Lines Select(const std::string& route) const {
    const std::string file =
        std::string("/sys/platform/module_selector/slot") + (board_.slot == 4 ? "A" : "B");
    return IsPyx() ? Lines{"open " + file + " O_WRONLY|O_CREAT|O_TRUNC 0666",
                           "sleep 100 ms",
                           "write " + file + " \"" + route + "\"",
                           "close " + file}
                   : Lines{};
  }

  Lines Drive(const std::string& before, const std::string& after) const {
    return {I2c() + "w 02 r " + before, I2c() + "w 02 " + after};
  }

  Lines ConnectExpander() const {
    return Join({{"open " + Bus() + " O_RDWR"},
                 Drive("ff ff", board_.released),
                 {I2c() + "w 06 r ff ff", I2c() + "w 06 " + board_.directions},
                 IsPyx() ? Lines{} : Console("Connect:101")});
  }

  Lines TakeFlash() const {
    return Join(
        {IsPyx2() ? Lines{} : Join({{I2c() + "w 00 r " + board_.lines[2]}, Console(kDoneHigh)}),
         Drive(board_.released, board_.routed)});
  }

  Lines Connect() const {
    return Join({Find(),
                 ConnectExpander(),
                 TakeFlash(),
                 OpenBus(board_.slot),
                 Identify("20 ba 18", board_.slot)});
  }

  Lines Dump() const {
    return Join(
        {Console(IsPyx() ? "Pyx1FlashProgrammer ReadDevice " : "DaxFlashProgrammer ReadDevice "),
         {"open dumpflash.bin O_WRONLY|O_CREAT 0600",
          "spi /dev/spidev" + Slot() + ".0 READ 0x000000 +512",
          "write dumpflash.bin +512"}});
  }

  static Lines Stamp(const std::string& file, const std::string& year) {
    return Join({{"open " + file + " O_RDONLY"},
                 Console("User Access Register found in file " + file +
                         " with Time Stamp :  06/05/" + year + " 07:08:09"),
                 {"close " + file}});
  }

  static Lines Date(const std::string& file, const std::string& line) {
    return Join({{"open " + file + " O_RDONLY", "close " + file}, Console(line)});
  }

  Lines Compare(const std::string& flashYear) const {
    return IsPyx2() ? Join({{R"(stdout "\n")"},
                            Date("dumpflash.bin",
                                 "Flash header build date: " + flashYear + "-05-06 07:08:09"),
                            Date("image.bin", "Binary  file build date: 2024-05-06 07:08:09")})
                    : Join({Stamp("dumpflash.bin", flashYear), Stamp("image.bin", "2024")});
  }

  Lines Decide() const { return Join({Connect(), Dump(), Compare("2023"), OpenCheck()}); }

  /// Of the dax alone, whose descriptor is closed on the way out.
  Lines OpenCheck() const { return IsPyx() ? Lines{} : Lines{"open image.bin O_RDONLY"}; }
  Lines CloseCheck() const { return IsPyx() ? Lines{} : Lines{"close image.bin"}; }

  Lines Rewrite() const {
    return Join({Console("Unlocking flash memory ... "),
                 {R"(stdout "Erasing device ... ")", "open image.bin O_RDONLY"},
                 Erase(1, board_.slot),
                 Console("done."),
                 {R"(stdout "Programming device ... ")", "open image.bin O_RDONLY"},
                 OpenBus(board_.slot),
                 Program(kImageBytes, board_.slot),
                 {"close image.bin"},
                 Console("done.")});
  }

  /// The reset of a pyx module; DONE rises 20 ms after the last line is let go.
  Lines Reset(int polls) const {
    Lines lines = {R"(stdout "Toggling reset ... ")"};
    lines = Join({lines, Drive(board_.routed, board_.inReset)});
    lines = IsPyx2() ? Join({lines, {"sleep 5 s"}, Drive(board_.inReset, board_.letGo)})
                     : Join({lines,
                             {"sleep 10 ms"},
                             Drive(board_.inReset, board_.released),
                             Drive(board_.released, board_.letGo)});
    lines = Join({lines, {I2c() + "w 06 r " + board_.directions, I2c() + "w 06 ff ff"}});
    for (int poll = 0; poll < polls; ++poll) {
      lines.push_back(I2c() + "w 00 r " + board_.lines[poll < 5 ? 0 : 1]);
      lines.emplace_back("sleep 1 ms");
    }
    return lines;
  }

  Lines DoneSeen() const { return {I2c() + "w 00 r " + board_.lines[2]}; }

  Lines Restart() const {
    return IsPyx() ? Join({Reset(20), DoneSeen(), Console("done."), Pcie()}) : CloseCheck();
  }

  Lines Pcie() const {
    const std::string bus = "0000:0" + Slot();
    const std::string address = "/sys/bus/pci/slots/" + Slot() + "/address";
    const Lines lookUp = {"open " + address + " O_RDONLY",
                          "read " + address + " \"" + bus + ":00\\n\"",
                          "close " + address};
    Lines lines;
    for (const std::string& file : {"/sys/bus/pci/devices/" + bus + ":00.0/remove",
                                    "/sys/class/pci_bus/" + bus + "/rescan",
                                    "/sys/bus/pci/devices/" + bus + ":00.0/enable"}) {
      lines = Join({lines,
                    lookUp,
                    {"open " + file + " O_WRONLY", "write " + file + " \"1\"", "close " + file}});
    }
    return IsPyx() ? lines : Lines{};
  }

  /// @param directions  of the expander before its lines are released
  Lines End(const std::string& directions, const std::string& result, int exitCode) const {
    return Join({{I2c() + "w 06 r " + directions, I2c() + "w 06 ff ff", "close " + Bus()},
                 Select("SPILVDS"),
                 {"close /dev/spidev" + Slot() + ".0", "close -1"},
                 Console(result),
                 {"close -1", "exit " + std::to_string(exitCode)}});
  }

  /// What the directions are at the end of a successful run.
  std::string FinalDirections() const { return IsPyx() ? "ff ff" : board_.directions; }

  VirtualInstrument instrument_;
  Board board_;
  Bytes old_;
  Bytes image_;
};

void PrintTo(const Board& board, std::ostream* out) { *out << board.word; }

INSTANTIATE_TEST_SUITE_P(Boards,
                         ExpanderProgramTest,
                         testing::Values(kDax, kPyx1, kPyx2),
                         [](const auto& row) { return std::string(row.param.word); });

TEST_P(ExpanderProgramTest, OlderFlashIsRewritten) {
  PlugIn();
  ExpectUpdate(0, Join({Decide(), Rewrite(), Restart(), End(FinalDirections(), kSuccess, 0)}));
  ExpectFlashRewritten();
}

TEST_P(ExpanderProgramTest, EqualBuildLeavesFlashAndEndpointAlone) {
  old_ = Image(2024, 5000);
  instrument_.WriteFile("flash.bin", old_);
  PlugIn();
  ExpectUpdate(11,
               Join({Connect(),
                     Dump(),
                     Compare("2024"),
                     Console(kNoUpdate),
                     End(board_.directions, kUpToDate, 11)}));
  ExpectFlashUntouched();
}

TEST_P(ExpanderProgramTest, MacronixFlashIsRewrittenAndLockedAgain) {
  PlugIn(",chip=macronix");
  const Outcome outcome = Update();
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_NE(outcome.out.find("Chip is matronix, enabling lock logic.\nLocked 256 NOR flash "
                             "sectors.\n"),
            std::string::npos);
  EXPECT_NE(outcome.out.find("Programming device ... done.\nLocked 256 NOR flash sectors.\n"),
            std::string::npos);
  ExpectFlashRewritten();
}

TEST_P(ExpanderProgramTest, SilentExpanderFailsToConnectAndAPyxIsStillReenumerated) {
  PlugIn(",expander=absent");
  ExpectUpdate(1,
               Join({Find(),
                     {"open " + Bus() + " O_RDWR", I2c() + "w 02 r +2 = ENXIO"},
                     IsPyx() ? Lines{} : Console("Connect:121"),
                     Pcie(),
                     {I2c() + "w 06 r +2 = ENXIO", "close " + Bus()},
                     Select("SPILVDS"),
                     {"close -1", "close -1"},
                     Console(kConnectFailed),
                     {"close -1", "exit 1"}}));
  ExpectFlashUntouched();
}

TEST_P(ExpanderProgramTest, AbsentFlashLeavesTheRunPatternAndFailsToConnect) {
  PlugIn(",flash-chip=absent,done=high");
  ExpectUpdate(1,
               Join({Find(),
                     ConnectExpander(),
                     TakeFlash(),
                     OpenBus(board_.slot),
                     Identify("00 00 00", board_.slot),
                     Drive(board_.routed, board_.released),
                     Pcie(),
                     End(board_.directions, kConnectFailed, 1)}));
}

TEST_P(ExpanderProgramTest, MissingSpiNodeIsDestroyedOnceAndFailsToConnect) {
  PlugIn(",spidev=missing");
  ExpectUpdate(
      1,
      Join({Find(),
            ConnectExpander(),
            TakeFlash(),
            {"open /dev/spidev" + Slot() + ".0 O_RDWR = ENOENT", "close -1"},
            Drive(board_.routed, board_.released),
            Pcie(),
            {I2c() + "w 06 r " + board_.directions, I2c() + "w 06 ff ff", "close " + Bus()},
            Select("SPILVDS"),
            Console(kConnectFailed),
            {"close -1", "exit 1"}}));
  ExpectFlashUntouched();
}

TEST_P(ExpanderProgramTest, FailedEraseIsTheResultAndAPyxIsReenumerated) {
  Fault("spi:SE:EIO");
  PlugIn();
  const Outcome outcome = Update();
  EXPECT_EQ(outcome.exitCode, 3);
  EXPECT_EQ(outcome.out.substr(outcome.out.find("Erasing")),
            "Erasing device ... " + kEraseFailed + "\n");
  EXPECT_EQ(outcome.log.find("/enable \"1\"") != std::string::npos, IsPyx());
  ExpectFlashUntouched();
}

TEST_P(ExpanderProgramTest, FailedPageIsTheResult) {
  Fault("spi:PP#1:EIO");
  PlugIn();
  const Outcome outcome = Update();
  EXPECT_EQ(outcome.exitCode, 6);
  EXPECT_EQ(outcome.out.substr(outcome.out.find("Programming device")),
            "Programming device ... " + kProgramFailed + "\n");
}

TEST_P(ExpanderProgramTest, PageThatDoesNotProgramIsRevealedByDoneAtTheEarliest) {
  PlugIn(",program-lost=2");
  EXPECT_EQ(Update().exitCode, 0);
  Bytes flash = instrument_.ReadFile("flash.bin");
  EXPECT_TRUE(std::all_of(
      flash.begin() + 256, flash.begin() + 512, [](unsigned char byte) { return byte == 0xFF; }));
}

TEST_P(ExpanderProgramTest, FailedPcieStepIsTheResultOfAPyxAfterSuccess) {
  Fault("write:/sys/class/pci_bus:EIO");
  PlugIn();
  const Outcome outcome = Update();
  EXPECT_EQ(outcome.exitCode, IsPyx() ? 10 : 0);
  EXPECT_EQ(outcome.log.find("enable"), std::string::npos);
  ExpectFlashRewritten();
}

TEST_P(ExpanderProgramTest, GzipImageIsWrittenDecompressed) {
  instrument_.WriteFile("image.bin", orvane::Gzip(image_));
  PlugIn();
  // The build is looked for in the compressed bytes, which hold none, or are no longer than that.
  EXPECT_EQ(Update().exitCode, 0);
  ExpectFlashRewritten();
}

TEST_P(ExpanderProgramTest, LongerStaleDumpKeepsItsTail) {
  instrument_.WriteFile("dumpflash.bin", Bytes(700, 0x5A));
  PlugIn();
  EXPECT_EQ(Update().exitCode, 0);
  Bytes expected(old_.begin(), old_.begin() + 512);
  expected.resize(700, 0x5A);
  EXPECT_TRUE(instrument_.ReadFile("dumpflash.bin") == expected);
}

TEST_P(ExpanderProgramTest, FailedDumpIsNotReportedAndTheStaleFileDecides) {
  instrument_.WriteFile("dumpflash.bin", Image(2024, 512));
  Fault("spi:READ:EIO");
  PlugIn();
  const Outcome outcome = Update();
  EXPECT_EQ(outcome.exitCode, 11);
  EXPECT_EQ(outcome.err, "SpiDev::Read() SPI_IOC_MESSAGE error, errno = 5\n");
  ExpectFlashUntouched();
}

TEST_P(ExpanderProgramTest, MissingImage) {
  std::filesystem::remove(instrument_.File("image.bin"));
  PlugIn();
  const Outcome outcome = Update();
  // A dax proves first that it can be opened, a pyx1 finds out when it erases, a pyx2 compares.
  const int expected = IsPyx2() ? 134 : IsPyx() ? 3 : 2;
  EXPECT_EQ(outcome.exitCode, expected);
  ExpectFlashUntouched();
}

TEST_P(ExpanderProgramTest, SlotFiveHasItsExpanderOneAddressUp) {
  board_.slot = 5;
  PlugIn();
  const Outcome outcome = Update();
  EXPECT_EQ(outcome.exitCode, 0);
  const std::string up = IsPyx() ? " 0x21 " : " 0x22 ";
  const std::string base = IsPyx() ? " 0x20 " : " 0x21 ";
  EXPECT_NE(outcome.log.find(up + "w 02 r ff ff\n"), std::string::npos);
  EXPECT_EQ(outcome.log.find(base), std::string::npos);
  ExpectFlashRewritten();
}

// --- DONE

TEST_P(ExpanderProgramTest, DoneSeenOnTheLastPollButOneIsSuccess) {
  PlugIn(",done=after:9998");
  EXPECT_EQ(Update().exitCode, 0);
}

TEST_P(ExpanderProgramTest, DoneSeenOnTheLastPollCountsAsTimeoutOfAPyx) {
  PlugIn(",done=after:9999");
  const Outcome outcome = Update();
  EXPECT_EQ(outcome.exitCode, IsPyx() ? 7 : 0);
  if (IsPyx()) {
    EXPECT_EQ(outcome.out.substr(outcome.out.find("Toggling")),
              "Toggling reset ... " + kNoDone + "\n");
    EXPECT_NE(outcome.log.find("/enable \"1\""), std::string::npos);
  }
  ExpectFlashRewritten();
}

/// The modules that look at DONE before they take the flash over.
class DoneCheckTest : public ExpanderProgramTest {};

INSTANTIATE_TEST_SUITE_P(Boards, DoneCheckTest, testing::Values(kDax, kPyx1), [](const auto& row) {
  return std::string(row.param.word);
});

TEST_P(DoneCheckTest, FpgaWithoutDoneIsBroughtIntoPsMode) {
  PlugIn(",done=low");
  const std::string start = Text(Join({Find(),
                                       ConnectExpander(),
                                       {I2c() + "w 00 r c0 2c"},
                                       Console(kDoneLow),
                                       Drive(board_.released, "3d fe"),
                                       {"sleep 1 s"},
                                       Drive("3d fe", "bd fe"),
                                       OpenBus(board_.slot),
                                       Identify("20 ba 18", board_.slot),
                                       Dump()}));
  const Outcome outcome = Update();
  EXPECT_EQ(outcome.log.substr(0, start.size()), start);
  EXPECT_EQ(outcome.exitCode, IsPyx() ? 7 : 0);
  ExpectFlashRewritten();
}

TEST_P(DoneCheckTest, TwoMissingStampsAreUpToDate) {
  instrument_.WriteFile("image.bin", orvane::MakeBitstream({.bytes = kImageBytes}));
  old_ = orvane::MakeBitstream({.bytes = 5000, .seed = 2});
  instrument_.WriteFile("flash.bin", old_);
  PlugIn();
  const Outcome outcome = Update();
  EXPECT_EQ(outcome.exitCode, 11);
  const std::string pyx1Line = "No User Access Register found in file 'image.bin'\n";
  EXPECT_EQ(outcome.err,
            IsPyx() ? "No User Access Register found in file 'dumpflash.bin'\n" + pyx1Line : "");
  EXPECT_EQ(outcome.out.find("No User Access Register found image.bin\n") != std::string::npos,
            !IsPyx());
  ExpectFlashUntouched();
}

/// The modules behind the module selector.
class SelectorTest : public ExpanderProgramTest {};

INSTANTIATE_TEST_SUITE_P(Boards, SelectorTest, testing::Values(kPyx1, kPyx2), [](const auto& row) {
  return std::string(row.param.word);
});

TEST_P(SelectorTest, MissingSelectorIsReportedTwiceAndTheFlashIsOutOfReach) {
  instrument_.Option({"--without", "selector"});
  PlugIn();
  const Outcome outcome = Update();
  EXPECT_EQ(outcome.exitCode, 1);
  const std::string line = "Could not open the module_selector file\n";
  // Only pyx1 says so on standard output, and only as it selects the SPI master.
  EXPECT_EQ(outcome.err, IsPyx2() ? line + line : line);
  EXPECT_EQ(outcome.out.find(line) != std::string::npos, !IsPyx2());
  EXPECT_NE(outcome.out.find("Flash Manufacturer ID   : 0x00\n"), std::string::npos);
}

TEST_P(SelectorTest, LostSelectionIsNotNoticedButTheFlashIsOutOfReach) {
  Fault("write:/sys/platform/module_selector#1:EIO");
  PlugIn();
  const Outcome outcome = Update();
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_EQ(outcome.err, "");
}

}  // namespace
