#include <gtest/gtest.h>

#include <cstdio>
#include <iomanip>
#include <iostream>

#include "tests/doubles/ConsoleCapture.h"

namespace {

TEST(ConsoleCaptureTest, StreamsAreTakenSeparatelyAndOnce) {
  std::string out;
  std::string err;
  std::string rest;
  {
    ConsoleCapture console;
    std::cout << "out" << std::endl;
    std::cerr << "err" << std::endl;
    errno = ENOENT;
    std::perror("perror");
    out = console.TakeOut();
    err = console.TakeErr();
    rest = console.TakeOut() + console.TakeErr();
  }
  EXPECT_EQ(out, "out\n");
  EXPECT_EQ(err, "err\nperror: No such file or directory\n");
  EXPECT_EQ(rest, "");
}

TEST(ConsoleCaptureTest, TextThatWasNotFlushedIsNotSeen) {
  std::string before;
  std::string after;
  {
    ConsoleCapture console;
    std::cout << "line\n";
    before = console.TakeOut();
    std::cout << std::flush;
    after = console.TakeOut();
  }
  EXPECT_EQ(before, "");
  EXPECT_EQ(after, "line\n");
}

TEST(ConsoleCaptureTest, FormatStateIsRestored) {
  const auto flags = std::cout.flags();
  const char fill = std::cout.fill();
  {
    const ConsoleCapture console;
    std::cout << std::hex << std::setfill('#');
    std::cerr << std::hex;
  }
  EXPECT_EQ(std::cout.flags(), flags);
  EXPECT_EQ(std::cout.fill(), fill);
  EXPECT_EQ(std::cerr.flags() & std::ios::hex, std::ios::fmtflags{});
}

}  // namespace
