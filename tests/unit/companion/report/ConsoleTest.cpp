#include <gtest/gtest.h>

#include <sstream>

#include "companion/report/Console.h"

namespace companion {
namespace {

class ConsoleTest : public testing::Test {
 protected:
  std::ostringstream out_;
  std::ostringstream err_;
};

TEST_F(ConsoleTest, ResultsGoToStandardOutputAndDiagnosticsToStandardError) {
  Console console(out_, err_, false, false);
  console.Say("not in use");
  console.PassOn("out", false);
  console.PassOn("err\n", true);
  console.Report("verdict\n");
  EXPECT_EQ(out_.str(), "outverdict\n");
  EXPECT_EQ(err_.str(), "tarnwickctl: not in use\nerr\n");
}

TEST_F(ConsoleTest, WithJsonStandardOutputHasTheReportAlone) {
  Console console(out_, err_, true, false);
  console.PassOn("out\n", false);
  console.PassOn("err\n", true);
  console.Report("{}\n");
  EXPECT_EQ(out_.str(), "{}\n");
  EXPECT_EQ(err_.str(), "out\nerr\n");
}

TEST_F(ConsoleTest, ProgressIsShownOnATerminalOnly) {
  Console console(out_, err_, false, false);
  console.ShowProgress(1, 2);
  EXPECT_EQ(err_.str(), "");
}

TEST_F(ConsoleTest, ProgressIsOneLineThatEndsBeforeAnythingElse) {
  Console console(out_, err_, false, true);
  console.ShowProgress(0, 1000);
  console.ShowProgress(5, 1000);
  console.ShowProgress(10, 1000);
  console.ShowProgress(0, 0);
  console.Say("x");
  console.Say("y");
  EXPECT_EQ(err_.str(),
            "\rreading the flash: 0 %\rreading the flash: 1 %\rreading the flash: 100 %\n"
            "tarnwickctl: x\ntarnwickctl: y\n");
  EXPECT_EQ(out_.str(), "");
}

TEST_F(ConsoleTest, WhatATerminalWouldObeyIsReplaced) {
  Console console(out_, err_, false, false);
  console.Say("a\x1B[2Jb\nc\x7F\xC3\xA4");
  EXPECT_EQ(err_.str(), "tarnwickctl: a?[2Jb?c?\xC3\xA4\n");
}

TEST_F(ConsoleTest, OutputThatCannotBeWrittenIsLost) {
  out_.setstate(std::ios::badbit);
  Console console(out_, err_, false, false);
  console.PassOn("x", false);
  console.Report("y\n");
  console.Say("z");
  EXPECT_EQ(err_.str(), "tarnwickctl: z\n");
}

}  // namespace
}  // namespace companion
