// --trace: the file is what viewers of Chrome trace events read, and tells what the log and the state
// of the same run tell.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "simulator/images/Bitstream.h"
#include "simulator/images/BootImage.h"
#include "tests/doubles/ChildProcess.h"
#include "tests/e2e/simulator/SimulatorRun.h"

#include <nlohmann/json.hpp>

namespace orvane {
namespace {

using nlohmann::json;
using testing::ElementsAre;

std::string Text(const std::vector<std::uint8_t>& bytes) { return {bytes.begin(), bytes.end()}; }

std::string Image(const std::string& type, int year) {
  constexpr std::size_t kBytes = 10'000;
  if (type == "wend" || type == "pyx2") {
    return Text(
        MakeZynqImage({.buildDate = std::to_string(year) + "-05-06 07:08:09", .bytes = kBytes}));
  }
  return Text(MakeBitstream({.bytes = kBytes, .userAccess = PackStamp({year, 5, 6, 7, 8, 9})}));
}

class TraceTest : public testing::Test {
 protected:
  TraceTest() { run_.Option("--timing typical --trace trace"); }

  /// Updates a module, with few polls, so that there are few events.
  void Update(const std::string& type, const std::string& slot) {
    run_.WriteFile("flash.bin", Image(type, 2023));
    run_.WriteFile("image.bin", Image(type, 2024));
    run_.Option("--message-cost 500 --state state --module " + type + "@" + slot +
                ",flash=flash.bin");
    const SimulatorOutcome outcome =
        run_.Shell("exec " TARNWICK_BINARY " " + type + " -sf " + slot + " image.bin");
    ASSERT_EQ(outcome.status, 0) << outcome.out << outcome.err;
    run_.WriteFile("log", outcome.log);
  }
  /// Holds the file "trace" against the format, the log and the state.
  /// @return whether it is right
  bool IsRight() const {
    ChildProcess check({.words = {PYTHON_PATH,
                                  CHECK_PATH,
                                  SCHEMA_PATH,
                                  run_.File("trace").string(),
                                  run_.File("log").string(),
                                  run_.File("state").string()},
                        .out = run_.File("check"),
                        .err = run_.File("check.err")});
    return check.Wait().ExitCode() == 0;
  }
  std::string Problems() const { return run_.ReadFile("check") + run_.ReadFile("check.err"); }

  json Events() const { return json::parse(run_.ReadFile("trace")).at("traceEvents"); }
  /// The names of the events of this category.
  std::vector<std::string> Names(const std::string& category) const {
    std::vector<std::string> names;
    for (const json& event : Events()) {
      if (event.value("cat", "") == category) {
        names.push_back(event.at("name"));
      }
    }
    return names;
  }

  SimulatorRun run_;
};

struct Row {
  const char* type;
  const char* slot;
};

class TraceOfAnUpdateTest : public TraceTest, public testing::WithParamInterface<Row> {};

TEST_P(TraceOfAnUpdateTest, TellsWhatTheLogAndTheStateTell) {
  if (HAS_SANITIZERS) {
    GTEST_SKIP() << "the sanitizers stand between a D-Bus library and its clock";
  }
  Update(GetParam().type, GetParam().slot);
  EXPECT_TRUE(IsRight()) << Problems();
}

INSTANTIATE_TEST_SUITE_P(
    AllTypes,
    TraceOfAnUpdateTest,
    testing::Values(Row{"wend", "1"}, Row{"dax", "2"}, Row{"pyx1", "4"}, Row{"pyx2", "5"}),
    [](const auto& row) { return std::string(row.param.type); });

struct Change {
  const char* from;
  const char* to;
  const char* problem;  // a part of what is said
};

// Each change makes the trace of an update wrong in one way.
TEST_F(TraceTest, TraceThatIsWrongIsFound) {
  if (HAS_SANITIZERS) {
    GTEST_SKIP() << "the sanitizers stand between a D-Bus library and its clock";
  }
  Update("wend", "1");
  ASSERT_TRUE(IsRight()) << Problems();
  const std::string right = run_.ReadFile("trace");
  const Change changes[] = {
      {R"("ph":"X")", R"("ph":"B")", "'B' is not one of ['X', 'i', 'C', 'M']"},
      {R"("dur":500.0,)", "", "'dur' is a required property"},
      {R"("s":"t",)", "", "'s' is a required property"},
      {R"("cname":"grey")", R"("cname":"gray")", "'gray' is not one of"},
      {R"({"level":1})", R"({"level":"1"})", "'1' is not of type 'number'"},
      {R"("ts":0.0)", R"("ts":-0.001)", "less than the minimum of 0"},
      {"\n]}\n", "\n", "JSONDecodeError"},
      {R"(Unit":"ns")", R"(Unit":"ms")", "times are not shown in nanoseconds"},
      {R"({"name":"flash"})", R"({"name":"chip"})", "the chip never works"},
      {R"("name":"RDID")", R"("name":"RDSR")", "SPI command 1: 'RDSR' in the trace, 'RDID'"},
      {R"("miso":"00 20 ba 18")", R"("miso":"00 20 ba 19")", "without RDID = 20 ba 18"},
      {R"("miso":"00 03")", R"("miso":"00 02")", "without RDSR = 03"},
      {R"("name":"page program")", R"("name":"erase 4 KiB")", "work 1: 'erase 4 KiB'"},
      {R"("dur":120.0)", R"("dur":120.001)", "is not as long as the data sheet says"},
      {R"("address":"0x000100")", R"("address":"0x000200")", "is not at 0x000100"},
      {R"("text":"Connecting ...\n")", R"("text":"Connecting\n")", "'Connecting\\n') in the trace"},
      {R"("name":"GetSPIDev 1")", R"("name":"GetSPIDev 2")", "D-Bus call 3"},
      {R"("args":{"bytes":"1"})", R"("args":{"bytes":"0"})", "control file 1"},
      {R"("name":"qspi_prg")", R"("name":"done")", "the lines ['DONE', 'done',"},
      {R"("dur":5000000.0)", R"("dur":4999999.999)", "sleep 0"},
      {R"("name":"WREN","ts":500.0)", R"("name":"WREN","ts":499.999)", "begins before 500.0"},
      {R"("name":"end of the run")", R"("name":"end")", "is not the end"},
  };
  for (const Change& change : changes) {
    std::string wrong = right;
    const std::size_t at = wrong.find(change.from);
    ASSERT_NE(at, std::string::npos) << change.from;
    run_.WriteFile("trace", wrong.replace(at, std::string(change.from).size(), change.to));
    EXPECT_FALSE(IsRight()) << change.from;
    EXPECT_THAT(Problems(), testing::HasSubstr(change.problem));
  }
}

TEST_F(TraceTest, ConsoleIsKeptAndPassedOnWithoutALog) {
  run_.WithoutLog();
  const SimulatorOutcome outcome = run_.Shell("echo out; echo err >&2");
  EXPECT_EQ(outcome.out, "out\n");
  EXPECT_EQ(outcome.err, "err\n");
  EXPECT_THAT(Names("console"), ElementsAre("out", "err", "end of the run"));
}

TEST_F(TraceTest, LostAndFailedMessagesSaySo) {
  run_.Option("--fault spi:RDID#2:lost --fault spi:RDID#3:EIO --module wend@1");
  EXPECT_EQ(run_.Shell("exec " TIME_PROBE " rdid 3 rdid 3 rdid 3").status, 0);
  std::vector<std::string> outcomes;
  for (const json& event : Events()) {
    if (event.value("cat", "") == "spi" && event["name"] != "message cost") {
      outcomes.push_back(event["name"].get<std::string>() + " " + event.value("cname", "") + " " +
                         event["args"].value("outcome", ""));
    }
  }
  EXPECT_THAT(outcomes, ElementsAre("RDID  ", "RDID bad lost", "failed message terrible failed"));
}

TEST_F(TraceTest, IsWholeWhenTheCommandIsKilled) {
  const SimulatorOutcome outcome = run_.Shell(TIME_PROBE " rdid 3; kill -KILL $$");
  EXPECT_EQ(outcome.status, 137);
  EXPECT_THAT(Names("spi"), ElementsAre("message cost", "RDID"));
  EXPECT_EQ(Events().back()["name"], "end of the run");
}

TEST_F(TraceTest, IsWholeWhenTheRunIsEndedByASignal) {
  const SimulatorOutcome outcome =
      run_.Shell(TIME_PROBE " rdid 3; kill -TERM $PPID; while :; do :; done");
  EXPECT_EQ(outcome.status, 143);
  EXPECT_THAT(Names("spi"), ElementsAre("message cost", "RDID"));
  EXPECT_EQ(Events().back()["name"], "end of the run");
}

TEST_F(TraceTest, IsWholeWhenPowerFails) {
  run_.Option("--fault spi#2:kill-all");
  EXPECT_EQ(run_.Shell(TIME_PROBE " rdid 3 rdid 3").status, 137);
  EXPECT_THAT(Names("spi"), ElementsAre("message cost", "RDID"));
  EXPECT_EQ(Events().back()["name"], "end of the run");
}

// 64,000 bytes: the file lacks a few thousand that have not been written yet.
TEST_F(TraceTest, IsWrittenWhileTheCommandRuns) {
  std::string words;
  for (int i = 0; i < 500; ++i) {
    words += " rdid 3";
  }
  const SimulatorOutcome outcome = run_.Shell(TIME_PROBE + words + "; wc -c <trace");
  EXPECT_GT(std::stoul(outcome.out), 64'000U);
}

}  // namespace
}  // namespace orvane
