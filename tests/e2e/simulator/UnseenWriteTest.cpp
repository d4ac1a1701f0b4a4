// Writes to control files that no call announces: inside the C library, through descriptors that a
// program inherits, by calls that are not seen.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "tests/e2e/simulator/SimulatorRun.h"

namespace orvane {
namespace {

using testing::ContainerEq;
using testing::Each;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using Lines = std::vector<std::string>;

#define F "/sys/platform_m1/qspi_prg/value"
#define ENDPOINT "/sys/bus/pci/devices/0000:04:00.0/"

constexpr int kFailure = 125;  // of orvane-sim itself

/// The writes to control files in the log.
Lines Writes(const SimulatorOutcome& outcome) {
  Lines lines;
  std::istringstream log(outcome.log);
  for (std::string line; std::getline(log, line);) {
    if (line.starts_with("write /sys/")) {
      lines.push_back(line);
    }
  }
  return lines;
}

/// Runs a line with bash, which writes inside the C library.
SimulatorOutcome Bash(SimulatorRun& run, const std::string& line) {
  run.WriteFile("script", line + "\n");
  return run.Shell("exec bash ./script");
}

// --- Tools --------------------------------------------------------------------------------------

struct Tool {
  const char* name;
  const char* command;  // writes "1\n" to F
};

void PrintTo(const Tool& tool, std::ostream* out) { *out << tool.name; }

class ToolWritesTest : public testing::TestWithParam<Tool> {};

TEST_P(ToolWritesTest, AndTheModelHearsOfIt) {
  SimulatorRun run;
  run.WriteFile("one", "1\n");
  const SimulatorOutcome outcome =
      run.Shell(std::string(GetParam().command) + "; cat " F " >after; grep . " F " >>after");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(Writes(outcome), ContainerEq(Lines{"write " F " \"1\\n\""}));
  EXPECT_EQ(run.ReadFile("after"), "1\n1\n");
}

INSTANTIATE_TEST_SUITE_P(
    UnseenWriteTest,
    ToolWritesTest,
    testing::Values(Tool{"Bash", "bash -c 'echo 1 >" F "'"},
                    Tool{"BashPrintf", "bash -c 'printf \"%s\\n\" 1 >" F "'"},
                    Tool{"BashAppend", "bash -c 'echo 1 >>" F "'"},
                    Tool{"BashReadWrite", "bash -c 'echo 1 1<>" F "'"},
                    Tool{"BashRelativePath",
                         "bash -c 'cd /sys/platform_m1; echo 1 >qspi_prg/value'"},
                    Tool{"BinEcho", "/bin/echo 1 >" F},
                    Tool{"BinEchoAppend", "/bin/echo 1 >>" F},
                    Tool{"BinEchoReadWrite", "/bin/echo 1 1<>" F},
                    Tool{"Cat", "cat one >" F},
                    Tool{"CatFromPipe", "echo 1 | cat >" F},
                    Tool{"Tee", "tee " F " <one >/dev/null"},
                    Tool{"TeeAppend", "tee -a " F " <one >/dev/null"},
                    Tool{"Cp", "cp one " F},
                    Tool{"Awk", "awk 'BEGIN { print 1 >\"" F "\" }'"},
                    Tool{"AwkAppend", "awk 'BEGIN { print 1 >>\"" F "\" }'"},
                    Tool{"Sed", "sed -n 'w " F "' one"},
                    Tool{"Dd", "dd if=one of=" F " 2>/dev/null"},
                    Tool{"DdNoTruncation", "dd if=one of=" F " conv=notrunc 2>/dev/null"},
                    Tool{"DdTruncation", "dd if=one of=" F " bs=2 seek=3 2>/dev/null"},
                    Tool{"DdInherited", "dd if=one 2>/dev/null >" F},
                    Tool{"Head", "head -n 1 one >" F},
                    Tool{"CLibrary", "\"$PROBE\" stdio " F " '1\n' >/dev/null"}),
    [](const auto& parameter) { return std::string(parameter.param.name); });

// --- Order --------------------------------------------------------------------------------------

TEST(UnseenWriteTest, WriteIsBeforeWhatTheShellDoesThen) {
  SimulatorRun run;
  const SimulatorOutcome outcome = run.Shell("exec bash -c 'echo 1 >" F "; echo done'");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "done\n");
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.log,
            "open " F
            " O_WRONLY|O_CREAT|O_TRUNC 0666\n"
            "close " F
            "\n"
            "write " F
            " \"1\\n\"\n"
            "stdout \"done\\n\"\n"
            "exit 0\n");
}

TEST(UnseenWriteTest, WritesToADescriptorThatStaysOpenAreBetweenWhatTheShellPrints) {
  SimulatorRun run;
  const SimulatorOutcome outcome = run.Shell(
      "exec bash -c 'exec 3>" F "; echo a; echo 1 >&3; echo b; echo 0 >&3; exec 3>&-; echo c'");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.log,
            "open " F
            " O_WRONLY|O_CREAT|O_TRUNC 0666\n"
            "close " F
            "\n"
            "stdout \"a\\n\"\n"
            "write " F
            " \"1\\n\"\n"
            "stdout \"b\\n\"\n"
            "write " F
            " \"0\\n\"\n"
            "close " F  // the copy that the shell has kept
            "\n"
            "close " F
            "\n"
            "stdout \"c\\n\"\n"
            "exit 0\n");
}

TEST(UnseenWriteTest, WriteOfAProgramThatEndsIsBeforeWhatItsShellPrints) {
  SimulatorRun run;
  const SimulatorOutcome outcome = run.Shell("/bin/echo 1 >" F "; echo done");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.log,
            "open " F
            " O_WRONLY|O_CREAT|O_TRUNC 0666\n"
            "close " F
            "\n"
            "write " F
            " \"1\\n\"\n"
            "stdout \"done\\n\"\n"
            "exit 0\n");
}

TEST(UnseenWriteTest, EachLineBetweenTwoQuestionsIsAnEvent) {
  SimulatorRun run;
  const SimulatorOutcome outcome = run.Shell("exec bash -c '{ echo 1; echo 0; } >" F "'");
  EXPECT_THAT(Writes(outcome), ContainerEq(Lines{"write " F " \"1\\n\"", "write " F " \"0\\n\""}));
}

TEST(UnseenWriteTest, WritesToDifferentFilesKeepTheirOrder) {
  constexpr const char* kLine =
      "exec 3>" F " 4>/sys/platform_m1/zynq_hw_reset_n/value; echo 1 >&3; echo 0 >&4; echo 0 >&3";
  SimulatorRun run;
  EXPECT_THAT(Writes(Bash(run, kLine)),
              ContainerEq(Lines{"write " F " \"1\\n\"",
                                "write /sys/platform_m1/zynq_hw_reset_n/value \"0\\n\"",
                                "write " F " \"0\\n\""}));
}

TEST(UnseenWriteTest, WritesToADescriptorThatAlsoReadsAreEventsOfTheirOwn) {
  SimulatorRun run;
  const SimulatorOutcome outcome =
      Bash(run, "exec 3<>" F "; echo 1 >&3; echo 0 >&3; echo 1 >&3; cat " F);
  EXPECT_EQ(outcome.out, "1\n");
  EXPECT_THAT(
      Writes(outcome),
      ContainerEq(Lines{"write " F " \"1\\n\"", "write " F " \"0\\n\"", "write " F " \"1\\n\""}));
}

TEST(UnseenWriteTest, WriteIsBeforeTheCloseOfItsStream) {
  SimulatorRun run;
  const SimulatorOutcome outcome = run.Shell("exec sed -n 'w " F "' /proc/sys/kernel/ostype");
  EXPECT_EQ(outcome.log,
            "open " F
            " O_WRONLY|O_CREAT|O_TRUNC 0666\n"
            "write " F
            " \"Linux\\n\"\n"
            "close " F
            "\n"
            "exit 0\n");
}

TEST(UnseenWriteTest, WriteIsBeforeACallOfAService) {
  SimulatorRun run;
  const SimulatorOutcome outcome = run.Probe({"stdio " F " 1", "inventory"});
  EXPECT_EQ(outcome.log,
            "open " F
            " O_WRONLY|O_CREAT|O_TRUNC 0666\n"
            "write " F
            " \"1\"\n"
            "stdout \"written\\n\"\n"
            "dbus GetModuleLocations = 1 2 4 5\n"
            "stdout \"slots 1 2 4 5\\n\"\n"
            "exit 0\n");
}

// --- Nothing lost, nothing invented -------------------------------------------------------------

TEST(UnseenWriteTest, WriteAsTheLastActIsBeforeTheEnd) {
  SimulatorRun run;
  const SimulatorOutcome outcome = run.Shell("exec /bin/echo 1 >" F);
  EXPECT_EQ(outcome.log,
            "open " F
            " O_WRONLY|O_CREAT|O_TRUNC 0666\n"
            "close " F
            "\n"
            "write " F
            " \"1\\n\"\n"
            "exit 0\n");
}

TEST(UnseenWriteTest, WriteOfAProcessThatIsKilledThenCounts) {
  SimulatorRun run;
  const SimulatorOutcome outcome = run.Shell("exec 1>" F "; exec bash -c 'echo 1; kill -KILL $$'");
  EXPECT_EQ(outcome.status, 137);
  EXPECT_EQ(outcome.log,
            "open " F
            " O_WRONLY|O_CREAT|O_TRUNC 0666\n"
            "close " F
            "\n"
            "write " F
            " \"1\\n\"\n"
            "killed SIGKILL\n");
}

TEST(UnseenWriteTest, WritesOfManyProcessesAtOnceAllCount) {
  constexpr int kEach = 20;
  SimulatorRun run;
  const SimulatorOutcome outcome =
      Bash(run,
           "exec 3>" F "; for i in {1.." + std::to_string(kEach) +
               "}; do /bin/echo 1 >&3 & /bin/echo 1 >" F " & echo 1 >>" F " & done; wait");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(Writes(outcome), SizeIs(3 * kEach));
  EXPECT_THAT(Writes(outcome), Each("write " F " \"1\\n\""));
}

TEST(UnseenWriteTest, TruncationAloneIsNoWrite) {
  SimulatorRun run;
  const SimulatorOutcome outcome =
      Bash(run, ": >" F "; cp /dev/null " F "; truncate -s 5 " F "; cat " F);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "0\n");
  EXPECT_THAT(Writes(outcome), IsEmpty());
}

TEST(UnseenWriteTest, WriteInAnOrdinaryFileStaysUnseen) {
  SimulatorRun run;
  const SimulatorOutcome outcome = run.Shell("exec bash -c 'echo 1 >file'");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.log,
            "open file O_WRONLY|O_CREAT|O_TRUNC 0666\n"
            "close file\n"
            "exit 0\n");
  EXPECT_EQ(run.ReadFile("file"), "1\n");
}

TEST(UnseenWriteTest, StreamsReadWhatTheAttributeHolds) {
  SimulatorRun run;
  const SimulatorOutcome outcome =
      Bash(run,
           "exec 4<" F "; echo 1 >" F "; read -r x <&4; read -r y <" F "; echo $x $y; grep . " F
           "; head -n 1 " F "; awk '{ print }' " F);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "1 1\n1\n1\n1\n");
}

TEST(UnseenWriteTest, WriteChangesWhatOtherAttributesHold) {
  SimulatorRun run;
  const SimulatorOutcome outcome = Bash(run,
                                        "echo 1 >" F
                                        "; echo 0 >/sys/platform_m1/zynq_hw_reset_n/value"
                                        "; grep . /sys/platform_m1/zynq_done/value");
  EXPECT_EQ(outcome.out, "0\n");
}

TEST(UnseenWriteTest, AttributeThatIsOpenForWritingHasItsSize) {
  SimulatorRun run;
  const SimulatorOutcome outcome = Bash(run, "exec 3>" F "; stat -L -c %s /proc/self/fd/3");
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out, "2\n");
}

// --- Results ------------------------------------------------------------------------------------

TEST(UnseenWriteTest, ErrorOfTheWriteIsInTheLogAlone) {
  SimulatorRun run;
  const SimulatorOutcome outcome = Bash(run, "echo x >" ENDPOINT "enable; echo $?");
  EXPECT_EQ(outcome.out, "0\n");
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(Writes(outcome), ContainerEq(Lines{"write " ENDPOINT "enable \"x\\n\" = EINVAL"}));
}

TEST(UnseenWriteTest, WriteToARemovedDeviceHasNoEffect) {
  SimulatorRun run;
  const SimulatorOutcome outcome = Bash(run,
                                        "exec 3>" ENDPOINT "enable; echo 1 >" ENDPOINT
                                        "remove; echo 1 >&3; echo 1 >" ENDPOINT "enable");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, HasSubstr("Permission denied"));
  EXPECT_THAT(
      Writes(outcome),
      ContainerEq(Lines{"write " ENDPOINT "remove \"1\\n\"", "write " ENDPOINT "enable +2"}));
}

TEST(UnseenWriteTest, SeenWriteToARemovedDeviceCountsOnce) {
  SimulatorRun run;
  const SimulatorOutcome outcome =
      run.Shell("exec 3>" ENDPOINT "enable; echo 1 >" ENDPOINT "remove; echo 1 >&3");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(
      Writes(outcome),
      ContainerEq(Lines{"write " ENDPOINT "remove \"1\\n\"", "write " ENDPOINT "enable +2"}));
}

TEST(UnseenWriteTest, RescanAddsTheDeviceAgain) {
  SimulatorRun run;
  const SimulatorOutcome outcome =
      Bash(run,
           "echo 1 >" ENDPOINT "remove; echo 1 >/sys/class/pci_bus/0000:04/rescan; cat " ENDPOINT
           "enable; echo 1 >" ENDPOINT "enable; cat " ENDPOINT "enable");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out, "0\n1\n");
}

// --- What cannot take effect any more -----------------------------------------------------------

TEST(UnseenWriteTest, FaultRuleThatHitsItEndsTheRun) {
  for (const std::string action : {"EIO", "lost", "kill"}) {
    SimulatorRun run;
    run.Option("--fault write:qspi_prg:" + action);
    const SimulatorOutcome outcome =
        run.Shell("exec bash -c '{ echo 1; echo 0; } >" F "; echo never; sleep 100'");
    EXPECT_EQ(outcome.status, kFailure);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err,
              "orvane-sim: a fault rule hit a write to " F
              " that had happened already; the rule could not take effect\n");
    EXPECT_THAT(Writes(outcome), ContainerEq(Lines{"write " F " \"1\\n\" = " + action}));
    EXPECT_THAT(outcome.leftovers, IsEmpty());
  }
}

TEST(UnseenWriteTest, FaultRuleThatHitsItAtARemovedDeviceEndsTheRun) {
  SimulatorRun run;
  run.Option("--fault write:enable:EIO");
  const SimulatorOutcome outcome =
      Bash(run, "exec 3>" ENDPOINT "enable; echo 1 >" ENDPOINT "remove; echo 1 >&3; echo never");
  EXPECT_EQ(outcome.status, kFailure);
  EXPECT_EQ(outcome.out, "");
}

TEST(UnseenWriteTest, CountsForFaultRulesThatHitLaterEvents) {
  SimulatorRun run;
  run.Option("--fault write:qspi_prg#2:EIO");
  const SimulatorOutcome outcome = run.Shell("bash -c 'echo 1 >" F "'; echo 0 >" F "; echo $?");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(Writes(outcome),
              ContainerEq(Lines{"write " F " \"1\\n\"", "write " F " \"0\\n\" = EIO"}));
}

TEST(UnseenWriteTest, WriteToANodeEndsTheRun) {
  constexpr struct {
    const char* node;
    const char* command;
  } kRows[] = {{"/dev/spidev1.0", "bash -c 'echo x >/dev/spidev1.0; echo never'"},
               {"/dev/spidev1.0", "echo x | cat >/dev/spidev1.0; sleep 100"},
               {"/dev/spidev1.0", "echo x >file; cp file /dev/spidev1.0; sleep 100"},
               {"/dev/i2c-1", "bash -c 'echo x >/dev/i2c-1; echo never'"}};
  for (const auto& row : kRows) {
    SimulatorRun run;
    const SimulatorOutcome outcome = run.Shell(row.command);
    EXPECT_EQ(outcome.status, kFailure) << row.command;
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err,
              std::string("orvane-sim: a program wrote to ") + row.node +
                  " in a way that the instrument cannot see; nothing reached the bus\n");
  }
}

TEST(UnseenWriteTest, NodeCannotBeTruncated) {
  SimulatorRun run;
  const SimulatorOutcome outcome = run.Shell("truncate -s 5 /dev/spidev1.0");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, HasSubstr("Invalid argument"));
}

TEST(UnseenWriteTest, WriteToANodeAsTheLastActEndsTheRun) {
  SimulatorRun run;
  const SimulatorOutcome outcome = run.Shell("exec /bin/echo x >/dev/spidev1.0");
  EXPECT_EQ(outcome.status, kFailure);
  EXPECT_THAT(outcome.err, HasSubstr("/dev/spidev1.0"));
}

TEST(UnseenWriteTest, EndlessWriteEndsTheRun) {
  SimulatorRun run;
  const SimulatorOutcome outcome = run.Shell("exec cat /dev/zero >" F);
  EXPECT_EQ(outcome.status, kFailure);
  EXPECT_EQ(outcome.err, "orvane-sim: more than 1048576 bytes were written to " F " at once\n");
  EXPECT_THAT(Writes(outcome), IsEmpty());
}

TEST(UnseenWriteTest, AttributeFileThatAProgramDeletesEndsTheRun) {
  SimulatorRun run;
  const SimulatorOutcome outcome =
      run.Shell("exec 3>" F "; cd /sys/platform_m1/qspi_prg; rm value; echo 1 >&3; echo never >&3");
  EXPECT_EQ(outcome.status, kFailure);
  EXPECT_THAT(outcome.err, HasSubstr("No such file or directory"));
  EXPECT_THAT(outcome.log, Not(HasSubstr("never")));
}

}  // namespace
}  // namespace orvane
