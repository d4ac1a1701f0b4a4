// The results of the calls of a program on the instrument, and their lines in the log. The probe
// prints the result of each step; together with the log this shows the order of everything.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/e2e/simulator/SimulatorRun.h"

namespace orvane {
namespace {

using testing::EndsWith;
using testing::HasSubstr;

using Steps = std::vector<std::string>;

const Steps kTakeFlash = {"open /dev/spidev1.0 +", "ofstream /sys/platform_m1/qspi_prg/value 1"};

Steps operator+(Steps left, const Steps& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

/// The lines of a log that do not come from the console.
std::string WithoutConsole(const std::string& log) {
  std::string rest;
  for (std::size_t start = 0; start < log.size();) {
    const std::size_t end = log.find('\n', start) + 1;
    const std::string line = log.substr(start, end - start);
    if (line.rfind("std", 0) != 0) {
      rest += line;
    }
    start = end;
  }
  return rest;
}

class ProgramOnInstrumentTest : public testing::Test {
 protected:
  SimulatorRun run_;
};

// --- SPI ----------------------------------------------------------------------------------------

TEST_F(ProgramOnInstrumentTest, ConsoleAndEventsAreLoggedInTheirOrder) {
  const SimulatorOutcome outcome = run_.Probe({"out 'Connecting ... '",
                                               "open /dev/spidev1.0 +",
                                               "mode 0 0",
                                               "err Warn",
                                               "err ing\n",
                                               "speed 0",
                                               "spi 0 9f 3",
                                               "close 0"});
  EXPECT_EQ(outcome.log,
            "stdout \"Connecting ... \"\n"
            "open /dev/spidev1.0 O_RDWR\n"
            "stdout \"3\\n\"\n"
            "ioctl /dev/spidev1.0 SPI_IOC_WR_MODE 0\n"
            "stdout \"0\\n\"\n"
            "stderr \"Warning\\n\"\n"
            "ioctl /dev/spidev1.0 SPI_IOC_RD_MAX_SPEED_HZ = 50000000\n"
            "stdout \"50000000\\n\"\n"
            "ioctl /dev/spidev1.0 SPI_IOC_WR_MAX_SPEED_HZ 50000000\n"
            "stdout \"0\\n\"\n"
            "spi /dev/spidev1.0 speed 19000000 bits 8\n"
            "spi /dev/spidev1.0 RDID = 00 00 00\n"
            "stdout \"4: 00 00 00\\n\"\n"
            "close /dev/spidev1.0\n"
            "stdout \"0\\n\"\n"
            "exit 0\n");
  EXPECT_EQ(outcome.out, "Connecting ... 3\n0\n50000000\n0\n4: 00 00 00\n0\n");
  EXPECT_EQ(outcome.err, "Warning\n");
  EXPECT_EQ(outcome.status, 0);
}

TEST_F(ProgramOnInstrumentTest, FlashIsProgrammedAndReadBack) {
  const SimulatorOutcome outcome = run_.Probe(
      kTakeFlash +
      Steps{"spi 0 9f 3", "spi 0 06 0", "fill 0 02001000 256", "spi 0 05 3", "spi 0 03001000 4"});
  EXPECT_EQ(outcome.out, "3\nwritten\n4: 20 ba 18\n1\n260\n4: 03 03 00\n8: 00 01 02 03\n");
}

TEST_F(ProgramOnInstrumentTest, MacronixChipIdentifiesItself) {
  run_.Option("--module wend@1,chip=macronix");
  EXPECT_THAT(run_.Probe(kTakeFlash + Steps{"spi 0 9f 3"}).out, EndsWith("4: c2 20 18\n"));
}

TEST_F(ProgramOnInstrumentTest, AbsentChipReadsZeros) {
  run_.Option("--module wend@1,flash-chip=absent");
  EXPECT_THAT(run_.Probe(kTakeFlash + Steps{"spi 0 9f 3"}).out, EndsWith("4: 00 00 00\n"));
}

TEST_F(ProgramOnInstrumentTest, MessageUpToBufsizFits) {
  EXPECT_THAT(run_.Probe(kTakeFlash + Steps{"spi 0 03000000 4096"}).out,
              EndsWith("4100: ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff\n"));
}

TEST_F(ProgramOnInstrumentTest, MessageBeyondBufsizIsTooLong) {
  EXPECT_THAT(run_.Probe(kTakeFlash + Steps{"spi 0 03000000 4097"}).out, EndsWith("\nEMSGSIZE\n"));
}

TEST_F(ProgramOnInstrumentTest, SentBytesBeyondBufsizAreTooLong) {
  run_.Option("--bufsiz 260 --spi-alignment 1");
  EXPECT_THAT(run_.Probe(kTakeFlash + Steps{"fill 0 02001000 256", "fill 0 02001000 257"}).out,
              EndsWith("\n260\nEMSGSIZE\n"));
}

TEST_F(ProgramOnInstrumentTest, LengthIsRoundedUpAsOnArm) {
  run_.Option("--bufsiz 319");
  EXPECT_THAT(run_.Probe(kTakeFlash + Steps{"fill 0 02001000 252", "fill 0 02001000 253"}).out,
              EndsWith("\n256\nEMSGSIZE\n"));
}

TEST_F(ProgramOnInstrumentTest, LengthIsRoundedUpAsOnArm64) {
  run_.Option("--bufsiz 320 --spi-alignment 128");
  EXPECT_THAT(run_.Probe(kTakeFlash + Steps{"fill 0 02001000 252", "fill 0 02001000 253"}).out,
              EndsWith("\n256\nEMSGSIZE\n"));
}

TEST_F(ProgramOnInstrumentTest, LengthOfAPlainReadOrWriteIsNotRounded) {
  run_.Option("--bufsiz 3");
  EXPECT_THAT(run_.Probe(kTakeFlash + Steps{"write 0 abc", "write 0 abcd", "read 0 4"}).out,
              EndsWith("\n3\nEMSGSIZE\nEMSGSIZE\n"));
}

TEST_F(ProgramOnInstrumentTest, WholeFlashFitsIntoOneMessage) {
  run_.Option("--bufsiz 16777280");
  const SimulatorOutcome outcome = run_.Probe(
      kTakeFlash +
      Steps{"spi 0 06 0", "fill 0 02000000 16777216", "spi 0 05 3", "spi 0 03000000 16777216"});
  // A page program wraps in its page, so the last 256 bytes stay.
  EXPECT_THAT(outcome.out,
              EndsWith("\n1\n16777220\n4: 03 03 00\n"
                       "16777220: 00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f\n"));
}

TEST_F(ProgramOnInstrumentTest, NodeCanBeOpenedTwice) {
  const SimulatorOutcome outcome = run_.Probe(
      kTakeFlash +
      Steps{"open /dev/spidev1.0 +", "spi 1 9f 1", "close 0", "spi 1 9f 1", "spi 0 9f 1"});
  EXPECT_EQ(outcome.out, "3\nwritten\n4\n2: 20\n0\n2: 20\nEBADF\n");
}

TEST_F(ProgramOnInstrumentTest, CopyOfADescriptorIsTheSameNode) {
  const SimulatorOutcome outcome = run_.Probe(kTakeFlash + Steps{"dup 0", "close 0", "spi 1 9f 1"});
  EXPECT_EQ(outcome.out, "3\nwritten\n4\n0\n2: 20\n");
}

TEST_F(ProgramOnInstrumentTest, PlainReadAndWriteAreMessages) {
  const SimulatorOutcome outcome =
      run_.Probe(kTakeFlash + Steps{"write 0 \x06", "spi 0 05 1", "read 0 2"});
  EXPECT_EQ(outcome.out, "3\nwritten\n1\n2: 02\n" + std::string(2, '\0') + "\n");
  EXPECT_THAT(outcome.log, HasSubstr("spi /dev/spidev1.0 WREN\n"));
}

TEST_F(ProgramOnInstrumentTest, UnknownRequestIsRefused) {
  const SimulatorOutcome outcome = run_.Probe({"open /dev/spidev1.0 +", "request 0 0x40046bff"});
  EXPECT_EQ(outcome.out, "3\nENOTTY\n");
  EXPECT_THAT(outcome.log, HasSubstr("ioctl /dev/spidev1.0 0x40046bff = ENOTTY\n"));
}

TEST_F(ProgramOnInstrumentTest, TwoModulesHaveAFlashEach) {
  run_.Option("--module wend@1,chip=macronix --module wend@4");
  const SimulatorOutcome outcome =
      run_.Probe(kTakeFlash + Steps{"open /dev/spidev4.0 +",
                                    "spi 1 9f 3",
                                    "ofstream /sys/platform_m4/qspi_prg/value 1",
                                    "spi 1 9f 3",
                                    "spi 0 9f 3",
                                    "inventory"});
  EXPECT_EQ(outcome.out,
            "3\nwritten\n4\n4: 00 00 00\nwritten\n4: 20 ba 18\n4: c2 20 18\nslots 1 4\n");
}

// --- Descriptors --------------------------------------------------------------------------------

TEST_F(ProgramOnInstrumentTest, FailedOpenLeavesABadDescriptor) {
  const SimulatorOutcome outcome =
      run_.Probe({"open /dev/spidev9.0 +", "mode 0 0", "spi 0 9f 3", "i2c 0 0x20 00 1", "close 0"});
  EXPECT_EQ(outcome.out, "ENOENT\nEBADF\nEBADF\nEBADF\nEBADF\n");
  EXPECT_EQ(WithoutConsole(outcome.log), "open /dev/spidev9.0 O_RDWR = ENOENT\nclose -1\nexit 0\n");
}

TEST_F(ProgramOnInstrumentTest, MissingNodeCannotBeOpened) {
  run_.Option("--module wend@1,spidev=missing,i2cdev=missing");
  EXPECT_EQ(run_.Probe({"open /dev/spidev1.0 +", "open /dev/i2c-1 +"}).out, "ENOENT\nENOENT\n");
}

TEST_F(ProgramOnInstrumentTest, ManyDescriptorsAndFailedOpensAreFine) {
  const SimulatorOutcome outcome = run_.Shell(
      "steps=; i=0; while [ $i -lt 200 ]; do steps=\"$steps open /dev/spidev1.0 + open "
      "/dev/spidev9.0 +\"; i=$((i + 1)); done; \"$PROBE\" $steps speed 398");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.out, EndsWith("\n202\nENOENT\n50000000\n0\n"));
}

TEST_F(ProgramOnInstrumentTest, LowDescriptorLimitIsFine) {
  const SimulatorOutcome outcome =
      run_.Shell("ulimit -n 32; \"$PROBE\" open /dev/spidev1.0 + open /dev/spidev1.0 + speed 1");
  EXPECT_EQ(outcome.out, "3\n4\n50000000\n0\n");
}

TEST_F(ProgramOnInstrumentTest, ClosedStandardInputIsClosedInTheCommand) {
  run_.CloseStandard(0);
  const SimulatorOutcome outcome = run_.Probe({"open /dev/null +", "open /dev/spidev1.0 +"});
  EXPECT_EQ(outcome.out, "0\n3\n");
}

TEST_F(ProgramOnInstrumentTest, ClosedStandardStreamsAreClosedInTheCommand) {
  for (const int descriptor : {0, 1, 2}) {
    run_.CloseStandard(descriptor);
  }
  const SimulatorOutcome outcome = run_.Probe({"open /dev/null +",
                                               "open /dev/null +",
                                               "open /dev/null +",
                                               "open /dev/spidev1.0 +",
                                               "spi 3 9f 1",
                                               "write 2 text"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.log,
            "open /dev/null O_RDWR\n"
            "open /dev/null O_RDWR\n"
            "open /dev/null O_RDWR\n"
            "open /dev/spidev1.0 O_RDWR\n"
            "spi /dev/spidev1.0 speed 19000000 bits 8\n"
            "spi /dev/spidev1.0 RDID = 00\n"
            "write /dev/null +4\n"
            "exit 0\n");
}

TEST_F(ProgramOnInstrumentTest, CommandGetsTheDescriptorsThatTheSimulatorGot) {
  // No descriptor of the instrument itself is open: 3 is the directory that is listed.
  const SimulatorOutcome outcome = run_.Shell("cd /proc/$$/fd; echo *");
  EXPECT_EQ(outcome.out, "0 1 2 3 500\n");
}

TEST_F(ProgramOnInstrumentTest, CommandInheritsWhatTheSimulatorInherited) {
  run_.WriteFile("extra", "hello\n");
  run_.OpenExtra(7, run_.File("extra").string());
  EXPECT_EQ(run_.Shell("cat <&7").out, "hello\n");
}

// --- Files --------------------------------------------------------------------------------------

TEST_F(ProgramOnInstrumentTest, OrdinaryFilesAreLoggedAsTheProgramNamesThem) {
  const SimulatorOutcome outcome = run_.Probe({"open ./dump.bin wc",
                                               "write 0 hello",
                                               "close 0",
                                               "open dump.bin r",
                                               "read 1 100",
                                               "open no/such r"});
  EXPECT_EQ(outcome.out, "3\n5\n0\n3\nhello\nENOENT\n");
  EXPECT_EQ(WithoutConsole(outcome.log),
            "open ./dump.bin O_WRONLY|O_CREAT 0600\n"
            "write ./dump.bin +5\n"
            "close ./dump.bin\n"
            "open dump.bin O_RDONLY\n"
            "open no/such O_RDONLY = ENOENT\n"
            "exit 0\n");
  EXPECT_EQ(run_.ReadFile("dump.bin"), "hello");
}

TEST_F(ProgramOnInstrumentTest, StreamsAreLoggedLikeDescriptors) {
  const SimulatorOutcome outcome =
      run_.Probe({"ofstream notes abc\n", "ifstream notes", "ifstream none"});
  EXPECT_EQ(outcome.out, "written\nline abc\nno file\n");
  EXPECT_EQ(WithoutConsole(outcome.log),
            "open notes O_WRONLY|O_CREAT|O_TRUNC 0666\n"
            "write notes +4\n"
            "close notes\n"
            "open notes O_RDONLY\n"
            "close notes\n"
            "open none O_RDONLY = ENOENT\n"
            "exit 0\n");
}

TEST_F(ProgramOnInstrumentTest, WriteThatFailsIsLoggedWithItsErrno) {
  const SimulatorOutcome outcome = run_.Probe({"open /dev/full w", "write 0 abc"});
  EXPECT_EQ(outcome.out, "3\nENOSPC\n");
  EXPECT_EQ(WithoutConsole(outcome.log),
            "open /dev/full O_WRONLY\nwrite /dev/full +3 = ENOSPC\nexit 0\n");
}

TEST_F(ProgramOnInstrumentTest, AttributesAreReadAndWritten) {
  const SimulatorOutcome outcome = run_.Probe({"open /sys/platform_m1/qspi_prg/value w",
                                               "write 0 1",
                                               "close 0",
                                               "open /sys/platform_m1/qspi_prg/value r",
                                               "read 1 1",
                                               "read 1 9",
                                               "read 1 9"});
  EXPECT_EQ(outcome.out, "3\n1\n0\n3\n1\n\n\n\n");
  EXPECT_EQ(WithoutConsole(outcome.log),
            "open /sys/platform_m1/qspi_prg/value O_WRONLY\n"
            "write /sys/platform_m1/qspi_prg/value \"1\"\n"
            "close /sys/platform_m1/qspi_prg/value\n"
            "open /sys/platform_m1/qspi_prg/value O_RDONLY\n"
            "read /sys/platform_m1/qspi_prg/value \"1\"\n"
            "read /sys/platform_m1/qspi_prg/value \"\\n\"\n"
            "read /sys/platform_m1/qspi_prg/value \"\"\n"
            "exit 0\n");
}

TEST_F(ProgramOnInstrumentTest, AttributeIsNeitherCreatedNorCut) {
  const SimulatorOutcome outcome = run_.Probe({"ofstream /sys/platform_m1/none/value 1",
                                               "ofstream /sys/platform_m1/zynq_done/none 1",
                                               "ofstream /sys/platform_m1/zynq_done/value 1",
                                               "ifstream /sys/platform_m1/zynq_done/value"});
  EXPECT_EQ(outcome.out, "failed\nfailed\nwritten\nline 0\n");
  EXPECT_THAT(outcome.log,
              HasSubstr("open /sys/platform_m1/none/value "
                        "O_WRONLY|O_CREAT|O_TRUNC 0666 = ENOENT\n"
                        "stdout \"failed\\n\"\n"
                        "open /sys/platform_m1/zynq_done/none "
                        "O_WRONLY|O_CREAT|O_TRUNC 0666 = EACCES\n"));
}

TEST_F(ProgramOnInstrumentTest, AttributeIsUpToDateForCStreamsToo) {
  EXPECT_EQ(run_.Shell("echo 1 > /sys/platform_m1/qspi_prg/value; "
                       "grep -c 1 /sys/platform_m1/qspi_prg/value")
                .out,
            "1\n");
}

TEST_F(ProgramOnInstrumentTest, MissingControlFilesCannotBeOpened) {
  run_.Option("--module wend@1,zynq-files=missing");
  EXPECT_EQ(run_.Probe({"open /sys/platform_m1/qspi_prg/value w"}).out, "ENOENT\n");
}

TEST_F(ProgramOnInstrumentTest, BufsizHoldsWhatIsAskedFor) {
  run_.Option("--bufsiz '  8192 kB'");
  EXPECT_EQ(run_.Probe({"ifstream /sys/module/spidev/parameters/bufsiz"}).out, "line   8192 kB\n");
}

TEST_F(ProgramOnInstrumentTest, BufsizCanBeMissing) {
  run_.Option("--bufsiz none");
  EXPECT_EQ(run_.Probe({"ifstream /sys/module/spidev/parameters/bufsiz"}).out, "no file\n");
}

TEST_F(ProgramOnInstrumentTest, NothingOfTheRealSysIsVisible) {
  EXPECT_EQ(run_.Probe({"open /sys/class/net/lo/address r"}).out, "ENOENT\n");
}

// --- I2C, udev and D-Bus ------------------------------------------------------------------------

TEST_F(ProgramOnInstrumentTest, WendDoesNotAcknowledgeOnItsBus) {
  const SimulatorOutcome outcome =
      run_.Probe({"open /dev/i2c-1 +", "i2c 0 0x21 02ffff 0", "i2c 0 0x21 06 2"});
  EXPECT_EQ(outcome.out, "3\nENXIO\nENXIO\n");
  EXPECT_EQ(WithoutConsole(outcome.log),
            "open /dev/i2c-1 O_RDWR\n"
            "i2c /dev/i2c-1 0x21 w 02 ff ff = ENXIO\n"
            "i2c /dev/i2c-1 0x21 w 06 r +2 = ENXIO\n"
            "exit 0\n");
}

TEST_F(ProgramOnInstrumentTest, UdevListsTheAdapters) {
  run_.Option("--module wend@1");
  const SimulatorOutcome outcome = run_.Probe({"udev i2c"});
  EXPECT_EQ(outcome.out,
            "/sys/devices/platform/soc/i2c-0 Orvane chassis\n"
            "/sys/devices/platform/soc/i2c-1 Orvane slot 1\n"
            "/sys/devices/platform/soc/i2c-10 Orvane chassis\n"
            "/sys/devices/platform/soc/i2c-10/i2c-11 i2c-10-mux (chan_id 0)\n"
            "/sys/devices/platform/soc/i2c-10/i2c-12 i2c-10-mux (chan_id 1)\n");
}

TEST_F(ProgramOnInstrumentTest, UdevListsTheMultiplexersToo) {
  run_.Option("--module dax@2 --i2c-clients");
  EXPECT_EQ(run_.Probe({"udev i2c"}).out,
            "/sys/devices/platform/soc/i2c-0 Orvane chassis\n"
            "/sys/devices/platform/soc/i2c-10 Orvane chassis\n"
            "/sys/devices/platform/soc/i2c-10/10-0070 pca9540\n"
            "/sys/devices/platform/soc/i2c-10/i2c-13 i2c-10-mux (chan_id 0)\n"
            "/sys/devices/platform/soc/i2c-10/i2c-14 i2c-10-mux (chan_id 1)\n"
            "/sys/devices/platform/soc/i2c-2 Orvane slot 2\n"
            "/sys/devices/platform/soc/i2c-2/2-0070 pca9540\n"
            "/sys/devices/platform/soc/i2c-2/i2c-11 i2c-2-mux (chan_id 0)\n"
            "/sys/devices/platform/soc/i2c-2/i2c-12 i2c-2-mux (chan_id 1)\n");
}

TEST_F(ProgramOnInstrumentTest, WhatLibudevReadsIsNotLogged) {
  EXPECT_EQ(WithoutConsole(run_.Probe({"udev spi"}).log), "exit 0\n");
}

TEST_F(ProgramOnInstrumentTest, ServicesAnswer) {
  run_.Option("--module wend@1");
  const SimulatorOutcome outcome = run_.Probe({"inventory", "i2cbus 1", "spidev 1", "spidev 2"});
  EXPECT_EQ(outcome.out, "slots 1\nname i2c-1\nname spidev1.0\nname \n");
  EXPECT_EQ(WithoutConsole(outcome.log),
            "dbus GetModuleLocations = 1\n"
            "dbus GetI2CBus 1 = \"i2c-1\"\n"
            "dbus GetSPIDev 1 = \"spidev1.0\"\n"
            "dbus GetSPIDev 2 = \"\"\n"
            "exit 0\n");
}

TEST_F(ProgramOnInstrumentTest, ServicesNameWhatTheyAreTold) {
  run_.Option("--module wend@1,i2c=none,spi=spidev7.7");
  EXPECT_EQ(run_.Probe({"i2cbus 1", "spidev 1"}).out, "name \nname spidev7.7\n");
}

TEST_F(ProgramOnInstrumentTest, MissingServiceIsUnknownToTheBus) {
  run_.Option("--without inventory");
  EXPECT_EQ(run_.Probe({"inventory", "spidev 1"}).out,
            "org.freedesktop.DBus.Error.ServiceUnknown\nname spidev1.0\n");
}

TEST_F(ProgramOnInstrumentTest, MissingResourcesAreUnknownToTheBus) {
  run_.Option("--module wend@1 --without resources");
  EXPECT_EQ(run_.Probe({"inventory", "spidev 1"}).out,
            "slots 1\norg.freedesktop.DBus.Error.ServiceUnknown\n");
}

TEST_F(ProgramOnInstrumentTest, MissingBusCannotBeReached) {
  run_.Option("--without bus");
  EXPECT_EQ(run_.Probe({"inventory"}).out, "no bus\n");
}

// --- Time ---------------------------------------------------------------------------------------

TEST_F(ProgramOnInstrumentTest, EverySleepIsLoggedAndPassesAtOnce) {
  // 28 hours: the test ends only if the run does not wait.
  const SimulatorOutcome outcome =
      run_.Probe({"sleep 100000", "usleep 500000", "nanosleep 1000000", "usleep 0"});
  EXPECT_EQ(outcome.out, "0\n0\n0\n0\n");
  EXPECT_EQ(WithoutConsole(outcome.log), "sleep 100000 s\nsleep 500 ms\nsleep 1 ms\nexit 0\n");
}

TEST_F(ProgramOnInstrumentTest, SleepUntilALaterTimeIsLogged) {
  const SimulatorOutcome outcome = run_.Probe({"until 100000000000000"});
  EXPECT_EQ(outcome.out, "0\n");
  // A little less than asked for, because the clock runs on.
  EXPECT_THAT(WithoutConsole(outcome.log), testing::MatchesRegex("sleep 99999[0-9]+ ns\nexit 0\n"));
}

TEST_F(ProgramOnInstrumentTest, ClocksAreTrueWhenSleepsAreShort) {
  EXPECT_EQ(run_.Shell("a=$(date +%s); \"$PROBE\" sleep 100000 >/dev/null; b=$(date +%s); "
                       "[ $((b - a)) -lt 1000 ] && echo same")
                .out,
            "same\n");
}

TEST_F(ProgramOnInstrumentTest, MonotonicClockGoesOnByAStepAtEachLook) {
  run_.Option("--clock-step 3600000");
  EXPECT_THAT(run_.Probe({"clocks"}).out, testing::MatchesRegex("360[01]\n[01]\n"));
}

TEST_F(ProgramOnInstrumentTest, SleepUntilALaterTimeIsAsLongAsOnTheProgramsClock) {
  run_.Option("--clock-step 3600000");
  const SimulatorOutcome outcome = run_.Probe({"clocks", "until 100000000000000"});
  EXPECT_THAT(WithoutConsole(outcome.log), testing::MatchesRegex("sleep 99999[0-9]+ ns\nexit 0\n"));
}

TEST_F(ProgramOnInstrumentTest, SleepsWaitUnlessTheyAreShortened) {
  run_.WithoutFast();
  const SimulatorOutcome outcome = run_.Shell(
      "a=$(date +%s%N); \"$PROBE\" usleep 2000 >/dev/null; b=$(date +%s%N); "
      "[ $((b - a)) -ge 2000000 ] && echo waited");
  EXPECT_EQ(outcome.out, "waited\n");
}

TEST_F(ProgramOnInstrumentTest, InstrumentTimeFollowsTheSleepsAlone) {
  run_.Option("--module wend@1,done=after:3");
  const std::string done = "/sys/platform_m1/zynq_done/value";
  const std::string reset = "/sys/platform_m1/zynq_hw_reset_n/value";
  const SimulatorOutcome outcome = run_.Probe({"ifstream " + done,
                                               "ofstream " + reset + " 0",
                                               "ifstream " + done,
                                               "sleep 5",
                                               "ofstream " + reset + " 1",
                                               "usleep 2999",
                                               "ifstream " + done,
                                               "usleep 1",
                                               "ifstream " + done});
  EXPECT_EQ(outcome.out, "line 1\nwritten\nline 0\n0\nwritten\n0\nline 0\n0\nline 1\n");
}

// --- Several processes --------------------------------------------------------------------------

TEST_F(ProgramOnInstrumentTest, ShellAndItsProgramsAreOnOneInstrument) {
  const SimulatorOutcome outcome = run_.Shell(
      "echo 1 > /sys/platform_m1/qspi_prg/value; \"$PROBE\" open /dev/spidev1.0 + spi 0 9f 3");
  EXPECT_EQ(outcome.out, "3\n4: 20 ba 18\n");
  EXPECT_THAT(outcome.log, HasSubstr("write /sys/platform_m1/qspi_prg/value \"1\\n\"\n"));
}

TEST_F(ProgramOnInstrumentTest, ForkedProcessTalksOnItsOwn) {
  const SimulatorOutcome outcome = run_.Shell(
      "(echo 1 > /sys/platform_m1/qspi_prg/value; :); cat "
      "/sys/platform_m1/qspi_prg/value; echo 0 > /sys/platform_m1/qspi_prg/value");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "1\n");
}

// --- Faults -------------------------------------------------------------------------------------

TEST_F(ProgramOnInstrumentTest, OpenFailsAtItsCount) {
  run_.Option("--fault open:/dev/spidev1.0#2:EBUSY");
  const SimulatorOutcome outcome =
      run_.Probe({"open /dev/spidev1.0 +", "open /dev/spidev1.0 +", "open /dev/spidev1.0 +"});
  EXPECT_EQ(outcome.out, "3\nEBUSY\n4\n");
  EXPECT_EQ(WithoutConsole(outcome.log),
            "open /dev/spidev1.0 O_RDWR\n"
            "open /dev/spidev1.0 O_RDWR = EBUSY\n"
            "open /dev/spidev1.0 O_RDWR\n"
            "exit 0\n");
}

TEST_F(ProgramOnInstrumentTest, OpenOfAnOrdinaryFileFails) {
  run_.Option("--fault open:./dump.bin:EROFS");
  EXPECT_EQ(run_.Probe({"open ./dump.bin wc", "ofstream ./dump.bin x"}).out, "EROFS\nfailed\n");
}

TEST_F(ProgramOnInstrumentTest, WritesFailAtTheirPlaces) {
  run_.Option("--fault write:qspi_prg/value#1:EIO --fault write:dump#1:ENOSPC");
  const SimulatorOutcome outcome = run_.Probe({"open /sys/platform_m1/qspi_prg/value w",
                                               "write 0 1",
                                               "write 0 1",
                                               "open dump wc",
                                               "write 1 abc",
                                               "write 1 def"});
  EXPECT_EQ(outcome.out, "3\nEIO\n1\n4\nENOSPC\n3\n");
  EXPECT_EQ(run_.ReadFile("dump"), "def");
}

TEST_F(ProgramOnInstrumentTest, LostWritesAreAcknowledgedAndNotDone) {
  run_.Option("--fault write:lost");
  const SimulatorOutcome outcome = run_.Probe({"open /sys/platform_m1/qspi_prg/value w",
                                               "write 0 1",
                                               "open dump wc",
                                               "write 1 abc",
                                               "ifstream /sys/platform_m1/qspi_prg/value"});
  EXPECT_EQ(outcome.out, "3\n1\n4\n3\nline 0\n");
  EXPECT_EQ(run_.ReadFile("dump"), "");
}

TEST_F(ProgramOnInstrumentTest, FailedCloseClosesAnyway) {
  run_.Option("--fault close:qspi_prg#1:EIO");
  const SimulatorOutcome outcome =
      run_.Probe({"open /sys/platform_m1/qspi_prg/value w", "close 0", "open /dev/spidev1.0 +"});
  EXPECT_EQ(outcome.out, "3\nEIO\n3\n");
  EXPECT_THAT(outcome.log, HasSubstr("close /sys/platform_m1/qspi_prg/value = EIO\n"));
}

TEST_F(ProgramOnInstrumentTest, FailedCloseOfAStreamShows) {
  run_.Option("--fault close:notes#1:EIO");
  EXPECT_EQ(run_.Probe({"ofstream notes x"}).out, "failed\n");
}

TEST_F(ProgramOnInstrumentTest, ReadsFailOrBringWrongData) {
  run_.Option(
      "--fault read:zynq_done#1:EIO --fault read:zynq_done#2:data:x --fault "
      "read:zynq_done#3:data:");
  const SimulatorOutcome outcome = run_.Probe({"open /sys/platform_m1/zynq_done/value r",
                                               "read 0 1",
                                               "read 0 1",
                                               "read 0 1",
                                               "close 0",
                                               "open /sys/platform_m1/zynq_done/value r",
                                               "read 1 1"});
  EXPECT_EQ(outcome.out, "3\nEIO\nx\n\n0\n3\n0\n");
}

TEST_F(ProgramOnInstrumentTest, SpiMessagesFailByCommandAndCount) {
  run_.Option("--fault spi:RDID#2:EIO --fault spi:RDSR#1:data:\\x81");
  EXPECT_EQ(
      run_.Probe(kTakeFlash + Steps{"spi 0 9f 3", "spi 0 05 1", "spi 0 9f 3", "spi 0 05 1"}).out,
      "3\nwritten\n4: 20 ba 18\n2: 81\nEIO\n2: 00\n");
}

TEST_F(ProgramOnInstrumentTest, LostWriteEnableMakesTheFlashIgnoreAProgram) {
  run_.Option("--fault spi:WREN#1:lost");
  EXPECT_EQ(
      run_.Probe(kTakeFlash + Steps{"spi 0 06 0", "spi 0 02000000aa 0", "spi 0 03000000 1"}).out,
      "3\nwritten\n1\n5\n5: ff\n");
}

TEST_F(ProgramOnInstrumentTest, I2cTransfersFail) {
  run_.Option("--fault i2c#2:ETIMEDOUT");
  EXPECT_EQ(run_.Probe({"open /dev/i2c-1 +", "i2c 0 0x21 00 0", "i2c 0 0x21 00 0"}).out,
            "3\nENXIO\nETIMEDOUT\n");
}

TEST_F(ProgramOnInstrumentTest, RequestsFail) {
  run_.Option("--fault ioctl:SPI_IOC_WR_MODE#1:EINVAL --fault ioctl:RD_MAX_SPEED:EIO");
  EXPECT_EQ(run_.Probe({"open /dev/spidev1.0 +", "mode 0 0", "mode 0 0", "speed 0"}).out,
            "3\nEINVAL\n0\nEIO\nEINVAL\n");
}

TEST_F(ProgramOnInstrumentTest, SettingIsReadWrong) {
  run_.Option("--fault ioctl:RD_MAX_SPEED:data:1000");
  EXPECT_EQ(WithoutConsole(run_.Probe({"open /dev/spidev1.0 +", "speed 0"}).log),
            "open /dev/spidev1.0 O_RDWR\n"
            "ioctl /dev/spidev1.0 SPI_IOC_RD_MAX_SPEED_HZ = 1000\n"
            "ioctl /dev/spidev1.0 SPI_IOC_WR_MAX_SPEED_HZ 1000\n"
            "exit 0\n");
}

TEST_F(ProgramOnInstrumentTest, DBusCallsFail) {
  run_.Option(
      "--fault dbus:GetI2CBus#1:error --fault dbus:GetI2CBus#2:error:org.x.Y --fault "
      "'dbus:GetModuleLocations#1:data:1 2 4'");
  EXPECT_EQ(run_.Probe({"i2cbus 1", "i2cbus 1", "i2cbus 1", "inventory"}).out,
            "org.freedesktop.DBus.Error.Failed\norg.x.Y\nname i2c-1\nslots 1 2 4\n");
}

TEST_F(ProgramOnInstrumentTest, SleepsAreInterrupted) {
  run_.Option("--fault sleep:EINTR");
  EXPECT_EQ(run_.Probe({"sleep 5", "usleep 1000", "nanosleep 1000", "until 1000000"}).out,
            "5\nEINTR\nEINTR\n4\n");
}

TEST_F(ProgramOnInstrumentTest, ProgramIsKilledAtAnEvent) {
  run_.Option("--fault spi#2:kill");
  const SimulatorOutcome outcome =
      run_.Probe({"open /dev/spidev1.0 +", "spi 0 06 0", "spi 0 04 0", "out no"});
  EXPECT_EQ(outcome.status, 137);
  EXPECT_EQ(outcome.out, "3\n1\n");
  EXPECT_THAT(outcome.log,
              EndsWith("spi /dev/spidev1.0 WREN\nstdout \"1\\n\"\n"
                       "spi /dev/spidev1.0 WRDI = kill\nkilled SIGKILL\n"));
}

TEST_F(ProgramOnInstrumentTest, ProgramIsKilledAtEventsOfAnyKind) {
  const Steps steps = {"open /dev/i2c-1 +",
                       "i2c 0 0x21 00 0",
                       "close 0",
                       "sleep 5",
                       "inventory",
                       "open dump wc",
                       "write 1 x"};
  for (const std::string kind : {"open", "i2c", "close", "sleep", "dbus", "open:dump", "write"}) {
    SimulatorRun run;
    run.Option("--fault " + kind + ":kill");
    const SimulatorOutcome outcome = run.Probe(steps);
    EXPECT_EQ(outcome.status, 137) << kind;
    EXPECT_THAT(outcome.log, EndsWith(" = kill\nkilled SIGKILL\n")) << kind;
    EXPECT_THAT(outcome.leftovers, testing::IsEmpty());
  }
}

TEST_F(ProgramOnInstrumentTest, KillHitsTheProcessOfTheEventAlone) {
  run_.Option("--fault open:/dev/i2c-1:kill");
  const SimulatorOutcome outcome = run_.Shell("\"$PROBE\" open /dev/i2c-1 +; echo $?");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.out, EndsWith("137\n"));
}

TEST_F(ProgramOnInstrumentTest, FaultsAreCountedOverAllProcesses) {
  run_.Option("--fault open:/dev/i2c-1#2:EIO");
  EXPECT_EQ(run_.Shell("\"$PROBE\" open /dev/i2c-1 +; \"$PROBE\" open /dev/i2c-1 +").out,
            "3\nEIO\n");
}

}  // namespace
}  // namespace orvane
