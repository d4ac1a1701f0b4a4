#include <gtest/gtest.h>

#include "simulator/timing/Timing.h"

namespace orvane {
namespace {

TEST(TimingTest, EachTimingHasItsWord) {
  EXPECT_EQ(Word(Timing::kPolls), "polls");
  EXPECT_EQ(Word(Timing::kTypical), "typical");
  EXPECT_EQ(Word(Timing::kLongest), "longest");
}

}  // namespace
}  // namespace orvane
