// A program that drives a run over the socket of --control. The socket is standard output here.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <array>
#include <optional>
#include <string>

#include "base/FileDescriptor.h"
#include "tests/e2e/simulator/SimulatorRun.h"

namespace orvane {
namespace {

/// A run whose command waits until the test lets it go on, makes a call, and ends.
class ControlTest : public testing::Test {
 protected:
  ControlTest() {
    std::array<int, 2> ends{};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()), 0);
    driver_.emplace(ends[0]);
    instrument_.emplace(ends[1]);
    for (const char* const gate : {"gate", "second.gate"}) {
      EXPECT_EQ(::mkfifo(run_.File(gate).c_str(), S_IRUSR | S_IWUSR), 0);
    }
    run_.WriteFile("flash.bin", "abcdef");
    run_.Option("--control 1 --module dax@2,flash=flash.bin");
  }

  /// @param then  a shell command that prints nothing
  void Start(const std::string& then) {
    run_.StartShell("cat gate >/dev/null; " + then, instrument_->Get());
    WaitAt("gate");
  }
  /// Returns when the command waits at a gate.
  void WaitAt(const char* gate) {
    gate_.emplace(::open(run_.File(gate).c_str(), O_WRONLY | O_CLOEXEC));
    ASSERT_TRUE(gate_->IsOpen());
  }
  /// The command goes on: its next call is the close of the gate.
  void OpenGate() { gate_.reset(); }

  std::string Ask(const std::string& question) const {
    EXPECT_EQ(::send(driver_->Get(), question.data(), question.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(question.size()));
    return Receive();
  }
  std::string Receive() const {
    std::string answer(1000, '\0');
    const ssize_t bytes = ::recv(driver_->Get(), answer.data(), answer.size(), 0);
    answer.resize(bytes < 0 ? 0 : static_cast<std::size_t>(bytes));
    return answer;
  }

  SimulatorRun run_;
  std::optional<FileDescriptor> driver_;
  std::optional<FileDescriptor> instrument_;
  std::optional<FileDescriptor> gate_;
};

TEST_F(ControlTest, StateIsThatOfTheModulesNow) {
  Start("true");
  EXPECT_EQ(Ask("state"), "2 done=0 driven=0x0000 loaded=none\ninstrument estimate=0.000000000\n");
  OpenGate();
  EXPECT_EQ(run_.Wait().status, 0);
}

TEST_F(ControlTest, PartOfTheFlashIsShown) {
  Start("true");
  EXPECT_EQ(Ask("flash 2 2 3"), "cde");
  EXPECT_EQ(Ask("flash 2 5 2"), "f\xFF");
  EXPECT_EQ(Ask("flash 2 16777216 1"), "");
  OpenGate();
  EXPECT_EQ(run_.Wait().status, 0);
}

TEST_F(ControlTest, NothingLoadedIsEmpty) {
  Start("true");
  EXPECT_EQ(Ask("loaded 2 0 10"), "");
  OpenGate();
  EXPECT_EQ(run_.Wait().status, 0);
}

TEST_F(ControlTest, WrongQuestionIsAnsweredWithAnError) {
  Start("true");
  EXPECT_EQ(Ask("flash 3 0 1"), "error: no module in slot 3");
  EXPECT_EQ(Ask("flash 2"), "error: not a question: 'flash 2'");
  EXPECT_EQ(Ask("hold 0"), "error: not a question: 'hold 0'");
  EXPECT_EQ(Ask("go 0"), "error: not a question: 'go 0'");
  EXPECT_EQ(Ask("nonsense"), "error: not a question: 'nonsense'");
  OpenGate();
  EXPECT_EQ(run_.Wait().status, 0);
}

TEST_F(ControlTest, HeldProcessWaitsUntilItMayGoOn) {
  Start("true");
  EXPECT_EQ(Ask("hold 1"), "done");
  OpenGate();
  EXPECT_EQ(Receive(), "held");
  EXPECT_EQ(
      Ask("state"),
      "2 done=0 driven=0x0000 loaded=none\ninstrument estimate=0.000000000\n");  // it is asked meanwhile
  EXPECT_EQ(Ask("go"), "done");
  EXPECT_EQ(run_.Wait().status, 0);
}

TEST_F(ControlTest, ProcessThatGoesOnIsHeldAtItsNextCall) {
  Start("true </dev/spidev2.0 </dev/spidev2.0");
  EXPECT_EQ(Ask("hold 1"), "done");
  OpenGate();
  EXPECT_EQ(Receive(), "held");
  EXPECT_EQ(Ask("go 1"), "done");
  EXPECT_EQ(Receive(), "held");
  EXPECT_EQ(Ask("go"), "done");
  EXPECT_EQ(run_.Wait().status, 0);
}

TEST_F(ControlTest, CallThatIsNotReachedIsForgotten) {
  Start("true");
  EXPECT_EQ(Ask("hold 1"), "done");
  EXPECT_EQ(Ask("go"), "done");
  OpenGate();
  EXPECT_EQ(run_.Wait().status, 0);
}

TEST_F(ControlTest, ProcessThatIsKilledWhileItIsHeldIsNotAnswered) {
  Start("true");
  EXPECT_EQ(Ask("hold 1"), "done");
  OpenGate();
  EXPECT_EQ(Receive(), "held");
  ::kill(run_.Process(), SIGTERM);  // ends the command
  EXPECT_EQ(run_.Wait().status, 128 + SIGTERM);
}

TEST_F(ControlTest, FaultsThatAreOffNeitherHitNorCount) {
  run_.Option("--fault open:/dev/spidev2.0#1:EIO");
  Start("true </dev/spidev2.0 && cat second.gate && ! true 2>/dev/null </dev/spidev2.0");
  EXPECT_EQ(Ask("faults off"), "done");
  OpenGate();
  WaitAt("second.gate");  // behind the first open, which succeeds
  EXPECT_EQ(Ask("faults on"), "done");
  OpenGate();
  EXPECT_EQ(run_.Wait().status, 0);
}

TEST(ControlOptionTest, DescriptorThatIsNoSuchSocketIsRefused) {
  SimulatorRun run;
  run.Option("--control 0");
  EXPECT_EQ(run.Shell("true").err,
            "orvane-sim: --control: '0' is not a descriptor of a socket that keeps packets apart\n"
            "Try 'orvane-sim --help'.\n");
}

}  // namespace
}  // namespace orvane
