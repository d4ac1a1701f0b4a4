#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "proofs/maps/MakeMap.h"

namespace maps {
namespace {

Job Ends(const std::string& what, const std::string& exit) {
  return [what, exit](MapRun& run) {
    run.fault = {"dax", "micron", "erase", "SE", what};
    run.outcome = {exit, "line", "image", "DONE 1"};
  };
}

std::vector<Job> FourRuns() {
  return {Ends("lost", "0"), Ends("EIO", "3"), Ends("lost", "0"), Ends("lost", "6")};
}

constexpr const char* kFourRuns =
    "target\tchip\tstep\tevent\twhat goes wrong\texit\tlast line\tflash\tafterwards\truns\n"
    "dax\tmicron\terase\tSE\tlost\t0\tline\timage\tDONE 1\t2\n"
    "dax\tmicron\terase\tSE\tEIO\t3\tline\timage\tDONE 1\t1\n"
    "dax\tmicron\terase\tSE\tlost\t6\tline\timage\tDONE 1\t1\n";

std::vector<Job> RunWithViolation() {
  return {[](MapRun& run) {
    Ends("lost", "0")(run);
    run.violations = {"first", "second"};
  }};
}

std::vector<Job> RunThatThrows() {
  return {[](MapRun& run) {
    run.fault = {"dax", "micron", "erase", "SE", "lost"};
    throw std::runtime_error("no instrument");
  }};
}

std::vector<Job> NoMap() { throw std::runtime_error("no log"); }

TEST(OutcomeTest, StateIsInWords) {
  const Ending ending = {.exit = "0", .lastLine = "line", .hasResult = true};
  Observation seen;
  seen.flash = Flash::kImage;
  seen.state = "done=1 driven=0x0000 pcie=enabled selector=SPILVDS loaded=current";
  EXPECT_EQ(OutcomeOf(ending, seen),
            (std::vector<std::string>{
                "0", "line", "image", "DONE 1, released, PCIe enabled, SPILVDS, loaded current"}));
  seen.state = "done=1 qspi_prg=0 registers=24:0f loaded=other";
  EXPECT_EQ(OutcomeOf(ending, seen).back(), "DONE 1, qspi_prg 0, loaded other");
  seen.state = "done=1 qspi_prg=0 registers=00:0f loaded=other";
  EXPECT_EQ(OutcomeOf(ending, seen).back(), "DONE 1, qspi_prg 0, registers 00:0f, loaded other");
  seen.state = "done=1 qspi_prg=0 registers=00:00 loaded=other";
  EXPECT_EQ(OutcomeOf(ending, seen).back(), "DONE 1, qspi_prg 0, loaded other");
  seen.state = "done=0 qspi_prg=1 loaded=none";
  EXPECT_EQ(OutcomeOf(ending, seen).back(), "DONE 0, qspi_prg 1, loaded none");
}

template <std::vector<Job> (*jobs)()>
std::vector<Part> OnePart() {
  return {{jobs}};
}

std::vector<Part> ThreeParts() { return {{FourRuns}, {NoMap}, {FourRuns, 3}}; }

class MakeMapTest : public testing::Test {
 protected:
  ~MakeMapTest() override { std::remove(file_.c_str()); }

  int Make(std::vector<std::string> words, std::vector<Part> (*parts)() = OnePart<FourRuns>) {
    words.insert(words.begin(), "tests/fault-map");
    return Main(words, {kTitles, parts}, out_, err_);
  }
  void Supply(const std::string& data) const { std::ofstream(file_) << data; }
  [[nodiscard]] std::string Written() const {
    std::ifstream stream(file_);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
  }

  const std::string file_ = testing::TempDir() + "MakeMapTest.tsv";
  std::ostringstream out_;
  std::ostringstream err_;
};

TEST_F(MakeMapTest, EqualRunsAreOneLineWhereTheFirstStands) {
  EXPECT_EQ(Make({"--write", file_}), 0);
  EXPECT_EQ(Written(), kFourRuns);
  EXPECT_EQ(out_.str(), "");
  EXPECT_EQ(err_.str(), "4 of 4 runs\n");
}

TEST_F(MakeMapTest, RunsThatAreInTheDataAreAsTheyShouldBe) {
  Supply(kFourRuns);
  EXPECT_EQ(Make({"--check", file_}), 0);
  EXPECT_EQ(err_.str(), "4 of 4 runs\n");
}

TEST_F(MakeMapTest, SampleIsEveryNthRun) {
  Supply("header\ndax\tmicron\terase\tSE\tlost\t0\tline\timage\tDONE 1\t9\n");
  EXPECT_EQ(Make({"--sample", "2", "--check", file_}), 0);
  EXPECT_EQ(err_.str(), "2 of 4 runs\n");
}

TEST_F(MakeMapTest, PartIsThinnedAndEveryNthPartIsTaken) {
  EXPECT_EQ(Make({"--parts", "2", "--write", file_}, ThreeParts), 0);
  EXPECT_EQ(err_.str(), "5 of 5 runs\n");
  EXPECT_EQ(Written(),
            "target\tchip\tstep\tevent\twhat goes wrong\texit\tlast line\tflash\tafterwards\truns\n"
            "dax\tmicron\terase\tSE\tlost\t0\tline\timage\tDONE 1\t3\n"
            "dax\tmicron\terase\tSE\tEIO\t3\tline\timage\tDONE 1\t1\n"
            "dax\tmicron\terase\tSE\tlost\t6\tline\timage\tDONE 1\t1\n");
}

TEST_F(MakeMapTest, RunThatEndsOtherwiseIsShown) {
  Supply("header\ndax\tmicron\terase\tSE\tlost\t0\tline\timage\tDONE 0\t9\n");
  EXPECT_EQ(Make({"--sample", "4", "--check", file_}), 1);
  EXPECT_EQ(
      err_.str(),
      "1 of 4 runs\nnot in " + file_ + ": dax\tmicron\terase\tSE\tlost\t0\tline\timage\tDONE 1\n");
}

TEST_F(MakeMapTest, NothingIsWrittenWhenARunDoesWhatNoneMay) {
  EXPECT_EQ(Make({"--write", file_}, OnePart<RunWithViolation>), 1);
  EXPECT_EQ(Written(), "");
  EXPECT_EQ(
      err_.str(),
      "1 of 1 runs\ndax, micron, erase, SE, lost: first\ndax, micron, erase, SE, lost: second\n");
}

TEST_F(MakeMapTest, RunThatCannotBeMadeFailsTheMap) {
  EXPECT_EQ(Make({}, OnePart<RunThatThrows>), 1);
  EXPECT_EQ(err_.str(), "1 of 1 runs\ndax, micron, erase, SE, lost: no instrument\n");
}

TEST_F(MakeMapTest, MapThatCannotBeMadeIsTrouble) {
  EXPECT_EQ(Make({}, OnePart<NoMap>), 2);
  EXPECT_EQ(err_.str(), "fault-map: no log\n");
}

TEST_F(MakeMapTest, HelpMakesNoRun) {
  EXPECT_EQ(Make({"--help"}, OnePart<NoMap>), 0);
  EXPECT_EQ(out_.str().substr(0, out_.str().find('\n')), "Usage: fault-map [OPTION]...");
  EXPECT_EQ(err_.str(), "");
}

TEST_F(MakeMapTest, UsageErrorNamesTheWrongWordAndMakesNoRun) {
  const auto complaint = [this](const std::vector<std::string>& words) {
    err_.str("");
    EXPECT_EQ(Make(words, OnePart<NoMap>), 2);
    return err_.str();
  };
  const std::string tryHelp = "\nTry 'fault-map --help'.\n";
  EXPECT_EQ(complaint({"--x"}), "fault-map: unknown option '--x'" + tryHelp);
  EXPECT_EQ(complaint({"--write"}), "fault-map: option '--write' needs a value" + tryHelp);
  for (const std::string number : {"0", "2x", "-1", ""}) {
    EXPECT_EQ(complaint({"--sample", number}),
              "fault-map: not a number above 0: '" + number + "'" + tryHelp);
  }
  EXPECT_EQ(out_.str(), "");
}

}  // namespace
}  // namespace maps
