// What companion::Module does on the virtual instrument, by the program ModuleProbe.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <regex>
#include <string>
#include <vector>

#include "tests/e2e/ProgramTest.h"
#include "tests/e2e/RunLog.h"
#include "tests/e2e/VirtualInstrument.h"

namespace program_test {
namespace {

using run_log::LinesOf;
using testing::HasSubstr;
using testing::Not;

constexpr std::size_t kBytes = 20'000;
/// Printed between a preparation and what is tested.
constexpr const char* kMark = "MARK";

/// How a run ended.
struct Seen {
  std::string out;    ///< of what is tested
  std::string state;  ///< of the module, without its slot
  Lines log;          ///< of what is tested
  Lines prepared;     ///< of the preparation
};

class ModuleTest : public BoardTest {
 protected:
  ModuleTest() {
    StoreFlash(Image(2023, kBytes));
    StoreImage(Image(2023, kBytes));
    page_.resize(256);
    for (std::size_t i = 0; i < page_.size(); ++i) {
      page_[i] = static_cast<unsigned char>(i);
    }
    instrument_.WriteFile("page.bin", page_);
    instrument_.WriteFile("head.bin", PaddedTo(kBytes, page_));
    instrument_.Environment("PROBE", MODULE_PROBE_PATH);
    instrument_.Option({"--state", instrument_.File("state").string()});
  }

  std::string Command(const std::string& words) const {
    return "\"$PROBE\" " + std::string(board_.word) + ' ' + Slot() + ' ' + words;
  }

  /// A command before another one.
  std::string Probe(const std::string& words) const { return Command(words) + "; "; }

  /// Runs the probe, after shell commands.
  Seen Run(const std::string& words, const std::string& before = "") {
    const Outcome outcome = instrument_.RunShell(
        "{ " + before + ":; } >/dev/null 2>&1; /bin/echo " + kMark + "; " + Command(words));
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    Seen seen;
    seen.out = outcome.out.substr(outcome.out.find('\n') + 1);
    const Bytes state = instrument_.ReadFile("state");
    const std::string text(state.begin(), state.end());
    seen.state = text.substr(text.find(' ') + 1, text.find('\n') - text.find(' ') - 1);
    const Lines log = LinesOf(outcome.log);
    const auto mark = std::find(log.begin(), log.end(), "stdout \"" + std::string(kMark) + "\\n\"");
    seen.prepared.assign(log.begin(), mark);
    seen.log.assign(mark, log.end());
    return seen;
  }

  /// A module that is given back, apart from what its FPGA has loaded.
  std::string GivenBack(const std::string& done = "done=1") const {
    return done + (IsWend()  ? " qspi_prg=0"
                   : IsPyx() ? " driven=0x0000 pcie=enabled selector=SPILVDS"
                             : " driven=0x0000");
  }

  std::string EndpointLine() const { return IsPyx() ? "endpoint enabled\n" : ""; }
  bool HasPsMode() const { return !HasBootHeader(); }

  Bytes page_;
};

/// Nothing is sent to the chip but what reads.
void ExpectNothingWritten(const Seen& seen) {
  const std::regex reading("spi /dev/\\S+ (READ|RDID|RDSR|RDCR|speed)\\b.*");
  for (const std::string& line : seen.log) {
    if (line.starts_with("spi ")) {
      EXPECT_TRUE(std::regex_match(line, reading)) << line;
    }
  }
}

// --- Reading ------------------------------------------------------------------------------------

TEST_P(ModuleTest, EqualFlashIsReadAndNothingIsChanged) {
  PlugIn();
  const Seen seen = Run("compare image.bin");
  EXPECT_EQ(seen.out, "chip 20ba18 status 00\ndone high high\n" + EndpointLine());
  EXPECT_EQ(seen.state, GivenBack() + " loaded=current");
  EXPECT_EQ(instrument_.ReadFile("contents"), image_);
  ExpectNothingWritten(seen);
  ExpectFlashUntouched();
}

TEST_P(ModuleTest, LockableChipIsNotLockedByReading) {
  PlugIn(",chip=macronix");
  const Seen seen = Run("compare image.bin");
  EXPECT_EQ(seen.out, "chip c22018 status 00\ndone high high\n" + EndpointLine());
  EXPECT_EQ(seen.state, GivenBack() + " loaded=current");
  ExpectNothingWritten(seen);
}

TEST_P(ModuleTest, FpgaThatRunsAnotherBuildRunsOn) {
  PlugIn();
  const Seen seen = Run("compare head.bin", Probe("head page.bin"));
  EXPECT_EQ(seen.out, "chip 20ba18 status 00\ndone high high\n" + EndpointLine());
  EXPECT_EQ(seen.state, GivenBack() + " loaded=other");
}

TEST_P(ModuleTest, FpgaIsNotResetWhereAnEarlierResetHasLeftItsLevels) {
  // The program's reset leaves the expander's output register so that the FPGA would be in reset.
  PlugIn();
  const Seen seen = Run("compare head.bin", Probe("use") + Probe("head page.bin"));
  EXPECT_EQ(seen.out, "chip 20ba18 status 00\ndone high high\n" + EndpointLine());
  EXPECT_EQ(seen.state, GivenBack() + " loaded=other");
}

TEST_P(ModuleTest, DoneThatStaysLowIsReadInPsModeWhereTheTypeHasIt) {
  PlugIn(",done=low");
  const Seen seen = Run("compare image.bin");
  EXPECT_EQ(seen.out,
            std::string("chip 20ba18 status 00\ndone low low\n") +
                (HasPsMode() ? "ps-mode yes\n" : "") + EndpointLine());
  EXPECT_THAT(seen.state, HasSubstr(GivenBack("done=0")));
  ExpectNothingWritten(seen);
  const auto resets = std::count_if(seen.log.begin(), seen.log.end(), [](const std::string& line) {
    return line.find("zynq_hw_reset_n") != std::string::npos;
  });
  EXPECT_EQ(resets, 0);
}

TEST_P(ModuleTest, DifferenceIsReadAgainAndNamed) {
  PlugIn();
  Bytes other = image_;
  other[5000] ^= 0x0F;
  other[5100] ^= 0x0F;
  other[19'999] ^= 0x0F;
  instrument_.WriteFile("other.bin", other);
  char line[80];
  static_cast<void>(std::snprintf(line,
                                  sizeof line,
                                  "difference 0x001388 expected %02x found %02x pages 2\n",
                                  unsigned{other[5000]},
                                  unsigned{image_[5000]}));
  EXPECT_EQ(Run("compare other.bin").out,
            "chip 20ba18 status 00\ndone high high\n" + EndpointLine() + line + "read-again 1\n");
}

TEST_P(ModuleTest, WholeFlashIsReadTwice) {
  PlugIn();
  const Seen seen = Run("read 16777216");
  EXPECT_EQ(seen.out, "chip 20ba18 status 00\ndone high high\n" + EndpointLine());
  EXPECT_EQ(instrument_.ReadFile("contents"), PaddedTo(kFlashBytes, image_));
}

TEST_P(ModuleTest, ReadingIsStoppedAndTheModuleGivenBack) {
  PlugIn();
  const Seen seen = Run("stop 16777216");
  EXPECT_EQ(seen.out, "problem stopped\ndone high high\n" + EndpointLine());
  EXPECT_EQ(seen.state, GivenBack() + " loaded=current");
}

TEST_P(ModuleTest, WorkerWhoseParentIsKilledGivesTheModuleBack) {
  PlugIn();
  const Seen seen = Run("die 16777216; true");
  EXPECT_EQ(seen.out, "");
  EXPECT_EQ(seen.state, GivenBack() + " loaded=current");
}

// --- One fault ----------------------------------------------------------------------------------

/// @return what can happen to an event of this kind
std::vector<std::string> ActionsOf(const std::string& kind) {
  static const std::map<std::string, std::vector<std::string>> kActions = {
      {"open", {"EIO", "kill"}},
      {"close", {"EIO", "kill"}},
      {"read", {"EIO", "kill"}},
      {"write", {"EIO", "lost", "kill"}},
      {"ioctl", {"EIO", "lost", "kill"}},
      {"spi", {"EIO", "lost", "kill"}},
      {"i2c", {"EIO", "lost", "kill"}},
      {"sleep", {"EINTR", "kill"}},
      {"dbus", {"error", "kill"}}};
  const auto found = kActions.find(kind);
  return found == kActions.end() ? std::vector<std::string>{} : found->second;
}

/// Files of the probe itself.
bool IsOfTheProbe(const std::string& line) {
  return line.find(" contents") != std::string::npos || line.find(".bin") != std::string::npos;
}

/// An event after the preparation, and the rule that hits it, without its action.
struct Event {
  std::string line;
  std::string kind;
  std::string rule;
};

std::vector<Event> EventsOf(const Seen& seen) {
  std::map<std::string, int> numbers;
  std::vector<Event> events;
  const auto count = [&](const Lines& log, bool prepared) {
    for (const std::string& line : log) {
      if (line.find(" speed ") != std::string::npos) {
        continue;  // not an event
      }
      const std::string kind = line.substr(0, line.find(' '));
      const int number = ++numbers[kind];
      if (!prepared && !IsOfTheProbe(line)) {
        events.push_back({line, kind, kind + "#" + std::to_string(number) + ":"});
      }
    }
  };
  count(seen.prepared, true);
  count(seen.log, false);
  return events;
}

/// @return every `step`th fault that there is
std::vector<std::string> FaultsOf(const Seen& seen, std::size_t step) {
  std::vector<std::string> faults;
  std::size_t at = 0;
  for (const Event& event : EventsOf(seen)) {
    for (const std::string& action : ActionsOf(event.kind)) {
      if (at++ % step == 0) {
        faults.push_back(event.rule + action);
      }
    }
  }
  return faults;
}

class ModuleWithOneFaultTest : public ModuleTest {
 protected:
  struct Expected {
    std::string out;
    std::string state;
  };

  /// On a module of the same type as this one.
  static Seen RunWith(const std::string& fault,
                      const std::string& words,
                      const std::string& before) {
    ModuleWithOneFaultTest again;
    again.PlugIn();
    again.Fault(fault);
    return again.Run(words, before);
  }

  /// Every `step`th fault leads to the same end as none.
  void ExpectTheSame(const std::string& words, const std::string& before, std::size_t step) {
    PlugIn();
    const Seen plain = Run(words, before);
    ExpectTheSame(words, before, plain, FaultsOf(plain, step));
  }

  static void ExpectTheSame(const std::string& words,
                            const std::string& before,
                            const Seen& plain,
                            const std::vector<std::string>& faults) {
    ASSERT_FALSE(faults.empty());
    for (const std::string& fault : faults) {
      SCOPED_TRACE(fault);
      const Seen seen = RunWith(fault, words, before);
      // A message that was lost is read again, and nothing else tells of it.
      EXPECT_EQ(std::regex_replace(seen.out, std::regex("read-again [0-9]+\n"), ""), plain.out);
      EXPECT_EQ(seen.state, plain.state);
      if (words.starts_with("compare")) {
        ExpectNothingWritten(seen);
      }
    }
  }

  void TestBody() override {}
};

TEST_P(ModuleWithOneFaultTest, ReadingEndsAsWithoutIt) {
  // The FPGA runs what the flash held before, so that each reset would be seen.
  ExpectTheSame("compare head.bin", Probe("head page.bin"), 13);
}

TEST_P(ModuleWithOneFaultTest, WritingTheHeadEndsAsWithoutIt) {
  ExpectTheSame("head page.bin", "", 17);
}

TEST_P(ModuleWithOneFaultTest, GivingBackEndsAsWithoutIt) { ExpectTheSame("give-back", "", 13); }

/// A module with an expander.
class ExpanderWithOneFaultTest : public ModuleWithOneFaultTest {};

TEST_P(ExpanderWithOneFaultTest, NoLostTransferResetsAnFpgaThatRuns) {
  // The program's reset leaves levels in the expander with which the FPGA would be in reset.
  const std::string before = Probe("use") + Probe("head page.bin");
  PlugIn();
  const Seen plain = Run("compare head.bin", before);
  EXPECT_EQ(plain.state, GivenBack() + " loaded=other");
  std::vector<std::string> faults;
  for (const Event& event : EventsOf(plain)) {
    if (event.kind == "i2c") {
      faults.push_back(event.rule + "lost");
    }
  }
  ExpectTheSame("compare head.bin", before, plain, faults);
}

TEST_P(ExpanderWithOneFaultTest, ResetIsDrivenAsWithoutIt) {
  PlugIn();
  const Seen plain = Run("use");
  std::vector<std::string> faults;
  for (const Event& event : EventsOf(plain)) {
    if (event.line.find(" w 00 r ") != std::string::npos) {
      break;  // DONE is looked at: the reset is driven
    }
    if (event.kind == "i2c") {
      const bool reads = event.line.find(" r ") != std::string::npos;
      faults.push_back(event.rule + (reads ? "EIO" : "lost"));
    }
  }
  ExpectTheSame("use", "", plain, faults);
}

TEST_P(ExpanderWithOneFaultTest, ReadingsOfDoneThatAreAllLostResetNothing) {
  PlugIn();
  Fault("i2c:w 00 r:lost");
  const Seen seen = Run("compare image.bin");
  EXPECT_EQ(seen.out,
            "problem cannot read the DONE line of the FPGA for certain\n"
            "done unknown unknown\n" +
                EndpointLine());
  EXPECT_EQ(seen.state, GivenBack() + " loaded=current");
}

TEST_P(ExpanderWithOneFaultTest, ReadingsOfDoneThatAreAllOnesResetNothing) {
  PlugIn();
  Fault("i2c:w 00 r:data:\\xff\\xff");
  const Seen seen = Run("compare image.bin");
  EXPECT_EQ(seen.out,
            "problem cannot read the DONE line of the FPGA for certain\n"
            "done unknown high\n" +
                EndpointLine());
  EXPECT_EQ(seen.state, GivenBack() + " loaded=current");
}

TEST_P(ExpanderWithOneFaultTest, LinesThatTheProgramDoesNotDriveAreLeftAsTheyWere) {
  // Where the directions before are read as zeros, all other lines become outputs.
  PlugIn();
  Fault("i2c:w 06 r#3:lost");
  const Seen seen = Run("compare image.bin");
  EXPECT_THAT(seen.out, Not(HasSubstr("problem")));
  EXPECT_EQ(seen.state, GivenBack() + " loaded=current");
}

TEST_P(ExpanderWithOneFaultTest, NoLineIsDrivenWhileAllReadingsAreLost) {
  PlugIn();
  Fault("i2c: r :lost");
  const Seen seen = Run("compare image.bin");
  EXPECT_THAT(seen.out, HasSubstr("problem the GPIO expander on /dev/i2c-"));
  EXPECT_THAT(seen.out, HasSubstr(" does not answer\n"));
  EXPECT_THAT(seen.out, HasSubstr(" does not release its lines\n"));
  EXPECT_EQ(seen.state, GivenBack() + " loaded=current");
}

TEST_P(ExpanderWithOneFaultTest, LevelsThatAreNeverTakenAreAProblem) {
  PlugIn();
  Fault(board_.word == std::string(kPyx2.word) ? "i2c:w 02 e8 f7:lost" : "i2c:w 02 a0 3e:lost");
  const Seen seen = Run("compare image.bin");
  EXPECT_THAT(seen.out, HasSubstr("problem the GPIO expander on /dev/i2c-"));
  EXPECT_THAT(seen.out, HasSubstr(" does not answer\n"));
  EXPECT_THAT(seen.out, Not(HasSubstr("not-given-back")));
  EXPECT_EQ(seen.state, GivenBack() + " loaded=current");
}

TEST_P(ExpanderWithOneFaultTest, LinesThatAreNeverDrivenAreAProblem) {
  PlugIn();
  Fault(board_.word == std::string(kPyx2.word) ? "i2c:w 06 fb fd:lost" : "i2c:w 06 60 13:lost");
  const Seen seen = Run("compare image.bin");
  EXPECT_THAT(seen.out,
              HasSubstr("problem cannot drive the lines of the GPIO expander on /dev/i2c-"));
  EXPECT_EQ(seen.state, GivenBack() + " loaded=current");
}

TEST_P(ExpanderWithOneFaultTest, I2cNodeThatIsNotThereIsAProblem) {
  PlugIn(",i2cdev=missing");
  const Seen seen = Run("compare image.bin");
  EXPECT_THAT(seen.out, HasSubstr("problem cannot open /dev/i2c-"));
  EXPECT_THAT(seen.out, HasSubstr(" to see whether its lines are released\n"));
  EXPECT_EQ(seen.state, GivenBack() + " loaded=current");
}

TEST_P(ExpanderWithOneFaultTest, DoneThatCannotBeReadAfterTheResetIsAProblem) {
  PlugIn();
  const Seen plain = Run("use");
  const auto readings = std::count_if(plain.log.begin(), plain.log.end(), [](const auto& line) {
    return line.find(" w 00 r ") != std::string::npos;
  });
  // All three of the last look.
  const std::string fault = "i2c:w 00 r#" + std::to_string(readings - 2) + "+:ENXIO";
  EXPECT_EQ(RunWith(fault, "use", "").out,
            "problem the FPGA's DONE does not stay high after its reset\ndone unknown seen-low\n" +
                EndpointLine());
}

// --- Into use -----------------------------------------------------------------------------------

TEST_P(ModuleTest, FlashIsTakenIntoUse) {
  PlugIn();
  const Seen seen =
      Run("use", "\"$TARNWICK\" " + std::string(board_.word) + " -sf " + Slot() + " image.bin; ");
  EXPECT_EQ(seen.out, "done high seen-low\n" + EndpointLine());
  EXPECT_EQ(seen.state, GivenBack() + " loaded=current");
}

TEST_P(ModuleTest, DoneThatNeverRisesIsAProblem) {
  PlugIn(",done=low");
  const Seen seen = Run("use");
  EXPECT_EQ(seen.out,
            "problem the FPGA's DONE does not rise within 10 s after its reset\n"
            "done low seen-low\n" +
                EndpointLine());
  EXPECT_THAT(seen.state, HasSubstr(GivenBack("done=0")));
}

TEST_P(ModuleTest, DoneThatIsStuckHighIsAProblem) {
  PlugIn(",done=high");
  const Seen seen = Run("use");
  EXPECT_EQ(seen.out,
            "problem the FPGA's DONE does not fall while it is held in reset\n"
            "done high\n" +
                EndpointLine());
  EXPECT_THAT(seen.state, HasSubstr(GivenBack()));
}

TEST_P(ModuleTest, WorkerThatIsKilledInTheResetIsReplaced) {
  PlugIn();
  Fault(IsWend() ? "sleep:5 s#1:kill" : "i2c#20:kill");
  EXPECT_EQ(Run("use").out, "done high seen-low\n" + EndpointLine());
}

TEST_P(ModuleTest, WorkerThatIsKilledAgainInTheResetIsAProblemAndTheResetIsReleased) {
  PlugIn();
  Fault(IsWend() ? "sleep:5 s#1+:kill" : "i2c:w 00 r:kill");
  const Seen seen = Run("use");
  EXPECT_THAT(seen.out, HasSubstr("problem its process was ended by signal 9 (Killed)\n"));
  EXPECT_THAT(seen.state, Not(HasSubstr("SPIFIFO")));
  EXPECT_THAT(seen.state, Not(HasSubstr("qspi_prg=1")));
  const Lines released = {"write /sys/platform_m1/zynq_hw_reset_n/value \"1\""};
  if (IsWend()) {
    EXPECT_NE(std::find(seen.log.begin(), seen.log.end(), released[0]), seen.log.end());
  } else {
    EXPECT_THAT(seen.state, HasSubstr("driven=0x0000"));
  }
}

/// A module with a PCIe endpoint.
class EndpointTest : public ModuleTest {
 protected:
  std::string Remove() const {
    return "echo 1 >/sys/bus/pci/devices/0000:0" + Slot() + ":00.0/remove; ";
  }
};

TEST_P(EndpointTest, EndpointThatIsAbsentIsSeen) {
  PlugIn();
  EXPECT_EQ(Run("compare image.bin", Remove()).out,
            "chip 20ba18 status 00\ndone high high\nendpoint absent\n");
}

TEST_P(EndpointTest, EndpointThatIsAbsentIsBroughtBack) {
  PlugIn();
  const Seen seen = Run("use", Remove());
  EXPECT_EQ(seen.out, "done high seen-low\nendpoint enabled\n");
  EXPECT_EQ(seen.state, GivenBack() + " loaded=current");
}

TEST_P(EndpointTest, WorkerThatIsKilledBetweenItsStepsIsReplaced) {
  PlugIn();
  Fault("write:rescan#1:kill");
  const Seen seen = Run("use");
  EXPECT_EQ(seen.out, "done high seen-low\nendpoint enabled\n");
  EXPECT_EQ(seen.state, GivenBack() + " loaded=current");
}

TEST_P(EndpointTest, StepThatNeverWorksIsAProblem) {
  PlugIn();
  Fault("write:/enable:lost");
  EXPECT_EQ(Run("use").out,
            "problem the PCIe endpoint is not enabled\ndone high seen-low\nendpoint disabled\n");
}

TEST_P(EndpointTest, SelectorThatWasNotSwitchedBackIsSwitchedBack) {
  PlugIn();
  Fault("write:/module_selector/#2:lost");
  EXPECT_EQ(Run("compare image.bin").out,
            "chip 20ba18 status 00\ndone high high\nendpoint enabled\n");
}

TEST_P(EndpointTest, SelectorThatIsNeverSwitchedBackIsNamed) {
  PlugIn();
  Fault("write:SPILVDS:lost");
  const Seen seen = Run("compare image.bin");
  EXPECT_THAT(seen.out, HasSubstr("not-given-back /sys/platform/module_selector/slot"));
  EXPECT_THAT(seen.out, HasSubstr(" does not take SPILVDS\n"));
}

TEST_P(EndpointTest, LinesAndSelectorThatAreBothLeftAreBothNamed) {
  PlugIn(",expander=absent");
  Fault("write:SPILVDS:lost");
  const std::string selector =
      std::string("/sys/platform/module_selector/slot") + (Slot() == "4" ? "A" : "B");
  const Seen seen = Run("compare image.bin", "echo SPIFIFO >" + selector + "; ");
  EXPECT_THAT(seen.out,
              HasSubstr("not-given-back the GPIO expander on /dev/i2c-" + Slot() +
                        " does not show whether its lines are released; " + selector +
                        " does not take SPILVDS\n"));
}

// --- Writing ------------------------------------------------------------------------------------

TEST_P(ModuleTest, HeadIsErasedAndHoldsThePage) {
  StoreFlash(Image(2023, 100'000));
  PlugIn();
  const Seen seen = Run("head page.bin");
  EXPECT_EQ(seen.out, "");
  EXPECT_EQ(seen.state, GivenBack() + " loaded=other");
  ExpectFlash(Flashed(page_, old_));
}

TEST_P(ModuleTest, HeadOfALockedChipIsWrittenAndTheChipStaysUnlocked) {
  PlugIn(",chip=macronix");
  const Seen seen = Run("head page.bin; " + Command("compare head.bin"), Probe("lock"));
  EXPECT_EQ(seen.out, "chip c22018 status 00\ndone high high\n" + EndpointLine());
}

TEST_P(ModuleTest, HeadThatCannotBeErasedIsAProblem) {
  PlugIn(",worn-sector=0x000000");
  const Seen seen = Run("head page.bin");
  EXPECT_EQ(seen.out,
            "problem the first 4 KiB of the flash do not hold what was written to them\n");
  EXPECT_EQ(seen.state.substr(0, GivenBack().size()), GivenBack());
}

TEST_P(ModuleTest, LockableChipIsLockedWhole) {
  PlugIn(",chip=macronix");
  const Seen seen = Run("lock; " + Command("compare image.bin"));
  EXPECT_EQ(seen.out, "chip c22018 status 24 protected whole\ndone high high\n" + EndpointLine());
  EXPECT_EQ(seen.state, GivenBack() + " loaded=current");
}

TEST_P(ModuleTest, LockableChipIsLockedWhileDoneStaysLow) {
  PlugIn(",chip=macronix,done=low");
  const Seen seen = Run("lock; " + Command("compare image.bin"));
  EXPECT_EQ(seen.out,
            std::string("chip c22018 status 24 protected whole\ndone low low\n") +
                (HasPsMode() ? "ps-mode yes\n" : "") + EndpointLine());
  EXPECT_THAT(seen.state, HasSubstr(GivenBack("done=0")));
}

TEST_P(ModuleTest, OtherChipsAreNotLocked) {
  PlugIn();
  const Seen seen = Run("lock");
  EXPECT_EQ(seen.out, "");
  ExpectNothingWritten(seen);
}

// --- Giving back --------------------------------------------------------------------------------

TEST_P(ModuleTest, WhatAKilledUpdateHasLeftIsGivenBack) {
  StoreImage(Image(2024, kBytes));
  PlugIn();
  Fault("spi:PP#3:kill");
  const Seen seen = Run(
      "give-back", "\"$TARNWICK\" " + std::string(board_.word) + " -sf " + Slot() + " image.bin; ");
  EXPECT_EQ(seen.out, "");
  EXPECT_EQ(seen.state, GivenBack() + " loaded=other");
}

TEST_P(ModuleTest, WorkerThatIsKilledWhileItReadsIsReplaced) {
  PlugIn();
  Fault("spi:READ#4:kill");
  const Seen seen = Run("compare image.bin");
  EXPECT_EQ(seen.out, "chip 20ba18 status 00\ndone high high\n" + EndpointLine());
  EXPECT_EQ(seen.state, GivenBack() + " loaded=current");
}

// --- What is missing ----------------------------------------------------------------------------

TEST_P(ModuleTest, NamesAreFound) {
  PlugIn();
  const std::string bus = board_.word == std::string(kDax.word) ? "i2c-11" : "i2c-" + Slot();
  EXPECT_EQ(Run("find").out, "names " + bus + " spidev" + Slot() + ".0\n");
}

TEST_P(ModuleTest, AnswerThatIsWrongOnceIsNotTaken) {
  PlugIn();
  Fault("dbus:GetModuleLocations#1:data:9");
  Fault("dbus:GetSPIDev#1:data:spidev9.0");
  const std::string bus = board_.word == std::string(kDax.word) ? "i2c-11" : "i2c-" + Slot();
  EXPECT_EQ(Run("find").out, "names " + bus + " spidev" + Slot() + ".0\n");
}

TEST_P(ModuleTest, AnswersThatAlwaysDifferAreAProblem) {
  PlugIn();
  Fault("dbus:GetSPIDev#1:data:a");
  Fault("dbus:GetSPIDev#3:data:b");
  Fault("dbus:GetSPIDev#5:data:c");
  Fault("dbus:GetSPIDev#7:data:d");
  Fault("dbus:GetSPIDev#9:data:e");
  Fault("dbus:GetSPIDev#11:data:f");
  const Outcome outcome = instrument_.RunShell(Probe("find") + ":");
  EXPECT_EQ(outcome.out, "problem the platform's services give a different answer each time\n");
}

TEST_P(ModuleTest, SlotThatIsNotInTheInventoryIsNotPopulated) {
  PlugIn();
  const Outcome outcome =
      instrument_.RunShell("\"$PROBE\" " + std::string(board_.word) + " 3 find; :");
  EXPECT_EQ(outcome.out, "not populated\n");
}

TEST_P(ModuleTest, LongNameIsNotCutToOneThatPasses) {
  PlugIn();
  Fault("dbus:GetSPIDev:data:" + std::string(2000, 'x'));
  const std::string out = Run("find").out;
  EXPECT_THAT(out, HasSubstr(std::string(1000, 'x')));
}

TEST_P(ModuleTest, BusThatIsNotThereIsAProblem) {
  PlugIn();
  instrument_.Option({"--without", "bus"});
  const Outcome outcome = instrument_.RunShell(Probe("find") + ":");
  EXPECT_EQ(outcome.out, "problem org.orvane.SystemInventory1: No such file or directory\n");
}

TEST_P(ModuleTest, ModuleWithoutAnSpiDeviceIsAProblem) {
  PlugIn(",spi=none");
  EXPECT_EQ(instrument_.RunShell(Probe("find") + ":").out,
            "problem the module has no SPI device\n");
}

TEST_P(ModuleTest, ModuleWithoutAnI2cBusIsAProblem) {
  PlugIn(",i2c=none");
  EXPECT_EQ(instrument_.RunShell(Probe("find") + ":").out,
            board_.word == std::string(kDax.word)
                ? "problem the module has no I2C bus with a multiplexer\n"
                : "problem the module has no I2C bus\n");
}

TEST_P(ModuleTest, SpiNodeThatIsNotThereIsAProblem) {
  PlugIn(",spidev=missing");
  const Seen seen = Run("compare image.bin");
  EXPECT_EQ(seen.out,
            "problem cannot open /dev/spidev" + Slot() + ".0\ndone high high\n" + EndpointLine());
  EXPECT_EQ(seen.state, GivenBack() + " loaded=current");
}

TEST_P(ModuleTest, ChipThatDoesNotAnswerIsAProblem) {
  PlugIn(",flash-chip=absent,done=high");
  const Seen seen = Run("compare image.bin");
  EXPECT_EQ(
      seen.out,
      "problem no flash chip answers (identification 00 00 00)\ndone high high\n" + EndpointLine());
  EXPECT_EQ(seen.state.substr(0, GivenBack().size()), GivenBack());
}

TEST_P(ModuleTest, IdentificationThatChangesIsAProblem) {
  PlugIn();
  for (const char* const number : {"2", "4", "6"}) {
    Fault(std::string("spi:RDID#") + number + ":data:\\xc2\\x20\\x18");
  }
  EXPECT_THAT(Run("compare image.bin").out,
              HasSubstr("problem the flash chip's identification has changed while it was read\n"));
}

TEST_P(ModuleTest, ExpanderThatDoesNotAnswerIsAProblem) {
  if (IsWend()) {
    PlugIn(",zynq-files=missing");
    const Seen seen = Run("compare image.bin");
    EXPECT_EQ(seen.out,
              "problem could not open SYSFS ZYNQ_DONE value device: No such file or directory\n"
              "done unknown unknown\n"
              "not-given-back the module cannot be given back: could not open SYSFS QSPI_PRG value "
              "device: No such file or directory\n");
    return;
  }
  PlugIn(",expander=absent");
  const Seen seen = Run("compare image.bin");
  const std::string bus = board_.word == std::string(kDax.word) ? "i2c-11" : "i2c-" + Slot();
  EXPECT_EQ(seen.out,
            "problem the GPIO expander on /dev/" + bus + " does not answer\n" +
                "done unknown unknown\n" + EndpointLine() +
                "not-given-back the GPIO expander on /dev/" + bus +
                " does not show whether its lines are released\n");
}

INSTANTIATE_TEST_SUITE_P(Boards, ModuleTest, testing::Values(kWend, kDax, kPyx1, kPyx2), WordOf);
INSTANTIATE_TEST_SUITE_P(Boards,
                         ModuleWithOneFaultTest,
                         testing::Values(kWend, kDax, kPyx1, kPyx2),
                         WordOf);
INSTANTIATE_TEST_SUITE_P(Boards,
                         ExpanderWithOneFaultTest,
                         testing::Values(kDax, kPyx1, kPyx2),
                         WordOf);
INSTANTIATE_TEST_SUITE_P(Boards, EndpointTest, testing::Values(kPyx1, kPyx2), WordOf);

}  // namespace
}  // namespace program_test
