#include <gtest/gtest.h>

#include <chrono>
#include <set>
#include <sstream>
#include <string>

#include "simulator/trace/VcdFile.h"

namespace orvane {
namespace {

using std::chrono::nanoseconds;

TEST(VcdFileTest, WithoutSignalsHasOnlyTheTimeStampsOfStartAndEnd) {
  std::ostringstream out;
  VcdFile file(out);
  file.Start();
  file.End(nanoseconds(5));
  EXPECT_EQ(out.str(),
            "$version orvane-sim $end\n"
            "$timescale 1 ns $end\n"
            "$enddefinitions $end\n"
            "#0\n"
            "$dumpvars\n"
            "$end\n"
            "#5\n");
}

TEST(VcdFileTest, SignalsHaveTheirScopesAndStartingLevels) {
  std::ostringstream out;
  VcdFile file(out);
  file.AddScope("one");
  file.AddSignal("a", true);
  file.AddScope("two");
  file.AddSignal("b", false);
  file.AddSignal("c", true);
  file.Start();
  EXPECT_EQ(out.str(),
            "$version orvane-sim $end\n"
            "$timescale 1 ns $end\n"
            "$scope module one $end\n"
            "$var wire 1 ! a $end\n"
            "$upscope $end\n"
            "$scope module two $end\n"
            "$var wire 1 \" b $end\n"
            "$var wire 1 # c $end\n"
            "$upscope $end\n"
            "$enddefinitions $end\n"
            "#0\n"
            "$dumpvars\n"
            "1!\n"
            "0\"\n"
            "1#\n"
            "$end\n");
}

class ChangesTest : public testing::Test {
 protected:
  ChangesTest() : file_(out_), first_(file_.AddSignal("a", false)) {
    second_ = file_.AddSignal("b", false);
    file_.Start();
    out_.str("");
  }

  std::ostringstream out_;
  VcdFile file_;
  VcdFile::Signal first_;
  VcdFile::Signal second_ = 0;
};

TEST_F(ChangesTest, OfOneTimeHaveOneStamp) {
  file_.Set(first_, true, nanoseconds(10));
  file_.Set(second_, true, nanoseconds(10));
  file_.Set(first_, false, nanoseconds(12'000'000'000));
  EXPECT_EQ(out_.str(), "#10\n1!\n1\"\n#12000000000\n0!\n");
}

TEST_F(ChangesTest, AtTheStartFollowItsStamp) {
  file_.Set(first_, true, nanoseconds(0));
  EXPECT_EQ(out_.str(), "1!\n");
}

TEST_F(ChangesTest, LevelThatTheSignalHasIsNotWritten) {
  file_.Set(first_, false, nanoseconds(10));
  file_.Set(second_, true, nanoseconds(20));
  file_.Set(second_, true, nanoseconds(30));
  EXPECT_EQ(out_.str(), "#20\n1\"\n");
}

TEST_F(ChangesTest, EndAfterTheLastChangeIsTheLastTimeStamp) {
  file_.Set(first_, true, nanoseconds(10));
  file_.End(nanoseconds(11));
  EXPECT_EQ(out_.str(), "#10\n1!\n#11\n");
}

// Decoders do not see a level that does not last.
TEST_F(ChangesTest, EndAtTheLastChangeIsOneNanosecondLater) {
  file_.Set(first_, true, nanoseconds(10));
  file_.End(nanoseconds(10));
  EXPECT_EQ(out_.str(), "#10\n1!\n#11\n");
}

TEST_F(ChangesTest, EndAtTheStartIsOneNanosecondLater) {
  file_.End(nanoseconds(0));
  EXPECT_EQ(out_.str(), "#1\n");
}

TEST(VcdFileTest, ManySignalsHaveCodesOfTheirOwn) {
  std::ostringstream out;
  VcdFile file(out);
  constexpr std::size_t kSignals = 300;
  for (std::size_t i = 0; i < kSignals; ++i) {
    file.AddSignal("s", false);
  }
  std::set<std::string> codes;
  std::istringstream lines(out.str());
  std::string line;
  while (std::getline(lines, line)) {
    std::istringstream words(line);
    std::string word;
    std::string code;
    words >> word >> word >> word >> code;
    if (line.starts_with("$var")) {
      codes.insert(code);
    }
  }
  EXPECT_EQ(codes.size(), kSignals);
  EXPECT_TRUE(codes.contains("~"));
  EXPECT_TRUE(codes.contains("!\""));
}

}  // namespace
}  // namespace orvane
