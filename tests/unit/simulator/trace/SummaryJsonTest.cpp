#include <gtest/gtest.h>

#include <chrono>

#include "simulator/trace/SummaryJson.h"

namespace orvane {
namespace {

using std::chrono::nanoseconds;

TEST(SummaryJsonTest, EachFigureHasItsKeyInOneLine) {
  RunFigures figures;
  figures.times.Add(Cause::kMessageCost, nanoseconds(1));
  figures.times.Add(Cause::kWire, nanoseconds(20));
  figures.times.Add(Cause::kChipBusy, nanoseconds(300));
  figures.times.Add(Cause::kLatePoll, nanoseconds(4'000));
  figures.times.Add(Cause::kSleep, nanoseconds(50'000));
  figures.times.Add(Cause::kLook, nanoseconds(600'000));
  figures.times.Add(Cause::kWait, nanoseconds(7'000'000));
  figures.steps = {{"whole run", figures.times}};
  figures.commands = {{"PP", 1, 260}, {"ab", 2, 3}};
  figures.i2cTransfers = 4;
  figures.i2cBytes = 5;
  figures.fileReads = 6;
  figures.fileWrites = 7;
  figures.dbusCalls = 8;
  figures.pages = 9;
  figures.sectors = 10;
  figures.subsectors = 11;
  figures.chipErases = 12;
  figures.hertz = 19'000'000;
  figures.limit = nanoseconds(15'308'642);
  EXPECT_EQ(
      SummaryJson(figures),
      R"({"timing":"typical","total_ns":7654321,"causes":{"message_cost":1,"wire":20,)"
      R"("chip_busy":300,"late_poll":4000,"sleep":50000,"look":600000,"wait":7000000},)"
      R"("steps":[{"name":"whole run","total_ns":7654321,"causes":{"message_cost":1,"wire":20,)"
      R"("chip_busy":300,"late_poll":4000,"sleep":50000,"look":600000,"wait":7000000}}],)"
      R"("commands":[{"name":"PP","messages":1,"bytes":260},{"name":"ab","messages":2,"bytes":3}],)"
      R"("i2c":{"transfers":4,"bytes":5},"control_files":{"reads":6,"writes":7},"dbus_calls":8,)"
      R"("pages":9,"sectors":10,"subsectors":11,"chip_erases":12,"hertz":19000000,)"
      R"("limit_ns":15308642,"ratio":0.5})"
      "\n");
}

TEST(SummaryJsonTest, WithoutLimitThereIsNoRatio) {
  RunFigures figures;
  figures.timing = Timing::kLongest;
  const std::string json = SummaryJson(figures);
  EXPECT_NE(json.find(R"("timing":"longest",)"), std::string::npos);
  EXPECT_NE(json.find(R"("steps":[],"commands":[],)"), std::string::npos);
  EXPECT_NE(json.find(R"("limit_ns":0,"ratio":null})"), std::string::npos);
}

}  // namespace
}  // namespace orvane
