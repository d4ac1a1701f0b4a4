#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "simulator/host/UnhitReport.h"

namespace orvane {
namespace {

TEST(UnhitReportTest, NothingToReportLeavesTheStatus) {
  std::ostringstream out;
  EXPECT_EQ(ReportUnhit({}, {}, 11, out), 11);
  EXPECT_EQ(out.str(), "");
}

TEST(UnhitReportTest, RulesAndKeysAreReportedOneALine) {
  Options options;
  options.keysWithoutEffect = {{"held=3:1", "wend@1"}, {"zynq-files=missing", "dax@2"}};
  std::ostringstream out;
  EXPECT_EQ(ReportUnhit(options, {"spi:PP#3:lost", "any#9:kill"}, 137, out), 125);
  EXPECT_EQ(out.str(),
            "orvane-sim: fault rule 'spi:PP#3:lost' never hit anything; COMMAND ended with 137\n"
            "orvane-sim: fault rule 'any#9:kill' never hit anything; COMMAND ended with 137\n"
            "orvane-sim: key 'held=3:1' has no effect on wend@1; COMMAND ended with 137\n"
            "orvane-sim: key 'zynq-files=missing' has no effect on dax@2; COMMAND ended with "
            "137\n");
}

TEST(UnhitReportTest, RuleAloneIsReported) {
  std::ostringstream out;
  EXPECT_EQ(ReportUnhit({}, {"spi:EIO"}, 0, out), 125);
  EXPECT_EQ(out.str(),
            "orvane-sim: fault rule 'spi:EIO' never hit anything; COMMAND ended with 0\n");
}

TEST(UnhitReportTest, KeyAloneIsReported) {
  Options options;
  options.keysWithoutEffect = {{"expander=absent", "wend@1"}};
  std::ostringstream out;
  EXPECT_EQ(ReportUnhit(options, {}, 0, out), 125);
  EXPECT_EQ(out.str(),
            "orvane-sim: key 'expander=absent' has no effect on wend@1; COMMAND ended with 0\n");
}

TEST(UnhitReportTest, NothingIsReportedWhenTheOptionsAllowIt) {
  Options options;
  options.allowUnhit = true;
  options.keysWithoutEffect = {{"held=3:1", "wend@1"}};
  std::ostringstream out;
  EXPECT_EQ(ReportUnhit(options, {"spi:PP#3:lost"}, 7, out), 7);
  EXPECT_EQ(out.str(), "");
}

}  // namespace
}  // namespace orvane
