#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "companion/process/SpidevLimit.h"
#include "tests/doubles/Console.h"
#include "tests/doubles/RedirectedFile.h"
#include "tests/doubles/TemporaryDirectory.h"

namespace {

using companion::SpidevLimitProblem;

constexpr const char* kBufsizPath = "/sys/module/spidev/parameters/bufsiz";

std::string ProblemAt(const std::string& contents) {
  const RedirectedFile bufsiz(kBufsizPath, contents);
  return SpidevLimitProblem();
}

std::string Refusal(const std::string& limit) {
  return "the limit of a SPI transfer, parameter 'bufsiz' of the kernel module spidev, is " +
         limit +
         ": set it to a multiple of 256, at least 512, such as 4096, and load the module "
         "again";
}

TEST(SpidevLimitTest, WholePagesFromTwoOnAreRight) {
  for (const char* const limit : {"512\n", "768\n", "4096\n", "65536\n"}) {
    EXPECT_EQ(ProblemAt(limit), "") << limit;
  }
}

TEST(SpidevLimitTest, FewerThanTwoPagesAreRefused) {
  EXPECT_EQ(ProblemAt("256\n"), Refusal("256"));
  EXPECT_EQ(ProblemAt("0\n"), Refusal("0"));
}

TEST(SpidevLimitTest, NoWholePagesAreRefused) {
  EXPECT_EQ(ProblemAt("511\n"), Refusal("511"));
  EXPECT_EQ(ProblemAt("513\n"), Refusal("513"));
  EXPECT_EQ(ProblemAt("4095\n"), Refusal("4095"));
}

TEST(SpidevLimitTest, LimitThatCannotBeReadIsTheUsualOneAndPrintsNothing) {
  const Console console;
  int openings = 0;
  const RedirectedFile bufsiz(kBufsizPath, [&](const char* /*mode*/) {
    ++openings;
    errno = ENOENT;
    return static_cast<std::FILE*>(nullptr);
  });
  EXPECT_EQ(SpidevLimitProblem(), "");
  EXPECT_EQ(openings, 4);
  EXPECT_EQ(console.Err(), "");
  EXPECT_EQ(console.Out(), "");
}

TEST(SpidevLimitTest, OneWrongReadingIsNotBelieved) {
  for (const int wrong : {1, 2, 3}) {
    const TemporaryDirectory scratch;
    const std::string right = scratch.File("right", "4096\n");
    const std::string other = scratch.File("other", "1096\n");
    int openings = 0;
    const RedirectedFile bufsiz(kBufsizPath, [&](const char* mode) {
      return std::fopen((++openings == wrong ? other : right).c_str(), mode);
    });
    EXPECT_EQ(SpidevLimitProblem(), "") << wrong;
  }
}

TEST(SpidevLimitTest, LimitThatCannotBeReadTwiceIsReadAgain) {
  const Console console;
  const TemporaryDirectory scratch;
  const std::string contents = scratch.File("bufsiz", "1000\n");
  int openings = 0;
  const RedirectedFile bufsiz(kBufsizPath, [&](const char* mode) {
    errno = EIO;
    return ++openings < 3 ? nullptr : std::fopen(contents.c_str(), mode);
  });
  EXPECT_EQ(SpidevLimitProblem(), Refusal("1000"));
  EXPECT_EQ(console.Err(), "");
}

}  // namespace
