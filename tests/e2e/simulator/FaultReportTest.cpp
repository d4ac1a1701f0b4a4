// What fault rules do to a run as a whole: whom they end, and what is said about those that never hit.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
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

// --- kill-session -------------------------------------------------------------------------------

TEST_F(FaultReportTest, KillSessionLeavesTheProcessesOfOtherSessions) {
  run_.Option("--fault open:/dev/i2c-1:kill-session");
  const SimulatorOutcome outcome = run_.Shell(
      "setsid -w sh -c '\"$PROBE\" open /dev/i2c-1 +; echo no'; echo $?; \"$PROBE\" sleep 5");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "137\n0\n");
  EXPECT_EQ(outcome.err, "Killed\n");  // says the shell
  EXPECT_EQ(outcome.log,
            "open /dev/i2c-1 O_RDWR = kill-session\nstderr \"Killed\\n\"\nstdout \"137\\n\"\n"
            "sleep 5 s\nstdout \"0\\n\"\nexit 0\n");
  EXPECT_THAT(outcome.leftovers, IsEmpty());
}

TEST_F(FaultReportTest, KillSessionWithoutSetsidEndsTheCommand) {
  run_.Option("--fault open:/dev/i2c-1:kill-session");
  const SimulatorOutcome outcome = run_.Shell("\"$PROBE\" open /dev/i2c-1 +; echo $?");
  EXPECT_EQ(outcome.status, 137);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.log, "open /dev/i2c-1 O_RDWR = kill-session\nkilled SIGKILL\n");
}

TEST_F(FaultReportTest, KillSessionHappensToEventsOfAnyKind) {
  for (const std::string kind : {"open", "i2c", "close", "sleep", "dbus", "open:dump", "write"}) {
    SimulatorRun run;
    run.Option("--fault " + kind + ":kill-session");
    const SimulatorOutcome outcome = run.Shell(
        "setsid -w sh -c '\"$PROBE\" open /dev/i2c-1 + i2c 0 0x21 00 0 close 0 sleep 5 inventory "
        "open dump wc write 1 x; echo no'; echo $?");
    EXPECT_EQ(outcome.status, 0) << kind;
    EXPECT_THAT(outcome.out, Not(HasSubstr("no"))) << kind;
    EXPECT_THAT(outcome.log,
                EndsWith(" = kill-session\nstderr \"Killed\\n\"\nstdout \"137\\n\"\nexit 0\n"))
        << kind;
  }
}

TEST_F(FaultReportTest, KillSessionEndsWhatRunsInTheBackgroundOfTheSession) {
  run_.Option("--fault open:/dev/i2c-1:kill-session");
  const SimulatorOutcome outcome = run_.Shell(
      "setsid -w sh -c '(while :; do :; done) & while :; do :; done & "
      "\"$PROBE\" open /dev/i2c-1 +'; echo $?");
  EXPECT_EQ(outcome.status, 0);  // a run lives until its last process has ended
  EXPECT_EQ(outcome.out, "137\n");
}

TEST_F(FaultReportTest, KillSessionLeavesTheModuleAsItIs) {
  run_.WriteFile("flash", "");
  run_.Option("--module wend@1,flash=flash --state state --fault spi:PP#2:kill-session");
  const SimulatorOutcome outcome = run_.Shell(
      "setsid -w \"$PROBE\" open /dev/spidev1.0 + "
      "ofstream /sys/platform_m1/qspi_prg/value 1 spi 0 06 0 spi 0 02000010616263 0 "
      "sleep 1 spi 0 06 0 spi 0 02000020616263 0; echo $?");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.out, EndsWith("\n137\n"));
  EXPECT_EQ(run_.ReadFile("flash").substr(0x10, 3), "abc");
  EXPECT_EQ(run_.ReadFile("flash").substr(0x20, 3), "\xff\xff\xff");
  EXPECT_THAT(run_.ReadFile("state"), HasSubstr("qspi_prg=1"));
}

// --- Files and folders --------------------------------------------------------------------------

constexpr const char* kOnFiles =
    "mkdir d; : >d/x; sync d/x; mv d/x d/y; flock d/y true; rm d/y; rmdir d; echo done";

TEST_F(FaultReportTest, CallsOnFilesAndFoldersAreEventsWhenTheyAreToBe) {
  run_.Option("--file-events");
  EXPECT_EQ(run_.Shell(kOnFiles).log,
            "file mkdir d\n"
            "open d/x O_WRONLY|O_CREAT|O_TRUNC 0666\n"
            "close d/x\n"
            "open d/x O_RDONLY|O_NONBLOCK\n"
            "file fsync d/x\n"
            "close d/x\n"
            "file renameat2 d/y\n"
            "open d/y O_RDONLY|O_CREAT|O_NOCTTY 0666\n"
            "file flock d/y\n"
            "file unlinkat d/y\n"
            "file rmdir d\n"
            "stdout \"done\\n\"\n"
            "exit 0\n");
}

TEST_F(FaultReportTest, CallsOnFilesAndFoldersAreNoEventsOtherwise) {
  EXPECT_EQ(run_.Shell(kOnFiles).log,
            "open d/x O_WRONLY|O_CREAT|O_TRUNC 0666\n"
            "close d/x\n"
            "open d/x O_RDONLY|O_NONBLOCK\n"
            "close d/x\n"
            "open d/y O_RDONLY|O_CREAT|O_NOCTTY 0666\n"
            "stdout \"done\\n\"\n"
            "exit 0\n");
}

TEST_F(FaultReportTest, CallsOnFilesAndFoldersCanFail) {
  run_.Option("--file-events --fault file:mkdir:ENOSPC");
  const SimulatorOutcome outcome = run_.Shell("LC_ALL=C mkdir d; LC_ALL=C rmdir d; echo done");
  EXPECT_EQ(outcome.log,
            "file mkdir d = ENOSPC\n"
            "stderr \"mkdir: cannot create directory 'd': No space left on device\\n\"\n"
            "file rmdir d = ENOENT\n"
            "stderr \"rmdir: failed to remove 'd': No such file or directory\\n\"\n"
            "stdout \"done\\n\"\n"
            "exit 0\n");
}

// --- Answers of services ------------------------------------------------------------------------

TEST_F(FaultReportTest, AnswerThatNoBusCarriesIsRefusedBeforeTheRun) {
  const SimulatorOutcome outcome =
      run_.Words("--fault 'dbus:GetI2CBus:data:\\xff' --log log -- /bin/sh -c 'echo ran'");
  EXPECT_EQ(outcome.status, 125);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err,
            "orvane-sim: --fault: '\\xff' cannot be the answer of GetI2CBus (UTF-8 without \\x00)\n"
            "Try 'orvane-sim --help'.\n");
  EXPECT_FALSE(std::filesystem::exists(run_.File("log")));
}

TEST_F(FaultReportTest, NameThatNoDBusErrorHasIsRefusedBeforeTheRun) {
  const SimulatorOutcome outcome =
      run_.Words("--fault dbus:GetI2CBus:error:Failed -- /bin/sh -c 'echo ran'");
  EXPECT_EQ(outcome.status, 125);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err,
            "orvane-sim: --fault: 'Failed' is not the name of a D-Bus error (elements of letters, "
            "digits and '_', separated by '.', as in org.freedesktop.DBus.Error.Failed)\n"
            "Try 'orvane-sim --help'.\n");
}

TEST_F(FaultReportTest, UnusualAnswersThatABusCarriesArrive) {
  run_.Option(
      "--fault 'dbus:GetI2CBus#1:data:\\xef\\xbf\\xbd' "
      "--fault 'dbus:GetI2CBus#2:data:\\xf0\\x9f\\x98\\x80' "
      "--fault dbus:GetI2CBus#3:data: --fault dbus:GetI2CBus#4:error:_._1 "
      "--fault 'dbus:GetModuleLocations:data:-2147483648\\t2147483647'");
  EXPECT_EQ(
      run_.Probe({"i2cbus 1", "i2cbus 1", "i2cbus 1", "i2cbus 1", "inventory"}).out,
      "name \xef\xbf\xbd\nname \xf0\x9f\x98\x80\nname \n_._1\nslots -2147483648 2147483647\n");
}

// --- Rules that never hit, keys without effect --------------------------------------------------

TEST_F(FaultReportTest, RuleThatNeverHitIsReportedAtTheEnd) {
  run_.Option("--fault spi:PP#3:lost");
  const SimulatorOutcome outcome = run_.Shell("echo out; echo err >&2");
  EXPECT_EQ(outcome.status, 125);
  EXPECT_EQ(outcome.out, "out\n");
  EXPECT_EQ(
      outcome.err,
      "err\norvane-sim: fault rule 'spi:PP#3:lost' never hit anything; COMMAND ended with 0\n");
  EXPECT_THAT(outcome.log, EndsWith("stderr \"err\\n\"\nexit 0\n"));
  EXPECT_THAT(outcome.leftovers, IsEmpty());
}

TEST_F(FaultReportTest, RulesThatHitAreNotReported) {
  run_.Option("--fault open:/dev/i2c-1#1:EIO --fault open:/dev/i2c-1#2:EACCES");
  const SimulatorOutcome outcome = run_.Probe({"open /dev/i2c-1 +", "open /dev/i2c-1 +", "exit 3"});
  EXPECT_EQ(outcome.status, 3);
  EXPECT_EQ(outcome.out, "EIO\nEACCES\n");
  EXPECT_EQ(outcome.err, "");
}

TEST_F(FaultReportTest, RuleBehindAnotherThatDecidesIsReported) {
  run_.Option("--fault open:/dev/i2c-1:EIO --fault open:/dev/i2c-1#1:EACCES");
  const SimulatorOutcome outcome = run_.Probe({"open /dev/i2c-1 +"});
  EXPECT_EQ(outcome.status, 125);
  EXPECT_EQ(outcome.out, "EIO\n");
  EXPECT_EQ(outcome.err,
            "orvane-sim: fault rule 'open:/dev/i2c-1#1:EACCES' never hit anything; COMMAND ended "
            "with 0\n");
}

TEST_F(FaultReportTest, AnswerForAnEventWithoutOneIsReported) {
  run_.Option("--fault spi:WREN:data:x");
  const SimulatorOutcome outcome = run_.Probe({"open /dev/spidev1.0 +", "spi 0 06 0"});
  EXPECT_EQ(outcome.status, 125);
  EXPECT_EQ(outcome.err,
            "orvane-sim: fault rule 'spi:WREN:data:x' never hit anything; COMMAND ended with 0\n");
}

TEST_F(FaultReportTest, KeyWithoutEffectIsReportedAtTheEnd) {
  run_.Option("--module wend@1,held=3:1,chip=macronix");
  const SimulatorOutcome outcome = run_.Shell("exit 7");
  EXPECT_EQ(outcome.status, 125);
  EXPECT_EQ(outcome.err,
            "orvane-sim: key 'held=3:1' has no effect on wend@1; COMMAND ended with 7\n");
  EXPECT_EQ(outcome.log, "exit 7\n");
}

TEST_F(FaultReportTest, EachRuleAndKeyHasALineAndTheStatusOfAKilledCommand) {
  run_.Option(
      "--module dax@2,zynq-files=missing --fault spi:EIO --fault any#1:kill --fault 'i2c:r "
      "+2:lost'");
  const SimulatorOutcome outcome = run_.Probe({"open /dev/i2c-2 +"});
  EXPECT_EQ(outcome.status, 125);
  EXPECT_EQ(
      outcome.err,
      "orvane-sim: fault rule 'spi:EIO' never hit anything; COMMAND ended with 137\n"
      "orvane-sim: fault rule 'i2c:r +2:lost' never hit anything; COMMAND ended with 137\n"
      "orvane-sim: key 'zynq-files=missing' has no effect on dax@2; COMMAND ended with 137\n");
}

TEST_F(FaultReportTest, UnhitRulesAndKeysCanBeAllowed) {
  run_.Option("--allow-unhit --module wend@1,expander=absent --fault spi:EIO");
  const SimulatorOutcome outcome = run_.Shell("exit 7");
  EXPECT_EQ(outcome.status, 7);
  EXPECT_EQ(outcome.err, "");
}

TEST_F(FaultReportTest, FilesAreWrittenBeforeTheReport) {
  run_.WriteFile("flash", "abc");
  run_.Option("--module wend@1,flash=flash --state state --fault spi:EIO");
  EXPECT_EQ(run_.Shell("exit 0").status, 125);
  EXPECT_EQ(run_.ReadFile("flash").substr(0, 4), "abc\xff");
  EXPECT_THAT(run_.ReadFile("state"), testing::StartsWith("1 done="));
}

TEST_F(FaultReportTest, NothingIsReportedWhenTheCommandIsNotFound) {
  const SimulatorOutcome outcome =
      run_.Words("--module wend@1,held=3:1 --fault spi:EIO -- ./nothing");
  EXPECT_EQ(outcome.status, 127);
  EXPECT_EQ(outcome.err, "orvane-sim: ./nothing: No such file or directory\n");
}

TEST_F(FaultReportTest, NothingIsReportedWhenTheCommandCannotBeExecuted) {
  run_.WriteFile("data", "");
  const SimulatorOutcome outcome = run_.Words("--fault spi:EIO -- ./data");
  EXPECT_EQ(outcome.status, 126);
  EXPECT_EQ(outcome.err, "orvane-sim: ./data: Permission denied\n");
}

}  // namespace
}  // namespace orvane
