// The whole job on a wend module. Every test compares standard output, standard error, the exit
// code and the whole log, in which console lines and events stand in their true order, unless it
// says what it leaves out; most compare the flash byte for byte as well.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "simulator/images/BootImage.h"
#include "tests/e2e/Judgement.h"
#include "tests/e2e/RunLog.h"
#include "tests/e2e/VirtualInstrument.h"
#include "tests/e2e/WendProgram.h"

namespace {

using namespace program_test;
using namespace program_test::run_log;
using namespace program_test::wend;

// On a Macronix chip level 9 is 1001 in bits 2 to 5; the latch that WREN set shows as bit 1.
const Lines kLocked = Join({Console("Locked 256 NOR flash sectors."), {"sleep 500 ms"}});
const Lines kUnprotected = {"spi /dev/spidev1.0 RDCR = 0f", "spi /dev/spidev1.0 RDSR = 00"};

Lines ConnectMacronix() {
  return Join({Find(),
               Control("qspi_prg", "1"),
               OpenBus(),
               Identify("c2 20 18"),
               Console("Chip is matronix, enabling lock logic.")});
}

Lines DecideOnMacronix() {
  return Join({ConnectMacronix(),
               Lock("07", "02", "26 0f"),
               kLocked,
               Dump("./FlashDevice.bin"),
               CompareWithOld()});
}

Lines ProgramStepOnMacronix() {
  return Join({kProgramming,
               kUnprotected,
               kOpenImage,
               OpenBus(),
               Program(kImageBytes),
               kCloseImage,
               kDone});
}

/// Up to the lock that ends it.
Lines UpdateStepsOnMacronix() {
  return Join({kUnlocking,
               Lock("0f", "24", "00 0f"),
               {"sleep 500 ms"},
               kErasing,
               kUnprotected,
               kOpenImage,
               Erase(1),
               kDone,
               ProgramStepOnMacronix(),
               VerifyStep()});
}

/// The registers are not written, and nothing is waited for.
Lines FailedLock(const std::string& config, const std::string& status, const std::string& written) {
  Lines lines = Lock(config, status, written);
  lines.back() += " = EIO";
  return Join({lines,
               ErrorLine(kWriteError),
               ErrorLine("Failed to send set control registers.  Cannot lock memory.")});
}

/// The registers are read twice to tell that the chip is protected, and twice to say how far.
Lines RefusedErase(const std::string& status) {
  const Lines level = {"spi /dev/spidev1.0 RDCR = 0f", "spi /dev/spidev1.0 RDSR = " + status};
  return Join({kErasing,
               level,
               level,
               level,
               level,
               ErrorLine("Addr: 0 is within protected size (16777216)"),
               End(kEraseFailed, 3)});
}

class WendProgramTest : public WendProgram {};

// --- The ways that lead to the end

TEST_F(WendProgramTest, OlderMicronFlashIsRewrittenAndTheZynqRestarted) {
  PlugIn();
  ExpectUpdate(0, Join({Decide(), UpdateSteps(), FinalSteps(20), kDone, End(kSuccess, 0)}));
  ExpectFlashRewritten();
}

TEST_F(WendProgramTest, TheConsoleOfASuccessfulRun) {
  PlugIn();
  const Outcome outcome = Update();
  ExpectOut(outcome,
            "programming mode: -sf\n"
            "module number: 1\n"
            "FPGA bitstream: 'image.bin'\n"
            "SPI clock rate =19MHz\n"
            "WEND Programming\n"
            "Connecting ...\n"
            "Flash Manufacturer ID   : 0x20\n"
            "Flash Memory Type       : 0xba\n"
            "Flash Memory Capacity   : 0x18\n"
            "Reading flash...\n"
            "Flash header binary filename: u-boot-vexa.bin\n"
            "Flash header build date: 2023-01-02 03:04:05\n"
            "Binary  file build date: 2024-05-06 07:08:09\n"
            "Unlocking flash memory ... \n"
            "Erasing device ... done.\n"
            "Programming device ... done.\n"
            "Reading flash...\n"
            "Flash header binary filename: u-boot-vexa.bin\n"
            "Flash header build date: 2024-05-06 07:08:09\n"
            "Binary  file build date: 2024-05-06 07:08:09\n"
            "Toggling reset ... done.\n"
            "FPGA programmed successfully.\n");
  ExpectErr(outcome, "");
  ExpectExitCode(outcome, 0);
}

TEST_F(WendProgramTest, MacronixFlashIsLockedUnlockedAndLockedAgain) {
  PlugIn(",chip=macronix");
  ExpectUpdate(0,
               Join({DecideOnMacronix(),
                     UpdateStepsOnMacronix(),
                     Lock("0f", "00", "24 0f"),
                     kLocked,
                     FinalSteps(20),
                     kDone,
                     End(kSuccess, 0)}));
  ExpectFlashRewritten();
}

TEST_F(WendProgramTest, BlankFlashIsProgrammed) {
  instrument_.WriteFile("flash.bin", {});
  PlugIn();
  ExpectUpdate(0,
               Join({Connect(),
                     Dump("./FlashDevice.bin"),
                     CompareWithout("./FlashDevice.bin"),
                     UpdateSteps(),
                     FinalSteps(20),
                     kDone,
                     End(kSuccess, 0)}));
  ExpectFlash(image_);
}

TEST_F(WendProgramTest, EqualBuildDatesLeaveTheFlashAloneWhateverTheFileName) {
  old_ = orvane::MakeZynqImage({.fileName = "other.bin", .buildDate = kNewDate, .bytes = 5000});
  instrument_.WriteFile("flash.bin", old_);
  PlugIn();
  ExpectUpdate(11,
               Join({Connect(),
                     Dump("./FlashDevice.bin"),
                     Compare("./FlashDevice.bin", "other.bin", kNewDate, "image.bin", kNewDate),
                     End(kUpToDate, 11)}));
  ExpectFlashUntouched();
}

TEST_F(WendProgramTest, ASecondRunFindsTheFlashUpToDate) {
  PlugIn();
  ExpectExitCode(Update(), 0);
  ExpectUpdate(11,
               Join({Connect(),
                     Dump("./FlashDevice.bin"),
                     Compare("./FlashDevice.bin", kName, kNewDate, "image.bin", kNewDate),
                     End(kUpToDate, 11)}));
  ExpectFlashRewritten();
}

TEST_F(WendProgramTest, LongerStaleDumpsKeepTheirTails) {
  const Bytes stale(5000, 0x5A);
  instrument_.WriteFile("FlashDevice.bin", stale);
  instrument_.WriteFile("FlashDevice_verif.bin", stale);
  PlugIn();
  ExpectUpdate(0, Join({Decide(), UpdateSteps(), FinalSteps(20), kDone, End(kSuccess, 0)}));

  Bytes before(old_.begin(), old_.begin() + 4096);
  before.resize(5000, 0x5A);
  ExpectContents("FlashDevice.bin", instrument_.ReadFile("FlashDevice.bin"), before);
  Bytes after = PaddedTo(4096, image_);
  after.resize(5000, 0x5A);
  ExpectContents("FlashDevice_verif.bin", instrument_.ReadFile("FlashDevice_verif.bin"), after);
}

// --- DONE

TEST_F(WendProgramTest, DoneSeenOnTheLastPollButOneIsSuccess) {
  PlugIn(",done=after:9998");
  ExpectUpdate(0, Join({Decide(), UpdateSteps(), FinalSteps(9998), kDone, End(kSuccess, 0)}));
}

TEST_F(WendProgramTest, DoneSeenOnTheLastPollCountsAsTimeout) {
  PlugIn(",done=after:9999");
  ExpectUpdate(7, Join({Decide(), UpdateSteps(), FinalSteps(9999), End(kNoDone, 7)}));
}

TEST_F(WendProgramTest, DoneThatNeverRisesIsATimeout) {
  PlugIn(",done=low");
  Lines log = Join({Decide(), UpdateSteps(), FinalSteps(10'000)});
  log.at(log.size() - 2) = R"(read /sys/platform_m1/zynq_done/value "0")";  // the last read too
  ExpectUpdate(7, Join({log, End(kNoDone, 7)}));
}

// --- Devices that are not there

TEST_F(WendProgramTest, EmptySlotHasNoI2cBus) {
  PlugIn();
  ExpectRun(instrument_.Run({"wend", "-sf", "2", "image.bin"}),
            1,
            Join({Console("programming mode: -sf"),
                  Console("module number: 2"),
                  Console("FPGA bitstream: 'image.bin'"),
                  {"dbus GetModuleLocations = 1"},
                  ErrorLine("ERROR: No I2C device found"),
                  Console(kConnectFailed),
                  {"exit 1"}}));
}

TEST_F(WendProgramTest, EmptyI2cNameFailsAlsoForAModuleThatNeedsNone) {
  PlugIn(",i2c=none");
  ExpectUpdate(1,
               Join({Request("image.bin"),
                     {"dbus GetModuleLocations = 1", R"(dbus GetI2CBus 1 = "")"},
                     ErrorLine("ERROR: No I2C device found"),
                     Console(kConnectFailed),
                     {"exit 1"}}));
}

TEST_F(WendProgramTest, EmptySpiNameFails) {
  PlugIn(",spi=none");
  Lines discovery = Discovery();
  discovery.back() = R"(dbus GetSPIDev 1 = "")";
  ExpectUpdate(1,
               Join({Request("image.bin"),
                     discovery,
                     ErrorLine("ERROR: No SPI device found"),
                     Console(kConnectFailed),
                     {"close -1", "exit 1"}}));
}

TEST_F(WendProgramTest, MissingSpiNodeFailsToConnectAndTheDeviceIsDestroyedOnce) {
  PlugIn(",spidev=missing");
  ExpectUpdate(1,
               Join({Find(),
                     Control("qspi_prg", "1"),
                     {"open /dev/spidev1.0 O_RDWR = ENOENT"},
                     EndWithoutSpi()}));
}

TEST_F(WendProgramTest, MissingI2cNodeDoesNotMatter) {
  PlugIn(",i2cdev=missing");
  ExpectUpdate(0, Join({Decide(), UpdateSteps(), FinalSteps(20), kDone, End(kSuccess, 0)}));
}

TEST_F(WendProgramTest, AbsentFlashFailsToConnect) {
  PlugIn(",flash-chip=absent");
  ExpectUpdate(1,
               Join({Find(),
                     Control("qspi_prg", "1"),
                     OpenBus(),
                     Identify("00 00 00"),
                     End(kConnectFailed, 1)}));
}

struct ServiceRow {
  const char* name;
  const char* without;
  std::string error;
};

void PrintTo(const ServiceRow& row, std::ostream* out) { *out << row.name; }

class MissingServiceTest : public WendProgramTest,
                           public testing::WithParamInterface<ServiceRow> {};

// The bus's own error text is left out.
TEST_P(MissingServiceTest, EndsTheProcess) {
  PlugIn();
  instrument_.Option({"--without", GetParam().without});
  const Outcome outcome = Update();
  ExpectExitCode(outcome, 134);
  ExpectOut(outcome, ConsoleText(Request("image.bin"), "stdout"));
  const std::string start =
      "terminate called after throwing an instance of 'std::runtime_error'\n  what():  " +
      GetParam().error;
  ExpectErrStarts(outcome, start);
}

INSTANTIATE_TEST_SUITE_P(
    Services,
    MissingServiceTest,
    testing::Values(ServiceRow{"Inventory", "inventory", "GetModuleLocations: "},
                    ServiceRow{"Resources", "resources", "GetI2CBus: "},
                    ServiceRow{"Bus", "bus", "org.orvane.SystemInventory1: "}),
    [](const auto& row) { return row.param.name; });

// --- The SPI bus

struct BusRow {
  const char* name;
  const char* fault;
  std::size_t lines;  // of opening the bus, the failed one included
};

void PrintTo(const BusRow& row, std::ostream* out) { *out << row.name; }

class BusSetupTest : public WendProgramTest, public testing::WithParamInterface<BusRow> {};

TEST_P(BusSetupTest, FailedIoctlClosesTheNodeAndFailsToConnect) {
  Fault(GetParam().fault);
  PlugIn();
  Lines opening = OpenBus();
  opening.resize(GetParam().lines);
  opening.back() = opening.back().substr(0, opening.back().find(" = ")) + " = EINVAL";
  ExpectUpdate(
      1,
      Join({Find(), Control("qspi_prg", "1"), opening, {"close /dev/spidev1.0"}, EndWithoutSpi()}));
}

INSTANTIATE_TEST_SUITE_P(Ioctls,
                         BusSetupTest,
                         testing::Values(BusRow{"Mode", "ioctl:SPI_IOC_WR_MODE:EINVAL", 2},
                                         BusRow{"ReadSpeed", "ioctl:SPI_IOC_RD_MAX:EINVAL", 3},
                                         BusRow{"WriteSpeed", "ioctl:SPI_IOC_WR_MAX:EINVAL", 4}),
                         [](const auto& row) { return row.param.name; });

TEST_F(WendProgramTest, FailedIdentificationFailsToConnect) {
  Fault("spi:RDID:EIO");
  PlugIn();
  ExpectUpdate(1,
               Join({Find(),
                     Control("qspi_prg", "1"),
                     OpenBus(),
                     {"spi /dev/spidev1.0 speed 19000000 bits 8",
                      "spi /dev/spidev1.0 WREN",
                      "spi /dev/spidev1.0 RDID = EIO"},
                     ErrorLine(kReadError),
                     End(kConnectFailed, 1)}));
}

TEST_F(WendProgramTest, FailedWriteEnableWhileConnectingIsReportedAndIgnored) {
  Fault("spi:WREN#1:ETIMEDOUT");
  PlugIn();
  const Lines identify = Identify("20 ba 18");
  ExpectUpdate(
      0,
      Join({Find(),
            Control("qspi_prg", "1"),
            OpenBus(),
            {identify.at(0), "spi /dev/spidev1.0 WREN = ETIMEDOUT"},
            ErrorLine("SpiDev::Write() SPI_IOC_MESSAGE error, errno = Connection timed out "
                      "file: /dev/spidev1.0"),
            Lines(identify.begin() + 2, identify.end()),
            Dump("./FlashDevice.bin"),
            CompareWithOld(),
            UpdateSteps(),
            FinalSteps(20),
            kDone,
            End(kSuccess, 0)}));
}

// --- The dumps and the decision

TEST_F(WendProgramTest, FailedDumpReadFailsToConnectWithoutADecision) {
  Fault("spi:READ#1:EIO");
  PlugIn();
  ExpectUpdate(1,
               Join({Connect(),
                     {"open ./FlashDevice.bin O_WRONLY|O_CREAT 0600",
                      R"(stdout "Reading flash...")",
                      "spi /dev/spidev1.0 READ 0x000000 +4096 = EIO"},
                     ErrorLine(kReadError),
                     {"close ./FlashDevice.bin"},
                     ErrorLine("ERROR: Can't read Flash device !"),
                     End(kConnectFailed, 1)}));
  ExpectFlashUntouched();
}

TEST_F(WendProgramTest, FullDiskFailsToConnectWithoutADecision) {
  Fault("write:./FlashDevice.bin:ENOSPC");
  PlugIn();
  ExpectUpdate(1,
               Join({Connect(),
                     {"open ./FlashDevice.bin O_WRONLY|O_CREAT 0600",
                      R"(stdout "Reading flash...")",
                      "spi /dev/spidev1.0 READ 0x000000 +4096",
                      "write ./FlashDevice.bin +4096 = ENOSPC",
                      "close ./FlashDevice.bin"},
                     ErrorLine("ERROR: Can't read Flash device !"),
                     End(kConnectFailed, 1)}));
  ExpectFlashUntouched();
}

TEST_F(WendProgramTest, DumpFileThatCannotBeOpenedFailsAndTheFlashIsNotRead) {
  std::filesystem::create_directory(instrument_.File("FlashDevice.bin"));
  PlugIn();
  ExpectUpdate(1,
               Join({Connect(),
                     {"open ./FlashDevice.bin O_WRONLY|O_CREAT 0600 = EISDIR",
                      R"(stdout "Reading flash...")",
                      "close -1"},
                     ErrorLine("ERROR: Can't read Flash device !"),
                     End(kConnectFailed, 1)}));
  ExpectFlashUntouched();
}

// --- Erasing and programming

TEST_F(WendProgramTest, FailedEraseEndsWithTheFlashLeftToTheController) {
  Fault("spi:SE:EIO");
  PlugIn();
  ExpectUpdate(3,
               Join({Decide(),
                     kUnlocking,
                     kErasing,
                     kOpenImage,
                     {"spi /dev/spidev1.0 WREN", "spi /dev/spidev1.0 SE 0x000000 = EIO"},
                     ErrorLine(kWriteError),
                     End(kEraseFailed, 3)}));
  ExpectFlashUntouched();
}

TEST_F(WendProgramTest, FailedPollWhileErasingFailsTheErase) {
  Fault("spi:RDSR#2:EIO");
  PlugIn();
  ExpectUpdate(3,
               Join({Decide(),
                     kUnlocking,
                     kErasing,
                     kOpenImage,
                     {"spi /dev/spidev1.0 WREN",
                      "spi /dev/spidev1.0 SE 0x000000",
                      "spi /dev/spidev1.0 RDSR = 03",
                      "spi /dev/spidev1.0 RDSR = EIO"},
                     ErrorLine(kReadError),
                     End(kEraseFailed, 3)}));
}

struct WaitRow {
  const char* name;
  const char* clockStep;  // milliseconds from one look at the clock to the next
  std::size_t polls;
};

std::ostream& operator<<(std::ostream& out, const WaitRow& row) { return out << row.name; }

class SectorThatStaysBusyTest : public WendProgramTest,
                                public testing::WithParamInterface<WaitRow> {};

TEST_P(SectorThatStaysBusyTest, FailsTheEraseAfterFiveSecondsAndIsLeftAlone) {
  instrument_.Option({"--clock-step", GetParam().clockStep});
  PlugIn(",busy-after=1");
  ExpectUpdate(3,
               Join({Decide(),
                     kUnlocking,
                     kErasing,
                     kOpenImage,
                     {"spi /dev/spidev1.0 WREN", "spi /dev/spidev1.0 SE 0x000000"},
                     Lines(GetParam().polls, "spi /dev/spidev1.0 RDSR = 03"),
                     End(kEraseFailed, 3)}));
}

INSTANTIATE_TEST_SUITE_P(Waits,
                         SectorThatStaysBusyTest,
                         testing::Values(WaitRow{"FourSecondsAreNotTooLong", "4000", 3},
                                         WaitRow{"JustOverFiveSecondsAre", "5001", 2}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(WendProgramTest, PageThatStaysBusyFailsTheProgrammingAndTheRestIsStillTried) {
  instrument_.Option({"--bufsiz", "512"});  // one piece of the image is two pages
  instrument_.Option({"--clock-step", "600"});
  PlugIn(",busy-after=2");
  const Outcome outcome = Update();
  ExpectOutEnds(outcome, "Programming device ... " + kProgramFailed + "\n");
  ExpectExitCode(outcome, 6);
  ExpectTrafficContains(outcome, " PP 0x000100 ", false);
  ExpectTrafficContains(outcome, " PP 0x000200 ");
}

TEST_F(WendProgramTest, ChipThatStaysLockedRefusesTheErase) {
  PlugIn(",chip=macronix,register-lost=2");
  ExpectUpdate(3,
               Join({DecideOnMacronix(),
                     kUnlocking,
                     Lock("0f", "24", "00 0f"),
                     {"sleep 500 ms"},
                     RefusedErase("24")}));
  ExpectFlashUntouched();
}

TEST_F(WendProgramTest, ChipThatCannotBeUnlockedIsReportedAndRefusesTheErase) {
  Fault("spi:WRSR#2:EIO");
  PlugIn(",chip=macronix");
  // The latch that the last WREN set is still there.
  ExpectUpdate(
      3,
      Join({DecideOnMacronix(), kUnlocking, FailedLock("0f", "24", "00 0f"), RefusedErase("26")}));
  ExpectFlashUntouched();
}

TEST_F(WendProgramTest, ChipThatCannotBeLockedAgainIsReportedAndTheRunSucceeds) {
  Fault("spi:WRSR#3:EIO");
  PlugIn(",chip=macronix");
  ExpectUpdate(0,
               Join({DecideOnMacronix(),
                     UpdateStepsOnMacronix(),
                     FailedLock("0f", "00", "24 0f"),
                     FinalSteps(20),
                     kDone,
                     End(kSuccess, 0)}));
  ExpectFlashRewritten();
}

TEST_F(WendProgramTest, ProtectionThatCannotBeReadIsReportedAndCountsAsNone) {
  Fault("spi:RDCR#3:EIO");  // the guard of the erase
  PlugIn(",chip=macronix");
  ExpectUpdate(0,
               Join({DecideOnMacronix(),
                     kUnlocking,
                     Lock("0f", "24", "00 0f"),
                     {"sleep 500 ms"},
                     kErasing,
                     {"spi /dev/spidev1.0 RDCR = EIO"},
                     ErrorLine(kReadError),
                     ErrorLine("Failed to read configuration register.  Cannot lock memory."),
                     kOpenImage,
                     Erase(1),
                     kDone,
                     ProgramStepOnMacronix(),
                     VerifyStep(),
                     Lock("0f", "00", "24 0f"),
                     kLocked,
                     FinalSteps(20),
                     kDone,
                     End(kSuccess, 0)}));
  ExpectFlashRewritten();
}

struct LockRow {
  const char* name;
  const char* fault;
  std::size_t made;  // how many of the four messages are made, the failed one included
  std::string failed;
  std::string busError;
  std::string message;
};

void PrintTo(const LockRow& row, std::ostream* out) { *out << row.name; }

class LockTest : public WendProgramTest, public testing::WithParamInterface<LockRow> {};

// The log is compared up to the first dump.
TEST_P(LockTest, FailureWhileConnectingIsReportedAndTheRunGoesOn) {
  Fault(GetParam().fault);
  PlugIn(",chip=macronix");
  Lines attempt = Lock("07", "02", "26 0f");
  attempt.resize(GetParam().made);
  attempt.back() = "spi /dev/spidev1.0 " + GetParam().failed + " = EIO";
  const Lines start = Join({ConnectMacronix(),
                            attempt,
                            ErrorLine(GetParam().busError),
                            ErrorLine(GetParam().message),
                            Dump("./FlashDevice.bin")});
  const Outcome outcome = Update();
  ExpectRunStarts(outcome, start);
  ExpectErr(outcome, GetParam().busError + "\n" + GetParam().message + "\n");
  ExpectExitCode(outcome, 0);
  ExpectFlashRewritten();
}

INSTANTIATE_TEST_SUITE_P(
    Messages,
    LockTest,
    testing::Values(LockRow{"ReadConfiguration",
                            "spi:RDCR#1:EIO",
                            1,
                            "RDCR",
                            kReadError,
                            "Failed to read configuration register.  Cannot lock memory."},
                    LockRow{"ReadStatus",
                            "spi:RDSR#1:EIO",
                            2,
                            "RDSR",
                            kReadError,
                            "Failed to read status register.  Cannot lock memory."},
                    LockRow{"WriteEnable",
                            "spi:WREN#2:EIO",
                            3,
                            "WREN",
                            kWriteError,
                            "Failed to send WREN command to device.  Cannot lock memory."},
                    LockRow{"WriteRegisters",
                            "spi:WRSR#1:EIO",
                            4,
                            "WRSR 26 0f",
                            kWriteError,
                            "Failed to send set control registers.  Cannot lock memory."}),
    [](const auto& row) { return row.param.name; });

// The log of the pages is left out: the flash shows which were written.
TEST_F(WendProgramTest, FailedPageIsSkippedTheRestIsWrittenAndTheRunFails) {
  instrument_.Option({"--bufsiz", "512"});  // one piece of the image is two pages
  Fault("spi:PP#2:EIO");
  PlugIn();
  const Outcome outcome = Update();
  ExpectExitCode(outcome, 6);
  ExpectErr(outcome, kWriteError + "\n");
  ExpectOutEnds(outcome, "Programming device ... " + kProgramFailed + "\n");
  Bytes expected = Flashed(image_, old_);
  std::fill_n(expected.begin() + 256, 256, 0xFF);
  ExpectFlash(expected);
}

TEST_F(WendProgramTest, NodeThatDoesNotOpenAgainFailsEveryPage) {
  Fault("open:/dev/spidev1.0#2:EMFILE");
  PlugIn();
  ExpectUpdate(6,
               Join({Decide(),
                     EraseStep(),
                     kProgramming,
                     kOpenImage,
                     {"open /dev/spidev1.0 O_RDWR = EMFILE"},
                     kCloseImage,
                     {"close -1", "close -1"},
                     Console(kProgramFailed),
                     {"close -1", "exit 6"}}));
}

// --- Verification

TEST_F(WendProgramTest, FirstPageThatDoesNotProgramFailsTheVerification) {
  PlugIn(",program-lost=1");
  ExpectUpdate(6,
               Join({Decide(),
                     EraseStep(),
                     ProgramStep(),
                     Dump("./FlashDevice_verif.bin"),
                     CompareWithout("./FlashDevice_verif.bin"),
                     ErrorLine("ERROR: SPI flash upgrade failed - Try to remove WEND if present !"),
                     End(kProgramFailed, 6)}));
}

TEST_F(WendProgramTest, LaterPageThatDoesNotProgramIsNotNoticed) {
  PlugIn(",program-lost=2");
  ExpectUpdate(0, Join({Decide(), UpdateSteps(), FinalSteps(20), kDone, End(kSuccess, 0)}));
  Bytes expected = Flashed(image_, old_);
  std::fill_n(expected.begin() + 256, 256, 0xFF);
  ExpectFlash(expected);
}

TEST_F(WendProgramTest, FailedVerifyReadFailsToConnect) {
  Fault("spi:READ#2:EIO");
  PlugIn();
  ExpectUpdate(1,
               Join({Decide(),
                     EraseStep(),
                     ProgramStep(),
                     {"open ./FlashDevice_verif.bin O_WRONLY|O_CREAT 0600",
                      R"(stdout "Reading flash...")",
                      "spi /dev/spidev1.0 READ 0x000000 +4096 = EIO"},
                     ErrorLine(kReadError),
                     {"close ./FlashDevice_verif.bin"},
                     ErrorLine("ERROR: Can't read Flash device !"),
                     End(kConnectFailed, 1)}));
}

// --- The control files: every access that fails ends the process

const std::string kQspi = "/sys/platform_m1/qspi_prg/value";
const std::string kReset = "/sys/platform_m1/zynq_hw_reset_n/value";
const std::string kDoneFile = "/sys/platform_m1/zynq_done/value";

Lines BeforeHandingBack() { return Join({Decide(), UpdateSteps()}); }

Lines BeforeReset() {
  return Join({BeforeHandingBack(), Control("qspi_prg", "0"), {R"(stdout "Toggling reset ... ")"}});
}

Lines BeforeRelease() {
  return Join({BeforeReset(), Control("zynq_hw_reset_n", "0"), {"sleep 5 s"}});
}

Lines BeforeDone() { return Join({BeforeRelease(), Control("zynq_hw_reset_n", "1")}); }

struct ControlRow {
  const char* name;
  std::string fault;
  std::string message;
  Lines (*before)();  // all in front of the access
  Lines access;
};

void PrintTo(const ControlRow& row, std::ostream* out) { *out << row.name; }

/// A control file that is written, up to the failing call.
ControlRow Written(const char* name,
                   const std::string& path,
                   const char* symbol,
                   int nth,
                   const std::string& value,
                   const std::string& call,
                   Lines (*before)()) {
  const std::string calls[] = {
      "open " + path + " O_WRONLY|O_SYNC", "write " + path + " \"" + value + "\"", "close " + path};
  Lines access;
  for (const std::string& line : calls) {
    const bool fails = line.rfind(call + " ", 0) == 0;
    access.push_back(fails ? line + " = EIO" : line);
    if (fails) {
      break;
    }
  }
  return {name,
          call + ":" + path + "#" + std::to_string(nth) + ":EIO",
          "could not " + (call == "write" ? "write to" : call) + " SYSFS " + symbol +
              " value device: Input/output error",
          before,
          access};
}

class ControlFileTest : public WendProgramTest, public testing::WithParamInterface<ControlRow> {};

TEST_P(ControlFileTest, FailureEndsTheProcessWithExitStatus1) {
  Fault(GetParam().fault);
  PlugIn();
  ExpectUpdate(
      1, Join({GetParam().before(), GetParam().access, ErrorLine(GetParam().message), {"exit 1"}}));
}

INSTANTIATE_TEST_SUITE_P(
    Written,
    ControlFileTest,
    testing::Values(
        Written("TakeOpen", kQspi, "QSPI_PRG", 1, "1", "open", Find),
        Written("TakeWrite", kQspi, "QSPI_PRG", 1, "1", "write", Find),
        Written("TakeClose", kQspi, "QSPI_PRG", 1, "1", "close", Find),
        Written("GiveBackOpen", kQspi, "QSPI_PRG", 2, "0", "open", BeforeHandingBack),
        Written("GiveBackWrite", kQspi, "QSPI_PRG", 2, "0", "write", BeforeHandingBack),
        Written("GiveBackClose", kQspi, "QSPI_PRG", 2, "0", "close", BeforeHandingBack),
        Written("ResetOpen", kReset, "ZYNQ_HW_RESET_N", 1, "0", "open", BeforeReset),
        Written("ResetWrite", kReset, "ZYNQ_HW_RESET_N", 1, "0", "write", BeforeReset),
        Written("ResetClose", kReset, "ZYNQ_HW_RESET_N", 1, "0", "close", BeforeReset),
        Written("ReleaseOpen", kReset, "ZYNQ_HW_RESET_N", 2, "1", "open", BeforeRelease),
        Written("ReleaseWrite", kReset, "ZYNQ_HW_RESET_N", 2, "1", "write", BeforeRelease),
        Written("ReleaseClose", kReset, "ZYNQ_HW_RESET_N", 2, "1", "close", BeforeRelease)),
    [](const auto& row) { return row.param.name; });

const std::string kOpenDone = "open " + kDoneFile + " O_RDONLY|O_SYNC";
const std::string kInvalidDone = R"(Invalid  value read. Should be "1" or "0". )";

INSTANTIATE_TEST_SUITE_P(
    Read,
    ControlFileTest,
    testing::Values(
        ControlRow{"DoneOpen",
                   "open:" + kDoneFile + "#1:ENOENT",
                   "could not open SYSFS ZYNQ_DONE value device: No such file or directory",
                   BeforeDone,
                   {kOpenDone + " = ENOENT"}},
        ControlRow{"DoneRead",
                   "read:" + kDoneFile + "#1:EIO",
                   "could not read SYSFS ZYNQ_DONE value device: Input/output error",
                   BeforeDone,
                   {kOpenDone, "read " + kDoneFile + " = EIO"}},
        ControlRow{"DoneClose",
                   "close:" + kDoneFile + "#1:EIO",
                   "could not close SYSFS ZYNQ_DONE value device: Input/output error",
                   BeforeDone,
                   {kOpenDone, "read " + kDoneFile + " \"0\"", "close " + kDoneFile + " = EIO"}},
        ControlRow{"DoneLetter",
                   "read:" + kDoneFile + "#1:data:x",
                   kInvalidDone,
                   BeforeDone,
                   {kOpenDone, "read " + kDoneFile + " \"x\""}},
        ControlRow{"DoneEmpty",
                   "read:" + kDoneFile + "#1:data:",
                   kInvalidDone,
                   BeforeDone,
                   {kOpenDone, "read " + kDoneFile + " \"\""}}),
    [](const auto& row) { return row.param.name; });

TEST_F(WendProgramTest, ModuleWithoutControlFilesEndsTheProcess) {
  PlugIn(",zynq-files=missing");
  ExpectUpdate(
      1,
      Join({Find(),
            {"open " + kQspi + " O_WRONLY|O_SYNC = ENOENT"},
            ErrorLine("could not open SYSFS QSPI_PRG value device: No such file or directory"),
            {"exit 1"}}));
}

// --- Closed standard descriptors

TEST_F(WendProgramTest, ClosedStandardDescriptorsAreOpenedOnTheNullDeviceFirst) {
  PlugIn();
  const Outcome outcome =
      instrument_.RunShell("exec \"$TARNWICK\" wend -sf 1 image.bin <&- >&- 2>&-");
  Lines expected = {"open /dev/null O_RDWR", "open /dev/null O_RDWR", "open /dev/null O_RDWR"};
  for (const std::string& line :
       Join({Decide(), UpdateSteps(), FinalSteps(20), kDone, End(kSuccess, 0)})) {
    if (line.rfind("stdout", 0) != 0) {
      expected.push_back(line);
    }
  }
  ExpectRun(outcome, 0, expected);
  ExpectFlashRewritten();
}

TEST_F(WendProgramTest, OneClosedDescriptorIsReplacedAlone) {
  PlugIn();
  const Outcome outcome = instrument_.RunShell("exec \"$TARNWICK\" wend -sf 1 image.bin 2>&-");
  ExpectRun(outcome,
            0,
            Join({{"open /dev/null O_RDWR"},
                  Decide(),
                  UpdateSteps(),
                  FinalSteps(20),
                  kDone,
                  End(kSuccess, 0)}));
}

}  // namespace
