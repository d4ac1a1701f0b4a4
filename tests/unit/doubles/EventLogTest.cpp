#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/doubles/EventLog.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(EventLogTest, EventsAreTakenOnceInTheirOrder) {
  EventLog log;
  log.Add("first");
  log.Add("second");
  log.Add("first");
  EXPECT_EQ(log.Count("first"), 2);
  EXPECT_EQ(log.Count("fir"), 0);
  EXPECT_THAT(log.Take(), ElementsAre("first", "second", "first"));
  EXPECT_THAT(log.Take(), IsEmpty());
}

TEST(EventLogTest, TextJoinsAnUnfinishedLineOfItsOwnStreamOnly) {
  EventLog log;
  log.AddText("out", "a");
  log.AddText("out", "b\n");
  log.AddText("out", "c");
  log.AddText("err", "d");
  log.AddText("out", "e");
  EXPECT_THAT(log.Take(), ElementsAre("out| ab\n", "out| c", "err| d", "out| e"));
}

}  // namespace
