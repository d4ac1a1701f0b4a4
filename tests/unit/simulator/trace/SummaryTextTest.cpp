#include <gtest/gtest.h>

#include <chrono>

#include "simulator/trace/SummaryText.h"

namespace orvane {
namespace {

using std::chrono::nanoseconds;

TEST(SummaryTextTest, EachTableIsAlignedAndShowsTheCausesThatThereAre) {
  RunFigures figures;
  figures.timing = Timing::kLongest;
  figures.times.Add(Cause::kWire, nanoseconds(2'000'000));
  figures.times.Add(Cause::kSleep, nanoseconds(5'000'000'001));
  StepTimes first{"finding", {}};
  first.times.Add(Cause::kSleep, nanoseconds(5'000'000'001));
  StepTimes second{"reading the head", {}};
  second.times.Add(Cause::kWire, nanoseconds(2'000'000));
  figures.steps = {first, {"PCIe", {}}, second};
  figures.commands = {{"WREN", 1, 1}, {"READ", 20, 5'000}};
  figures.i2cTransfers = 1;
  figures.i2cBytes = 3;
  figures.fileReads = 2;
  figures.fileWrites = 1;
  figures.dbusCalls = 4;
  figures.hertz = 12'500'000;
  figures.pages = 1;
  figures.sectors = 2;
  figures.subsectors = 1;
  figures.chipErases = 1;
  figures.limit = nanoseconds(2'500'000'000);
  EXPECT_EQ(SummaryText(figures),
            R"(orvane-sim: on the instrument this took 5.002000001 s (--timing longest)
times in ms             total      wire        sleep
finding           5000.000001         -  5000.000001
PCIe                        -         -            -
reading the head     2.000000  2.000000            -
total             5002.000001  2.000000  5000.000001

SPI command  messages  bytes
WREN                1      1
READ               20   5000
total              21   5001

I2C: 1 transfer, 3 bytes; control files: 2 reads, 1 write; D-Bus: 4 calls
Programmed and erased: 1 page, 2 sectors of 64 KiB, 1 sector of 4 KiB, 1 whole chip.
That takes at least 2.500000000 s at 12500 kHz; this took 2.001 times as long.
)");
}

TEST(SummaryTextTest, RunWithoutEventsHasNeitherCausesNorCommands) {
  RunFigures figures;
  figures.steps = {{"whole run", {}}};
  EXPECT_EQ(SummaryText(figures),
            R"(orvane-sim: on the instrument this took 0.000000000 s (--timing typical)
times in ms  total
whole run        -

I2C: 0 transfers, 0 bytes; control files: 0 reads, 0 writes; D-Bus: 0 calls
Nothing was programmed or erased.
)");
}

TEST(SummaryTextTest, OneStepOrCommandHasNoTotal) {
  RunFigures figures;
  figures.times.Add(Cause::kMessageCost, nanoseconds(20'000));
  figures.steps = {{"whole run", figures.times}};
  figures.commands = {{"PP", 1, 260}};
  figures.pages = 1;
  figures.hertz = 999;
  figures.limit = nanoseconds(40'000);
  EXPECT_EQ(SummaryText(figures),
            R"(orvane-sim: on the instrument this took 0.000020000 s (--timing typical)
times in ms     total  message cost
whole run    0.020000      0.020000

SPI command  messages  bytes
PP                  1    260

I2C: 0 transfers, 0 bytes; control files: 0 reads, 0 writes; D-Bus: 0 calls
Programmed and erased: 1 page.
That takes at least 0.000040000 s at 999 Hz; this took 0.500 times as long.
)");
}

}  // namespace
}  // namespace orvane
