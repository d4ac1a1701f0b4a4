// The steps themselves are shown by the whole-program tables.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <stdexcept>

#include "app/PcieUpdate.h"
#include "tests/doubles/EventLog.h"
#include "tests/doubles/PlatformDoubles.h"

namespace {

class PcieUpdateTest : public testing::Test {
 protected:
  EventLog log_;
  PlatformDoubles platform_{log_};
};

TEST_F(PcieUpdateTest, ModuleNumberIsPassedUnchanged) {
  EXPECT_EQ(updatePCIE(4294967295U), 0);
  EXPECT_THAT(log_.Take(),
              testing::ElementsAre("switch: construct",
                                   "switch: RemoveDevice 4294967295",
                                   "switch: RescanPciBus 4294967295",
                                   "switch: EnableDevice 4294967295",
                                   "switch: destroy"));
}

class PcieUpdateExceptionTest : public PcieUpdateTest,
                                public testing::WithParamInterface<const char*> {};

TEST_P(PcieUpdateExceptionTest, PassesOn) {
  platform_.throwAt = GetParam();
  EXPECT_THROW(updatePCIE(4), std::runtime_error);
}

INSTANTIATE_TEST_SUITE_P(Steps,
                         PcieUpdateExceptionTest,
                         testing::Values("switch: construct",
                                         "switch: RemoveDevice 4",
                                         "switch: RescanPciBus 4",
                                         "switch: EnableDevice 4"));

TEST_F(PcieUpdateTest, ExceptionFromTheSwitchsDestructionEndsTheProcess) {
  platform_.throwAt = "switch: destroy";
  EXPECT_EXIT(updatePCIE(4), testing::KilledBySignal(SIGABRT), "");
}

}  // namespace
