// Paths and descriptors at the edges of what Linux takes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/e2e/simulator/SimulatorRun.h"

namespace orvane {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

const std::string kNode = "/dev/spidev1.0";
const std::string kAttribute = "/sys/platform_m1/qspi_prg/value";

class PathTest : public testing::Test {
 protected:
  PathTest() { run_.Option("--module wend@1"); }

  /// Runs the steps of the probe.
  SimulatorOutcome Steps(const std::string& steps) { return run_.Shell(PATH_PROBE " " + steps); }

  /// The steps' results.
  std::string Out(const std::string& steps) { return Steps(steps).out; }

  /// The events of the steps alone.
  std::string Events(const std::string& steps) {
    const SimulatorOutcome outcome = Steps(steps);
    EXPECT_EQ(outcome.status, 0);
    std::string events;
    for (std::size_t start = 0; start < outcome.log.size();) {
      const std::size_t end = outcome.log.find('\n', start) + 1;
      const std::string line = outcome.log.substr(start, end - start);
      events += line.starts_with("stdout ") || line == "exit 0\n" ? "" : line;
      start = end;
    }
    return events;
  }

  SimulatorRun run_;
};

// --- Tests that shells make ----------------------------------------------------------------------

TEST_F(PathTest, ShellFindsFilesOfTheInstrumentReadableAndWritable) {
  for (const char* const shell : {"dash", "bash"}) {
    SCOPED_TRACE(shell);
    const std::string tests = "for f in " + kNode + " " + kAttribute +
                              " /sys//x; do for t in e r w; " +
                              "do [ -$t $f ] && echo $t; done; done; :";
    const SimulatorOutcome outcome = run_.Shell(std::string(shell) + " -c '" + tests + "'");
    EXPECT_EQ(outcome.out, "e\nr\nw\ne\nr\nw\n");
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.status, 0);
  }
}

// --- Long paths and large transfers -------------------------------------------------------------

TEST_F(PathTest, PathOf4096BytesIsTooLong) {
  const SimulatorOutcome outcome =
      Steps("long /dev 4096 long /sys/class 4096 long /tmp 4096 long /sys 1000000");
  EXPECT_EQ(outcome.out, "ENAMETOOLONG\nENAMETOOLONG\nENAMETOOLONG\nENAMETOOLONG\n");
  EXPECT_THAT(outcome.log, HasSubstr("/x/x O_RDONLY = ENAMETOOLONG\n"));
}

TEST_F(PathTest, LongPathOfAStreamIsTooLong) {
  const std::string path = "/sys/" + std::string(4091, 'x');
  EXPECT_EQ(Out("fopen " + path + " r freopen " + path + " r openat " + path + " r creat " + path),
            "ENAMETOOLONG\nENAMETOOLONG\nENAMETOOLONG\nENAMETOOLONG\n");
}

TEST_F(PathTest, PathOf4095BytesIsSearched) {
  EXPECT_EQ(Out("long /dev 4095 long /sys/class 4095"), "ENOENT\nENOENT\n");
}

TEST_F(PathTest, WriteOfMoreThanTheLinkCarriesIsTooLong) {
  EXPECT_EQ(Out("open " + kNode + " w write 3 67108865 write 3 134217729 write 3 3221225472"),
            "3\nEMSGSIZE\nEMSGSIZE\nEMSGSIZE\n");
}

TEST_F(PathTest, ReadOfMoreThanTwoGigabytesIsAsOnLinux) {
  EXPECT_EQ(
      Out("open " + kNode + " r read 3 3221225472 open " + kAttribute + " r read 4 3221225472"),
      "3\nEMSGSIZE\n4\n2\n");
}

TEST_F(PathTest, WriteOfManyPiecesIsOneMessage) {
  EXPECT_EQ(
      Events("open " + kNode + " w writev 3 1 100"),
      "open /dev/spidev1.0 O_WRONLY\n"
      "spi /dev/spidev1.0 speed 50000000 bits 8\n"
      "spi /dev/spidev1.0 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
      "00 00 00 00 00 00 00 00 00 ... +68\n");
}

TEST_F(PathTest, LongWriteToAnAttributeIsCutToAPage) {
  EXPECT_EQ(Out("open " + kAttribute + " w write 3 10000"), "3\n4096\n");
}

// --- Plain paths --------------------------------------------------------------------------------

TEST_F(PathTest, RepeatedSlashesAndDotsLeadToTheSameFiles) {
  EXPECT_EQ(Events("open //dev/spidev1.0 + mode 3 open /dev/./spidev1.0 + mode 4 "
                   "open /sys/../dev/spidev1.0 + mode 5 open /sys//platform_m1/./qspi_prg/value r "
                   "read 6 10 fopen /sys//platform_m1/qspi_prg/value r close 3"),
            "open //dev/spidev1.0 O_RDWR\n"
            "ioctl /dev/spidev1.0 SPI_IOC_RD_MODE = 0\n"
            "open /dev/./spidev1.0 O_RDWR\n"
            "ioctl /dev/spidev1.0 SPI_IOC_RD_MODE = 0\n"
            "open /sys/../dev/spidev1.0 O_RDWR\n"
            "ioctl /dev/spidev1.0 SPI_IOC_RD_MODE = 0\n"
            "open /sys//platform_m1/./qspi_prg/value O_RDONLY\n"
            "read /sys/platform_m1/qspi_prg/value \"0\\n\"\n"
            "open /sys//platform_m1/qspi_prg/value O_RDONLY\n"
            "close /dev/spidev1.0\n");
}

TEST_F(PathTest, PathOfALibraryIsNoEventWithRepeatedSlashesEither) {
  EXPECT_EQ(Events("open //etc//passwd r open /sys//kernel/../kernel/none r"), "");
}

TEST_F(PathTest, NothingOfTheRealSysIsVisibleWithRepeatedSlashes) {
  EXPECT_EQ(Out("open //sys/class/net/lo/address r open //sys/kernel/notes r"), "ENOENT\nENOENT\n");
}

// --- Other ways to open -------------------------------------------------------------------------

TEST_F(PathTest, OpenatAndCreatOfANodeAreEvents) {
  EXPECT_EQ(Events("openat /dev/spidev1.0 + mode 3 creat /dev/spidev1.0 mode 4"),
            "open /dev/spidev1.0 O_RDWR\n"
            "ioctl /dev/spidev1.0 SPI_IOC_RD_MODE = 0\n"
            "open /dev/spidev1.0 O_WRONLY|O_CREAT|O_TRUNC 0600\n"
            "ioctl /dev/spidev1.0 SPI_IOC_RD_MODE = 0\n");
}

TEST_F(PathTest, FreopenOfANodeIsAnEvent) {
  EXPECT_EQ(Events("freopen /dev/spidev1.0 r+ mode 3 freopen /dev/spidev9.0 r"),
            "open /dev/null O_RDONLY\n"
            "open /dev/spidev1.0 O_RDWR\n"
            "ioctl /dev/spidev1.0 SPI_IOC_RD_MODE = 0\n"
            "open /dev/null O_RDONLY\n"
            "open /dev/spidev9.0 O_RDONLY = ENOENT\n");
}

TEST_F(PathTest, OpenatOfAnOrdinaryFileIsNoEvent) {
  EXPECT_EQ(Events("openat file wc creat other write 3 5"), "");
}

// --- Flags --------------------------------------------------------------------------------------

TEST_F(PathTest, ExclusiveCreationOfWhatExistsFails) {
  const SimulatorOutcome outcome =
      Steps("open /dev/spidev1.0 +cx open " + kAttribute + " wcx open /dev/spidev9.0 +cx");
  EXPECT_EQ(outcome.out, "EEXIST\nEEXIST\nENOENT\n");
  EXPECT_THAT(outcome.log, HasSubstr("open /dev/spidev1.0 O_RDWR|O_CREAT|O_EXCL 0600 = EEXIST\n"));
}

TEST_F(PathTest, WriteToWhatIsOpenForReadingIsNoEvent) {
  EXPECT_EQ(Events("open /dev/spidev1.0 r write 3 1 open " + kAttribute + " r write 4 1"),
            "open /dev/spidev1.0 O_RDONLY\nopen /sys/platform_m1/qspi_prg/value O_RDONLY\n");
  EXPECT_EQ(Out("open /dev/spidev1.0 r write 3 1"), "3\nEBADF\n");
}

TEST_F(PathTest, ReadOfWhatIsOpenForWritingIsNoEvent) {
  EXPECT_EQ(Events("open /dev/spidev1.0 w read 3 1"), "open /dev/spidev1.0 O_WRONLY\n");
  EXPECT_EQ(Out("open /dev/spidev1.0 w read 3 1"), "3\nEBADF\n");
}

// --- Descriptors --------------------------------------------------------------------------------

TEST_F(PathTest, ClosefromClosesEachFileAndNotTheLink) {
  const SimulatorOutcome outcome =
      Steps("open /dev/spidev1.0 + open /dev/i2c-1 + closefrom 3 mode 3 open /dev/spidev1.0 +");
  EXPECT_EQ(outcome.out, "3\n4\n0\nEBADF\n3\n");
  EXPECT_THAT(outcome.log,
              HasSubstr("close /dev/spidev1.0\nclose /dev/i2c-1\nstdout \"0\\n\"\n"
                        "stdout \"EBADF\\n\"\nopen /dev/spidev1.0 O_RDWR\n"));
}

TEST_F(PathTest, CloseRangeClosesEachFileOfTheRange) {
  const std::string open = "open /dev/spidev1.0 + open /dev/i2c-1 + ";
  EXPECT_EQ(Out(open + "close-range 4 1000 0 mode 3 close 4"), "3\n4\n0\n0\nEBADF\n");
  EXPECT_THAT(Events(open + "close-range 3 3 0"), EndsWith("O_RDWR\nclose /dev/spidev1.0\n"));
}

TEST_F(PathTest, CloseRangeThatEndsAtTheLinkLeavesItOpen) {
  EXPECT_EQ(Out("open /dev/spidev1.0 + close-range 400 500 0 mode 3"), "3\n0\n0\n");
  EXPECT_EQ(Out("open /dev/spidev1.0 + close-range 500 500 0 mode 3"), "3\n0\n0\n");
}

TEST_F(PathTest, CloseRangeThatClosesNothingIsNoEvent) {
  EXPECT_THAT(
      Events("open /dev/spidev1.0 + close-range 3 1000 4 close-range 4 3 0 close-range 3 9 8 "
             "mode 3"),
      Not(HasSubstr("close")));
}

TEST_F(PathTest, CopyOfANodeByFcntlIsTheSameNode) {
  EXPECT_EQ(Events("open /dev/spidev1.0 + fcntl-dup 3 close 3 mode 10 close 10"),
            "open /dev/spidev1.0 O_RDWR\n"
            "close /dev/spidev1.0\n"
            "ioctl /dev/spidev1.0 SPI_IOC_RD_MODE = 0\n"
            "close /dev/spidev1.0\n");
}

TEST_F(PathTest, CopyOfAnOrdinaryFileByFcntlIsNotKnown) {
  EXPECT_EQ(Events("open file wc fcntl-dup 3 write 10 4"), "open file O_WRONLY|O_CREAT 0600\n");
}

TEST_F(PathTest, LinkCannotBeClosed) {
  EXPECT_EQ(Out("close 500 open /dev/spidev1.0 + mode 3"), "EBADF\n3\n0\n");
}

TEST_F(PathTest, LinkGivesItsDescriptorToTheProgram) {
  EXPECT_EQ(Out("dup2 0 500 dup2 0 501 close 500 close 501 open /dev/spidev1.0 + mode 3"),
            "500\n501\n0\n0\n3\n0\n");
}

TEST_F(PathTest, LinkLivesWithAVeryLowLimit) {
  const std::string probe = "exec " PATH_PROBE " open /dev/spidev1.0 + mode 3";
  EXPECT_EQ(run_.Shell("ulimit -n 5; " + probe).out, "3\n0\n");
  EXPECT_EQ(run_.Shell("ulimit -n 4; " + probe).out, "EMFILE\nENOTTY\n");
}

}  // namespace
}  // namespace orvane
