#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>

namespace {

struct Outcome {
  int status;
  std::string text;
};

Outcome Image(const std::string& arguments) {
  std::FILE* const pipe = popen(("'" ORVANE_IMAGE "' " + arguments).c_str(), "r");
  if (pipe == nullptr) {
    return {-1, ""};
  }
  std::string text;
  for (int byte = std::getc(pipe); byte != EOF; byte = std::getc(pipe)) {
    text += static_cast<char>(byte);
  }
  const int status = pclose(pipe);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text};
}

TEST(OrvaneImageTest, WritesItsFileAndExitsWithZero) {
  const auto file = std::filesystem::temp_directory_path() /
                    ("orvane-image-" + std::to_string(getpid()) + ".bin");
  const Outcome outcome = Image("zynq --size 4K --out " + file.string() + " 2>&1");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.text, "");
  EXPECT_EQ(std::filesystem::file_size(file), 4096U);
  std::filesystem::remove(file);
}

TEST(OrvaneImageTest, UsageErrorGoesToStandardErrorAndExitsWithTwo) {
  const Outcome outcome = Image("sprite 2>&1 >/dev/null");
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.text,
            "orvane-image: unknown word 'sprite' (expected zynq or bitstream)\nTry 'orvane-image "
            "--help'.\n");
}

TEST(OrvaneImageTest, IoErrorExitsWithOne) {
  const Outcome outcome = Image("zynq --out /dev/full 2>&1");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.text, "orvane-image: cannot write '/dev/full': No space left on device\n");
}

TEST(OrvaneImageTest, VersionGoesToStandardOutput) {
  const Outcome outcome = Image("--version 2>/dev/null");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.text, "orvane-image " TARNWICK_VERSION "\n");
}

TEST(OrvaneImageTest, HelpGoesToStandardOutput) {
  const Outcome outcome = Image("--help 2>/dev/null");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.text.substr(0, 31), "Usage: orvane-image zynq --out ");
}

}  // namespace
