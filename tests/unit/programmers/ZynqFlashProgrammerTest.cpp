// The wend programmer. The whole-program tables show the order of an update and every control file
// that fails; these tests show what no command line reaches.
#include <fcntl.h>

#include <cerrno>
#include <chrono>
#include <string>

#include "programmers/ZynqFlashProgrammer.h"
#include "tests/unit/programmers/ProgrammerTest.h"

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;

constexpr const char* kDone = "/sys/platform_m3/zynq_done/value";

class ZynqFlashProgrammerTest : public ProgrammerTest {
 protected:
  ZynqFlashProgrammerTest() { AddControlFiles("/sys/platform_m3"); }

  void AddControlFiles(const std::string& module) {
    for (const char* const name : {"qspi_prg", "zynq_hw_reset_n", "zynq_done"}) {
      kernel_.files[module + "/" + name + "/value"] = "";
    }
  }

  /// DONE reads "0" until the given read, counted from 1, and "1" from there on.
  void HighFromRead(int read) {
    kernel_.decide = [this, read](const char* call, const std::string& path) {
      if (path == kDone && std::string(call) == "read") {
        kernel_.files[path] = ++doneReads_ >= read ? "1\n" : "0\n";
      }
      return FileKernel::Fate{};
    };
  }

  ZynqFlashProgrammer programmer_{spi_.Get(), 3};
  int doneReads_ = 0;
};

// --- Control files ------------------------------------------------------------------------------

TEST_F(ZynqFlashProgrammerTest, ValueIsWrittenAsItIsSynchronouslyInOneCall) {
  Forget();
  EXPECT_EQ(programmer_.set_qspi_prg(std::string("on\0 \n", 5)), 0);
  EXPECT_EQ(programmer_.set_zynq_hw_reset_n("0"), 0);
  EXPECT_THAT(
      log_.Take(),
      ElementsAre(kernel::Open("/sys/platform_m3/qspi_prg/value", O_WRONLY | O_SYNC).text,
                  "write(100, [6f 6e 00 20 0a])",
                  "close(100)",
                  kernel::Open("/sys/platform_m3/zynq_hw_reset_n/value", O_WRONLY | O_SYNC).text,
                  "write(101, [30])",
                  "close(101)"));
}

TEST_F(ZynqFlashProgrammerTest, DoneIsReadSynchronouslyOneByteInOneCall) {
  Forget();
  HighFromRead(1);
  std::string done = "before";
  EXPECT_EQ(programmer_.get_zynq_done(done), 0);
  EXPECT_EQ(done, "1");
  EXPECT_THAT(
      log_.Take(),
      ElementsAre(kernel::Open(kDone, O_RDONLY | O_SYNC).text, "read(100, 1)", "close(100)"));
}

TEST_F(ZynqFlashProgrammerTest, ProgrammedMeansThatDoneIs1) {
  HighFromRead(2);
  EXPECT_FALSE(programmer_.IsProgrammed());
  EXPECT_TRUE(programmer_.IsProgrammed());
}

TEST_F(ZynqFlashProgrammerTest, LargestModuleNumberStandsInDecimalInEveryPath) {
  AddControlFiles("/sys/platform_m4294967295");
  kernel_.files["/sys/platform_m4294967295/zynq_done/value"] = "1";
  ZynqFlashProgrammer programmer(spi_.Get(), 4294967295U);
  EXPECT_EQ(programmer.set_qspi_prg("1"), 0);
  EXPECT_EQ(programmer.set_zynq_hw_reset_n("1"), 0);
  EXPECT_TRUE(programmer.IsProgrammed());
}

TEST_F(ZynqFlashProgrammerTest, DoneOfANulByteEndsTheProcess) {
  kernel_.files[kDone] = std::string(1, '\0');
  EXPECT_EXIT(programmer_.IsProgrammed(), testing::ExitedWithCode(1), "");
}

// --- The route, one step at a time ----------------------------------------------------------------

TEST_F(ZynqFlashProgrammerTest, LinesAreConnectedWithoutTouchingAnything) {
  Forget();
  EXPECT_TRUE(programmer_.ConnectLines());
  EXPECT_THAT(log_.Take(), ElementsAre());
}

TEST_F(ZynqFlashProgrammerTest, EachStepOfTheRouteWritesOneControlFile) {
  Forget();
  FlashRouteInterface& route = programmer_;
  route.RouteToController();
  route.RouteInPsMode();
  route.RouteToFpga();
  route.HoldReset();
  route.ReleaseReset();
  const std::string qspi = kernel::Open("/sys/platform_m3/qspi_prg/value", O_WRONLY | O_SYNC).text;
  const std::string reset =
      kernel::Open("/sys/platform_m3/zynq_hw_reset_n/value", O_WRONLY | O_SYNC).text;
  EXPECT_THAT(log_.Take(),
              ElementsAre(qspi,
                          "write(100, [31])",
                          "close(100)",
                          qspi,
                          "write(101, [31])",
                          "close(101)",
                          qspi,
                          "write(102, [30])",
                          "close(102)",
                          reset,
                          "write(103, [30])",
                          "close(103)",
                          reset,
                          "write(104, [31])",
                          "close(104)"));
}

// --- DONE ---------------------------------------------------------------------------------------

struct Wait {
  const char* name;
  int timeout;     // ms
  int highAtRead;  // 0: never
  bool high;
  int reads;
  int sleeps;
};

class DoneWaitTest : public ZynqFlashProgrammerTest, public testing::WithParamInterface<Wait> {};

TEST_P(DoneWaitTest, ResultReadsAndSleepsAreThoseOfTheRow) {
  const Wait& row = GetParam();
  HighFromRead(row.highAtRead == 0 ? 100'000 : row.highAtRead);
  EXPECT_EQ(programmer_.waitForDoneToGoHigh(milliseconds(row.timeout)), row.high);
  EXPECT_EQ(doneReads_, row.reads);
  EXPECT_EQ(log_.Count("usleep(1000)"), row.sleeps);
}

INSTANTIATE_TEST_SUITE_P(
    Waits,
    DoneWaitTest,
    testing::Values(Wait{"NegativeTimeoutReadsOnce", -1, 1, false, 1, 0},
                    Wait{"Timeout0ReadsOnceAndFails", 0, 1, false, 1, 0},
                    Wait{"Timeout0NeverHighReadsOnce", 0, 0, false, 1, 0},
                    Wait{"Timeout1AlreadyHighFails", 1, 1, false, 1, 0},
                    Wait{"Timeout1NeverHighPollsOnce", 1, 0, false, 2, 1},
                    Wait{"Timeout2AlreadyHighSucceeds", 2, 1, true, 1, 0},
                    Wait{"Timeout2HighAtRead2Fails", 2, 2, false, 2, 1},
                    Wait{"Timeout2HighAtRead3Fails", 2, 3, false, 3, 2},
                    Wait{"Timeout7HighAtRead6Succeeds", 7, 6, true, 6, 5},
                    Wait{"Timeout7HighAtRead7Fails", 7, 7, false, 7, 6},
                    Wait{"Timeout7HighAtRead8Fails", 7, 8, false, 8, 7},
                    Wait{"Timeout7NeverHighPolls7Times", 7, 0, false, 8, 7},
                    Wait{"Timeout10000HighAtRead9999Succeeds", 10000, 9999, true, 9999, 9998},
                    Wait{"Timeout10000NeverHigh", 10000, 0, false, 10001, 10000}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(ZynqFlashProgrammerTest, DoneSeenOnTheLastPollCountsAsTimeout) {
  HighFromRead(4);  // the first read and 3 polls
  EXPECT_FALSE(programmer_.waitForDoneToGoHigh(milliseconds(3)));
  EXPECT_EQ(doneReads_, 4);
}

// --- Life cycle ---------------------------------------------------------------------------------

TEST_F(ZynqFlashProgrammerTest, DestructionThroughTheInterfaceDestroysTheFlashDriverAlone) {
  std::unique_ptr<FpgaProgrammerInterface> programmer =
      std::make_unique<ZynqFlashProgrammer>(spi_.Get(), 7U);
  Forget();
  programmer.reset();
  EXPECT_THAT(log_.Take(), ElementsAre("close(-1)"));
}

TEST_F(ZynqFlashProgrammerTest, OptionalOperationsAreNotImplemented) {
  EXPECT_EQ(programmer_.OptionalOperationA(), 6);
  EXPECT_EQ(programmer_.OptionalOperationB(), 6);
  EXPECT_EQ(programmer_.OptionalOperationC(), 6);
}

}  // namespace
