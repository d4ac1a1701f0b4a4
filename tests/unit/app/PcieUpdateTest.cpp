#include <gtest/gtest.h>

#include <csignal>
#include <stdexcept>

#include "app/PcieUpdate.h"
#include "tests/doubles/EventLog.h"
#include "tests/doubles/LoggedConsole.h"
#include "tests/unit/app/PlatformDoubles.h"

namespace {

class PcieUpdateTest : public testing::Test {
 protected:
  EventLog log_;
  LoggedConsole console_{log_};
  PlatformDoubles platform_{log_};
};

TEST_F(PcieUpdateTest, EndpointIsRemovedRescannedAndEnabled) {
  EXPECT_EQ(updatePCIE(4), 0);
  EXPECT_EQ(log_.Text(), R"(switch: construct
switch: RemoveDevice 4
switch: RescanPciBus 4
switch: EnableDevice 4
switch: destroy
)");
}

TEST_F(PcieUpdateTest, FailedRemoveEndsTheUpdate) {
  platform_.removed = false;
  EXPECT_EQ(updatePCIE(4), 10);
  EXPECT_EQ(log_.Text(), R"(switch: construct
switch: RemoveDevice 4
switch: destroy
)");
}

TEST_F(PcieUpdateTest, FailedRescanEndsTheUpdate) {
  platform_.rescanned = false;
  EXPECT_EQ(updatePCIE(4), 10);
  EXPECT_EQ(log_.Text(), R"(switch: construct
switch: RemoveDevice 4
switch: RescanPciBus 4
switch: destroy
)");
}

TEST_F(PcieUpdateTest, FailedEnableFailsTheUpdate) {
  platform_.enabled = false;
  EXPECT_EQ(updatePCIE(4), 10);
  EXPECT_EQ(log_.Text(), R"(switch: construct
switch: RemoveDevice 4
switch: RescanPciBus 4
switch: EnableDevice 4
switch: destroy
)");
}

TEST_F(PcieUpdateTest, ModuleNumberIsPassedUnchanged) {
  updatePCIE(4294967295U);
  EXPECT_EQ(log_.Count("switch: RemoveDevice 4294967295"), 1);
  EXPECT_EQ(log_.Count("switch: RescanPciBus 4294967295"), 1);
  EXPECT_EQ(log_.Count("switch: EnableDevice 4294967295"), 1);
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
