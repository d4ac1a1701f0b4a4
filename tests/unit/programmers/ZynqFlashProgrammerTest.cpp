#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "devices/SPIDev.h"
#include "programmers/ZynqFlashProgrammer.h"
#include "tests/doubles/EventLog.h"
#include "tests/doubles/FileCallSeam.h"
#include "tests/doubles/LoggedConsole.h"
#include "tests/doubles/ScratchDirectory.h"
#include "tests/doubles/ScriptedFlash.h"

namespace {

using std::chrono::milliseconds;

/// A device that nobody may touch: there is no object at this address.
SPIDev* NoDevice() {
  alignas(SPIDev) static std::byte storage[sizeof(SPIDev)];
  return reinterpret_cast<SPIDev*>(storage);
}

/// A file whose boot header field, at offset 76, is this text; 4096 bytes.
std::string Header(const std::string& field) {
  std::string file(4096, '.');
  return file.replace(76, field.size(), field);
}

/// DONE as `reads` reads give it: "0", and "1" from the last one on.
std::vector<std::string> HighAtRead(std::size_t reads) {
  std::vector<std::string> values(reads - 1, "0");
  values.emplace_back("1");
  return values;
}

class ZynqFlashProgrammerTest : public testing::Test {
 protected:
  ZynqFlashProgrammerTest() {
    files_.AddControlFile("/sys/platform_m3/qspi_prg/value");
    files_.AddControlFile("/sys/platform_m3/zynq_hw_reset_n/value");
    files_.AllowFile("./FlashDevice.bin");
    files_.AllowFile("./FlashDevice_verif.bin");
    files_.AllowFile("image.bin");
    log_.Clear();  // the construction has tests of its own
  }

  /// Every test says which files stay open; none, unless it does.
  ~ZynqFlashProgrammerTest() override { EXPECT_EQ(files_.OpenFiles(), leftOpen_); }

  void Done(std::vector<std::string> values) {
    files_.AddControlFile("/sys/platform_m3/zynq_done/value", std::move(values));
  }

  [[nodiscard]] int DoneReads() const {
    return log_.Count("read /sys/platform_m3/zynq_done/value 1 bytes, got \"0\"") +
           log_.Count("read /sys/platform_m3/zynq_done/value 1 bytes, got \"1\"");
  }

  /// The image's date, and that of the flash as each dump in turn shows it.
  void Dates(const std::string& image, const std::vector<std::string>& dumps) {
    WriteFile("image.bin", Header("name#" + image + "#"));
    for (const std::string& date : dumps) {
      flash_.dumps.push_back({0, Header("name#" + date + "#")});
    }
  }

  /// @return the calls on the flash, in order
  [[nodiscard]] std::string FlashCalls() const {
    std::string calls;
    std::string line;
    for (const char byte : log_.Text()) {
      line += byte;
      if (byte == '\n') {
        calls += line.starts_with("flash: ") ? line : "";
        line.clear();
      }
    }
    return calls;
  }

  /// The flash is the controller's, and the Zynq has not been reset.
  void ExpectNothingGivenBack() const {
    EXPECT_EQ(log_.Text().find("qspi_prg"), std::string::npos) << log_.Text();
    EXPECT_EQ(log_.Text().find("zynq_hw_reset_n"), std::string::npos) << log_.Text();
    EXPECT_EQ(log_.Text().find("Disconnect"), std::string::npos) << log_.Text();
  }

  ScratchDirectory directory_;
  EventLog log_;
  LoggedConsole console_{log_};
  FileCallSeam files_{log_};
  ScriptedFlash flash_{log_};
  ZynqFlashProgrammer programmer_{NoDevice(), 3};
  std::vector<std::string> leftOpen_;
};

// --- Life cycle ---------------------------------------------------------------------------------

TEST_F(ZynqFlashProgrammerTest, ConstructionCreatesTheFlashDriverAndTouchesNothing) {
  const ZynqFlashProgrammer programmer(NoDevice(), 7);
  EXPECT_EQ(log_.Text(), "flash: construct\n");
  EXPECT_EQ(flash_.spi, NoDevice());
}

TEST_F(ZynqFlashProgrammerTest, DestructionDestroysTheFlashDriverAndTouchesNothing) {
  FpgaProgrammerInterface* const programmer = new ZynqFlashProgrammer(NoDevice(), 3);
  log_.Clear();
  delete programmer;
  EXPECT_EQ(log_.Text(), "flash: destroy\n");
}

TEST_F(ZynqFlashProgrammerTest, OptionalOperationsAreNotImplemented) {
  EXPECT_EQ(programmer_.OptionalOperationA(), 6);
  EXPECT_EQ(programmer_.OptionalOperationB(), 6);
  EXPECT_EQ(programmer_.OptionalOperationC(), 6);
  EXPECT_EQ(log_.Text(), R"(err "Function Not Implemented\n"
err "Function Not Implemented\n"
err "Function Not Implemented\n"
)");
}

// --- Control files ------------------------------------------------------------------------------

TEST_F(ZynqFlashProgrammerTest, QspiPrgIsWrittenSynchronouslyInOneCall) {
  EXPECT_EQ(programmer_.set_qspi_prg("1"), 0);
  EXPECT_EQ(log_.Text(), R"(open /sys/platform_m3/qspi_prg/value O_WRONLY|O_SYNC
write /sys/platform_m3/qspi_prg/value "1"
close /sys/platform_m3/qspi_prg/value
)");
}

TEST_F(ZynqFlashProgrammerTest, ResetIsWrittenSynchronouslyInOneCall) {
  EXPECT_EQ(programmer_.set_zynq_hw_reset_n("0"), 0);
  EXPECT_EQ(log_.Text(), R"(open /sys/platform_m3/zynq_hw_reset_n/value O_WRONLY|O_SYNC
write /sys/platform_m3/zynq_hw_reset_n/value "0"
close /sys/platform_m3/zynq_hw_reset_n/value
)");
}

TEST_F(ZynqFlashProgrammerTest, ValueIsWrittenAsItIs) {
  programmer_.set_qspi_prg(std::string("on\0 \n", 5));
  EXPECT_EQ(log_.Count(R"(write /sys/platform_m3/qspi_prg/value "on\0 \n")"), 1);
}

TEST_F(ZynqFlashProgrammerTest, DoneIsReadSynchronouslyOneByteInOneCall) {
  Done({"1\n"});
  std::string done = "before";
  EXPECT_EQ(programmer_.get_zynq_done(done), 0);
  EXPECT_EQ(done, "1");
  EXPECT_EQ(log_.Text(), R"(open /sys/platform_m3/zynq_done/value O_RDONLY|O_SYNC
read /sys/platform_m3/zynq_done/value 1 bytes, got "1"
close /sys/platform_m3/zynq_done/value
)");
}

TEST_F(ZynqFlashProgrammerTest, DoneOf0IsReadAs0) {
  Done({"0\n"});
  std::string done;
  EXPECT_EQ(programmer_.get_zynq_done(done), 0);
  EXPECT_EQ(done, "0");
}

TEST_F(ZynqFlashProgrammerTest, IsProgrammedWhenDoneIs1) {
  Done({"1"});
  EXPECT_TRUE(programmer_.IsProgrammed());
}

TEST_F(ZynqFlashProgrammerTest, IsNotProgrammedWhenDoneIs0) {
  Done({"0"});
  EXPECT_FALSE(programmer_.IsProgrammed());
}

struct ModulePath {
  unsigned module;
  std::string path;
};

class ModulePathTest : public ZynqFlashProgrammerTest,
                       public testing::WithParamInterface<ModulePath> {};

TEST_P(ModulePathTest, NumberStandsInDecimalInEveryPath) {
  const auto& [module, path] = GetParam();
  files_.AddControlFile(path + "/qspi_prg/value");
  files_.AddControlFile(path + "/zynq_hw_reset_n/value");
  files_.AddControlFile(path + "/zynq_done/value", {"1"});
  ZynqFlashProgrammer programmer(NoDevice(), module);
  programmer.set_qspi_prg("1");
  programmer.set_zynq_hw_reset_n("1");
  programmer.IsProgrammed();
  EXPECT_EQ(log_.Count("open " + path + "/qspi_prg/value O_WRONLY|O_SYNC"), 1);
  EXPECT_EQ(log_.Count("open " + path + "/zynq_hw_reset_n/value O_WRONLY|O_SYNC"), 1);
  EXPECT_EQ(log_.Count("open " + path + "/zynq_done/value O_RDONLY|O_SYNC"), 1);
}

INSTANTIATE_TEST_SUITE_P(Modules,
                         ModulePathTest,
                         testing::Values(ModulePath{0, "/sys/platform_m0"},
                                         ModulePath{7, "/sys/platform_m7"},
                                         ModulePath{10, "/sys/platform_m10"},
                                         ModulePath{4294967295U, "/sys/platform_m4294967295"}),
                         [](const auto& row) { return std::to_string(row.param.module); });

// --- Control files that fail end the process ----------------------------------------------------

struct Failure {
  std::string name;
  std::function<void(FileCallSeam&)> world;
  std::function<void(ZynqFlashProgrammer&)> action;
  std::string message;
  std::string calls;
};

void SetQspiPrg(ZynqFlashProgrammer& programmer) { programmer.set_qspi_prg("1"); }
void SetReset(ZynqFlashProgrammer& programmer) { programmer.set_zynq_hw_reset_n("0"); }
void GetDone(ZynqFlashProgrammer& programmer) {
  std::string done;
  programmer.get_zynq_done(done);
}

std::function<void(FileCallSeam&)> Fault(const char* call, const char* file, int error) {
  return [=](FileCallSeam& files) {
    const std::string path = std::string("/sys/platform_m3/") + file + "/value";
    files.AddControlFile(path, {"1"});
    files.Fail(call, path, error);
  };
}

std::function<void(FileCallSeam&)> DoneHolds(std::string value) {
  return [=](FileCallSeam& files) {
    files.AddControlFile("/sys/platform_m3/zynq_done/value", {value});
  };
}

// What a process that ends by itself has done until then; printed behind its own error line.
EventLog* endedLog = nullptr;

/// Runs the action in a world; never returns when the action ends the process.
void RunToTheEnd(const Failure& row) {
  static EventLog log;
  endedLog = &log;
  const FileCallSeam files(log);
  const ScriptedFlash flash(log);
  row.world(*FileCallSeam::current);
  ZynqFlashProgrammer programmer(NoDevice(), 3);
  log.Clear();
  if (std::atexit([] { std::cerr << "--\n" << endedLog->Text(); }) == 0) {
    row.action(programmer);
  }
}

class ControlFileDeathTest : public testing::TestWithParam<Failure> {};

TEST_P(ControlFileDeathTest, EndsTheProcessAtOnceWithStatus1) {
  EXPECT_EXIT(RunToTheEnd(GetParam()),
              testing::ExitedWithCode(1),
              testing::Eq(GetParam().message + "--\n" + GetParam().calls));
}

INSTANTIATE_TEST_SUITE_P(
    ControlFiles,
    ControlFileDeathTest,
    testing::Values(
        Failure{"QspiPrgCannotBeOpened",
                Fault("open", "qspi_prg", ENOENT),
                SetQspiPrg,
                "could not open SYSFS QSPI_PRG value device: No such file or directory\n",
                R"(open /sys/platform_m3/qspi_prg/value O_WRONLY|O_SYNC -> No such file or directory
)"},
        Failure{"QspiPrgCannotBeWritten",
                Fault("write", "qspi_prg", EIO),
                SetQspiPrg,
                "could not write to SYSFS QSPI_PRG value device: Input/output error\n",
                R"(open /sys/platform_m3/qspi_prg/value O_WRONLY|O_SYNC
write /sys/platform_m3/qspi_prg/value "1" -> Input/output error
)"},
        Failure{"QspiPrgCannotBeClosed",
                Fault("close", "qspi_prg", ENOSPC),
                SetQspiPrg,
                "could not close SYSFS QSPI_PRG value device: No space left on device\n",
                R"(open /sys/platform_m3/qspi_prg/value O_WRONLY|O_SYNC
write /sys/platform_m3/qspi_prg/value "1"
close /sys/platform_m3/qspi_prg/value -> No space left on device
)"},
        Failure{"ResetCannotBeOpened",
                Fault("open", "zynq_hw_reset_n", EACCES),
                SetReset,
                "could not open SYSFS ZYNQ_HW_RESET_N value device: Permission denied\n",
                R"(open /sys/platform_m3/zynq_hw_reset_n/value O_WRONLY|O_SYNC -> Permission denied
)"},
        Failure{"ResetCannotBeWritten",
                Fault("write", "zynq_hw_reset_n", EINVAL),
                SetReset,
                "could not write to SYSFS ZYNQ_HW_RESET_N value device: Invalid argument\n",
                R"(open /sys/platform_m3/zynq_hw_reset_n/value O_WRONLY|O_SYNC
write /sys/platform_m3/zynq_hw_reset_n/value "0" -> Invalid argument
)"},
        Failure{"ResetCannotBeClosed",
                Fault("close", "zynq_hw_reset_n", EIO),
                SetReset,
                "could not close SYSFS ZYNQ_HW_RESET_N value device: Input/output error\n",
                R"(open /sys/platform_m3/zynq_hw_reset_n/value O_WRONLY|O_SYNC
write /sys/platform_m3/zynq_hw_reset_n/value "0"
close /sys/platform_m3/zynq_hw_reset_n/value -> Input/output error
)"},
        Failure{"DoneCannotBeOpened",
                Fault("open", "zynq_done", ENODEV),
                GetDone,
                "could not open SYSFS ZYNQ_DONE value device: No such device\n",
                R"(open /sys/platform_m3/zynq_done/value O_RDONLY|O_SYNC -> No such device
)"},
        Failure{"DoneCannotBeRead",
                Fault("read", "zynq_done", EIO),
                GetDone,
                "could not read SYSFS ZYNQ_DONE value device: Input/output error\n",
                R"(open /sys/platform_m3/zynq_done/value O_RDONLY|O_SYNC
read /sys/platform_m3/zynq_done/value 1 bytes, got "1" -> Input/output error
)"},
        Failure{"DoneCannotBeClosed",
                Fault("close", "zynq_done", EIO),
                GetDone,
                "could not close SYSFS ZYNQ_DONE value device: Input/output error\n",
                R"(open /sys/platform_m3/zynq_done/value O_RDONLY|O_SYNC
read /sys/platform_m3/zynq_done/value 1 bytes, got "1"
close /sys/platform_m3/zynq_done/value -> Input/output error
)"},
        Failure{"DoneIsX",
                DoneHolds("x"),
                GetDone,
                "Invalid  value read. Should be \"1\" or \"0\". \n",
                R"(open /sys/platform_m3/zynq_done/value O_RDONLY|O_SYNC
read /sys/platform_m3/zynq_done/value 1 bytes, got "x"
)"},
        Failure{"DoneIsX1WhenAskedWhetherProgrammed",
                DoneHolds("x1"),
                [](ZynqFlashProgrammer& programmer) { programmer.IsProgrammed(); },
                "Invalid  value read. Should be \"1\" or \"0\". \n",
                R"(open /sys/platform_m3/zynq_done/value O_RDONLY|O_SYNC
read /sys/platform_m3/zynq_done/value 1 bytes, got "x"
)"},
        Failure{"DoneIsANulByte",
                DoneHolds(std::string(1, '\0')),
                GetDone,
                "Invalid  value read. Should be \"1\" or \"0\". \n",
                R"(open /sys/platform_m3/zynq_done/value O_RDONLY|O_SYNC
read /sys/platform_m3/zynq_done/value 1 bytes, got "\0"
)"},
        Failure{"DoneIsEmpty",
                DoneHolds(""),
                GetDone,
                "Invalid  value read. Should be \"1\" or \"0\". \n",
                R"(open /sys/platform_m3/zynq_done/value O_RDONLY|O_SYNC
read /sys/platform_m3/zynq_done/value 1 bytes, got ""
)"},
        Failure{"ConnectWithoutQspiPrgLeavesTheFlashAlone",
                Fault("open", "qspi_prg", ENOENT),
                [](ZynqFlashProgrammer& programmer) { programmer.Connect(); },
                "could not open SYSFS QSPI_PRG value device: No such file or directory\n",
                R"(open /sys/platform_m3/qspi_prg/value O_WRONLY|O_SYNC -> No such file or directory
)"},
        Failure{"ResetThatCannotBeWrittenIsNotWaitedFor",
                Fault("write", "zynq_hw_reset_n", EIO),
                [](ZynqFlashProgrammer& programmer) { programmer.toggleReset(); },
                "could not write to SYSFS ZYNQ_HW_RESET_N value device: Input/output error\n",
                R"(open /sys/platform_m3/zynq_hw_reset_n/value O_WRONLY|O_SYNC
write /sys/platform_m3/zynq_hw_reset_n/value "0" -> Input/output error
)"}),
    [](const auto& row) { return row.param.name; });

/// Programs an image although the flash cannot be given back; never returns.
void ProgramWithoutGivingBack() {
  static EventLog log;
  endedLog = &log;
  const LoggedConsole console(log);
  FileCallSeam files(log);
  ScriptedFlash flash(log);
  for (const char* const path : {"./FlashDevice.bin", "./FlashDevice_verif.bin", "image.bin"}) {
    files.AllowFile(path);
  }
  files.AddControlFile("/sys/platform_m3/qspi_prg/value");
  files.Fail("write", "/sys/platform_m3/qspi_prg/value", EIO);
  WriteFile("image.bin", Header("name#new#"));
  flash.dumps = {{0, Header("name#old#")}, {0, Header("name#new#")}};
  ZynqFlashProgrammer programmer(NoDevice(), 3);
  const auto printTheEnd = [] {
    const std::string text = endedLog->Text();
    const std::string end = text.substr(text.find("flash: Disconnect"));
    static_cast<void>(std::fputs(end.c_str(), stderr));  // a short line fails the comparison
  };
  if (std::atexit(printTheEnd) == 0) {
    programmer.ProgramDevice("image.bin");
  }
}

TEST(GiveBackDeathTest, FlashThatCannotBeGivenBackEndsTheProcessBeforeTheReset) {
  const ScratchDirectory directory;
  EXPECT_EXIT(ProgramWithoutGivingBack(),
              testing::ExitedWithCode(1),
              testing::Eq(R"(could not write to SYSFS QSPI_PRG value device: Input/output error
flash: Disconnect
open /sys/platform_m3/qspi_prg/value O_WRONLY|O_SYNC
write /sys/platform_m3/qspi_prg/value "0" -> Input/output error
)"));
}

// --- Reset and DONE -----------------------------------------------------------------------------

TEST_F(ZynqFlashProgrammerTest, ResetPulseLasts5Seconds) {
  programmer_.toggleReset();
  EXPECT_EQ(log_.Text(), R"(open /sys/platform_m3/zynq_hw_reset_n/value O_WRONLY|O_SYNC
write /sys/platform_m3/zynq_hw_reset_n/value "0"
close /sys/platform_m3/zynq_hw_reset_n/value
sleep 5 s
open /sys/platform_m3/zynq_hw_reset_n/value O_WRONLY|O_SYNC
write /sys/platform_m3/zynq_hw_reset_n/value "1"
close /sys/platform_m3/zynq_hw_reset_n/value
)");
}

TEST_F(ZynqFlashProgrammerTest, EachPollOpensReadsAndClosesDoneAfterAMillisecond) {
  Done({"0", "1"});
  EXPECT_TRUE(programmer_.waitForDoneToGoHigh(milliseconds(10)));
  EXPECT_EQ(log_.Text(), R"(open /sys/platform_m3/zynq_done/value O_RDONLY|O_SYNC
read /sys/platform_m3/zynq_done/value 1 bytes, got "0"
close /sys/platform_m3/zynq_done/value
sleep 1000 us
open /sys/platform_m3/zynq_done/value O_RDONLY|O_SYNC
read /sys/platform_m3/zynq_done/value 1 bytes, got "1"
close /sys/platform_m3/zynq_done/value
)");
}

struct Wait {
  std::string name;
  int timeout;             // ms
  std::size_t highAtRead;  // 0: never
  bool high;
  int reads;
  int sleeps;
};

class DoneWaitTest : public ZynqFlashProgrammerTest, public testing::WithParamInterface<Wait> {};

TEST_P(DoneWaitTest, ResultReadsAndSleepsAreThoseOfTheRow) {
  const Wait& row = GetParam();
  Done(row.highAtRead == 0 ? std::vector<std::string>{"0"} : HighAtRead(row.highAtRead));
  EXPECT_EQ(programmer_.waitForDoneToGoHigh(milliseconds(row.timeout)), row.high);
  EXPECT_EQ(DoneReads(), row.reads);
  EXPECT_EQ(log_.Count("sleep 1000 us"), row.sleeps);
}

INSTANTIATE_TEST_SUITE_P(
    Waits,
    DoneWaitTest,
    testing::Values(Wait{"NegativeTimeoutReadsOnce", -1, 1, false, 1, 0},
                    Wait{"Timeout0ReadsOnceAndFails", 0, 1, false, 1, 0},
                    Wait{"Timeout0NeverHighReadsOnce", 0, 0, false, 1, 0},
                    Wait{"Timeout1AlreadyHighFails", 1, 1, false, 1, 0},
                    Wait{"Timeout1NeverHighPollsOnce", 1, 0, false, 2, 1},
                    Wait{"Timeout1HighOnTheOnlyPollFails", 1, 2, false, 2, 1},
                    Wait{"Timeout2AlreadyHighSucceeds", 2, 1, true, 1, 0},
                    Wait{"Timeout2HighAtRead2Fails", 2, 2, false, 2, 1},
                    Wait{"Timeout2HighAtRead3Fails", 2, 3, false, 3, 2},
                    Wait{"Timeout2NeverHighPollsTwice", 2, 0, false, 3, 2},
                    Wait{"Timeout7HighAtRead6Succeeds", 7, 6, true, 6, 5},
                    Wait{"Timeout7HighAtRead7Fails", 7, 7, false, 7, 6},
                    Wait{"Timeout7HighAtRead8Fails", 7, 8, false, 8, 7},
                    Wait{"Timeout7NeverHighPolls7Times", 7, 0, false, 8, 7},
                    Wait{"Timeout10000HighAtRead9999Succeeds", 10000, 9999, true, 9999, 9998},
                    Wait{"Timeout10000HighAtRead10000Fails", 10000, 10000, false, 10000, 9999},
                    Wait{"Timeout10000NeverHigh", 10000, 0, false, 10001, 10000}),
    [](const auto& row) { return row.param.name; });

TEST_F(ZynqFlashProgrammerTest, DoneSeenOnTheLastPollCountsAsTimeout) {
  Done(HighAtRead(4));  // the first read and 3 polls
  EXPECT_FALSE(programmer_.waitForDoneToGoHigh(milliseconds(3)));
  EXPECT_EQ(DoneReads(), 4);
}

TEST_F(ZynqFlashProgrammerTest, ResetWaitsForDoneAndFinishesItsLine) {
  Done({"0", "1"});
  EXPECT_EQ(programmer_.toggleFpgaResetAndWaitForProgramDone(), 0);
  EXPECT_EQ(log_.Text(), R"(out "Toggling reset ... "
open /sys/platform_m3/zynq_hw_reset_n/value O_WRONLY|O_SYNC
write /sys/platform_m3/zynq_hw_reset_n/value "0"
close /sys/platform_m3/zynq_hw_reset_n/value
sleep 5 s
open /sys/platform_m3/zynq_hw_reset_n/value O_WRONLY|O_SYNC
write /sys/platform_m3/zynq_hw_reset_n/value "1"
close /sys/platform_m3/zynq_hw_reset_n/value
open /sys/platform_m3/zynq_done/value O_RDONLY|O_SYNC
read /sys/platform_m3/zynq_done/value 1 bytes, got "0"
close /sys/platform_m3/zynq_done/value
sleep 1000 us
open /sys/platform_m3/zynq_done/value O_RDONLY|O_SYNC
read /sys/platform_m3/zynq_done/value 1 bytes, got "1"
close /sys/platform_m3/zynq_done/value
out "done.\n"
)");
}

TEST_F(ZynqFlashProgrammerTest, DoneHighAtRead9999IsInTime) {
  Done(HighAtRead(9999));
  EXPECT_EQ(programmer_.toggleFpgaResetAndWaitForProgramDone(), 0);
  EXPECT_EQ(DoneReads(), 9999);
  EXPECT_EQ(console_.Out(), "Toggling reset ... done.\n");
}

TEST_F(ZynqFlashProgrammerTest, DoneHighAtRead10000IsTooLate) {
  Done(HighAtRead(10000));
  EXPECT_EQ(programmer_.toggleFpgaResetAndWaitForProgramDone(), 7);
  EXPECT_EQ(DoneReads(), 10000);
  EXPECT_EQ(console_.Out(), "Toggling reset ... ");
}

TEST_F(ZynqFlashProgrammerTest, DoneNeverHighIsWaitedFor10000Polls) {
  Done({"0"});
  EXPECT_EQ(programmer_.toggleFpgaResetAndWaitForProgramDone(), 7);
  EXPECT_EQ(DoneReads(), 10001);
  EXPECT_EQ(log_.Count("sleep 1000 us"), 10000);
  EXPECT_EQ(console_.Out(), "Toggling reset ... ");
  EXPECT_EQ(console_.Err(), "");
}

// --- Connect ------------------------------------------------------------------------------------

TEST_F(ZynqFlashProgrammerTest, ConnectTakesTheFlashThenIdentifiesItVerbosely) {
  EXPECT_EQ(programmer_.Connect(), 0);
  EXPECT_EQ(log_.Text(), R"(open /sys/platform_m3/qspi_prg/value O_WRONLY|O_SYNC
write /sys/platform_m3/qspi_prg/value "1"
close /sys/platform_m3/qspi_prg/value
flash: Connect true
)");
}

TEST_F(ZynqFlashProgrammerTest, ConnectFailsWhenTheFlashDriverDoes) {
  flash_.connectResult = 1;
  EXPECT_EQ(programmer_.Connect(), 1);
  EXPECT_EQ(log_.Text(), R"(open /sys/platform_m3/qspi_prg/value O_WRONLY|O_SYNC
write /sys/platform_m3/qspi_prg/value "1"
close /sys/platform_m3/qspi_prg/value
flash: Connect true
)");
}

TEST_F(ZynqFlashProgrammerTest, ConnectFailsOnAnyOtherFlashResult) {
  flash_.connectResult = -1;
  EXPECT_EQ(programmer_.Connect(), 1);
}

// --- ProgramDevice ------------------------------------------------------------------------------

TEST_F(ZynqFlashProgrammerTest, DifferentDatesRewriteVerifyGiveBackAndReset) {
  Dates("new", {"old", "new"});
  Done({"1"});
  EXPECT_EQ(programmer_.ProgramDevice("image.bin"), 0);
  EXPECT_EQ(log_.Text(), R"(open ./FlashDevice.bin O_WRONLY|O_CREAT 0600
out "Reading flash..."
flash: ReadDevice 0 4096 into FlashDevice.bin
close ./FlashDevice.bin
out "\n"
open ./FlashDevice.bin O_RDONLY
lseek ./FlashDevice.bin to 76 from the start
read ./FlashDevice.bin 76 bytes, got 76
close ./FlashDevice.bin
out "Flash header binary filename: name\n"
open ./FlashDevice.bin O_RDONLY
lseek ./FlashDevice.bin to 76 from the start
read ./FlashDevice.bin 76 bytes, got 76
close ./FlashDevice.bin
out "Flash header build date: old\n"
open image.bin O_RDONLY
lseek image.bin to 76 from the start
read image.bin 76 bytes, got 76
close image.bin
out "Binary  file build date: new\n"
out "Unlocking flash memory ... \n"
flash: UnlockMemory
out "Erasing device ... "
flash: EraseDevice 0 image.bin
out "done.\n"
out "Programming device ... "
flash: ProgramDevice 0 image.bin
out "done.\n"
open ./FlashDevice_verif.bin O_WRONLY|O_CREAT 0600
out "Reading flash..."
flash: ReadDevice 0 4096 into FlashDevice_verif.bin
close ./FlashDevice_verif.bin
out "\n"
open ./FlashDevice_verif.bin O_RDONLY
lseek ./FlashDevice_verif.bin to 76 from the start
read ./FlashDevice_verif.bin 76 bytes, got 76
close ./FlashDevice_verif.bin
out "Flash header binary filename: name\n"
open ./FlashDevice_verif.bin O_RDONLY
lseek ./FlashDevice_verif.bin to 76 from the start
read ./FlashDevice_verif.bin 76 bytes, got 76
close ./FlashDevice_verif.bin
out "Flash header build date: new\n"
open image.bin O_RDONLY
lseek image.bin to 76 from the start
read image.bin 76 bytes, got 76
close image.bin
out "Binary  file build date: new\n"
flash: Disconnect
open /sys/platform_m3/qspi_prg/value O_WRONLY|O_SYNC
write /sys/platform_m3/qspi_prg/value "0"
close /sys/platform_m3/qspi_prg/value
out "Toggling reset ... "
open /sys/platform_m3/zynq_hw_reset_n/value O_WRONLY|O_SYNC
write /sys/platform_m3/zynq_hw_reset_n/value "0"
close /sys/platform_m3/zynq_hw_reset_n/value
sleep 5 s
open /sys/platform_m3/zynq_hw_reset_n/value O_WRONLY|O_SYNC
write /sys/platform_m3/zynq_hw_reset_n/value "1"
close /sys/platform_m3/zynq_hw_reset_n/value
open /sys/platform_m3/zynq_done/value O_RDONLY|O_SYNC
read /sys/platform_m3/zynq_done/value 1 bytes, got "1"
close /sys/platform_m3/zynq_done/value
out "done.\n"
)");
}

TEST_F(ZynqFlashProgrammerTest, EqualDatesAreUpToDateAndWriteNothing) {
  Dates("same", {"same"});
  EXPECT_EQ(programmer_.ProgramDevice("image.bin"), 11);
  EXPECT_EQ(console_.Out(), R"(Reading flash...
Flash header binary filename: name
Flash header build date: same
Binary  file build date: same
)");
  EXPECT_EQ(console_.Err(), "");
  EXPECT_EQ(FlashCalls(), "flash: ReadDevice 0 4096 into FlashDevice.bin\n");
}

TEST_F(ZynqFlashProgrammerTest, UpToDateLeavesTheDumpBehind) {
  Dates("same", {"same"});
  programmer_.ProgramDevice("image.bin");
  EXPECT_EQ(ReadFile("FlashDevice.bin"), Header("name#same#"));
  EXPECT_FALSE(std::filesystem::exists("FlashDevice_verif.bin"));
}

TEST_F(ZynqFlashProgrammerTest, BothDumpsStayBehind) {
  Dates("new", {"old", "new"});
  Done({"1"});
  programmer_.ProgramDevice("image.bin");
  EXPECT_EQ(ReadFile("FlashDevice.bin"), Header("name#old#"));
  EXPECT_EQ(ReadFile("FlashDevice_verif.bin"), Header("name#new#"));
}

TEST_F(ZynqFlashProgrammerTest, NewDumpIsItsOwnersAlone) {
  Dates("same", {"same"});
  const mode_t formerMask = ::umask(0);
  programmer_.ProgramDevice("image.bin");
  ::umask(formerMask);
  EXPECT_EQ(std::filesystem::status("FlashDevice.bin").permissions(),
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST_F(ZynqFlashProgrammerTest, LongerOldDumpsKeepTheirTails) {
  Dates("new", {"old", "new"});
  Done({"1"});
  WriteFile("FlashDevice.bin", std::string(4096, 'x') + "first tail");
  WriteFile("FlashDevice_verif.bin", std::string(4096, 'x') + "second tail");
  programmer_.ProgramDevice("image.bin");
  EXPECT_EQ(ReadFile("FlashDevice.bin"), Header("name#old#") + "first tail");
  EXPECT_EQ(ReadFile("FlashDevice_verif.bin"), Header("name#new#") + "second tail");
}

TEST_F(ZynqFlashProgrammerTest, FlashThatCannotBeReadFailsTheConnection) {
  flash_.dumps = {{5, ""}};
  EXPECT_EQ(programmer_.ProgramDevice("image.bin"), 1);
  EXPECT_EQ(log_.Text(), R"(open ./FlashDevice.bin O_WRONLY|O_CREAT 0600
out "Reading flash..."
flash: ReadDevice 0 4096 into FlashDevice.bin
close ./FlashDevice.bin
err "ERROR: Can't read Flash device !\n"
)");
}

TEST_F(ZynqFlashProgrammerTest, FlashDriverWithoutDeviceFailsTheConnection) {
  flash_.dumps = {{2, ""}};
  EXPECT_EQ(programmer_.ProgramDevice("image.bin"), 1);
  EXPECT_EQ(console_.Err(), "ERROR: Can't read Flash device !\n");
}

TEST_F(ZynqFlashProgrammerTest, DumpFileThatCannotBeOpenedLeavesTheFlashUnread) {
  files_.Fail("open", "./FlashDevice.bin", EACCES);
  EXPECT_EQ(programmer_.ProgramDevice("image.bin"), 1);
  EXPECT_EQ(log_.Text(), R"(open ./FlashDevice.bin O_WRONLY|O_CREAT 0600 -> Permission denied
out "Reading flash..."
close -1
err "ERROR: Can't read Flash device !\n"
)");
}

TEST_F(ZynqFlashProgrammerTest, DirectoryInTheDumpFilesPlaceFailsTheConnection) {
  std::filesystem::create_directory("FlashDevice.bin");
  EXPECT_EQ(programmer_.ProgramDevice("image.bin"), 1);
  EXPECT_EQ(console_.Err(), "ERROR: Can't read Flash device !\n");
}

TEST_F(ZynqFlashProgrammerTest, StaleDumpThatCannotBeOpenedDoesNotDecide) {
  Dates("same", {});
  WriteFile("FlashDevice.bin", Header("name#same#"));
  files_.Fail("open", "./FlashDevice.bin", EROFS);
  EXPECT_EQ(programmer_.ProgramDevice("image.bin"), 1);
  EXPECT_EQ(console_.Out(), "Reading flash...");
}

TEST_F(ZynqFlashProgrammerTest, FailedEraseEndsInEraseFailed) {
  Dates("new", {"old"});
  flash_.eraseResult = 3;
  EXPECT_EQ(programmer_.ProgramDevice("image.bin"), 3);
  EXPECT_EQ(console_.Out(),
            "Reading flash...\n"
            "Flash header binary filename: name\n"
            "Flash header build date: old\n"
            "Binary  file build date: new\n"
            "Unlocking flash memory ... \n"
            "Erasing device ... ");
  EXPECT_EQ(console_.Err(), "");
  EXPECT_EQ(FlashCalls(), R"(flash: ReadDevice 0 4096 into FlashDevice.bin
flash: UnlockMemory
flash: EraseDevice 0 image.bin
)");
}

TEST_F(ZynqFlashProgrammerTest, FailedWriteEndsInProgramFailed) {
  Dates("new", {"old"});
  flash_.programResult = 4;
  EXPECT_EQ(programmer_.ProgramDevice("image.bin"), 6);
  EXPECT_EQ(console_.Out(),
            "Reading flash...\n"
            "Flash header binary filename: name\n"
            "Flash header build date: old\n"
            "Binary  file build date: new\n"
            "Unlocking flash memory ... \n"
            "Erasing device ... done.\n"
            "Programming device ... ");
  EXPECT_EQ(console_.Err(), "");
  EXPECT_EQ(FlashCalls(), R"(flash: ReadDevice 0 4096 into FlashDevice.bin
flash: UnlockMemory
flash: EraseDevice 0 image.bin
flash: ProgramDevice 0 image.bin
)");
}

TEST_F(ZynqFlashProgrammerTest, FlashThatCannotBeReadBackFailsTheConnection) {
  Dates("new", {"old"});
  flash_.dumps.push_back({5, Header("name#new#")});
  EXPECT_EQ(programmer_.ProgramDevice("image.bin"), 1);
  EXPECT_EQ(console_.Err(), "ERROR: Can't read Flash device !\n");
  EXPECT_EQ(log_.Count("close ./FlashDevice_verif.bin"), 1);
  EXPECT_EQ(FlashCalls(), R"(flash: ReadDevice 0 4096 into FlashDevice.bin
flash: UnlockMemory
flash: EraseDevice 0 image.bin
flash: ProgramDevice 0 image.bin
flash: ReadDevice 0 4096 into FlashDevice_verif.bin
)");
}

TEST_F(ZynqFlashProgrammerTest, StaleVerifyDumpThatCannotBeOpenedDoesNotDecide) {
  Dates("new", {"old"});
  WriteFile("FlashDevice_verif.bin", Header("name#new#"));
  files_.Fail("open", "./FlashDevice_verif.bin", EROFS);
  EXPECT_EQ(programmer_.ProgramDevice("image.bin"), 1);
  EXPECT_EQ(console_.Err(), "ERROR: Can't read Flash device !\n");
  EXPECT_EQ(log_.Count("close -1"), 1);
}

TEST_F(ZynqFlashProgrammerTest, VerifyDumpThatStillDiffersEndsInProgramFailed) {
  Dates("new", {"old", "old"});
  EXPECT_EQ(programmer_.ProgramDevice("image.bin"), 6);
  EXPECT_EQ(console_.Out(),
            "Reading flash...\n"
            "Flash header binary filename: name\n"
            "Flash header build date: old\n"
            "Binary  file build date: new\n"
            "Unlocking flash memory ... \n"
            "Erasing device ... done.\n"
            "Programming device ... done.\n"
            "Reading flash...\n"
            "Flash header binary filename: name\n"
            "Flash header build date: old\n"
            "Binary  file build date: new\n");
  EXPECT_EQ(console_.Err(), "ERROR: SPI flash upgrade failed - Try to remove WEND if present !\n");
}

TEST_F(ZynqFlashProgrammerTest, DoneThatStaysLowEndsInConfigDoneNotAsserted) {
  Dates("new", {"old", "new"});
  Done({"0"});
  EXPECT_EQ(programmer_.ProgramDevice("image.bin"), 7);
  EXPECT_TRUE(console_.Out().ends_with("\nToggling reset ... "));
  EXPECT_EQ(console_.Err(), "");
  EXPECT_EQ(log_.Count("write /sys/platform_m3/qspi_prg/value \"0\""), 1);
}

TEST_F(ZynqFlashProgrammerTest, DumpWithoutHeaderIsRewrittenAndStaysOpenTwice) {
  leftOpen_ = {"./FlashDevice.bin", "./FlashDevice.bin"};
  Dates("new", {});
  flash_.dumps = {{0, std::string(4096, '\xFF')}, {0, Header("name#new#")}};
  Done({"1"});
  EXPECT_EQ(programmer_.ProgramDevice("image.bin"), 0);
}

TEST_F(ZynqFlashProgrammerTest, ImageWithoutHeaderIsWrittenAndFailsTheComparison) {
  leftOpen_ = {"image.bin", "image.bin"};
  WriteFile("image.bin", std::string(4096, 'x'));
  flash_.dumps = {{0, Header("name#old#")}, {0, Header("name#old#")}};
  EXPECT_EQ(programmer_.ProgramDevice("image.bin"), 6);
  EXPECT_EQ(log_.Count("flash: ProgramDevice 0 image.bin"), 1);
}

TEST_F(ZynqFlashProgrammerTest, ImageTooShortForAHeaderThrowsBeforeAnythingIsErased) {
  leftOpen_ = {"image.bin"};
  Dates("", {"old"});
  WriteFile("image.bin", std::string(151, 'x'));
  EXPECT_THROW(programmer_.ProgramDevice("image.bin"), std::logic_error);
  EXPECT_EQ(console_.Err(), "ERROR: Can't read file\n");
  EXPECT_EQ(FlashCalls(), "flash: ReadDevice 0 4096 into FlashDevice.bin\n");
  ExpectNothingGivenBack();
}

TEST_F(ZynqFlashProgrammerTest, MissingImageThrowsBeforeAnythingIsErased) {
  flash_.dumps = {{0, Header("name#old#")}};
  EXPECT_THROW(programmer_.ProgramDevice("image.bin"), std::logic_error);
  EXPECT_EQ(console_.Err(), "ERROR: Can't open file 'image.bin'\n");
  EXPECT_EQ(FlashCalls(), "flash: ReadDevice 0 4096 into FlashDevice.bin\n");
}

TEST_F(ZynqFlashProgrammerTest, DumpTooShortForAHeaderThrows) {
  leftOpen_ = {"./FlashDevice.bin"};
  Dates("new", {});
  flash_.dumps = {{0, std::string(151, 'x')}};
  EXPECT_THROW(programmer_.ProgramDevice("image.bin"), std::logic_error);
  EXPECT_EQ(console_.Err(), "ERROR: Can't read file\n");
}

// --- Early returns ------------------------------------------------------------------------------

struct EarlyReturn {
  std::string name;
  int status;
  int eraseResult;
  int programResult;
  std::vector<ScriptedFlash::Dump> dumps;
};

class EarlyReturnTest : public ZynqFlashProgrammerTest,
                        public testing::WithParamInterface<EarlyReturn> {};

TEST_P(EarlyReturnTest, ControllerKeepsTheFlashAndTheZynqIsNotReset) {
  const EarlyReturn& row = GetParam();
  WriteFile("image.bin", Header("name#new#"));
  flash_.eraseResult = row.eraseResult;
  flash_.programResult = row.programResult;
  flash_.dumps = row.dumps;
  ASSERT_EQ(programmer_.ProgramDevice("image.bin"), row.status);
  ExpectNothingGivenBack();
}

INSTANTIATE_TEST_SUITE_P(
    Returns,
    EarlyReturnTest,
    testing::Values(
        EarlyReturn{"UpToDate", 11, 0, 0, {{0, Header("name#new#")}}},
        EarlyReturn{"FlashUnread", 1, 0, 0, {{5, ""}}},
        EarlyReturn{"EraseFailed", 3, 4, 0, {{0, Header("name#old#")}}},
        EarlyReturn{"ProgramFailed", 6, 0, 4, {{0, Header("name#old#")}}},
        EarlyReturn{"FlashUnreadAfterwards", 1, 0, 0, {{0, Header("name#old#")}, {5, ""}}},
        EarlyReturn{
            "StillDifferent", 6, 0, 0, {{0, Header("name#old#")}, {0, Header("name#old#")}}}),
    [](const auto& row) { return row.param.name; });

}  // namespace
