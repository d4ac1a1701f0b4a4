// Every process of a command is on the instrument, or the run ends with 125.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "simulator/shim/ExecutableCheck.h"
#include "tests/e2e/simulator/SimulatorRun.h"

namespace orvane {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

const std::string kEnter = ENTERING_PROBE;
const std::string kOpen = std::string(DEVICE_PROBE) + " open /dev/spidev1.0 +";
constexpr const char* kOpened = "open /dev/spidev1.0 O_RDWR\nstdout \"3\\n\"\n";

/// The path of the dynamic loader of this machine's programs.
std::string Loader() { return executable::OwnMachine().loader; }

class EnteringTest : public testing::Test {
 protected:
  EnteringTest() { run_.Option("--module wend@1"); }

  /// Runs a command that opens the node in a process of its own.
  void ExpectInside(const std::string& command) {
    const SimulatorOutcome outcome = run_.Shell(command);
    EXPECT_EQ(outcome.status, 0) << command;
    EXPECT_EQ(outcome.out, "3\n") << command;
    EXPECT_EQ(outcome.err, "") << command;
    EXPECT_EQ(outcome.log, std::string(kOpened) + "exit 0\n") << command;
  }

  void ExpectRefused(const std::string& command, const std::string& why) {
    const SimulatorOutcome outcome = run_.Shell(command);
    EXPECT_EQ(outcome.status, 125) << command;
    EXPECT_EQ(outcome.out, "") << command;
    EXPECT_EQ(outcome.err, "orvane-sim: " + why + "\n") << command;
    EXPECT_THAT(outcome.leftovers, IsEmpty());
  }

  SimulatorRun run_;
};

// --- The link is put back -----------------------------------------------------------------------

TEST_F(EnteringTest, ProgramInAClearedEnvironmentIsInside) { ExpectInside("env -i " + kOpen); }

TEST_F(EnteringTest, ProgramWithoutTheLinksVariablesIsInside) {
  ExpectInside("unset LD_PRELOAD ORVANE_LINK UMOCKDEV_DIR DBUS_SYSTEM_BUS_ADDRESS; " + kOpen);
}

TEST_F(EnteringTest, ProgramWithOtherValuesOfTheLinksVariablesIsInside) {
  ExpectInside("LD_PRELOAD= ORVANE_LINK=/none UMOCKDEV_DIR=/none " + kOpen);
}

class ExecTest : public EnteringTest, public testing::WithParamInterface<const char*> {};

TEST_P(ExecTest, ProgramInAClearedEnvironmentIsInside) {
  ExpectInside(kEnter + " " + GetParam() + " " + kOpen);
}

TEST_P(ExecTest, StaticProgramIsRefused) {
  const std::string words =
      GetParam() == std::string("fexecve") ? std::string("/dev/fd/3") : STATIC_PROBE;
  ExpectRefused(kEnter + " " + GetParam() + " " STATIC_PROBE,
                "'" + words + "' is statically linked: it cannot run on the instrument");
}

INSTANTIATE_TEST_SUITE_P(Calls,
                         ExecTest,
                         testing::Values("execve",
                                         "execv",
                                         "execvp",
                                         "execvpe",
                                         "execl",
                                         "execlp",
                                         "execle",
                                         "fexecve",
                                         "execveat",
                                         "spawn",
                                         "spawnp",
                                         "vfork"),
                         [](const auto& tested) { return std::string(tested.param); });

class ShellTest : public EnteringTest, public testing::WithParamInterface<const char*> {};

TEST_P(ShellTest, ShellOfTheCLibraryIsInsideInAClearedEnvironment) {
  ExpectInside(kEnter + " " + GetParam() + " '" + kOpen + "'");
}

INSTANTIATE_TEST_SUITE_P(Calls,
                         ShellTest,
                         testing::Values("system", "popen"),
                         [](const auto& tested) { return std::string(tested.param); });

TEST_F(EnteringTest, CommandInAWordIsInsideInAClearedEnvironment) {
  const SimulatorOutcome outcome = run_.Shell(kEnter + " wordexp '" + kOpen + "'");
  EXPECT_EQ(outcome.out, "3\n");
  EXPECT_EQ(outcome.log, "open /dev/spidev1.0 O_RDWR\nstdout \"3\\n\"\nexit 0\n");
}

TEST_F(EnteringTest, ForkedChildWithAClearedEnvironmentIsInside) {
  const SimulatorOutcome outcome = run_.Shell(kEnter + " forked /dev/spidev1.0");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.log, kOpened + std::string("exit 0\n"));
}

TEST_F(EnteringTest, AnotherPreloadedLibraryStaysBeforeOurs) {
  const SimulatorOutcome outcome = run_.Shell(
      "env -i LD_PRELOAD=libdl.so.2 /bin/sh -c 'echo $LD_PRELOAD' | "
      "sed 's,:/.*/liborvane-shim,:liborvane-shim,'");
  EXPECT_EQ(outcome.out, "libdl.so.2:liborvane-shim.so:libumockdev-preload.so.0\n");
}

TEST_F(EnteringTest, EnvironmentThatIsCompleteIsLeftAsItIs) {
  const SimulatorOutcome outcome = run_.Shell(
      "env | grep -v ^_= >a; /usr/bin/env env | grep -v ^_= >b; cmp a b && "
      "LD_PRELOAD=$LD_PRELOAD:libdl.so.2 /usr/bin/env | grep -c :libdl.so.2$");
  EXPECT_EQ(outcome.out, "1\n");
}

TEST_F(EnteringTest, BusOfTheProgramIsLeftAlone) {
  const SimulatorOutcome outcome =
      run_.Shell("env -i DBUS_SYSTEM_BUS_ADDRESS=unix:path=/none env | grep BUS");
  EXPECT_EQ(outcome.out, "DBUS_SYSTEM_BUS_ADDRESS=unix:path=/none\n");
}

// --- What cannot be entered ---------------------------------------------------------------------

TEST_F(EnteringTest, ScriptWithAStaticInterpreterIsRefused) {
  run_.WriteFile("script", "#!" STATIC_PROBE "\n");
  ExpectRefused("chmod +x script; ./script",
                "'" STATIC_PROBE "' is statically linked: it cannot run on the instrument");
}

TEST_F(EnteringTest, StaticProgramThatIsFoundInPathIsRefused) {
  ExpectRefused("ln -s " STATIC_PROBE " x; PATH=/none:.:$PATH env x",
                "'./x' is statically linked: it cannot run on the instrument");
}

TEST_F(EnteringTest, StaticProgramOfTheLoaderIsRefused) {
  ExpectRefused(Loader() + " " STATIC_PROBE,
                "'" STATIC_PROBE "' is statically linked: it cannot run on the instrument");
}

TEST_F(EnteringTest, ProgramOfTheLoaderIsInside) {
  const SimulatorOutcome outcome =
      run_.Shell("exec env -i " + Loader() + " /bin/sh -c ': </dev/spidev1.0'");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.log, "open /dev/spidev1.0 O_RDONLY\nclose /dev/spidev1.0\nexit 0\n");
}

TEST_F(EnteringTest, ProgramForAnotherArchitectureIsRefused) {
  run_.WriteFile("foreign",
                 std::string("\x7f"
                             "ELF\x02\x02\x01",
                             7) +
                     std::string(57, '\0'));
  ExpectRefused("chmod +x foreign; ./foreign",
                "'./foreign' is for another architecture: it cannot run on the instrument");
}

TEST_F(EnteringTest, StaticCommandIsNotStarted) {
  const SimulatorOutcome outcome = run_.Words("-- " STATIC_PROBE);
  EXPECT_EQ(outcome.status, 125);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err,
            "orvane-sim: '" STATIC_PROBE
            "' is statically linked: it cannot run on the instrument\n");
  EXPECT_THAT(outcome.leftovers, IsEmpty());
}

TEST_F(EnteringTest, ProgramOfAnotherUserIsRefused) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "this user cannot become another one";
  }
  constexpr const char* kWhy =
      "a process has changed its user or root directory: its programs cannot run on the instrument";
  // A program of the system: the other user can reach it wherever this build is.
  ExpectRefused("setpriv --reuid 65534 --clear-groups cat /dev/spidev1.0", kWhy);
  ExpectRefused("setpriv --reuid 65534 --clear-groups env -i cat /dev/spidev1.0", kWhy);
}

TEST_F(EnteringTest, InstrumentOnAnInstrumentIsRefused) {
  const SimulatorOutcome outcome = run_.Shell(ORVANE_SIM " -- true; echo $?");
  EXPECT_EQ(outcome.out, "125\n");
  EXPECT_EQ(outcome.err,
            "orvane-sim: it runs on a virtual instrument already; a second one cannot be inside\n");
  EXPECT_EQ(outcome.status, 0);
}

TEST_F(EnteringTest, CommandThatNeverConnectsEndsIn125) {
  // A static program under the name of the dynamic loader, and a program that asks for it.
  const std::string loader = Loader();
  const std::size_t folderBytes = loader.rfind('/') + 1;
  const std::string name = loader.substr(folderBytes);
  const std::string here = "./" + std::string(folderBytes - 2, '/') + name;
  std::ifstream probe(ENTERING_PROBE, std::ios::binary);
  std::string program{std::istreambuf_iterator<char>(probe), std::istreambuf_iterator<char>()};
  const std::size_t at = program.find(loader);
  ASSERT_NE(at, std::string::npos);
  run_.WriteFile("program", program.replace(at, here.size(), here));
  std::filesystem::copy_file(STATIC_PROBE, run_.File(name));
  std::filesystem::permissions(run_.File("program"), std::filesystem::perms::owner_all);
  const SimulatorOutcome outcome = run_.Words("-- ./program");
  EXPECT_EQ(outcome.status, 125);
  EXPECT_EQ(outcome.err, "orvane-sim: COMMAND never connected to the instrument\n");
  EXPECT_THAT(outcome.leftovers, IsEmpty());
}

TEST_F(EnteringTest, ProgramWhoseLoaderIsMissingFailsByItself) {
  const SimulatorOutcome outcome = run_.Shell("sed 's,/ld-linux,/no-linux,' " + kEnter +
                                              " >x; chmod +x x; ./x 2>/dev/null; echo $?");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "127\n");
}

TEST_F(EnteringTest, TextWithoutAnInterpreterIsReadByTheShell) {
  run_.WriteFile("text", "echo read\n");
  EXPECT_EQ(run_.Shell("chmod +x text; env ./text").out, "read\n");
}

TEST_F(EnteringTest, ProgramThatIsMissingFailsByItself) {
  EXPECT_EQ(run_.Shell(kEnter + " execve ./none").out, "ENOENT\n");
}

// --- vfork --------------------------------------------------------------------------------------

TEST_F(EnteringTest, CloseInAChildOfVforkLeavesTheParentsDescriptorKnown) {
  const SimulatorOutcome outcome = run_.Shell(kEnter + " vfork-close /dev/spidev1.0");
  EXPECT_EQ(outcome.out, "0 0\n");
  EXPECT_EQ(outcome.log,
            "open /dev/spidev1.0 O_RDWR\n"
            "close /dev/spidev1.0\n"
            "ioctl /dev/spidev1.0 SPI_IOC_RD_MODE = 0\n"
            "stdout \"0 0\\n\"\n"
            "exit 0\n");
}

TEST_F(EnteringTest, ParentOfAChildOfVforkThatIsKilledAtAnEventGoesOn) {
  run_.Option("--fault open:/dev/spidev1.0#1:kill");
  const SimulatorOutcome outcome = run_.Shell(kEnter + " vfork-killed /dev/spidev1.0");
  EXPECT_EQ(outcome.out, "137 3\n");
  EXPECT_EQ(outcome.log,
            "open /dev/spidev1.0 O_RDWR = kill\n"
            "open /dev/spidev1.0 O_RDWR\n"
            "stdout \"137 3\\n\"\n"
            "exit 0\n");
}

TEST_F(EnteringTest, ProcessWithoutADescriptorForTheLinkEndsTheRun) {
  ExpectRefused("exec " + kEnter + " vfork-starved /dev/spidev1.0",
                "no descriptor is left for the link to the virtual instrument");
}

}  // namespace
}  // namespace orvane
