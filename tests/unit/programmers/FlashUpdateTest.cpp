#include <gtest/gtest.h>

#include "flash/MT25QL128.h"
#include "programmers/FlashUpdate.h"
#include "tests/doubles/EventLog.h"
#include "tests/doubles/LoggedConsole.h"
#include "tests/doubles/ScriptedFlash.h"

namespace {

class FlashUpdateTest : public testing::Test {
 protected:
  FlashUpdateTest() { log_.Clear(); }

  EventLog log_;
  LoggedConsole console_{log_};
  ScriptedFlash script_{log_};
  MT25QL128 flash_{nullptr};
};

TEST_F(FlashUpdateTest, UnlocksErasesAndWritesFromAddress0) {
  EXPECT_EQ(RewriteFlash(flash_, "image.bin"), 0);
  EXPECT_EQ(log_.Text(), R"(out "Unlocking flash memory ... \n"
flash: UnlockMemory
out "Erasing device ... "
flash: EraseDevice 0 image.bin
out "done.\n"
out "Programming device ... "
flash: ProgramDevice 0 image.bin
out "done.\n"
)");
}

TEST_F(FlashUpdateTest, FailedEraseEndsTheUpdateInAnUnfinishedLine) {
  script_.eraseResult = 4;
  EXPECT_EQ(RewriteFlash(flash_, "image.bin"), 3);
  EXPECT_EQ(log_.Text(), R"(out "Unlocking flash memory ... \n"
flash: UnlockMemory
out "Erasing device ... "
flash: EraseDevice 0 image.bin
)");
}

TEST_F(FlashUpdateTest, FailedWriteEndsTheUpdateInAnUnfinishedLine) {
  script_.programResult = 4;
  EXPECT_EQ(RewriteFlash(flash_, "image.bin"), 6);
  EXPECT_EQ(log_.Text(), R"(out "Unlocking flash memory ... \n"
flash: UnlockMemory
out "Erasing device ... "
flash: EraseDevice 0 image.bin
out "done.\n"
out "Programming device ... "
flash: ProgramDevice 0 image.bin
)");
}

TEST_F(FlashUpdateTest, DoneInTimeFinishesTheResetLine) {
  const auto reset = [this] { log_.Add("reset"); };
  const auto wait = [this] {
    log_.Add("wait");
    return true;
  };
  EXPECT_EQ(ResetAndWaitForDone(reset, wait), 0);
  EXPECT_EQ(log_.Text(), R"(out "Toggling reset ... "
reset
wait
out "done.\n"
)");
}

TEST_F(FlashUpdateTest, DoneTooLateLeavesTheResetLineUnfinished) {
  const auto reset = [this] { log_.Add("reset"); };
  const auto wait = [this] {
    log_.Add("wait");
    return false;
  };
  EXPECT_EQ(ResetAndWaitForDone(reset, wait), 7);
  EXPECT_EQ(log_.Text(), R"(out "Toggling reset ... "
reset
wait
)");
}

}  // namespace
