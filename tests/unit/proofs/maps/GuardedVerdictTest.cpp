#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "proofs/maps/GuardedVerdict.h"

namespace maps {
namespace {

using Lines = std::vector<std::string>;

constexpr std::size_t kBefore = 1;  // fingerprints
constexpr std::size_t kAfter = 2;

const GuardedScenario kPyx = {{"pyx1", 4, "macronix"}, "older image", "24:0f", "", {}};
const GuardedScenario kDax = {{"dax", 2, "micron"}, "older image", "00:00", "", {}};

constexpr const char* kInUse =
    "done=1 driven=0x0000 pcie=enabled selector=SPILVDS registers=24:0f loaded=current";
constexpr const char* kBeforeUpdate =
    "done=1 driven=0x0000 pcie=enabled selector=SPILVDS registers=24:0f loaded=current";

GuardedBase Base() {
  return {.state = kBeforeUpdate, .fingerprint = kBefore, .undisturbed = {}, .events = {}};
}

/// An update that succeeds.
GuardedRun Good() {
  return {.updates = {{.out = "The flash holds the image.\n", .exit = "0"}},
          .log = {"exit 0"},
          .err = "",
          .state = kInUse,
          .flash = Flash::kImage,
          .fingerprint = kAfter,
          .left = {}};
}

GuardedRun Ended(const std::string& exit) {
  GuardedRun run = Good();
  run.updates.back() = {.out = "Not.\n", .exit = exit};
  return run;
}

Lines Violations(const GuardedRun& run,
                 const MappedFault& fault = {},
                 const GuardedScenario& scenario = kPyx) {
  return ViolationsOfFault(scenario, Base(), fault, run);
}

TEST(GuardedVerdictTest, GoodRunViolatesNothing) { EXPECT_EQ(Violations(Good()), Lines()); }

TEST(GuardedVerdictTest, SuccessNeedsTheImageInTheFlash) {
  GuardedRun run = Good();
  run.flash = Flash::kLooksNew;
  EXPECT_EQ(Violations(run), Lines({"exit 0, but the flash does not hold the image"}));
  EXPECT_EQ(Violations(run, {.lasts = true}).size(), 1U);
}

TEST(GuardedVerdictTest, SuccessNeedsTheImageInUseButForADax) {
  GuardedRun run = Good();
  run.state = "done=1 driven=0x0000 pcie=enabled selector=SPILVDS registers=24:0f loaded=other";
  EXPECT_EQ(Violations(run),
            Lines({"exit 0, but the FPGA has not loaded the image: " + run.state}));
  run.state = "done=1 driven=0x0000 registers=00:00 loaded=other";
  EXPECT_EQ(Violations(run, {}, kDax), Lines());
}

TEST(GuardedVerdictTest, SuccessNeedsTheEndpointEnabled) {
  GuardedRun run = Good();
  run.state = "done=1 driven=0x0000 pcie=present selector=SPILVDS registers=24:0f loaded=current";
  EXPECT_EQ(Violations(run), Lines({"exit 0, but the endpoint is not enabled: " + run.state}));
}

TEST(GuardedVerdictTest, FailureIsForFaultsThatLast) {
  EXPECT_EQ(Violations(Ended("6")),
            Lines({"exit code 6 after one fault that does not last: Not."}));
  EXPECT_EQ(Violations(Ended("6"), {.lasts = true}), Lines());
}

TEST(GuardedVerdictTest, RefusalIsForFaultsOfFilesAndModulesAsBefore) {
  GuardedRun run = Ended("2");
  run.flash = Flash::kOld;
  run.fingerprint = kBefore;
  EXPECT_EQ(Violations(run, {.isOfFile = true}), Lines());
  EXPECT_EQ(Violations(run).size(), 1U);
  run.fingerprint = kAfter;
  EXPECT_EQ(Violations(run, {.isOfFile = true}).size(), 1U);
}

TEST(GuardedVerdictTest, PowerCycleIsForADaxWithoutConfigurationOverTheImage) {
  GuardedRun run = Ended("3");
  EXPECT_EQ(Violations(run).size(), 1U);
  run.state = "done=0 driven=0x0000 registers=00:00 loaded=none";
  EXPECT_EQ(Violations(run, {}, kDax), Lines());
  run.flash = Flash::kDamaged;
  EXPECT_EQ(Violations(run, {}, kDax).size(), 1U);
  run = Ended("3");
  run.state = "done=1 driven=0x0000 registers=00:00 loaded=other";
  EXPECT_EQ(Violations(run, {}, kDax).size(), 1U);
}

TEST(GuardedVerdictTest, FilesAndProcessesThatAreLeftAreNamed) {
  GuardedRun run = Good();
  run.left = {"ctl/slot-4.unfinished", "ctl/work"};
  EXPECT_EQ(Violations(run),
            Lines({"left behind: ctl/slot-4.unfinished", "left behind: ctl/work"}));
  run.updates.back().exit = "1";
  EXPECT_EQ(Violations(run, {.lasts = true}), Lines({"left behind: ctl/work"}));
}

TEST(GuardedVerdictTest, ModuleIsGivenBack) {
  GuardedRun run = Good();
  run.state = "done=1 driven=0xec9f pcie=enabled selector=SPIFIFO registers=24:0f loaded=current";
  EXPECT_EQ(
      Violations(run),
      Lines({"lines are driven: " + run.state, "the selector is not on SPILVDS: " + run.state}));
  run.state = "done=1 qspi_prg=1 registers=24:0f loaded=current";
  EXPECT_EQ(Violations(run, {}, {{"wend", 1, "macronix"}, "", "", "", {}}),
            Lines({"qspi_prg is not 0: " + run.state}));
}

TEST(GuardedVerdictTest, LockableChipIsLocked) {
  GuardedRun run = Good();
  run.state = "done=1 driven=0x0000 pcie=enabled selector=SPILVDS registers=00:0f loaded=current";
  const Lines unlocked = {"the chip is not protected as it should be: " + run.state};
  EXPECT_EQ(Violations(run), unlocked);
  EXPECT_EQ(Violations(run, {.rules = {"dbus#1+:error"}, .lasts = true}), unlocked);
  EXPECT_EQ(Violations(run, {.rules = {"spi#7+:EIO"}, .lasts = true}), Lines());
  EXPECT_EQ(Violations(run, {.rules = {"spi#7:EIO"}}), unlocked);
}

TEST(GuardedVerdictTest, LockedIsTheWholeChipFromAddressZero) {
  GuardedRun run = Good();
  const std::string before = "done=1 driven=0x0000 pcie=enabled selector=SPILVDS registers=";
  for (const std::string registers : {"24:0f", "24:cf", "24:08", "64:0f", "3c:0f"}) {
    run.state = before + registers + " loaded=current";
    EXPECT_EQ(Violations(run), Lines()) << registers;
  }
  for (const std::string registers : {"24:07", "00:0f", "20:0f"}) {
    run.state = before + registers + " loaded=current";
    EXPECT_EQ(Violations(run).size(), 1U) << registers;
  }
}

TEST(GuardedVerdictTest, RunThatDoesNotEndIsNoted) {
  GuardedRun run = Good();
  run.updates.clear();
  run.log = {"killed SIGKILL"};
  EXPECT_EQ(Violations(run), Lines({"the run does not end", "an update does not end"}));
}

TEST(GuardedVerdictTest, ReportsOfInstrumentAndSanitizersAreNoted) {
  GuardedRun run = Good();
  run.err = "orvane-sim: fault rule 'spi#9999:EIO' never hit anything; COMMAND ended with 0\n";
  EXPECT_EQ(Violations(run), Lines({"the instrument reports:\n" + run.err}));
  run.err = "x.cpp:1:2: runtime error: shift exponent 32 is too large";
  EXPECT_EQ(Violations(run), Lines({"a sanitizer reports:\n" + run.err}));
}

TEST(GuardedVerdictTest, UpdateAfterACutSucceeds) {
  EXPECT_EQ(ViolationsAfterCut(kPyx, Good()), Lines());
  EXPECT_EQ(ViolationsAfterCut(kPyx, Ended("3")), Lines({"exit code 3 after a cut: Not."}));
}

TEST(GuardedVerdictTest, SuccessBeforeAnUpdateThatWritesWasNone) {
  GuardedRun run = Good();
  run.updates.push_back(run.updates.front());
  EXPECT_EQ(ViolationsAfterCut(kPyx, run), Lines());
  run.updates.back().log = {"spi /dev/spidev4.0 PP 0x000000 +256"};
  EXPECT_EQ(ViolationsAfterCut(kPyx, run),
            Lines({"the first update ended with 0, but the second one has written"}));
  run.updates.front().exit = "137";
  EXPECT_EQ(ViolationsAfterCut(kPyx, run), Lines());
}

TEST(GuardedVerdictTest, FlashAsBeforeIsUnchanged) {
  GuardedRun run = Good();
  run.flash = Flash::kDamaged;
  EXPECT_EQ(OutcomeOf(Base(), run).at(2), "damaged");
  run.fingerprint = kBefore;
  EXPECT_EQ(OutcomeOf(Base(), run).at(2), "unchanged");
}

}  // namespace
}  // namespace maps
