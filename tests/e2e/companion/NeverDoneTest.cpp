// FPGAs whose DONE never rises, or never falls.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/e2e/companion/Bench.h"

namespace companion_test {
namespace {

using testing::IsEmpty;

class NeverDoneTest : public testing::TestWithParam<Board> {
 protected:
  bool IsDax() const { return GetParam().word == std::string(kDax.word); }

  /// A dax is not reset: its next power-on decides.
  int ExpectedExit() const { return IsDax() ? 0 : 3; }

  /// The image is in the flash, and its first sector was erased once.
  void ExpectWrittenOnce(const Ended& ended) const {
    ExpectFlash(ended, bench_.New());
    EXPECT_EQ(CountStarts(ended.log,
                          "spi /dev/spidev" + std::to_string(GetParam().slot) + ".0 SE 0x000000"),
              1);
    EXPECT_EQ(CountStarts(ended.log,
                          "spi /dev/spidev" + std::to_string(GetParam().slot) + ".0 PP 0x000000"),
              1);
  }

  void ExpectWritesNothing(const Ended& ended) const {
    EXPECT_EQ(ended.exitCode, ExpectedExit()) << ended.out << ended.err;
    EXPECT_THAT(FlashWrites(ended.log), IsEmpty());
    ExpectFlash(ended, bench_.New());
  }

  Bench bench_{GetParam()};
};

INSTANTIATE_TEST_SUITE_P(Boards,
                         NeverDoneTest,
                         testing::Values(kWend, kDax, kPyx1, kPyx2),
                         program_test::WordOf);

// Each wait for DONE takes thousands of events, so each of these waits is done in one test.
TEST_P(NeverDoneTest, FpgaThatNeverRaisedDoneIsWrittenOnceAndNotByTheNextUpdate) {
  bench_.Key("done=low");
  const Ended first = bench_.Run(bench_.Update("--attempts 2"));
  EXPECT_EQ(first.exitCode, ExpectedExit()) << first.out << first.err;
  ExpectWrittenOnce(first);
  ExpectWritesNothing(bench_.Run(bench_.Update("--attempts 1")));
}

TEST_P(NeverDoneTest, DoneThatNeverFallsIsNoProofThatTheImageIsInUse) {
  bench_.Key("done=high");
  const Ended first = bench_.Run(bench_.Update());
  EXPECT_EQ(first.exitCode, ExpectedExit()) << first.out << first.err;
  ExpectWrittenOnce(first);
  ExpectWritesNothing(bench_.Run(bench_.Update()));
}

TEST_P(NeverDoneTest, BlankFlashIsWrittenAndTakenIntoUse) {
  bench_.StoreFlash({});
  const Ended ended = bench_.Run(bench_.Update());
  EXPECT_EQ(ended.exitCode, 0) << ended.out << ended.err;
  ExpectWrittenOnce(ended);
  if (!IsDax()) {
    EXPECT_EQ(ended.state, bench_.InUse());
  }
}

}  // namespace
}  // namespace companion_test
