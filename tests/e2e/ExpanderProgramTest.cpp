// Whole updates of the modules behind a GPIO expander: dax, pyx1 and pyx2. A test that compares the
// log compares all of it: console lines, I2C, SPI, sysfs and D-Bus in their true order.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "simulator/images/Bitstream.h"
#include "tests/e2e/Judgement.h"
#include "tests/e2e/ProgramTest.h"
#include "tests/e2e/RunLog.h"
#include "tests/e2e/VirtualInstrument.h"

namespace {

using namespace program_test;
using namespace program_test::run_log;

class ExpanderProgramTest : public BoardTest {};

INSTANTIATE_TEST_SUITE_P(Boards, ExpanderProgramTest, testing::Values(kDax, kPyx1, kPyx2), WordOf);

TEST_P(ExpanderProgramTest, OlderFlashIsRewritten) {
  PlugIn();
  ExpectUpdate(0, "micron-rewritten");
  ExpectFlashRewritten();
}

TEST_P(ExpanderProgramTest, EqualBuildLeavesFlashAndEndpointAlone) {
  StoreFlash(Image(2024, 5000));
  PlugIn();
  ExpectUpdate(11, "up-to-date");
  ExpectFlashUntouched();
}

TEST_P(ExpanderProgramTest, MacronixFlashIsRewrittenAndLockedAgain) {
  PlugIn(",chip=macronix");
  ExpectUpdate(0, "macronix-rewritten");
  ExpectFlashRewritten();
}

TEST_P(ExpanderProgramTest, SilentExpanderFailsToConnectAndAPyxIsStillReenumerated) {
  PlugIn(",expander=absent");
  ExpectUpdate(1, "silent-expander");
  ExpectFlashUntouched();
}

TEST_P(ExpanderProgramTest, AbsentFlashLeavesTheRunPatternAndFailsToConnect) {
  PlugIn(",flash-chip=absent,done=high");
  ExpectUpdate(1, "absent-flash");
}

TEST_P(ExpanderProgramTest, MissingSpiNodeIsDestroyedOnceAndFailsToConnect) {
  PlugIn(",spidev=missing");
  ExpectUpdate(1, "no-spi-node");
  ExpectFlashUntouched();
}

TEST_P(ExpanderProgramTest, FailedEraseIsTheResultAndAPyxIsReenumerated) {
  Fault("spi:SE:EIO");
  PlugIn();
  ExpectUpdate(3, "erase-fails");
  ExpectFlashUntouched();
}

TEST_P(ExpanderProgramTest, FailedPageIsTheResult) {
  Fault("spi:PP#1:EIO");
  PlugIn();
  ExpectUpdate(6, "page-fails");
}

TEST_P(ExpanderProgramTest, PageThatDoesNotProgramIsRevealedByDoneAtTheEarliest) {
  PlugIn(",program-lost=2");
  ExpectUpdate(0, "micron-rewritten");
  ExpectFlashRewrittenBut(256, 256);
}

TEST_P(ExpanderProgramTest, EmptyI2cNameFails) {
  PlugIn(",i2c=none");
  ExpectUpdate(1, "no-i2c-name");
}

TEST_P(ExpanderProgramTest, EmptySpiNameFailsBeforeTheSelectorAndTheEndpointAreTouched) {
  PlugIn(",spi=none");
  ExpectUpdate(1, "no-spi-name");
}

TEST_P(ExpanderProgramTest, MissingI2cNodeFailsToConnect) {
  PlugIn(",i2cdev=missing");
  ExpectUpdate(1, "no-i2c-node");
  ExpectFlashUntouched();
}

TEST_P(ExpanderProgramTest, RoutingThatIsRefusedIsNotReportedButTheFlashIsOutOfReach) {
  Fault(std::string("i2c:w 02 ") + (board_.word == std::string("pyx2") ? "ec f7" : "bd 3e") +
        "#1:EIO");
  PlugIn();
  ExpectUpdate(1, "routing-refused");
  ExpectFlashUntouched();
}

TEST_P(ExpanderProgramTest, SectorThatStaysBusyFailsTheEraseAfterFiveSeconds) {
  instrument_.Options("--clock-step 600");
  PlugIn(",busy-after=1");
  ExpectUpdate(3, "sector-stays-busy");
}

struct PcieStep {
  const char* name;
  const char* word;  // the last of its file's path
};

void PrintTo(const PcieStep& step, std::ostream* out) { *out << step.name; }

class PcieStepTest : public ProgramTest,
                     public testing::WithParamInterface<std::tuple<Board, PcieStep>> {
 protected:
  PcieStepTest() : ProgramTest(std::get<0>(GetParam())) {
    Fault("write:/" + step_ + ":EIO");
    PlugIn();
  }

  const std::string step_ = std::get<1>(GetParam()).word;
};

TEST_P(PcieStepTest, FailureEndsTheUpdateOfTheEndpointAndIsTheResultAfterSuccess) {
  ExpectUpdate(10, step_ + "-fails");
  ExpectFlashRewritten();
}

TEST_P(PcieStepTest, FailureIsHiddenByAFailureOfTheProgramming) {
  Fault("spi:SE:EIO");
  ExpectUpdate(3, "erase-and-" + step_ + "-fail");
}

INSTANTIATE_TEST_SUITE_P(Steps,
                         PcieStepTest,
                         testing::Combine(testing::Values(kPyx1, kPyx2),
                                          testing::Values(PcieStep{"Remove", "remove"},
                                                          PcieStep{"Rescan", "rescan"},
                                                          PcieStep{"Enable", "enable"})),
                         [](const auto& row) {
                           return std::get<0>(row.param).word + std::string("_") +
                                  std::get<1>(row.param).name;
                         });

TEST_P(ExpanderProgramTest, LongerStaleDumpKeepsItsTail) {
  instrument_.WriteFile("dumpflash.bin", Bytes(700, 0x5A));
  PlugIn();
  ExpectUpdate(0, "micron-rewritten");
  Bytes expected(old_.begin(), old_.begin() + 512);
  expected.resize(700, 0x5A);
  ExpectContents("dumpflash.bin", instrument_.ReadFile("dumpflash.bin"), expected);
}

TEST_P(ExpanderProgramTest, FailedDumpIsNotReportedAndTheStaleFileDecides) {
  instrument_.WriteFile("dumpflash.bin", Image(2024, 512));
  Fault("spi:READ:EIO");
  PlugIn();
  ExpectUpdate(11, "dump-read-fails");
  ExpectFlashUntouched();
}

TEST_P(ExpanderProgramTest, SlotFiveHasItsExpanderOneAddressUp) {
  board_.slot = 5;
  PlugIn();
  ExpectUpdate(0, "slot-5-rewritten");
  ExpectFlashRewritten();
}

// --- DONE

TEST_P(ExpanderProgramTest, DoneSeenOnTheLastPollButOneIsSuccess) {
  PlugIn(",done=after:9998");
  ExpectExitCode(Update(), 0);
}

TEST_P(ExpanderProgramTest, DoneSeenOnTheLastPollCountsAsTimeoutOfAPyx) {
  PlugIn(",done=after:9999");
  ExpectUpdate(IsPyx() ? 7 : 0, "done-too-late");
  ExpectFlashRewritten();
}

/// The modules that look at DONE before they take the flash over.
class DoneCheckTest : public BoardTest {};

INSTANTIATE_TEST_SUITE_P(Boards, DoneCheckTest, testing::Values(kDax, kPyx1), WordOf);

TEST_P(DoneCheckTest, FpgaWithoutDoneIsBroughtIntoPsMode) {
  PlugIn(",done=low");
  ExpectUpdate(IsPyx() ? 7 : 0, "no-done");
  ExpectFlashRewritten();
}

TEST_P(DoneCheckTest, DoneThatCannotBeReadCountsAsLowAndIsNotReported) {
  Fault("i2c:w 00#1:EIO");
  PlugIn();
  ExpectUpdate(0, "done-unreadable");
  ExpectFlashRewritten();
}

TEST_P(DoneCheckTest, TwoMissingStampsAreUpToDate) {
  StoreImage(orvane::MakeBitstream({.bytes = kImageBytes}));
  StoreFlash(orvane::MakeBitstream({.bytes = 5000, .seed = 2}));
  PlugIn();
  ExpectUpdate(11, "up-to-date-without-stamps");
  ExpectFlashUntouched();
}

/// The module behind a multiplexer.
class MuxTest : public ProgramTest {
 protected:
  MuxTest() : ProgramTest(kDax) {}

  /// @param channel  what the log shows of the adapter that would be the right one
  void ExpectNotTaken(const Lines& channel) {
    PlugIn();
    ExpectUpdate(1,
                 Join({Until(Log("micron-rewritten"), "open " + channel_ + " O_RDONLY"),
                       channel,
                       AdapterName("i2c-2/i2c-12", "i2c-2-mux (chan_id 1)"),
                       ErrorLine("ERROR: No I2C device found"),
                       Console(kConnectFailed),
                       {"exit 1"}}));
    ExpectFlashUntouched();
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

// udev lists the multiplexer between its bus and its channels.
TEST_F(MuxTest, MultiplexerItselfIsAskedButNotTaken) {
  instrument_.Options("--i2c-clients");
  PlugIn();
  const Lines bus = AdapterName("i2c-2", "Orvane slot 2");
  ExpectUpdate(
      0,
      Replaced(Log("micron-rewritten"), bus, Join({bus, AdapterName("i2c-2/2-0070", "pca9540")})));
  ExpectFlashRewritten();
}

/// In slot 1, whose bus i2c-1 begins the name of the chassis bus i2c-10, which has a mux too.
class MuxOfSlotOneTest : public ProgramTest {
 protected:
  MuxOfSlotOneTest() : ProgramTest({kDax.word, 1}) {}
};

TEST_F(MuxOfSlotOneTest, OlderFlashIsRewritten) {
  PlugIn();
  ExpectUpdate(0, "slot-1-rewritten");
  ExpectFlashRewritten();
}

TEST_F(MuxOfSlotOneTest, ChannelOfTheMuxOnBusTenIsAskedButNotTaken) {
  Fault("read:/i2c-1/i2c-11/name:data:i2c-1-mux (chan_id 7)\\n");
  PlugIn();
  ExpectUpdate(1, "slot-1-without-its-channel");
  ExpectFlashUntouched();
}

/// The modules behind the module selector.
class SelectorTest : public BoardTest {};

INSTANTIATE_TEST_SUITE_P(Boards, SelectorTest, testing::Values(kPyx1, kPyx2), WordOf);

TEST_P(SelectorTest, MissingSelectorIsReportedTwiceAndTheFlashIsOutOfReach) {
  instrument_.Options("--without selector");
  PlugIn();
  ExpectUpdate(1, "no-selector");
  ExpectFlashUntouched();
}

TEST_P(SelectorTest, SelectorThatCannotBeOpenedIsReportedTwiceAndTheFlashIsOutOfReach) {
  Fault("open:/sys/platform/module_selector/:EACCES");
  PlugIn();
  ExpectUpdate(1, "selector-refused");
  ExpectFlashUntouched();
}

TEST_P(SelectorTest, SelectorThatCannotBeOpenedForTheMasterLeavesTheFlashOutOfReach) {
  Fault("open:/sys/platform/module_selector/#1:EACCES");
  PlugIn();
  ExpectUpdate(1, "selector-refused-for-the-master");
  ExpectFlashUntouched();
}

TEST_P(SelectorTest, SelectorThatCannotBeOpenedAtTheEndIsReportedAndTheRunIsASuccess) {
  Fault("open:/sys/platform/module_selector/#2:EACCES");
  PlugIn();
  ExpectUpdate(0, "selector-refused-at-the-end");
  ExpectFlashRewritten();
}

TEST_P(SelectorTest, LostSelectionIsNotNoticedButTheFlashIsOutOfReach) {
  Fault("write:/sys/platform/module_selector#1:EIO");
  PlugIn();
  ExpectUpdate(1, "selection-lost");
}

/// In slots that the other tests leave empty: they use the selector of slot B, too.
class SlotBTest : public ProgramTest, public testing::WithParamInterface<std::tuple<Board, int>> {
 protected:
  SlotBTest() : ProgramTest({std::get<0>(GetParam()).word, std::get<1>(GetParam())}) {}
};

TEST_P(SlotBTest, OlderFlashIsRewritten) {
  PlugIn();
  ExpectUpdate(0, "slot-" + Slot() + "-rewritten");
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
class SeveralModulesTest : public ProgramTest {
 protected:
  SeveralModulesTest() : ProgramTest(kPyx1) {}
};

TEST_F(SeveralModulesTest, OnlyTheNamedOneIsAskedForAndTouched) {
  instrument_.Options("--module wend@1 --module wend@2");
  PlugIn();
  ExpectUpdate(0, "beside-two-wends-rewritten");
  ExpectFlashRewritten();
}

}  // namespace
