#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "app/Help.h"
#include "tests/doubles/Console.h"
#include "tests/doubles/EventLog.h"

namespace {

// The text itself is compared by the whole-program tables, with a golden file.
TEST(HelpTest, TextHas43LinesEachFlushedByItself) {
  EventLog log;
  const Console console(&log);
  showHelp();
  EXPECT_EQ(std::count(console.Out().begin(), console.Out().end(), '\n'), 43);
  EXPECT_EQ(log.Take().size(), 43U);
}

TEST(HelpTest, EscapeSequencesAreThereAlthoughStandardOutputIsNoTerminal) {
  const Console console;
  showHelp();
  EXPECT_TRUE(console.Out().starts_with("\x1B[1mNAME\x1B[0m\n"));
}

TEST(HelpTest, DoubledWordAndTheNameZeltAreKept) {
  const Console console;
  showHelp();
  EXPECT_NE(console.Out().find("\tA command line utility program program the FPGA or FPGA SPI NOR "
                               "flash device of the Module.\n"
                               "\tThis utility will NOT POWER ON THE Module, this will need to be "
                               "done prior to running zelt.\n"),
            std::string::npos)
      << console.Out();
}

TEST(HelpTest, EveryReturnCodeOfTheRangeIsListedAlsoTheOnesWithoutAName) {
  const Console console;
  showHelp();
  EXPECT_NE(console.Out().find("\t 8 Unknown Status.\n"
                               "\t 9 Non-fatal: The number of PCIe BARs in system inventory does "
                               "not match eeprom contents.\n"
                               "\t10 Unable to update PCIe endpoint.\n"
                               "\t11 FPGA is up to date.\n"
                               "\x1B[1mEXAMPLES\x1B[0m\n"),
            std::string::npos)
      << console.Out();
}

}  // namespace
