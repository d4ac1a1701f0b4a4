#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <iomanip>
#include <iostream>
#include <string>

#include "tests/doubles/Console.h"

namespace {

using testing::ElementsAre;

TEST(ConsoleTest, StreamsAreTakenSeparatelyAndOnce) {
  Console console;
  std::cout << "out" << std::endl;
  std::cerr << "err" << std::endl;
  EXPECT_EQ(console.TakeOut(), "out\n");
  EXPECT_EQ(console.TakeErr(), "err\n");
  EXPECT_EQ(console.TakeOut() + console.TakeErr(), "");
  EXPECT_EQ(console.Out(), "out\n");
  EXPECT_EQ(console.Err(), "err\n");
}

TEST(ConsoleTest, TextThatWasNotFlushedIsNotSeen) {
  const Console console;
  std::cout << "line\n" << 1;
  EXPECT_EQ(console.Out(), "");
  std::cout << std::flush;
  EXPECT_EQ(console.Out(), "line\n1");
}

TEST(ConsoleTest, EachFlushedLineIsAnEventAndPiecesOfALineAreOne) {
  EventLog log;
  const Console console(&log);
  std::cerr << "in " << 2 << " pieces" << std::endl;
  std::cout << "started ... " << std::flush;
  log.Add("event");
  std::cout << "done" << std::endl;
  std::cout << "more" << std::endl;
  EXPECT_THAT(
      log.Take(),
      ElementsAre(
          "err| in 2 pieces\n", "out| started ... ", "event", "out| done\n", "out| more\n"));
}

TEST(ConsoleTest, StdioIsTakenOnlyWhenAskedFor) {
  std::string out;
  std::string err;
  {
    const Console console(nullptr, Console::Takes::kStreamsAndStdio);
    std::printf("printed\n");
    out = console.Out();
    static_cast<void>(std::fflush(stdout));
    out += console.Out();
    errno = ENOENT;
    std::perror("perror");
    err = console.Err();
  }
  EXPECT_EQ(out, "printed\n");
  EXPECT_EQ(err, "perror: No such file or directory\n");
  const Console console;
  std::printf("(shown)\n");
  static_cast<void>(std::fflush(stdout));
  EXPECT_EQ(console.Out(), "");
}

TEST(ConsoleTest, FormatStateIsRestored) {
  const auto flags = std::cout.flags();
  const char fill = std::cout.fill();
  {
    const Console console;
    std::cout << std::hex << std::setfill('#');
    std::cerr << std::hex;
  }
  EXPECT_EQ(std::cout.flags(), flags);
  EXPECT_EQ(std::cout.fill(), fill);
  EXPECT_EQ(std::cerr.flags() & std::ios::hex, std::ios::fmtflags{});
}

}  // namespace
