#include <gtest/gtest.h>

#include <sstream>

#include "simulator/instrument/EventLog.h"

namespace orvane {
namespace {

class EventLogTest : public testing::Test {
 protected:
  std::ostringstream out_;
  EventLog log_{&out_};
};

TEST_F(EventLogTest, EventIsItsWordAndItsText) {
  log_.Record({EventKind::kSpi, "/dev/spidev1.0 WREN"});
  EXPECT_EQ(out_.str(), "spi /dev/spidev1.0 WREN\n");
}

TEST_F(EventLogTest, ResultFollowsAnEqualsSign) {
  log_.Record({EventKind::kOpen, "/dev/spidev9.0 O_RDWR"}, "ENOENT");
  EXPECT_EQ(out_.str(), "open /dev/spidev9.0 O_RDWR = ENOENT\n");
}

TEST_F(EventLogTest, EachWriteToStandardOutputIsALine) {
  log_.StandardOutput("Erasing device ... ");
  log_.StandardOutput("done.\nNext\n");
  EXPECT_EQ(out_.str(), "stdout \"Erasing device ... \"\nstdout \"done.\\nNext\\n\"\n");
}

TEST_F(EventLogTest, PiecesOfStandardErrorAreOneLine) {
  log_.StandardError("errno = ");
  log_.StandardError("5");
  EXPECT_EQ(out_.str(), "");
  log_.StandardError("\n");
  EXPECT_EQ(out_.str(), "stderr \"errno = 5\\n\"\n");
}

TEST_F(EventLogTest, LinesOfOneWriteToStandardErrorAreLines) {
  log_.StandardError("a\nb\nc");
  EXPECT_EQ(out_.str(), "stderr \"a\\n\"\nstderr \"b\\n\"\n");
  log_.StandardError("d\n");
  EXPECT_EQ(out_.str(), "stderr \"a\\n\"\nstderr \"b\\n\"\nstderr \"cd\\n\"\n");
}

TEST_F(EventLogTest, UnfinishedStandardErrorComesBeforeTheEventBehindIt) {
  log_.StandardError("Warning");
  log_.Record({EventKind::kClose, "-1"});
  EXPECT_EQ(out_.str(), "stderr \"Warning\"\nclose -1\n");
}

TEST_F(EventLogTest, UnfinishedStandardErrorComesBeforeStandardOutput) {
  log_.StandardError("a");
  log_.StandardOutput("b");
  EXPECT_EQ(out_.str(), "stderr \"a\"\nstdout \"b\"\n");
}

TEST_F(EventLogTest, EndIsTheLastLine) {
  log_.StandardError("a");
  log_.End("killed SIGSEGV");
  EXPECT_EQ(out_.str(), "stderr \"a\"\nkilled SIGSEGV\n");
}

TEST(SilentEventLogTest, NothingIsWritten) {
  EventLog log(nullptr);
  EXPECT_FALSE(log.IsOn());
  log.Record({EventKind::kSpi, "a"}, "b");
  log.StandardOutput("a");
  log.StandardError("a\n");
  log.End("exit 0");
}

}  // namespace
}  // namespace orvane
