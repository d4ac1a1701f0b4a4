#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "tests/e2e/GoldenLog.h"

namespace program_test::golden_log {
namespace {

using run_log::Join;
using run_log::Lines;
using testing::ElementsAre;
using testing::ElementsAreArray;

const Lines kPoll = {"open done", "read done \"0\"", "close done", "sleep 1 ms"};

/// Consecutive pages, as a log shows them.
const Lines kPages = {"PP 0x000000 +256",
                      "RDSR = 00",
                      "PP 0x000100 +256",
                      "RDSR = 00",
                      "PP 0x000200 +256",
                      "RDSR = 00",
                      "PP 0x000300 +256",
                      "RDSR = 00",
                      "PP 0x000400 +88",
                      "RDSR = 00"};

TEST(GoldenLogTest, LinesThatRepeatAreFolded) {
  EXPECT_THAT(Folded(Join({{"exit"}, kPoll, kPoll, kPoll, {"open done"}})),
              ElementsAre("exit",
                          "3 times:",
                          "    open done",
                          "    read done \"0\"",
                          "    close done",
                          "    sleep 1 ms",
                          "open done"));
}

TEST(GoldenLogTest, AddressesThatGoOnAreFolded) {
  EXPECT_THAT(Folded(kPages),
              ElementsAre("4 times, 0x000100 further each:",
                          "    PP 0x000000 +256",
                          "    RDSR = 00",
                          "PP 0x000400 +88",
                          "RDSR = 00"));
}

TEST(GoldenLogTest, FewLinesAreLeftAsTheyAre) {
  const Lines log = {"RDSR = 03", "RDSR = 03", "RDSR = 03", "RDSR = 00"};
  EXPECT_THAT(Folded(log), ElementsAreArray(log));
}

TEST(GoldenLogTest, AddressesThatGoOnUnevenlyAreLeftAsTheyAre) {
  const Lines log = {"A 0x000000",
                     "A 0x000100",
                     "A 0x000300",
                     "A 0x000500",
                     "A 0x000600",
                     "A 0x000800",
                     "A 0x000900",
                     "A 0x000b00",
                     "A 0x000f00",
                     "A 0x001000"};
  EXPECT_THAT(Folded(log), ElementsAreArray(log));
}

TEST(GoldenLogTest, NumbersOfAnotherLengthAreNoAddresses) {
  const Lines log = {"A 0x20", "A 0x21", "A 0x22", "A 0x23", "A 0x24", "A 0x25"};
  EXPECT_THAT(Folded(log), ElementsAreArray(log));
}

TEST(GoldenLogTest, WhatWasFoldedUnfoldsToTheSame) {
  const Lines log = Join({kPages, kPoll, kPoll, kPoll, kPoll, kPages, kPages, {"exit 0"}});
  EXPECT_LT(Folded(log).size(), log.size() / 2);
  EXPECT_THAT(Unfolded(Folded(log)), ElementsAreArray(log));
}

TEST(GoldenLogTest, NumberOfTimesCounts) {
  EXPECT_THAT(Unfolded({"2 times:", "    a", "    b", "c"}), ElementsAre("a", "b", "a", "b", "c"));
}

TEST(GoldenLogTest, MissingFileThrowsItsName) {
  try {
    Read("no-such-log");
    FAIL() << "no error";
  } catch (const std::runtime_error& error) {
    EXPECT_THAT(error.what(), testing::HasSubstr("golden/no-such-log.log: --write-golden"));
  }
}

}  // namespace
}  // namespace program_test::golden_log
