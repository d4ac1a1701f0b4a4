#include <gtest/gtest.h>

#include "simulator/trace/RunObserver.h"

namespace orvane {
namespace {

TEST(RunObserverTest, EachLineHasItsName) {
  EXPECT_EQ(LineName(Line::kDone), "DONE");
  EXPECT_EQ(LineName(Line::kReset), "RESET");
  EXPECT_EQ(LineName(Line::kQspiPrg), "QSPI_PRG");
  EXPECT_EQ(LineName(Line::kSelector), "SELECTOR");
  EXPECT_EQ(LineName(Line::kEndpointPresent), "ENDPOINT_PRESENT");
  EXPECT_EQ(LineName(Line::kEndpointEnabled), "ENDPOINT_ENABLED");
}

}  // namespace
}  // namespace orvane
