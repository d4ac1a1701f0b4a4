// The whole job on a wend module. Every test compares standard output, standard error, the exit
// code and the whole log, in which console lines and events stand in their true order, unless it
// says what it leaves out; most compare the flash byte for byte as well.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "simulator/images/BootImage.h"
#include "tests/e2e/Judgement.h"
#include "tests/e2e/ProgramTest.h"
#include "tests/e2e/RunLog.h"
#include "tests/e2e/VirtualInstrument.h"

namespace {

using namespace program_test;
using namespace program_test::run_log;

class WendProgramTest : public ProgramTest {
 protected:
  WendProgramTest() : ProgramTest(kWend) {}
};

// --- The ways that lead to the end

TEST_F(WendProgramTest, OlderMicronFlashIsRewrittenAndTheZynqRestarted) {
  PlugIn();
  ExpectUpdate(0, "micron-rewritten");
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
            "Flash header build date: 2023-05-06 07:08:09\n"
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
  ExpectUpdate(0, "macronix-rewritten");
  ExpectFlashRewritten();
}

TEST_F(WendProgramTest, BlankFlashIsProgrammed) {
  StoreFlash({});
  PlugIn();
  ExpectUpdate(0, "blank-rewritten");
  ExpectFlash(image_);
}

TEST_F(WendProgramTest, EqualBuildDatesLeaveTheFlashAloneWhateverTheFileName) {
  StoreFlash(orvane::MakeZynqImage(
      {.fileName = "other.bin", .buildDate = "2024-05-06 07:08:09", .bytes = 5000}));
  PlugIn();
  ExpectUpdate(11, "up-to-date-by-date");
  ExpectFlashUntouched();
}

TEST_F(WendProgramTest, ASecondRunFindsTheFlashUpToDate) {
  PlugIn();
  ExpectExitCode(Update(), 0);
  ExpectUpdate(11, "up-to-date");
  ExpectFlashRewritten();
}

TEST_F(WendProgramTest, LongerStaleDumpsKeepTheirTails) {
  const Bytes stale(5000, 0x5A);
  instrument_.WriteFile("FlashDevice.bin", stale);
  instrument_.WriteFile("FlashDevice_verif.bin", stale);
  PlugIn();
  ExpectUpdate(0, "micron-rewritten");

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
  ExpectUpdate(0, "done-just-in-time");
}

TEST_F(WendProgramTest, DoneSeenOnTheLastPollCountsAsTimeout) {
  PlugIn(",done=after:9999");
  ExpectUpdate(7, "done-too-late");
}

TEST_F(WendProgramTest, DoneThatNeverRisesIsATimeout) {
  PlugIn(",done=low");
  ExpectUpdate(7, "no-done");
}

// --- Devices that are not there

TEST_F(WendProgramTest, EmptySlotHasNoI2cBus) {
  PlugIn();
  ExpectGolden(instrument_.RunWords("wend -sf 2 image.bin"), 1, "wend-empty-slot");
}

TEST_F(WendProgramTest, EmptyI2cNameFailsAlsoForAModuleThatNeedsNone) {
  PlugIn(",i2c=none");
  ExpectUpdate(1, "no-i2c-name");
}

TEST_F(WendProgramTest, EmptySpiNameFails) {
  PlugIn(",spi=none");
  ExpectUpdate(1, "no-spi-name");
}

TEST_F(WendProgramTest, MissingSpiNodeFailsToConnectAndTheDeviceIsDestroyedOnce) {
  PlugIn(",spidev=missing");
  ExpectUpdate(1, "no-spi-node");
}

TEST_F(WendProgramTest, MissingI2cNodeDoesNotMatter) {
  PlugIn(",i2cdev=missing");
  ExpectUpdate(0, "micron-rewritten");
}

TEST_F(WendProgramTest, AbsentFlashFailsToConnect) {
  PlugIn(",flash-chip=absent");
  ExpectUpdate(1, "absent-flash");
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
  ExpectOut(outcome, "programming mode: -sf\nmodule number: 1\nFPGA bitstream: 'image.bin'\n");
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
  std::string request;  // as the log shows it
  std::string result;   // after it, when nothing fails
};

void PrintTo(const BusRow& row, std::ostream* out) { *out << row.name; }

class BusSetupTest : public WendProgramTest, public testing::WithParamInterface<BusRow> {};

TEST_P(BusSetupTest, FailedIoctlClosesTheNodeAndFailsToConnect) {
  Fault(GetParam().fault);
  PlugIn();
  const std::string call = "ioctl /dev/spidev1.0 " + GetParam().request;
  ExpectUpdate(1,
               Join({Until(Log("micron-rewritten"), call + GetParam().result),
                     {call + " = EINVAL", "close /dev/spidev1.0", "close -1"},
                     Console(kConnectFailed),
                     {"close -1", "exit 1"}}));
}

INSTANTIATE_TEST_SUITE_P(
    Ioctls,
    BusSetupTest,
    testing::Values(
        BusRow{"Mode", "ioctl:SPI_IOC_WR_MODE:EINVAL", "SPI_IOC_WR_MODE 0", ""},
        BusRow{
            "ReadSpeed", "ioctl:SPI_IOC_RD_MAX:EINVAL", "SPI_IOC_RD_MAX_SPEED_HZ", " = 50000000"},
        BusRow{
            "WriteSpeed", "ioctl:SPI_IOC_WR_MAX:EINVAL", "SPI_IOC_WR_MAX_SPEED_HZ 50000000", ""}),
    [](const auto& row) { return row.param.name; });

TEST_F(WendProgramTest, FailedIdentificationFailsToConnect) {
  Fault("spi:RDID:EIO");
  PlugIn();
  ExpectUpdate(1, "identification-fails");
}

TEST_F(WendProgramTest, FailedWriteEnableWhileConnectingIsReportedAndIgnored) {
  Fault("spi:WREN#1:ETIMEDOUT");
  PlugIn();
  ExpectUpdate(0, "first-write-enable-fails");
}

// --- The dumps and the decision

TEST_F(WendProgramTest, FailedDumpReadFailsToConnectWithoutADecision) {
  Fault("spi:READ#1:EIO");
  PlugIn();
  ExpectUpdate(1, "dump-read-fails");
  ExpectFlashUntouched();
}

TEST_F(WendProgramTest, FullDiskFailsToConnectWithoutADecision) {
  Fault("write:./FlashDevice.bin:ENOSPC");
  PlugIn();
  ExpectUpdate(1, "full-disk");
  ExpectFlashUntouched();
}

TEST_F(WendProgramTest, DumpFileThatCannotBeOpenedFailsAndTheFlashIsNotRead) {
  std::filesystem::create_directory(instrument_.File("FlashDevice.bin"));
  PlugIn();
  ExpectUpdate(1, "dump-is-a-directory");
  ExpectFlashUntouched();
}

// --- Erasing and programming

TEST_F(WendProgramTest, FailedEraseEndsWithTheFlashLeftToTheController) {
  Fault("spi:SE:EIO");
  PlugIn();
  ExpectUpdate(3, "erase-fails");
  ExpectFlashUntouched();
}

TEST_F(WendProgramTest, FailedPollWhileErasingFailsTheErase) {
  Fault("spi:RDSR#2:EIO");
  PlugIn();
  ExpectUpdate(3, "erase-poll-fails");
}

struct WaitRow {
  const char* name;
  const char* clockStep;  // milliseconds from one look at the clock to the next
  const char* golden;
};

std::ostream& operator<<(std::ostream& out, const WaitRow& row) { return out << row.name; }

class SectorThatStaysBusyTest : public WendProgramTest,
                                public testing::WithParamInterface<WaitRow> {};

TEST_P(SectorThatStaysBusyTest, FailsTheEraseAfterFiveSecondsAndIsLeftAlone) {
  instrument_.Option({"--clock-step", GetParam().clockStep});
  PlugIn(",busy-after=1");
  ExpectUpdate(3, GetParam().golden);
}

INSTANTIATE_TEST_SUITE_P(
    Waits,
    SectorThatStaysBusyTest,
    testing::Values(WaitRow{"FourSecondsAreNotTooLong", "4000", "sector-busy-for-three-polls"},
                    WaitRow{"JustOverFiveSecondsAre", "5001", "sector-busy-for-two-polls"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(WendProgramTest, PageThatStaysBusyFailsTheProgrammingAndTheRestIsStillTried) {
  instrument_.Options("--bufsiz 512");  // one piece of the image is two pages
  instrument_.Options("--clock-step 600");
  PlugIn(",busy-after=2");
  ExpectUpdate(6, "page-stays-busy");
}

TEST_F(WendProgramTest, ChipThatStaysLockedRefusesTheErase) {
  PlugIn(",chip=macronix,register-lost=2");
  ExpectUpdate(3, "macronix-stays-locked");
  ExpectFlashUntouched();
}

TEST_F(WendProgramTest, ChipThatCannotBeUnlockedIsReportedAndRefusesTheErase) {
  Fault("spi:WRSR#2:EIO");
  PlugIn(",chip=macronix");
  ExpectUpdate(3, "macronix-unlock-fails");
  ExpectFlashUntouched();
}

TEST_F(WendProgramTest, ChipThatCannotBeLockedAgainIsReportedAndTheRunSucceeds) {
  Fault("spi:WRSR#3:EIO");
  PlugIn(",chip=macronix");
  ExpectUpdate(0, "macronix-second-lock-fails");
  ExpectFlashRewritten();
}

TEST_F(WendProgramTest, ProtectionThatCannotBeReadIsReportedAndCountsAsNone) {
  Fault("spi:RDCR#3:EIO");  // the guard of the erase
  PlugIn(",chip=macronix");
  ExpectUpdate(0, "macronix-protection-unreadable");
  ExpectFlashRewritten();
}

struct LockRow {
  const char* name;
  const char* fault;
  const char* golden;
};

void PrintTo(const LockRow& row, std::ostream* out) { *out << row.name; }

class LockTest : public WendProgramTest, public testing::WithParamInterface<LockRow> {};

TEST_P(LockTest, FailureWhileConnectingIsReportedAndTheRunGoesOn) {
  Fault(GetParam().fault);
  PlugIn(",chip=macronix");
  ExpectUpdate(0, GetParam().golden);
  ExpectFlashRewritten();
}

INSTANTIATE_TEST_SUITE_P(
    Messages,
    LockTest,
    testing::Values(LockRow{"ReadConfiguration", "spi:RDCR#1:EIO", "macronix-lock-fails-at-rdcr"},
                    LockRow{"ReadStatus", "spi:RDSR#1:EIO", "macronix-lock-fails-at-rdsr"},
                    LockRow{"WriteEnable", "spi:WREN#2:EIO", "macronix-lock-fails-at-wren"},
                    LockRow{"WriteRegisters", "spi:WRSR#1:EIO", "macronix-lock-fails-at-wrsr"}),
    [](const auto& row) { return row.param.name; });

TEST_F(WendProgramTest, FailedPageIsSkippedTheRestIsWrittenAndTheRunFails) {
  instrument_.Options("--bufsiz 512");  // one piece of the image is two pages
  Fault("spi:PP#2:EIO");
  PlugIn();
  ExpectUpdate(6, "page-fails");
  ExpectFlashRewrittenBut(256, 256);
}

TEST_F(WendProgramTest, NodeThatDoesNotOpenAgainFailsEveryPage) {
  Fault("open:/dev/spidev1.0#2:EMFILE");
  PlugIn();
  ExpectUpdate(6, "node-does-not-open-again");
}

// --- Verification

TEST_F(WendProgramTest, FirstPageThatDoesNotProgramFailsTheVerification) {
  PlugIn(",program-lost=1");
  ExpectUpdate(6, "first-page-lost");
}

TEST_F(WendProgramTest, LaterPageThatDoesNotProgramIsNotNoticed) {
  PlugIn(",program-lost=2");
  ExpectUpdate(0, "micron-rewritten");
  ExpectFlashRewrittenBut(256, 256);
}

TEST_F(WendProgramTest, FailedVerifyReadFailsToConnect) {
  Fault("spi:READ#2:EIO");
  PlugIn();
  ExpectUpdate(1, "verify-read-fails");
}

// --- The control files: every access that fails ends the process

/// A control file, and what messages call it.
struct ControlFile {
  std::string path;
  std::string symbol;
};

const ControlFile kQspi = {"/sys/platform_m1/qspi_prg/value", "QSPI_PRG"};
const ControlFile kReset = {"/sys/platform_m1/zynq_hw_reset_n/value", "ZYNQ_HW_RESET_N"};
const ControlFile kDone = {"/sys/platform_m1/zynq_done/value", "ZYNQ_DONE"};

struct ControlRow {
  const char* name;
  std::string fault;
  std::string line;    // of the run that succeeds, in front of which all is the same
  int nth;             // of these lines
  std::string failed;  // what stands there instead
  std::string message;
};

void PrintTo(const ControlRow& row, std::ostream* out) { *out << row.name; }

/// A system call that fails.
/// @param words  after the path in the log
ControlRow FailedCall(const char* name,
                      const ControlFile& file,
                      const std::string& call,
                      const std::string& words,
                      int nth) {
  const std::string line = call + " " + file.path + words;
  const bool transfers = call == "read";  // the log of a failed one shows no data
  return {name,
          call + ":" + file.path + "#" + std::to_string(nth) + ":EIO",
          line,
          line.starts_with("write") ? 1 : nth,  // each value is written once
          (transfers ? call + " " + file.path : line) + " = EIO",
          "could not " + (call == "write" ? "write to" : call) + " SYSFS " + file.symbol +
              " value device: Input/output error"};
}

/// What is read and is no value.
ControlRow InvalidDone(const char* name, const std::string& data) {
  return {name,
          "read:" + kDone.path + "#1:data:" + data,
          "read " + kDone.path + " \"0\"",
          1,
          "read " + kDone.path + " \"" + data + "\"",
          R"(Invalid  value read. Should be "1" or "0". )"};
}

class ControlFileTest : public WendProgramTest, public testing::WithParamInterface<ControlRow> {};

TEST_P(ControlFileTest, FailureEndsTheProcessWithExitStatus1) {
  const ControlRow& row = GetParam();
  Fault(row.fault);
  PlugIn();
  ExpectUpdate(1,
               Join({Until(Log("micron-rewritten"), row.line, row.nth),
                     {row.failed},
                     ErrorLine(row.message),
                     {"exit 1"}}));
}

const std::string kToWrite = " O_WRONLY|O_SYNC";

INSTANTIATE_TEST_SUITE_P(Written,
                         ControlFileTest,
                         testing::Values(FailedCall("TakeOpen", kQspi, "open", kToWrite, 1),
                                         FailedCall("TakeWrite", kQspi, "write", " \"1\"", 1),
                                         FailedCall("TakeClose", kQspi, "close", "", 1),
                                         FailedCall("GiveBackOpen", kQspi, "open", kToWrite, 2),
                                         FailedCall("GiveBackWrite", kQspi, "write", " \"0\"", 2),
                                         FailedCall("GiveBackClose", kQspi, "close", "", 2),
                                         FailedCall("ResetOpen", kReset, "open", kToWrite, 1),
                                         FailedCall("ResetWrite", kReset, "write", " \"0\"", 1),
                                         FailedCall("ResetClose", kReset, "close", "", 1),
                                         FailedCall("ReleaseOpen", kReset, "open", kToWrite, 2),
                                         FailedCall("ReleaseWrite", kReset, "write", " \"1\"", 2),
                                         FailedCall("ReleaseClose", kReset, "close", "", 2)),
                         [](const auto& row) { return row.param.name; });

INSTANTIATE_TEST_SUITE_P(Read,
                         ControlFileTest,
                         testing::Values(ControlRow{"DoneOpen",
                                                    "open:" + kDone.path + "#1:ENOENT",
                                                    "open " + kDone.path + " O_RDONLY|O_SYNC",
                                                    1,
                                                    "open " + kDone.path +
                                                        " O_RDONLY|O_SYNC = ENOENT",
                                                    "could not open SYSFS ZYNQ_DONE value device: "
                                                    "No such file or directory"},
                                         FailedCall("DoneRead", kDone, "read", " \"0\"", 1),
                                         FailedCall("DoneClose", kDone, "close", "", 1),
                                         InvalidDone("DoneLetter", "x"),
                                         InvalidDone("DoneEmpty", "")),
                         [](const auto& row) { return row.param.name; });

TEST_F(WendProgramTest, ModuleWithoutControlFilesEndsTheProcess) {
  PlugIn(",zynq-files=missing");
  ExpectUpdate(1, "no-control-files");
}

// --- Closed standard descriptors

TEST_F(WendProgramTest, ClosedStandardDescriptorsAreOpenedOnTheNullDeviceFirst) {
  PlugIn();
  const Outcome outcome =
      instrument_.RunShell("exec \"$TARNWICK\" wend -sf 1 image.bin <&- >&- 2>&-");
  Lines expected(3, "open /dev/null O_RDWR");
  std::ranges::copy_if(Log("micron-rewritten"),
                       std::back_inserter(expected),
                       [](const std::string& line) { return !line.starts_with("stdout"); });
  ExpectRun(outcome, 0, expected);
  ExpectFlashRewritten();
}

TEST_F(WendProgramTest, OneClosedDescriptorIsReplacedAlone) {
  PlugIn();
  const Outcome outcome = instrument_.RunShell("exec \"$TARNWICK\" wend -sf 1 image.bin 2>&-");
  ExpectRun(outcome, 0, Join({{"open /dev/null O_RDWR"}, Log("micron-rewritten")}));
}

}  // namespace
