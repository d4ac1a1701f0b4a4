// Instrument time: how long everything takes with --timing typical and longest, and what the clocks of
// programs show.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "simulator/images/BootImage.h"
#include "tests/e2e/simulator/SimulatorRun.h"

namespace orvane {
namespace {

std::string Image(int year) {
  const std::vector<std::uint8_t> image = MakeZynqImage(
      {.buildDate = std::to_string(year) + "-05-06 07:08:09", .bytes = 60'000, .seed = 1});
  return {image.begin(), image.end()};
}

class TimingTest : public testing::Test {
 protected:
  TimingTest() { run_.Option("--state state"); }

  /// Runs the probe for clocks with these words.
  SimulatorOutcome Clocks(const std::string& words) {
    return run_.Shell("exec " TIME_PROBE " " + words);
  }
  /// Updates the wend, which has an image of one sector, with another one.
  SimulatorOutcome Update() {
    run_.WriteFile("flash.bin", Image(2023));
    run_.WriteFile("image.bin", Image(2024));
    return run_.Shell("exec " TARNWICK_BINARY " wend -sf 1 image.bin");
  }
  /// "time=0.000000000", from the line about the instrument.
  std::string Time() const {
    const std::string state = run_.ReadFile("state");
    const std::string word = "\ninstrument ";
    const std::size_t at = state.find(word) + word.size();
    return state.substr(at, state.find('\n', at) - at);
  }
  double Seconds() const { return std::stod(Time().substr(Time().find('=') + 1)); }

  SimulatorRun run_;
};

TEST_F(TimingTest, MessageTakesItsCostAndItsBits) {
  run_.Option("--timing typical --module wend@1");
  EXPECT_EQ(Clocks("rdid 3").status, 0);
  EXPECT_EQ(Time(), "time=0.000021686");  // 20 us, 8 bits and 24 bits at 19 MHz
}

TEST_F(TimingTest, MessageCostIsThatOfTheOption) {
  run_.Option("--timing typical --message-cost 150 --module wend@1");
  EXPECT_EQ(Clocks("rdid 3 rdid 1").status, 0);
  EXPECT_EQ(Time(), "time=0.000302530");  // 150 us and 32 bits, 150 us and 16 bits
}

TEST_F(TimingTest, I2cTransferTakes10MicrosecondsForEachBit) {
  run_.Option("--timing typical --module pyx1@4");
  EXPECT_EQ(Clocks("i2c 2").status, 0);
  EXPECT_EQ(Time(), "time=0.000480000");
}

TEST_F(TimingTest, SleepTakesItsLength) {
  run_.Option("--timing longest --module wend@1");
  EXPECT_EQ(Clocks("sleep 100 nanosleep 1").status, 0);
  EXPECT_EQ(Time(), "time=100.000000001");
}

TEST_F(TimingTest, WithPollsTheTimeIsAnEstimate) {
  run_.Option("--module wend@1");
  EXPECT_EQ(Clocks("rdid 3 sleep 100").status, 0);
  EXPECT_EQ(Time(), "estimate=100.000001686");
}

TEST_F(TimingTest, EachLookAtAMonotonicClockMovesItBy200Nanoseconds) {
  run_.Option("--timing typical --module wend@1");
  EXPECT_EQ(Clocks("look monotonic look monotonic look coarse look raw").out,
            "look 0\nlook 200\nlook 200\nlook 200\n");
  EXPECT_EQ(Time(), "time=0.000000800");
}

TEST_F(TimingTest, ProgramsClockFollowsInstrumentTime) {
  run_.Option("--timing typical --module wend@1");
  EXPECT_EQ(Clocks("look monotonic sleep 3 look monotonic").out, "look 0\nlook 3000000200\n");
}

TEST_F(TimingTest, AllProcessesHaveOneClock) {
  run_.Option("--timing typical --module wend@1");
  const SimulatorOutcome outcome = run_.Shell(
      TIME_PROBE " look raw; " TIME_PROBE " sleep 5; exec " TIME_PROBE " look monotonic");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(Time(), "time=5.000000400");
}

TEST_F(TimingTest, SleepUntilATimeIsAsLongAsOnTheProgramsClock) {
  run_.Option("--timing typical --module wend@1");
  const SimulatorOutcome outcome = run_.Probe({"sleep 1000", "until 5000000000"});
  EXPECT_THAT(outcome.log, testing::HasSubstr("sleep 1000 s\n"));
  EXPECT_THAT(outcome.log, testing::HasSubstr("sleep 5 s\n"));
}

TEST_F(TimingTest, WaitThatEndsInVainTakesItsTimeOnTheProgramsClock) {
  run_.Option("--timing typical --module wend@1");
  for (const std::string how : {"poll", "ppoll", "epoll", "epoll_pwait", "select", "pselect"}) {
    EXPECT_EQ(Clocks("look raw " + how + " 3 look raw").out,
              "look 0\n" + how + " 0\nlook 3000200\n");
    EXPECT_EQ(Time(), "time=0.003000400");
  }
}

TEST_F(TimingTest, CallOfAServiceThatNeverAnswersTimesOut) {
  run_.Option("--timing typical --module wend@1");
  EXPECT_EQ(Clocks("mute 50000").out, "mute ETIMEDOUT\n");
  EXPECT_EQ(Time(), "time=0.050000000");  // the library's own looks take none
}

TEST_F(TimingTest, TwoRunsTakeTheSameTimeToTheNanosecond) {
  if (HAS_SANITIZERS) {
    GTEST_SKIP() << "the sanitizers stand between a D-Bus library and its clock";
  }
  run_.Option("--timing typical --module wend@1,flash=flash.bin");
  EXPECT_EQ(Update().status, 0);
  const std::string first = Time();
  EXPECT_THAT(first, testing::StartsWith("time=5."));  // the reset takes five seconds
  EXPECT_EQ(Update().status, 0);
  EXPECT_EQ(Time(), first);
}

TEST_F(TimingTest, EraseThatTakesOneSecondSucceeds) {
  run_.Option("--timing longest --message-cost 2000 --module wend@1,flash=flash.bin");
  const SimulatorOutcome outcome = Update();
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.out, testing::HasSubstr("FPGA programmed successfully.\n"));
  EXPECT_THAT(run_.ReadFile("state"), testing::StartsWith("1 done=1 qspi_prg=0 loaded=current\n"));
  EXPECT_GE(Seconds(), 6.0);  // five of them are the reset
}

TEST_F(TimingTest, ChipThatNeverGetsReadyFailsAfterFiveSeconds) {
  run_.Option("--timing typical --message-cost 2000 --module wend@1,flash=flash.bin,busy-after=1");
  const SimulatorOutcome outcome = Update();
  EXPECT_EQ(outcome.status, 3);
  EXPECT_THAT(outcome.out, testing::EndsWith("Could not erase the device.\n"));
  EXPECT_GE(Seconds(), 5.0);
  EXPECT_LT(Seconds(), 5.1);
}

TEST_F(TimingTest, RunTakesAtLeastAsLongAsOnTheInstrument) {
  run_.WithoutFast();
  run_.Option("--timing typical --message-cost 20000 --module wend@1");
  const auto start = std::chrono::steady_clock::now();
  std::string words = "nanosleep 500000000";
  for (int i = 0; i < 50; ++i) {
    words += " rdid 3";
  }
  EXPECT_EQ(Clocks(words).status, 0);
  EXPECT_EQ(Time(), "time=1.500084300");
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::nanoseconds(1'500'084'300));
}

TEST_F(TimingTest, ClockStepIsRefused) {
  EXPECT_EQ(run_.Words("--timing typical --clock-step 5 -- true").err,
            "orvane-sim: --clock-step: works with --timing polls only\n"
            "Try 'orvane-sim --help'.\n");
}

}  // namespace
}  // namespace orvane
