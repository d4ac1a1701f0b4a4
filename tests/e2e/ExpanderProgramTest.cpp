// The whole job on the modules behind a GPIO expander: dax, pyx1 and pyx2. Where a test compares
// the log, it compares all of it: console lines, I2C, SPI, sysfs and D-Bus in their true order.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <tuple>

#include "simulator/images/Bitstream.h"
#include "tests/e2e/ExpanderProgram.h"
#include "tests/e2e/Judgement.h"
#include "tests/e2e/RunLog.h"
#include "tests/e2e/VirtualInstrument.h"

namespace {

using namespace program_test;
using namespace program_test::run_log;
using namespace program_test::expander;

class ExpanderProgramTest : public ExpanderProgram, public testing::WithParamInterface<Board> {
 protected:
  ExpanderProgramTest() : ExpanderProgram(GetParam()) {}
};

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
  ExpectExitCode(outcome, 0);
  ExpectErr(outcome, "");
  ExpectOutContains(outcome,
                    "Chip is matronix, enabling lock logic.\nLocked 256 NOR flash "
                    "sectors.\n");
  ExpectOutContains(outcome, "Programming device ... done.\nLocked 256 NOR flash sectors.\n");
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
  ExpectUpdate(1, FlashOutOfReach());
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
  ExpectExitCode(outcome, 3);
  ExpectOutEnds(outcome, "Erasing device ... " + kEraseFailed + "\n");
  ExpectTrafficContains(outcome, "/enable \"1\"", IsPyx());
  ExpectFlashUntouched();
}

TEST_P(ExpanderProgramTest, FailedPageIsTheResult) {
  Fault("spi:PP#1:EIO");
  PlugIn();
  const Outcome outcome = Update();
  ExpectExitCode(outcome, 6);
  ExpectOutEnds(outcome, "Programming device ... " + kProgramFailed + "\n");
}

TEST_P(ExpanderProgramTest, PageThatDoesNotProgramIsRevealedByDoneAtTheEarliest) {
  PlugIn(",program-lost=2");
  ExpectExitCode(Update(), 0);
  Bytes expected = Flashed(image_, old_);
  std::fill_n(expected.begin() + 256, 256, 0xFF);
  ExpectFlash(expected);
}

TEST_P(ExpanderProgramTest, EmptyI2cNameFails) {
  PlugIn(",i2c=none");
  const Outcome outcome = Update();
  ExpectOut(outcome,
            "programming mode: -sf\nmodule number: " + Slot() + "\nFPGA bitstream: 'image.bin'\n" +
                kConnectFailed + "\n");
  ExpectErr(outcome, "ERROR: No I2C device found\n");
  ExpectExitCode(outcome, 1);
  ExpectTrafficContains(outcome, "GetSPIDev", false);
}

TEST_P(ExpanderProgramTest, EmptySpiNameFailsBeforeTheSelectorAndTheEndpointAreTouched) {
  PlugIn(",spi=none");
  Lines log = Find();
  const std::string asked = "dbus GetSPIDev " + Slot() + " = ";
  log.erase(std::find(log.begin(), log.end(), asked + "\"spidev" + Slot() + ".0\""), log.end());
  ExpectUpdate(1,
               Join({log,
                     {asked + "\"\""},
                     ErrorLine("ERROR: No SPI device found"),
                     Console(kConnectFailed),
                     {"close -1", "exit 1"}}));
}

TEST_P(ExpanderProgramTest, MissingI2cNodeFailsToConnect) {
  PlugIn(",i2cdev=missing");
  const Outcome outcome = Update();
  ExpectOutEnds(
      outcome,
      std::string("Connecting ...\n") + (IsPyx() ? "" : "Connect:121\n") + kConnectFailed + "\n");
  ExpectErr(outcome, "");
  ExpectExitCode(outcome, 1);
  ExpectTrafficContains(outcome, "/enable \"1\"", IsPyx());
  ExpectFlashUntouched();
}

TEST_P(ExpanderProgramTest, RoutingThatIsRefusedIsNotReportedButTheFlashIsOutOfReach) {
  const std::string routing = std::string("w 02 ") + board_.routed;
  Fault("i2c:" + routing + "#1:EIO");
  PlugIn();
  Lines take = TakeFlash();
  take.back() += " = EIO";
  ExpectUpdate(1,
               Join({Find(),
                     ConnectExpander(),
                     take,
                     OpenBus(board_.slot),
                     Identify("00 00 00", board_.slot),
                     Drive(board_.released, board_.released),
                     Pcie(),
                     End(board_.directions, kConnectFailed, 1)}));
  ExpectFlashUntouched();
}

TEST_P(ExpanderProgramTest, SectorThatStaysBusyFailsTheEraseAfterFiveSeconds) {
  instrument_.Option({"--clock-step", "600"});
  PlugIn(",busy-after=1");
  const Outcome outcome = Update();
  ExpectOutEnds(outcome, "Erasing device ... " + kEraseFailed + "\n");
  ExpectExitCode(outcome, 3);
}

struct PcieStep {
  const char* name;
  const char* path;   // a part of it
  std::size_t lines;  // of the update, up to the write that fails
};

void PrintTo(const PcieStep& step, std::ostream* out) { *out << step.name; }

class PcieStepTest : public ExpanderProgram,
                     public testing::WithParamInterface<std::tuple<Board, PcieStep>> {
 protected:
  PcieStepTest() : ExpanderProgram(std::get<0>(GetParam())) {
    const PcieStep& step = std::get<1>(GetParam());
    Fault(std::string("write:") + step.path + ":EIO");
    PlugIn();
  }

  /// The steps up to the one that fails, without those behind it.
  Lines FailedPcie() const {
    Lines lines = Pcie();
    lines.resize(std::get<1>(GetParam()).lines + 1);
    lines.at(lines.size() - 2) += " = EIO";
    return lines;
  }
};

TEST_P(PcieStepTest, FailureEndsTheUpdateOfTheEndpointAndIsTheResultAfterSuccess) {
  ExpectUpdate(10,
               Join({Decide(),
                     Rewrite(),
                     Reset(20),
                     DoneSeen(),
                     Console("done."),
                     FailedPcie(),
                     End(FinalDirections(), kPcieFailed, 10)}));
  ExpectFlashRewritten();
}

TEST_P(PcieStepTest, FailureIsHiddenByAFailureOfTheProgramming) {
  Fault("spi:SE:EIO");
  const Outcome outcome = Update();
  ExpectOutEnds(outcome, "Erasing device ... " + kEraseFailed + "\n");
  ExpectExitCode(outcome, 3);
  ExpectTrafficContains(outcome, Text(FailedPcie()));
}

INSTANTIATE_TEST_SUITE_P(Steps,
                         PcieStepTest,
                         testing::Combine(testing::Values(kPyx1, kPyx2),
                                          testing::Values(PcieStep{"Remove", "/remove", 5},
                                                          PcieStep{"Rescan", "/rescan", 11},
                                                          PcieStep{"Enable", "/enable", 17})),
                         [](const auto& row) {
                           return std::get<0>(row.param).word + std::string("_") +
                                  std::get<1>(row.param).name;
                         });

TEST_P(ExpanderProgramTest, LongerStaleDumpKeepsItsTail) {
  instrument_.WriteFile("dumpflash.bin", Bytes(700, 0x5A));
  PlugIn();
  ExpectExitCode(Update(), 0);
  Bytes expected(old_.begin(), old_.begin() + 512);
  expected.resize(700, 0x5A);
  ExpectContents("dumpflash.bin", instrument_.ReadFile("dumpflash.bin"), expected);
}

TEST_P(ExpanderProgramTest, FailedDumpIsNotReportedAndTheStaleFileDecides) {
  instrument_.WriteFile("dumpflash.bin", Image(2024, 512));
  Fault("spi:READ:EIO");
  PlugIn();
  const Outcome outcome = Update();
  ExpectExitCode(outcome, 11);
  ExpectErr(outcome, "SpiDev::Read() SPI_IOC_MESSAGE error, errno = 5\n");
  ExpectFlashUntouched();
}

TEST_P(ExpanderProgramTest, SlotFiveHasItsExpanderOneAddressUp) {
  board_.slot = 5;
  PlugIn();
  const Outcome outcome = Update();
  ExpectExitCode(outcome, 0);
  const std::string up = IsPyx() ? " 0x21 " : " 0x22 ";
  const std::string base = IsPyx() ? " 0x20 " : " 0x21 ";
  ExpectTrafficContains(outcome, up + "w 02 r ff ff\n");
  ExpectTrafficContains(outcome, base, false);
  ExpectTrafficContains(outcome, "/sys/platform/module_selector/slotB \"SPIFIFO\"", IsPyx());
  ExpectFlashRewritten();
}

// --- DONE

TEST_P(ExpanderProgramTest, DoneSeenOnTheLastPollButOneIsSuccess) {
  PlugIn(",done=after:9998");
  ExpectExitCode(Update(), 0);
}

TEST_P(ExpanderProgramTest, DoneSeenOnTheLastPollCountsAsTimeoutOfAPyx) {
  PlugIn(",done=after:9999");
  const Outcome outcome = Update();
  ExpectExitCode(outcome, IsPyx() ? 7 : 0);
  if (IsPyx()) {
    ExpectOutEnds(outcome, "Toggling reset ... " + kNoDone + "\n");
    ExpectTrafficContains(outcome, "/enable \"1\"");
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
  const Lines start = Join({Find(),
                            ConnectExpander(),
                            {I2c() + "w 00 r c0 2c"},
                            Console(kDoneLow),
                            Drive(board_.released, "3d fe"),
                            {"sleep 1 s"},
                            Drive("3d fe", "bd fe"),
                            OpenBus(board_.slot),
                            Identify("20 ba 18", board_.slot),
                            Dump()});
  const Outcome outcome = Update();
  ExpectRunStarts(outcome, start);
  ExpectExitCode(outcome, IsPyx() ? 7 : 0);
  ExpectFlashRewritten();
}

TEST_P(DoneCheckTest, DoneThatCannotBeReadCountsAsLowAndIsNotReported) {
  Fault("i2c:w 00#1:EIO");
  PlugIn();
  const Outcome outcome = Update();
  ExpectRunStarts(outcome,
                  Join({Find(),
                        ConnectExpander(),
                        {I2c() + "w 00 r +2 = EIO"},
                        Console(kDoneLow),
                        Drive(board_.released, "3d fe"),
                        {"sleep 1 s"},
                        Drive("3d fe", "bd fe"),
                        OpenBus(board_.slot)}));
  ExpectErr(outcome, "");
  ExpectExitCode(outcome, 0);
  ExpectFlashRewritten();
}

TEST_P(DoneCheckTest, TwoMissingStampsAreUpToDate) {
  instrument_.WriteFile("image.bin", orvane::MakeBitstream({.bytes = kImageBytes}));
  old_ = orvane::MakeBitstream({.bytes = 5000, .seed = 2});
  instrument_.WriteFile("flash.bin", old_);
  PlugIn();
  ExpectUpdate(11,
               Join({Connect(),
                     Dump(),
                     NoStamp("dumpflash.bin"),
                     NoStamp("image.bin"),
                     Console(kNoUpdate),
                     End(board_.directions, kUpToDate, 11)}));
  ExpectFlashUntouched();
}

/// The module behind a multiplexer.
class MuxTest : public ExpanderProgram {
 protected:
  MuxTest() : ExpanderProgram(kDax) {}

  /// @param adapters  that are asked, in their order
  void ExpectNoBus(const Lines& adapters) {
    PlugIn();
    ExpectUpdate(1,
                 Join({AskForBus(),
                       adapters,
                       ErrorLine("ERROR: No I2C device found"),
                       Console(kConnectFailed),
                       {"exit 1"}}));
    ExpectFlashUntouched();
  }

  /// @param channel  the log of the one that would be the right one
  void ExpectNotTaken(const Lines& channel) {
    ExpectNoBus(Join({AdapterName("i2c-2", "Orvane slot 2"),
                      channel,
                      AdapterName("i2c-2/i2c-12", "i2c-2-mux (chan_id 1)")}));
  }

  void ExpectNotTakenForItsName(const std::string& name) {
    Fault("read:" + channel_ + ":data:" + name + "\\n");
    ExpectNotTaken(AdapterName("i2c-2/i2c-11", name));
  }

  const std::string channel_ = "/sys/devices/platform/soc/i2c-2/i2c-11/name";
};

TEST_F(MuxTest, ChannelWhoseNameHasATrailingBlankIsNotTaken) {
  ExpectNotTakenForItsName("i2c-2-mux (chan_id 0) ");
}

TEST_F(MuxTest, ChannelOfAnotherMuxIsNotTaken) {
  ExpectNotTakenForItsName("i2c-20-mux (chan_id 0)");
}

TEST_F(MuxTest, ChannelWithAnotherNumberIsNotTaken) {
  ExpectNotTakenForItsName("i2c-2-mux (chan_id 3)");
}

TEST_F(MuxTest, ChannelWithAnEmptyNameIsNotTaken) {
  Fault("read:" + channel_ + ":data:");
  ExpectNotTaken(AdapterAsked("i2c-2/i2c-11", "\"\""));
}

TEST_F(MuxTest, ChannelWhoseNameCannotBeOpenedIsSkipped) {
  Fault("open:" + channel_ + ":EACCES");
  ExpectNotTaken({"open " + channel_ + " O_RDONLY = EACCES"});
}

TEST_F(MuxTest, ChannelWhoseNameCannotBeReadIsSkipped) {
  Fault("read:" + channel_ + ":EIO");
  ExpectNotTaken(AdapterAsked("i2c-2/i2c-11", "= EIO"));
}

/// In slot 1, whose bus i2c-1 begins the name of the chassis bus i2c-10, which has a mux too.
class MuxOfSlotOneTest : public MuxTest {
 protected:
  MuxOfSlotOneTest() { board_.slot = 1; }
};

TEST_F(MuxOfSlotOneTest, OlderFlashIsRewritten) {
  PlugIn();
  ExpectUpdate(0, Join({Decide(), Rewrite(), Restart(), End(FinalDirections(), kSuccess, 0)}));
  ExpectFlashRewritten();
}

TEST_F(MuxOfSlotOneTest, ChannelOfTheMuxOnBusTenIsAskedButNotTaken) {
  Fault("read:/i2c-1/i2c-11/name:data:i2c-1-mux (chan_id 7)\\n");
  ExpectNoBus(Join({AdapterName("i2c-1", "Orvane slot 1"),
                    AdapterName("i2c-1/i2c-11", "i2c-1-mux (chan_id 7)"),
                    AdapterName("i2c-1/i2c-12", "i2c-1-mux (chan_id 1)"),
                    AdapterName("i2c-10", "Orvane chassis"),
                    AdapterName("i2c-10/i2c-13", "i2c-10-mux (chan_id 0)"),
                    AdapterName("i2c-10/i2c-14", "i2c-10-mux (chan_id 1)")}));
}

/// The modules behind the module selector.
class SelectorTest : public ExpanderProgramTest {};

INSTANTIATE_TEST_SUITE_P(Boards, SelectorTest, testing::Values(kPyx1, kPyx2), [](const auto& row) {
  return std::string(row.param.word);
});

TEST_P(SelectorTest, MissingSelectorIsReportedTwiceAndTheFlashIsOutOfReach) {
  instrument_.Option({"--without", "selector"});
  selectorErrors_ = {{"SPIFIFO", "ENOENT"}, {"SPILVDS", "ENOENT"}};
  PlugIn();
  ExpectUpdate(1, FlashOutOfReach());
  ExpectFlashUntouched();
}

TEST_P(SelectorTest, SelectorThatCannotBeOpenedIsReportedTwiceAndTheFlashIsOutOfReach) {
  Fault("open:/sys/platform/module_selector/:EACCES");
  selectorErrors_ = {{"SPIFIFO", "EACCES"}, {"SPILVDS", "EACCES"}};
  PlugIn();
  ExpectUpdate(1, FlashOutOfReach());
  ExpectFlashUntouched();
}

TEST_P(SelectorTest, SelectorThatCannotBeOpenedForTheMasterLeavesTheFlashOutOfReach) {
  Fault("open:/sys/platform/module_selector/#1:EACCES");
  selectorErrors_ = {{"SPIFIFO", "EACCES"}};
  PlugIn();
  ExpectUpdate(1, FlashOutOfReach());
  ExpectFlashUntouched();
}

TEST_P(SelectorTest, SelectorThatCannotBeOpenedAtTheEndIsReportedAndTheRunIsASuccess) {
  Fault("open:/sys/platform/module_selector/#2:EACCES");
  selectorErrors_ = {{"SPILVDS", "EACCES"}};
  PlugIn();
  ExpectUpdate(0, Join({Decide(), Rewrite(), Restart(), End(FinalDirections(), kSuccess, 0)}));
  ExpectFlashRewritten();
}

TEST_P(SelectorTest, LostSelectionIsNotNoticedButTheFlashIsOutOfReach) {
  Fault("write:/sys/platform/module_selector#1:EIO");
  PlugIn();
  const Outcome outcome = Update();
  ExpectExitCode(outcome, 1);
  ExpectErr(outcome, "");
}

/// In slots that the other tests leave empty: the selector of slot B is theirs too.
class SlotBTest : public ExpanderProgram,
                  public testing::WithParamInterface<std::tuple<Board, int>> {
 protected:
  SlotBTest() : ExpanderProgram(std::get<0>(GetParam())) {
    board_.slot = std::get<1>(GetParam());
    board_.bus = board_.slot;
  }
};

TEST_P(SlotBTest, OlderFlashIsRewritten) {
  PlugIn();
  ExpectUpdate(0, Join({Decide(), Rewrite(), Restart(), End(FinalDirections(), kSuccess, 0)}));
  ExpectFlashRewritten();
}

INSTANTIATE_TEST_SUITE_P(Slots,
                         SlotBTest,
                         testing::Combine(testing::Values(kPyx1, kPyx2), testing::Range(0, 4)),
                         [](const auto& row) {
                           return std::get<0>(row.param).word + std::string("_") +
                                  std::to_string(std::get<1>(row.param));
                         });

/// One module of several.
class SeveralModulesTest : public ExpanderProgram {
 protected:
  SeveralModulesTest() : ExpanderProgram(kPyx1) {}
};

TEST_F(SeveralModulesTest, OnlyTheNamedOneIsAskedForAndTouched) {
  instrument_.Option({"--module", "wend@1", "--module", "wend@2"});
  otherLocations_ = "1 2 ";
  PlugIn();
  ExpectUpdate(0, Join({Decide(), Rewrite(), Restart(), End(FinalDirections(), kSuccess, 0)}));
  ExpectFlashRewritten();
}

}  // namespace
