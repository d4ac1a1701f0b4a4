// What fault rules do to a run as a whole: whom they end, and what is said about those that never hit.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/e2e/simulator/SimulatorRun.h"

namespace orvane {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class FaultReportTest : public testing::Test {
 protected:
  SimulatorRun run_;
};

// --- kill-all -----------------------------------------------------------------------------------

TEST_F(FaultReportTest, KillAllEndsTheProcessThatWaitsToo) {
  run_.Option("--fault open:/dev/i2c-1:kill-all");
  const SimulatorOutcome outcome = run_.Shell("\"$PROBE\" open /dev/i2c-1 +; echo $?");
  EXPECT_EQ(outcome.status, 137);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(outcome.log, EndsWith("open /dev/i2c-1 O_RDWR = kill-all\nkilled SIGKILL\n"));
  EXPECT_THAT(outcome.leftovers, IsEmpty());
}

TEST_F(FaultReportTest, KillAllAtADBusCallEndsEveryProcess) {
  run_.Option("--fault dbus:kill-all");
  const SimulatorOutcome outcome = run_.Shell("\"$PROBE\" inventory; echo $?");
  EXPECT_EQ(outcome.status, 137);
  EXPECT_EQ(outcome.out, "");
  EXPECT_THAT(outcome.log, EndsWith("dbus GetModuleLocations = kill-all\nkilled SIGKILL\n"));
}

TEST_F(FaultReportTest, KillAllHappensToEventsOfAnyKind) {
  for (const std::string kind : {"open", "i2c", "close", "sleep", "dbus", "open:dump", "write"}) {
    SimulatorRun run;
    run.Option("--fault " + kind + ":kill-all");
    const SimulatorOutcome outcome = run.Shell(
        "\"$PROBE\" open /dev/i2c-1 + i2c 0 0x21 00 0 close 0 sleep 5 inventory open dump wc "
        "write 1 x; echo $?");
    EXPECT_EQ(outcome.status, 137) << kind;
    EXPECT_THAT(outcome.log, EndsWith(" = kill-all\nkilled SIGKILL\n")) << kind;
    EXPECT_THAT(outcome.out, Not(HasSubstr("137"))) << kind;
  }
}

TEST_F(FaultReportTest, KillAllLeavesTheFlashAsItStands) {
  run_.WriteFile("flash", "");
  run_.Option("--module wend@1,flash=flash --fault 'spi:PP#2:kill-all'");
  const SimulatorOutcome outcome = run_.Probe({"open /dev/spidev1.0 +",
                                               "ofstream /sys/platform_m1/qspi_prg/value 1",
                                               "spi 0 06 0",
                                               "spi 0 02000010616263 0",
                                               "sleep 1",
                                               "spi 0 06 0",
                                               "spi 0 02000020616263 0"});
  EXPECT_EQ(outcome.status, 137);
  EXPECT_EQ(run_.ReadFile("flash").substr(0x0F, 5),
            "\xff"
            "abc\xff");
  EXPECT_EQ(run_.ReadFile("flash").substr(0x20, 3), "\xff\xff\xff");
}

}  // namespace
}  // namespace orvane
