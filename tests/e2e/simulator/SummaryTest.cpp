// orvane-sim --summary: what is said at the end about what a run has taken.
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

constexpr std::size_t kImageBytes = 600;  // three pages

std::string Text(const std::vector<std::uint8_t>& bytes) { return {bytes.begin(), bytes.end()}; }

std::string ZynqImage(int year) {
  return Text(MakeZynqImage(
      {.buildDate = std::to_string(year) + "-05-06 07:08:09", .bytes = kImageBytes, .seed = 1}));
}

std::string Bitstream(int year) {
  return Text(MakeBitstream({.bytes = kImageBytes, .userAccess = PackStamp({.year = year})}));
}

class SummaryTest : public testing::Test {
 protected:
  SummaryTest() { run_.Option("--timing typical"); }

  /// Has tarnwick update a module.
  /// @param module  of --module, without its flash
  SimulatorOutcome Update(const std::string& module, const std::string& words, int fromYear) {
    const bool isZynq = module.starts_with("wend") || module.starts_with("pyx2");
    const auto image = isZynq ? ZynqImage : Bitstream;
    run_.WriteFile("flash.bin", image(fromYear));
    run_.WriteFile("image.bin", image(2024));
    run_.Option("--module " + module + ",flash=flash.bin");
    return run_.Shell("exec " TARNWICK_BINARY " " + words + " image.bin");
  }

  /// The JSON on standard error, which the schema allows.
  json Report(const SimulatorOutcome& outcome) {
    run_.WriteFile("report.json", outcome.err);
    ChildProcess validator(
        {.words = {PYTHON_PATH, VALIDATE_PATH, SCHEMA_PATH, run_.File("report.json").string()}});
    const ChildProcess::End end = validator.Wait();
    EXPECT_FALSE(end.isSignal);
    EXPECT_EQ(end.number, 0) << outcome.err;
    EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1);
    return json::parse(outcome.err, nullptr, false);
  }

  SimulatorRun run_;
};

/// Each nanosecond has one cause and one step.
void ExpectToAddUp(const json& report) {
  json causes = json::object();  // of all steps
  std::int64_t ofSteps = 0;
  for (const json& step : report["steps"]) {
    std::int64_t ofCauses = 0;
    for (const auto& [cause, time] : step["causes"].items()) {
      ofCauses += time.get<std::int64_t>();
      causes[cause] = causes.value(cause, std::int64_t{0}) + time.get<std::int64_t>();
    }
    EXPECT_EQ(step["total_ns"], ofCauses) << step;
    ofSteps += ofCauses;
  }
  EXPECT_EQ(report["total_ns"], ofSteps);
  EXPECT_EQ(report["causes"], causes);
}

#define SKIP_WITH_SANITIZERS()                                                    \
  if (HAS_SANITIZERS) {                                                           \
    GTEST_SKIP() << "the sanitizers stand between a D-Bus library and its clock"; \
  }

// --- What is said -------------------------------------------------------------------------------

TEST_F(SummaryTest, UpdateOfAWendIsToldStepByStep) {
  SKIP_WITH_SANITIZERS();
  run_.Option("--summary");
  const SimulatorOutcome outcome = Update("wend@1", "wend -sf 1", 2023);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, R"(orvane-sim: on the instrument this took 5.174336224 s (--timing typical)
times in ms             total  message cost      wire   chip busy  late poll        sleep
finding                     -             -         -           -          -            -
connecting           0.042108      0.040000  0.002108           -          -            -
reading the head     1.746317      0.020000  1.726317           -          -            -
erasing            150.043739      0.040000  0.002529  150.000000   0.001210            -
programming          0.757743      0.120000  0.260217    0.360000   0.017526            -
verifying            1.746317      0.020000  1.726317           -          -            -
reset and DONE    5020.000000             -         -           -          -  5020.000000
total             5174.336224      0.240000  3.717488  150.360000   0.018736  5020.000000

SPI command  messages  bytes
WREN                5      5
RDID                1      4
READ                2   8200
SE                  1      4
RDSR             7146  14292
PP                  3    612
total            7158  23117

I2C: 0 transfers, 0 bytes; control files: 22 reads, 4 writes; D-Bus: 4 calls
Programmed and erased: 3 pages, 1 sector of 64 KiB.
That takes at least 0.150695159 s at 19 MHz; this took 34.336 times as long.
)");
}

TEST_F(SummaryTest, UpdateOfADaxIsToldStepByStep) {
  SKIP_WITH_SANITIZERS();
  run_.Option("--summary");
  const SimulatorOutcome outcome = Update("dax@2,chip=macronix", "dax -sf 2", 2023);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, R"(orvane-sim: on the instrument this took 1.846477004 s (--timing typical)
times in ms             total  message cost      wire   chip busy    late poll
finding                     -             -         -           -            -
connecting           3.102108      0.040000  3.062108           -            -
protection        1500.250122      0.240000  0.010122  120.000000  1380.000000
reading the head     0.237264             -  0.217264           -     0.020000
erasing            340.091703      0.060000  0.004217  340.000000     0.027486
programming          1.935807      0.160000  0.261905    1.500000     0.013902
disconnecting        0.860000             -         -           -     0.860000
total             1846.477004      0.500000  3.555616  461.500000  1380.921388

SPI command  messages  bytes
WREN                8      8
RDID                1      4
RDCR                5     10
RDSR            16234  32468
WRSR                3      9
READ                1    516
SE                  1      4
PP                  3    612
total           16256  33631

I2C: 9 transfers, 41 bytes; control files: 3 reads, 0 writes; D-Bus: 4 calls
Programmed and erased: 3 pages, 1 sector of 64 KiB.
That takes at least 0.341835159 s at 19 MHz; this took 5.402 times as long.
)");
}

TEST_F(SummaryTest, UpdateOfAPyx1IsToldStepByStep) {
  SKIP_WITH_SANITIZERS();
  run_.Option("--summary");
  const SimulatorOutcome outcome = Update("pyx1@4", "pyx1 -sf 4", 2023);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, R"(orvane-sim: on the instrument this took 0.389640854 s (--timing typical)
times in ms            total  message cost       wire   chip busy  late poll       sleep
finding                    -             -          -           -          -           -
connecting        103.102108      0.040000   3.062108           -          -  100.000000
reading the head    0.237264      0.020000   0.217264           -          -           -
erasing           150.043739      0.040000   0.002529  150.000000   0.001210           -
programming         0.757743      0.120000   0.260217    0.360000   0.017526           -
reset and DONE     34.640000             -  10.640000           -          -   24.000000
PCIe                       -             -          -           -          -           -
disconnecting     100.860000             -   0.860000           -          -  100.000000
total             389.640854      0.220000  15.042118  150.360000   0.018736  224.000000

SPI command  messages  bytes
WREN                5      5
RDID                1      4
READ                1    516
SE                  1      4
RDSR             7146  14292
PP                  3    612
total            7157  15433

I2C: 32 transfers, 152 bytes; control files: 4 reads, 5 writes; D-Bus: 4 calls
Programmed and erased: 3 pages, 1 sector of 64 KiB.
That takes at least 0.150695159 s at 19 MHz; this took 2.586 times as long.
)");
}

TEST_F(SummaryTest, UpdateOfAPyx2IsToldStepByStep) {
  SKIP_WITH_SANITIZERS();
  run_.Option("--summary");
  const SimulatorOutcome outcome = Update("pyx2@5", "pyx2 -sf 5", 2023);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, R"(orvane-sim: on the instrument this took 5.378300854 s (--timing typical)
times in ms             total  message cost       wire   chip busy  late poll        sleep
finding                     -             -          -           -          -            -
connecting         102.622108      0.040000   2.582108           -          -   100.000000
reading the head     0.237264      0.020000   0.217264           -          -            -
erasing            150.043739      0.040000   0.002529  150.000000   0.001210            -
programming          0.757743      0.120000   0.260217    0.360000   0.017526            -
reset and DONE    5023.780000             -   9.780000           -          -  5014.000000
PCIe                        -             -          -           -          -            -
disconnecting      100.860000             -   0.860000           -          -   100.000000
total             5378.300854      0.220000  13.702118  150.360000   0.018736  5214.000000

SPI command  messages  bytes
WREN                5      5
RDID                1      4
READ                1    516
SE                  1      4
RDSR             7146  14292
PP                  3    612
total            7157  15433

I2C: 29 transfers, 138 bytes; control files: 4 reads, 5 writes; D-Bus: 4 calls
Programmed and erased: 3 pages, 1 sector of 64 KiB.
That takes at least 0.150695159 s at 19 MHz; this took 35.690 times as long.
)");
}

TEST_F(SummaryTest, RunThatFindsTheFlashUpToDateErasesAndProgramsNothing) {
  SKIP_WITH_SANITIZERS();
  run_.Option("--summary");
  const SimulatorOutcome outcome = Update("wend@1", "wend -sf 1", 2024);
  EXPECT_EQ(outcome.status, 11);
  EXPECT_EQ(outcome.err, R"(orvane-sim: on the instrument this took 0.001788425 s (--timing typical)
times in ms          total  message cost      wire
finding                  -             -         -
connecting        0.042108      0.040000  0.002108
reading the head  1.746317      0.020000  1.726317
total             1.788425      0.060000  1.728425

SPI command  messages  bytes
WREN                1      1
RDID                1      4
READ                1   4100
total               3   4105

I2C: 0 transfers, 0 bytes; control files: 1 read, 1 write; D-Bus: 4 calls
Nothing was programmed or erased.
)");
}

TEST_F(SummaryTest, RunThatIsNoUpdateIsOneStep) {
  run_.Option("--summary --module wend@1");
  const SimulatorOutcome outcome = run_.Shell("exec " TIME_PROBE " rdid 3 sleep 100");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err,
            R"(orvane-sim: on the instrument this took 100.000021686 s (--timing typical)
times in ms          total  message cost      wire          sleep
whole run    100000.021686      0.020000  0.001686  100000.000000

SPI command  messages  bytes
RDID                1      4

I2C: 0 transfers, 0 bytes; control files: 0 reads, 0 writes; D-Bus: 0 calls
Nothing was programmed or erased.
)");
}

TEST_F(SummaryTest, CommandWithoutEventsTakesNoTime) {
  run_.Option("--summary");
  const SimulatorOutcome outcome = run_.Shell("exec true");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, R"(orvane-sim: on the instrument this took 0.000000000 s (--timing typical)
times in ms  total
whole run        -

I2C: 0 transfers, 0 bytes; control files: 0 reads, 0 writes; D-Bus: 0 calls
Nothing was programmed or erased.
)");
}

TEST_F(SummaryTest, CommandThatIsKilledIsToldUpToThere) {
  SKIP_WITH_SANITIZERS();
  run_.Option("--summary --fault spi:PP#2:kill");
  const SimulatorOutcome outcome = Update("wend@1", "wend -sf 1", 2023);
  EXPECT_EQ(outcome.status, 137);
  EXPECT_EQ(outcome.err, R"(orvane-sim: on the instrument this took 0.152128746 s (--timing typical)
times in ms            total  message cost      wire   chip busy  late poll
finding                    -             -         -           -          -
connecting          0.042108      0.040000  0.002108           -          -
reading the head    1.746317      0.020000  1.726317           -          -
erasing           150.043739      0.040000  0.002529  150.000000   0.001210
programming         0.296582      0.060000  0.110740    0.120000   0.005842
total             152.128746      0.160000  1.841694  150.120000   0.007052

SPI command  messages  bytes
WREN                4      4
RDID                1      4
READ                1   4100
SE                  1      4
RDSR             7134  14268
PP                  1    260
total            7142  18640

I2C: 0 transfers, 0 bytes; control files: 1 read, 1 write; D-Bus: 4 calls
Programmed and erased: 1 page, 1 sector of 64 KiB.
That takes at least 0.150233685 s at 19 MHz; this took 1.013 times as long.
)");
}

TEST_F(SummaryTest, ReportOfRulesThatNeverHitComesAfterIt) {
  run_.Option("--summary --module wend@1 --fault spi:PP:lost");
  const SimulatorOutcome outcome = run_.Shell("echo words >&2");
  EXPECT_EQ(outcome.status, 125);
  EXPECT_THAT(outcome.err,
              testing::StartsWith("words\norvane-sim: on the instrument this took 0.000000000 s"));
  EXPECT_THAT(outcome.err,
              testing::EndsWith("Nothing was programmed or erased.\n"
                                "orvane-sim: fault rule 'spi:PP:lost' never hit anything; COMMAND "
                                "ended with 0\n"));
}

// --- JSON ---------------------------------------------------------------------------------------

TEST_F(SummaryTest, JsonOfAnUpdateAddsUp) {
  for (const char* const timing : {"typical", "longest"}) {
    SimulatorRun run;
    run.WriteFile("flash.bin", Bitstream(2023));
    run.WriteFile("image.bin", Bitstream(2024));
    run.Option("--summary=json --module pyx1@4,flash=flash.bin --timing " + std::string(timing));
    const SimulatorOutcome outcome = run.Shell("exec " TARNWICK_BINARY " pyx1 -sf 4 image.bin");
    EXPECT_EQ(outcome.status, 0);
    const json report = Report(outcome);
    ASSERT_TRUE(report.is_object());
    EXPECT_EQ(report["timing"], timing);
    ExpectToAddUp(report);
    std::vector<std::string> steps;
    for (const json& step : report["steps"]) {
      steps.push_back(step["name"]);
    }
    EXPECT_EQ(steps,
              (std::vector<std::string>{"finding",
                                        "connecting",
                                        "reading the head",
                                        "erasing",
                                        "programming",
                                        "reset and DONE",
                                        "PCIe",
                                        "disconnecting"}));
    EXPECT_EQ(report["pages"], 3);
    EXPECT_EQ(report["sectors"], 1);
    EXPECT_EQ(report["hertz"], 19'000'000);
    // Of each page 263 bytes, of the sector 7, each 8 bits at 19 MHz.
    const std::int64_t wire = 3 * 110'737 + 2'948;
    EXPECT_EQ(report["limit_ns"],
              wire + (std::string(timing) == "typical" ? 3 * 120'000 + 150'000'000
                                                       : 3 * 1'800'000 + 1'000'000'000));
    EXPECT_DOUBLE_EQ(report["ratio"],
                     report["total_ns"].get<double>() / report["limit_ns"].get<double>());
  }
}

TEST_F(SummaryTest, JsonOfACommandWithoutEventsHasNoRatio) {
  run_.Option("--summary=json");
  const SimulatorOutcome outcome = run_.Shell("exec true");
  EXPECT_EQ(outcome.status, 0);
  const json report = Report(outcome);
  ASSERT_TRUE(report.is_object());
  ExpectToAddUp(report);
  EXPECT_EQ(report["total_ns"], 0);
  EXPECT_EQ(report["limit_ns"], 0);
  EXPECT_EQ(report["ratio"], nullptr);
}

TEST_F(SummaryTest, JsonOfFaultsAndWaitsAddsUp) {
  run_.Option("--summary=json --module wend@1 --fault spi:RDID#2:EIO --fault spi:RDID#3:lost");
  const SimulatorOutcome outcome = run_.Shell(TIME_PROBE " rdid 3 rdid 3 rdid 3 look raw poll 3");
  EXPECT_EQ(outcome.status, 0);
  const json report = Report(outcome);
  ASSERT_TRUE(report.is_object());
  ExpectToAddUp(report);
  EXPECT_EQ(report["causes"]["message_cost"], 60'000);
  EXPECT_EQ(report["causes"]["look"], 200);
  EXPECT_EQ(report["causes"]["wait"], 3'000'000);
  EXPECT_EQ(report["commands"],
            (json{{{"name", "RDID"}, {"messages", 2}, {"bytes", 8}},
                  {{"name", "failed"}, {"messages", 1}, {"bytes", 0}}}));
}

// --- What is refused ----------------------------------------------------------------------------

TEST_F(SummaryTest, WithTimingPollsIsRefused) {
  for (const std::string option : {"--summary", "--summary=json"}) {
    const SimulatorOutcome outcome = run_.Words(option + " -- true");
    EXPECT_EQ(outcome.status, 125);
    EXPECT_EQ(outcome.err,
              "orvane-sim: --summary: works with --timing typical or longest only\n"
              "Try 'orvane-sim --help'.\n");
  }
}

}  // namespace
}  // namespace orvane
