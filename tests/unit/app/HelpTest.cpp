#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "app/Help.h"
#include "tests/doubles/EventLog.h"
#include "tests/doubles/LoggedConsole.h"
#include "tests/doubles/ScratchDirectory.h"

namespace {

std::string Golden() { return ReadFile(TARNWICK_GOLDEN_FOLDER "/help.txt"); }

class HelpTest : public testing::Test {
 protected:
  EventLog log_;
  LoggedConsole console_{log_};
};

TEST_F(HelpTest, TextIsTheGoldenFileByteForByte) {
  showHelp();
  EXPECT_EQ(console_.Out(), Golden());
  EXPECT_EQ(console_.Err(), "");
}

TEST_F(HelpTest, TextHas43LinesEachFlushedByItself) {
  showHelp();
  const std::string events = log_.Text();
  EXPECT_EQ(std::count(console_.Out().begin(), console_.Out().end(), '\n'), 43);
  EXPECT_EQ(std::count(events.begin(), events.end(), '\n'), 43);
}

TEST_F(HelpTest, EscapeSequencesAreThereAlthoughStandardOutputIsNoTerminal) {
  showHelp();
  EXPECT_TRUE(console_.Out().starts_with("\x1B[1mNAME\x1B[0m\n"));
}

TEST_F(HelpTest, EveryReturnCodeOfTheRangeIsListedAlsoTheOnesWithoutAName) {
  showHelp();
  const std::string& text = console_.Out();
  const std::string codes =
      "\x1B[1mRETURN CODES\x1B[0m\n"
      "\t-1 Could not run program with command line parameters provided.\n"
      "\t 0 FPGA programmed successfully.\n"
      "\t 1 Could not connect to the device. Check Module # and power.\n"
      "\t 2 Could not open source file.\n"
      "\t 3 Could not erase the device.\n"
      "\t 4 Unknown Status.\n"
      "\t 5 Unknown Status.\n"
      "\t 6 Programming operation failed.\n"
      "\t 7 FPGA did not assert configuration completed.\n"
      "\t 8 Unknown Status.\n"
      "\t 9 Non-fatal: The number of PCIe BARs in system inventory does not match eeprom "
      "contents.\n"
      "\t10 Unable to update PCIe endpoint.\n"
      "\t11 FPGA is up to date.\n"
      "\x1B[1mEXAMPLES\x1B[0m\n";
  EXPECT_NE(text.find(codes), std::string::npos) << text;
}

}  // namespace
