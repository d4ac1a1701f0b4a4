#include <gtest/gtest.h>

#include <vector>

#include "simulator/instrument/SpiWire.h"

namespace orvane {
namespace {

using std::chrono::nanoseconds;

class SpiWireTest : public testing::Test {
 protected:
  InstrumentClock clock_{{}};
};

TEST_F(SpiWireTest, EachByteEndsAtItsOwnNanosecond) {
  const std::vector<SpiTransfer> transfers = {{.length = 3, .speedHz = 19'000'000}};
  SpiWire wire(clock_, transfers, 1);
  wire.Pass(1);
  EXPECT_EQ(clock_.Now(), nanoseconds(422));  // 421.05
  wire.Pass(1);
  EXPECT_EQ(clock_.Now(), nanoseconds(843));  // 842.11
  wire.Pass(1);
  EXPECT_EQ(clock_.Now(), nanoseconds(1'264));  // 1263.16
  EXPECT_EQ(clock_.Totals().Of(Cause::kWire), nanoseconds(1'264));
}

TEST_F(SpiWireTest, BytesTogetherTakeAsLongAsOneByOne) {
  const std::vector<SpiTransfer> transfers = {{.length = 3, .speedHz = 19'000'000}};
  SpiWire(clock_, transfers, 1).Pass(3);
  EXPECT_EQ(clock_.Now(), nanoseconds(1'264));
}

TEST_F(SpiWireTest, EachTransferHasItsRateOrTheUsualOne) {
  const std::vector<SpiTransfer> transfers = {
      {.length = 1, .speedHz = 1'000'000}, {.length = 0, .speedHz = 5}, {.length = 2}};
  SpiWire wire(clock_, transfers, 2'000'000);
  wire.Pass(2);
  EXPECT_EQ(clock_.Now(), nanoseconds(8'000 + 4'000));
  wire.Pass(1);
  EXPECT_EQ(clock_.Now(), nanoseconds(8'000 + 8'000));
}

TEST_F(SpiWireTest, ClockedBytesAreThoseSinceTheyWereTakenLast) {
  const std::vector<SpiTransfer> transfers = {{.length = 2, .speedHz = 7}, {.length = 5}};
  SpiWire wire(clock_, transfers, 9);
  wire.Pass(1);
  wire.Pass(1);
  wire.Pass(3);
  std::vector<ClockedBytes> clocked = wire.TakeClocked();
  ASSERT_EQ(clocked.size(), 2U);
  EXPECT_EQ(clocked[0].bytes, 2U);
  EXPECT_EQ(clocked[0].hertz, 7U);
  EXPECT_EQ(clocked[1].bytes, 3U);
  EXPECT_EQ(clocked[1].hertz, 9U);
  wire.Pass(2);
  clocked = wire.TakeClocked();
  ASSERT_EQ(clocked.size(), 1U);
  EXPECT_EQ(clocked[0].bytes, 2U);
  EXPECT_EQ(clocked[0].hertz, 9U);
}

TEST_F(SpiWireTest, RateIsThatOfTheTransferOrTheUsualOne) {
  EXPECT_EQ(RateOf({.length = 1, .speedHz = 7}, 9), 7U);
  EXPECT_EQ(RateOf({.length = 1}, 9), 9U);
}

TEST_F(SpiWireTest, TimeOfAllTransfersIsWhatTheirBytesTake) {
  const std::vector<SpiTransfer> transfers = {{.length = 3, .speedHz = 19'000'000}, {.length = 1}};
  EXPECT_EQ(WireTimeOf(transfers, 1'000'000), nanoseconds(1'264 + 8'000));
}

}  // namespace
}  // namespace orvane
