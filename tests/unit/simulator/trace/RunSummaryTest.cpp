#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "simulator/trace/RunSummary.h"

namespace orvane {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr ChipTimes kTimes = {.pageProgram = microseconds(100),
                              .subsectorErase = milliseconds(40),
                              .sectorErase = milliseconds(200),
                              .chipErase = std::chrono::seconds(50),
                              .registerWrite = milliseconds(1)};
constexpr ChipTimes kSlowTimes = {.pageProgram = microseconds(900),
                                  .subsectorErase = milliseconds(90),
                                  .sectorErase = milliseconds(900),
                                  .chipErase = std::chrono::seconds(90),
                                  .registerWrite = milliseconds(9)};

class RunSummaryTest : public testing::Test {
 protected:
  RunSummaryTest() {
    const std::vector<ObservedModule> modules = {{.slot = 1,
                                                  .type = "wend",
                                                  .spiPath = {},
                                                  .i2cPaths = {},
                                                  .lines = {},
                                                  .chipTimes = kTimes},
                                                 {.slot = 2,
                                                  .type = "dax",
                                                  .spiPath = {},
                                                  .i2cPaths = {},
                                                  .lines = {},
                                                  .chipTimes = kSlowTimes}};
    summary_.OnStart(modules, {});
  }

  void Pass(Cause cause, std::int64_t time) { totals_.Add(cause, nanoseconds(time)); }
  void DBus() { summary_.OnDBus("GetSPIDev 1", nanoseconds(0), Outcome::kDone); }
  void Connect() {
    summary_.OnAccess({.path = "/sys/platform_m1/qspi_prg/value", .writes = true, .bytes = "1"});
  }
  void Spi(const std::string& command, std::uint32_t bytes, std::uint32_t hertz = 19'000'000) {
    const std::vector<ObservedSelect> selects = {{.period = {},
                                                  .command = command,
                                                  .mosi = std::vector<std::uint8_t>(bytes),
                                                  .miso = {},
                                                  .clocked = {{bytes, hertz}}}};
    summary_.OnSpi({.path = "/dev/spidev1.0", .period = {}, .selects = selects});
  }
  void Busy(ChipWork work, unsigned slot = 1) {
    summary_.OnChipBusy(slot, work, 0, nanoseconds(0));
  }
  const RunFigures& End() {
    summary_.OnEnd(totals_.Sum());
    return summary_.Figures();
  }
  /// "NAME TOTAL", for each step
  std::vector<std::string> Steps() {
    std::vector<std::string> steps;
    for (const StepTimes& step : End().steps) {
      steps.push_back(step.name + " " + std::to_string(step.times.Sum().count()));
    }
    return steps;
  }

  TimeTotals totals_;
  RunSummary summary_{Timing::kLongest, [this]() -> const TimeTotals& { return totals_; }};
};

TEST_F(RunSummaryTest, RunWithoutEventsIsOneStepWithoutTime) {
  const RunFigures& figures = End();
  EXPECT_EQ(figures.timing, Timing::kLongest);
  EXPECT_EQ(figures.times.Sum(), nanoseconds(0));
  ASSERT_EQ(figures.steps.size(), 1U);
  EXPECT_EQ(figures.steps[0].name, "whole run");
  EXPECT_TRUE(figures.commands.empty());
  EXPECT_EQ(figures.hertz, 0U);
  EXPECT_EQ(figures.limit, nanoseconds(0));
}

TEST_F(RunSummaryTest, StepsAddUpToTheTimesByCause) {
  Pass(Cause::kLook, 200);
  DBus();
  Pass(Cause::kSleep, 1'000);
  summary_.OnSleep({});
  Connect();
  Pass(Cause::kWire, 30);
  Spi("READ 0x000000 +1", 5);
  Pass(Cause::kWait, 4);
  summary_.OnUnseen({});
  const RunFigures& figures = End();
  EXPECT_EQ(figures.times.Of(Cause::kLook), nanoseconds(200));
  EXPECT_EQ(figures.times.Of(Cause::kSleep), nanoseconds(1'000));
  EXPECT_EQ(figures.times.Of(Cause::kWire), nanoseconds(30));
  EXPECT_EQ(figures.times.Of(Cause::kWait), nanoseconds(4));
  ASSERT_EQ(figures.steps.size(), 3U);
  EXPECT_EQ(figures.steps[0].name, "finding");
  EXPECT_EQ(figures.steps[0].times.Of(Cause::kLook), nanoseconds(200));
  EXPECT_EQ(figures.steps[0].times.Of(Cause::kSleep), nanoseconds(1'000));
  EXPECT_EQ(figures.steps[1].name, "connecting");
  EXPECT_EQ(figures.steps[1].times.Sum(), nanoseconds(0));
  EXPECT_EQ(figures.steps[2].name, "reading the head");
  EXPECT_EQ(figures.steps[2].times.Of(Cause::kWire), nanoseconds(30));
  EXPECT_EQ(figures.steps[2].times.Of(Cause::kWait), nanoseconds(4));
}

TEST_F(RunSummaryTest, TimeThatPreparesAStepIsPartOfIt) {
  DBus();
  Connect();
  Pass(Cause::kMessageCost, 10);
  Spi("WREN", 1);
  Pass(Cause::kLook, 200);
  summary_.OnUnseen({});
  Pass(Cause::kMessageCost, 20);
  Spi("SE 0x000000", 4);
  EXPECT_EQ(Steps(), (std::vector<std::string>{"finding 0", "connecting 0", "erasing 230"}));
}

TEST_F(RunSummaryTest, WaitForTheSelectorIsPartOfWhatIsWritten) {
  DBus();
  Connect();
  summary_.OnOther("open /sys/platform/module_selector/slotA O_WRONLY", nanoseconds(0));
  Pass(Cause::kSleep, 100);
  summary_.OnSleep({});
  summary_.OnAccess(
      {.path = "/sys/platform/module_selector/slotA", .writes = true, .bytes = "SPILVDS"});
  EXPECT_EQ(Steps(), (std::vector<std::string>{"finding 0", "connecting 0", "disconnecting 100"}));
}

TEST_F(RunSummaryTest, LinesTellStepsToo) {
  DBus();
  const std::vector<std::uint8_t> look = {0x00};
  ObservedI2cMessage message;
  message.bytes = look;
  summary_.OnI2c({.path = "/dev/i2c-4", .period = {}, .messages = {&message, 1}});
  summary_.OnLine(4, {Line::kReset, false}, nanoseconds(0));
  Pass(Cause::kSleep, 7);
  summary_.OnSleep({});
  summary_.OnI2c({.path = "/dev/i2c-4", .period = {}, .messages = {&message, 1}});
  EXPECT_EQ(Steps(), (std::vector<std::string>{"finding 0", "connecting 0", "reset and DONE 7"}));
}

TEST_F(RunSummaryTest, StepThatComesBackIsOneStep) {
  DBus();
  Connect();
  Pass(Cause::kSleep, 1);
  summary_.OnSleep({});
  DBus();
  Pass(Cause::kSleep, 10);
  summary_.OnSleep({});
  Connect();
  Pass(Cause::kSleep, 100);
  summary_.OnSleep({});
  EXPECT_EQ(Steps(), (std::vector<std::string>{"finding 10", "connecting 101"}));
}

TEST_F(RunSummaryTest, RunThatIsNoUpdateIsOneStep) {
  Pass(Cause::kWire, 5);
  Spi("RDID", 4);
  Pass(Cause::kWire, 6);
  Spi("SE 0x000000", 4);
  EXPECT_EQ(Steps(), (std::vector<std::string>{"whole run 11"}));
}

TEST_F(RunSummaryTest, TimeAtTheEndIsPartOfTheLastStep) {
  DBus();
  Connect();
  Spi("WREN", 1);
  Pass(Cause::kLook, 200);
  EXPECT_EQ(Steps(), (std::vector<std::string>{"finding 0", "connecting 200"}));
}

TEST_F(RunSummaryTest, MessagesAreCountedByCommand) {
  Spi("WREN", 1);
  Spi("PP 0x000000 +256", 260);
  Spi("WREN", 1);
  Spi("PP 0x000100 +88", 92);
  Spi("ab 00", 2);
  const RunFigures& figures = End();
  ASSERT_EQ(figures.commands.size(), 3U);
  EXPECT_EQ(figures.commands[0].name, "WREN");
  EXPECT_EQ(figures.commands[0].messages, 2U);
  EXPECT_EQ(figures.commands[0].bytes, 2U);
  EXPECT_EQ(figures.commands[1].name, "PP");
  EXPECT_EQ(figures.commands[1].messages, 2U);
  EXPECT_EQ(figures.commands[1].bytes, 352U);
  EXPECT_EQ(figures.commands[2].name, "ab");
}

TEST_F(RunSummaryTest, MessageOfSeveralChipSelectsIsOneMessage) {
  const std::vector<ObservedSelect> selects = {
      {.period = {}, .command = "WREN", .mosi = {0x06}, .miso = {}, .clocked = {{1, 1'000}}},
      {.period = {}, .command = "RDSR", .mosi = {0x05, 0}, .miso = {}, .clocked = {{2, 1'000}}}};
  summary_.OnSpi({.path = "/dev/spidev1.0", .period = {}, .selects = selects});
  const RunFigures& figures = End();
  ASSERT_EQ(figures.commands.size(), 1U);
  EXPECT_EQ(figures.commands[0].name, "WREN / RDSR");
  EXPECT_EQ(figures.commands[0].messages, 1U);
  EXPECT_EQ(figures.commands[0].bytes, 3U);
}

TEST_F(RunSummaryTest, MessageThatFailsHasNoCommandAndNoBytes) {
  summary_.OnSpi({.path = "/dev/spidev1.0", .period = {}, .selects = {}});
  const RunFigures& figures = End();
  ASSERT_EQ(figures.commands.size(), 1U);
  EXPECT_EQ(figures.commands[0].name, "failed");
  EXPECT_EQ(figures.commands[0].messages, 1U);
  EXPECT_EQ(figures.commands[0].bytes, 0U);
}

TEST_F(RunSummaryTest, OtherEventsAreCounted) {
  std::vector<ObservedI2cMessage> messages(2);
  messages[0].bytes = {0x00};
  messages[1].bytes = {0xC0, 0x2D};
  summary_.OnI2c({.path = "/dev/i2c-4", .period = {}, .messages = messages});
  summary_.OnI2c({.path = "/dev/i2c-4", .period = {}, .messages = {}});
  Connect();
  summary_.OnAccess({.path = "/sys/x", .writes = false, .bytes = "1"});
  summary_.OnAccess({.path = "/sys/x", .writes = false, .bytes = "1"});
  DBus();
  const RunFigures& figures = End();
  EXPECT_EQ(figures.i2cTransfers, 2U);
  EXPECT_EQ(figures.i2cBytes, 5U);  // with two addresses
  EXPECT_EQ(figures.fileWrites, 1U);
  EXPECT_EQ(figures.fileReads, 2U);
  EXPECT_EQ(figures.dbusCalls, 1U);
}

TEST_F(RunSummaryTest, RateIsThatOfMostBytes) {
  Spi("RDID", 4, 1'000);
  Spi("RDID", 4, 2'000);
  Spi("READ 0x000000 +2", 6, 3'000);
  Spi("RDID", 4, 2'000);
  EXPECT_EQ(End().hertz, 2'000U);
}

TEST_F(RunSummaryTest, LimitOfAPageIsItsMessagesAndTheTimeOfTheChip) {
  Spi("PP 0x000000 +88", 92, 8'000'000);
  Busy(ChipWork::kPageProgram);
  const RunFigures& figures = End();
  EXPECT_EQ(figures.pages, 1U);
  EXPECT_EQ(figures.limit, microseconds(100 + 1 + 260 + 2));  // 1 us for each byte
}

TEST_F(RunSummaryTest, LimitOfAnEraseIsThatOfItsSize) {
  Spi("SE 0x000000", 4, 8'000'000);
  Busy(ChipWork::kSectorErase);
  Busy(ChipWork::kSubsectorErase);
  Busy(ChipWork::kSubsectorErase);
  Busy(ChipWork::kChipErase);
  const RunFigures& figures = End();
  EXPECT_EQ(figures.sectors, 1U);
  EXPECT_EQ(figures.subsectors, 2U);
  EXPECT_EQ(figures.chipErases, 1U);
  EXPECT_EQ(figures.limit,
            milliseconds(200 + 2 * 40 + 50'000) + microseconds(3 * (1 + 4 + 2) + 1 + 1 + 2));
}

TEST_F(RunSummaryTest, LimitIsThatOfEachChip) {
  Spi("PP 0x000000 +256", 260, 8'000'000);
  Busy(ChipWork::kPageProgram, 1);
  Busy(ChipWork::kPageProgram, 2);
  EXPECT_EQ(End().limit, microseconds(100 + 900 + 2 * 263));
}

TEST_F(RunSummaryTest, RegisterWriteIsNoPartOfTheLimit) {
  Spi("WRSR 00", 2);
  Busy(ChipWork::kRegisterWrite);
  EXPECT_EQ(End().limit, nanoseconds(0));
}

}  // namespace
}  // namespace orvane
