#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/doubles/ChildProcess.h"
#include "tests/doubles/ScratchDirectory.h"

namespace {

class OrvaneImageTest : public testing::Test {
 protected:
  /// Runs orvane-image; its output is in the files out and err.
  /// @return its exit code
  static int Run(const std::string& arguments) {
    std::vector<std::string> words = SplitWords(arguments);
    words.insert(words.begin(), ORVANE_IMAGE);
    return ChildProcess({.words = words, .out = "out", .err = "err"}).Wait().ExitCode();
  }

  ScratchDirectory directory_;
};

TEST_F(OrvaneImageTest, WritesItsFileAndExitsWithZero) {
  EXPECT_EQ(Run("zynq --size 4K --out image.bin"), 0);
  EXPECT_EQ(ReadFile("out"), "");
  EXPECT_EQ(ReadFile("err"), "");
  EXPECT_EQ(std::filesystem::file_size("image.bin"), 4096U);
}

TEST_F(OrvaneImageTest, UsageErrorGoesToStandardErrorAndExitsWithTwo) {
  EXPECT_EQ(Run("sprite"), 2);
  EXPECT_EQ(ReadFile("out"), "");
  EXPECT_EQ(ReadFile("err"),
            "orvane-image: unknown word 'sprite' (expected zynq or bitstream)\n"
            "Try 'orvane-image --help'.\n");
}

TEST_F(OrvaneImageTest, IoErrorExitsWithOne) {
  EXPECT_EQ(Run("zynq --out /dev/full"), 1);
  EXPECT_EQ(ReadFile("out"), "");
  EXPECT_EQ(ReadFile("err"), "orvane-image: cannot write '/dev/full': No space left on device\n");
}

TEST_F(OrvaneImageTest, VersionGoesToStandardOutput) {
  EXPECT_EQ(Run("--version"), 0);
  EXPECT_EQ(ReadFile("out"), "orvane-image " TARNWICK_VERSION "\n");
  EXPECT_EQ(ReadFile("err"), "");
}

TEST_F(OrvaneImageTest, HelpGoesToStandardOutput) {
  EXPECT_EQ(Run("--help"), 0);
  EXPECT_THAT(ReadFile("out"), testing::StartsWith("Usage: orvane-image zynq --out "));
  EXPECT_EQ(ReadFile("err"), "");
}

}  // namespace
