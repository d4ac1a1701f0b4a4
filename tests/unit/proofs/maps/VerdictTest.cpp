#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "proofs/maps/Verdict.h"

namespace maps {
namespace {

using Lines = std::vector<std::string>;

const Scenario kPyx = {"pyx1", 4, "micron"};

/// A run that succeeds and leaves everything as it should.
Observation Good() {
  return {.out = "Toggling reset ... done.\nFPGA programmed successfully.\n",
          .err = "",
          .exitCode = 0,
          .log = {"spi /dev/spidev4.0 SE 0x000000", "exit 0"},
          .state = "done=1 driven=0x0000 pcie=enabled selector=SPILVDS loaded=current",
          .flash = Flash::kImage};
}

Lines Violations(const Observation& seen, const MappedFault& fault = {}) {
  return ViolationsOf(kPyx, fault, seen);
}

TEST(VerdictTest, GoodRunViolatesNothing) { EXPECT_EQ(Violations(Good()), Lines()); }

TEST(VerdictTest, RunThatIsEndedByForceDoesNotEnd) {
  Observation seen = Good();
  seen.log.back() = "killed SIGKILL";
  EXPECT_EQ(Violations(seen), Lines({"it does not end"}));
}

TEST(VerdictTest, SanitizerReportIsNoted) {
  Observation seen = Good();
  seen.err = "==1==ERROR: AddressSanitizer: heap-buffer-overflow";
  EXPECT_EQ(Violations(seen), Lines({"a sanitizer reports:\n" + seen.err}));
  seen.err = "x.cpp:1:2: runtime error: shift exponent 32 is too large";
  EXPECT_EQ(Violations(seen), Lines({"a sanitizer reports:\n" + seen.err}));
}

TEST(VerdictTest, ReportOfTheInstrumentIsNoted) {
  Observation seen = Good();
  seen.err = "orvane-sim: fault rule 'spi#9999:EIO' never hit anything; COMMAND ended with 0\n";
  EXPECT_EQ(Violations(seen), Lines({"the instrument reports:\n" + seen.err}));
}

TEST(VerdictTest, ExitCodeBelongsToTheResultLine) {
  Observation seen = Good();
  seen.exitCode = 7;
  EXPECT_EQ(Violations(seen), Lines({"exit code 7 with 'FPGA programmed successfully.'"}));
}

TEST(VerdictTest, SecondResultLineIsOneTooMany) {
  Observation seen = Good();
  seen.out = "Could not erase the device.\n" + seen.out;
  EXPECT_EQ(Violations(seen), Lines({"there is more than one result line"}));
}

TEST(VerdictTest, ResultLineIsTheLast) {
  Observation seen = Good();
  seen.out += "more\n";
  EXPECT_EQ(Violations(seen), Lines({"the result line is not the last"}));
}

TEST(VerdictTest, ResultLineMayBeMissingAfterAnUncaughtExceptionOnly) {
  Observation seen = Good();
  seen.out = "Connecting ...\n";
  seen.exitCode = 134;
  seen.err = "terminate called after throwing an instance of 'std::runtime_error'\n";
  EXPECT_EQ(Violations(seen), Lines({"there is no result line"}));
  seen.log.back() = "killed SIGABRT";
  EXPECT_EQ(Violations(seen), Lines());
  seen.err = "";
  EXPECT_EQ(Violations(seen), Lines({"there is no result line"}));
}

TEST(VerdictTest, ResultLineOfAWendMayBeMissingAfterADiagnosticOnly) {
  Observation seen = Good();
  seen.out = "Connecting ...\n";
  seen.exitCode = 1;
  seen.err = "could not open SYSFS QSPI_PRG value device: No such file or directory\n";
  EXPECT_EQ(ViolationsOf({"wend", 1, "micron"}, {}, seen), Lines());
  EXPECT_EQ(Violations(seen), Lines({"there is no result line"}));
  seen.err = "";
  EXPECT_EQ(ViolationsOf({"wend", 1, "micron"}, {}, seen), Lines({"there is no result line"}));
}

TEST(VerdictTest, LinesMustBeReleasedUnlessTheFaultHitsThem) {
  Observation seen = Good();
  seen.state = "done=1 driven=0xec9f pcie=enabled selector=SPILVDS";
  EXPECT_EQ(Violations(seen), Lines({"the expander still drives lines: " + seen.state}));
  EXPECT_EQ(Violations(seen, {.event = "PP, first page"}).size(), 1U);
  EXPECT_EQ(Violations(seen, {.event = "write the directions ff ff"}), Lines());
  EXPECT_EQ(
      Violations(seen, {.event = "read the inputs", .rules = {"i2c#7+:ENXIO"}, .lasts = true}),
      Lines());
  EXPECT_EQ(Violations(seen, {.event = "read the inputs", .rules = {"i2c#7:ENXIO"}}).size(), 1U);
  EXPECT_EQ(Violations(seen, {.event = "RDSR", .rules = {"spi#7+:EIO"}, .lasts = true}).size(), 1U);
  EXPECT_EQ(Violations(seen, {.event = "line 9 of the expander", .lasts = true}).size(), 1U);
}

TEST(VerdictTest, SelectorMustBeBackUnlessTheFaultHitsIt) {
  Observation seen = Good();
  seen.state = "done=1 driven=0x0000 pcie=enabled selector=SPIFIFO";
  EXPECT_EQ(Violations(seen), Lines({"the selector is not on SPILVDS: " + seen.state}));
  EXPECT_EQ(Violations(seen, {.event = "write the directions ff ff"}).size(), 1U);
  EXPECT_EQ(Violations(seen, {.event = "read the inputs", .rules = {"i2c#7+:ENXIO"}, .lasts = true})
                .size(),
            1U);
  EXPECT_EQ(Violations(seen, {.event = "open the module selector"}), Lines());
}

TEST(VerdictTest, FlashThatIsUpToDateMustNotBeTouched) {
  Observation seen = Good();
  seen.out = "FPGA is up to date.\n";
  seen.exitCode = 11;
  EXPECT_EQ(Violations(seen), Lines({"a flash that is up to date is touched"}));
  seen.log.front() = "spi /dev/spidev4.0 READ 0x000000 +512";
  EXPECT_EQ(Violations(seen), Lines());
}

TEST(VerdictTest, EndingIsTheResultBehindOtherWords) {
  const Ending ending =
      EndingOf("Erasing device ... Could not erase the device.\n", "x\n", "exit 3");
  EXPECT_EQ(ending.exit, "3");
  EXPECT_EQ(ending.lastLine, "Could not erase the device.");
  EXPECT_TRUE(ending.hasResult);
}

TEST(VerdictTest, EndingWithoutAResultIsTheLastDiagnostic) {
  const Ending ending = EndingOf("Connecting ...\n", "first\n  what(): x \n", "killed SIGABRT");
  EXPECT_EQ(ending.exit, "killed SIGABRT");
  EXPECT_EQ(ending.lastLine, "what(): x");
  EXPECT_FALSE(ending.hasResult);
}

}  // namespace
}  // namespace maps
