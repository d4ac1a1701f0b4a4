#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <ios>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "companion/RunTarnwickctl.h"
#include "tests/doubles/ScratchDirectory.h"

namespace companion {
namespace {

/// What a run has printed, and its exit code.
struct Ended {
  int exitCode = -1;
  std::string out;
  std::string err;
};

Ended RunWords(const std::vector<const char*>& words) {
  std::ostringstream out;
  std::ostringstream err;
  Ended ended = {.exitCode = RunTarnwickctl(words, out, err, false)};
  ended.out = out.str();
  ended.err = err.str();
  return ended;
}

/// No file can be opened as long as it lives.
class NoDescriptors {
 public:
  NoDescriptors() {
    ::getrlimit(RLIMIT_NOFILE, &former_);
    const int free = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    ::close(free);
    rlimit limit = former_;
    limit.rlim_cur = static_cast<rlim_t>(free);
    ::setrlimit(RLIMIT_NOFILE, &limit);
  }
  NoDescriptors(const NoDescriptors&) = delete;
  NoDescriptors& operator=(const NoDescriptors&) = delete;
  ~NoDescriptors() { ::setrlimit(RLIMIT_NOFILE, &former_); }

 private:
  rlimit former_{};
};

TEST(RunTarnwickctlTest, HelpAndVersionAreAnsweredOnStandardOutput) {
  const Ended help = RunWords({"--help"});
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_THAT(help.out, testing::StartsWith("Usage: tarnwickctl image  FILE"));
  EXPECT_EQ(help.err, "");
  const Ended version = RunWords({"--version"});
  EXPECT_EQ(version.exitCode, 0);
  EXPECT_EQ(version.out, "tarnwickctl " TARNWICK_VERSION "\n");
}

TEST(RunTarnwickctlTest, WordsThatAreWrongEndIn2) {
  const Ended ended = RunWords({"update", "wend", "2.9", "image.bin", "--json"});
  EXPECT_EQ(ended.exitCode, 2);
  EXPECT_EQ(ended.out, "");
  EXPECT_EQ(ended.err,
            "tarnwickctl: MODULE: '2.9' is no whole number from 0 to 4294967295\n"
            "Try 'tarnwickctl --help'.\n");
}

TEST(RunTarnwickctlTest, StandardOutputThatCannotBeWrittenDoesNotChangeTheExitCode) {
  std::ostringstream out;
  std::ostringstream err;
  out.setstate(std::ios::badbit);
  const std::vector<const char*> words = {"--version"};
  EXPECT_EQ(RunTarnwickctl(words, out, err, false), 0);
  EXPECT_EQ(err.str(), "tarnwickctl: cannot write to standard output\n");
}

TEST(RunTarnwickctlTest, ImageIsExaminedForTheTypeThatIsNamed) {
  const ScratchDirectory directory;
  WriteFile("short.bin", "x");
  const Ended ended = RunWords({"image", "short.bin", "--target", "wend"});
  EXPECT_EQ(ended.exitCode, 1);
  EXPECT_THAT(ended.out, testing::HasSubstr("\nunfit: "));
}

TEST(RunTarnwickctlTest, RefusedImageIsReported) {
  const ScratchDirectory directory;
  const Ended ended = RunWords({"update", "dax", "2", "no-such-file", "--state", "state"});
  EXPECT_EQ(ended.exitCode, 2);
  EXPECT_THAT(ended.out, testing::StartsWith("module: dax in slot 2\nRefused: "));
  EXPECT_EQ(ended.err, "");
}

TEST(RunTarnwickctlTest, LackOfDescriptorsIsReported) {
  if (HAS_SANITIZERS) {
    GTEST_SKIP() << "the sanitizers need a descriptor to look at an exception";
  }
  const ScratchDirectory directory;
  for (const auto& [command, code] : {std::pair("update", 1), {"verify", 6}, {"read", 6}}) {
    const std::vector<const char*> words = {command, "dax", "2", "f", "--state", "state"};
    std::ostringstream out;
    std::ostringstream err;
    int exitCode = -1;
    {
      const NoDescriptors none;
      exitCode = RunTarnwickctl(words, out, err, false);
    }
    EXPECT_EQ(exitCode, code) << command;
    EXPECT_EQ(out.str(), "module: dax in slot 2\nEnded early: signalfd: Too many open files.\n");
  }
}

}  // namespace
}  // namespace companion
