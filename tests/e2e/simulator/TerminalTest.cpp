// orvane-sim as a job of an interactive shell with a terminal of its own.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/doubles/TemporaryDirectory.h"
#include "tests/e2e/simulator/Processes.h"
#include "tests/e2e/simulator/Terminal.h"

namespace orvane {
namespace {

constexpr const char* kPrompt = "ready> ";
constexpr const char* kEnter = "\r";
constexpr const char* kCtrlC = "\x03";
constexpr const char* kCtrlD = "\x04";
constexpr const char* kCtrlZ = "\x1a";
constexpr const char* kCtrlBackslash = "\x1c";
constexpr const char* kCat = "sh -c 'echo started; exec cat'";

struct Shell {
  std::string name;
  std::vector<std::string> words;
};

std::ostream& operator<<(std::ostream& out, const Shell& shell) { return out << shell.name; }

class TerminalTest : public testing::TestWithParam<Shell> {
 protected:
  void SetUp() override {
    if (::access(GetParam().words[0].c_str(), X_OK) != 0) {
      GTEST_SKIP() << GetParam().words[0] << " is not installed";
    }
    std::filesystem::create_directory(Temporary());
    terminal_.emplace(GetParam().words, directory_.Path(), Environment());
    ASSERT_TRUE(terminal_->Shows(kPrompt)) << terminal_->Seen();
  }

  std::string Temporary() const { return directory_.Path() + "/tmp"; }
  std::string File(const std::string& name) const { return directory_.Path() + "/" + name; }

  /// Types a command.
  void Enter(const std::string& command) const { terminal_->Type(command + kEnter); }

  /// Starts orvane-sim with COMMAND, and what else there is on the line, such as "| cat".
  void Run(const std::string& command, const std::string& rest = "") const {
    Enter("$SIM --fast -- " + command + " " + rest);
  }

  void ExpectShown(std::string_view text) {
    ASSERT_TRUE(terminal_->Shows(text)) << "no '" << text << "' after:\n"
                                        << terminal_->Seen() << "\nrunning: " << Describe(Jobs());
  }

  void ExpectPrompt() { ExpectShown(kPrompt); }

  /// The shell reads and answers a command: the terminal is its own. To be called at a prompt.
  void ExpectShellAnswers() {
    Enter("echo answer $((6 * 7))");
    ExpectShown("answer 42");
    ExpectPrompt();
  }

  /// The status of the last command. To be called at a prompt.
  void ExpectStatus(int status) {
    Enter("echo status $?.");
    ExpectShown("status " + std::to_string(status) + ".");
    ExpectPrompt();
  }

  /// Every process that the shell has started.
  std::vector<Process> Jobs() const {
    std::vector<Process> processes = ProcessesWith("TMPDIR=" + Temporary());
    std::erase_if(processes, [&](const Process& process) { return process.id == terminal_->Id(); });
    return processes;
  }

  /// The jobs with this name.
  std::vector<Process> Named(std::string_view name) const {
    std::vector<Process> processes = Jobs();
    std::erase_if(processes, [&](const Process& process) { return process.name != name; });
    return processes;
  }

  /// Every process with this name comes to this state, and there is one.
  void ExpectState(std::string_view name, char state) const {
    EXPECT_TRUE(Eventually([&] {
      const std::vector<Process> processes = Named(name);
      return !processes.empty() &&
             std::all_of(processes.begin(), processes.end(), [&](const Process& process) {
               return process.state == state;
             });
    })) << "no '"
        << state << "' for " << name << ": " << Describe(Jobs());
  }

  /// The instrument, the command and what else the line has stop; only the bus goes on.
  void ExpectStopped() const {
    ExpectState("orvane-sim", 'T');
    EXPECT_TRUE(Eventually([&] {
      const std::vector<Process> processes = Jobs();
      return std::all_of(processes.begin(), processes.end(), [&](const Process& process) {
        return process.state == 'T' || process.name == "dbus-daemon";
      });
    })) << Describe(Jobs());
  }

  /// No process and no file is left.
  void ExpectNothingLeft() const {
    EXPECT_TRUE(Eventually([&] { return Jobs().empty(); })) << Describe(Jobs());
    // What removes the files of an instrument that was killed is no job while it executes.
    EXPECT_TRUE(Eventually([&] { return std::filesystem::is_empty(Temporary()); }));
  }

  std::string ReadFile(const std::string& name) const {
    std::ifstream file(File(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

  std::optional<Terminal> terminal_;

 private:
  std::vector<std::string> Environment() const {
    std::vector<std::string> environment = {
        "TMPDIR=" + Temporary(), std::string("PS1=") + kPrompt, "SIM=" ORVANE_SIM};
    for (char** variable = environ; *variable != nullptr; ++variable) {
      const std::string_view text = *variable;
      if (!text.starts_with("TMPDIR=") && !text.starts_with("PS1=") && !text.starts_with("ENV=")) {
        environment.emplace_back(text);
      }
    }
    return environment;
  }

  // A short path: orvane-sim creates its own directory there, with sockets.
  ::TemporaryDirectory directory_{"/tmp"};
};

INSTANTIATE_TEST_SUITE_P(
    Shells,
    TerminalTest,
    testing::Values(Shell{"bash", {"/bin/bash", "--norc", "--noprofile", "--noediting", "-i"}},
                    Shell{"dash", {"/bin/dash", "-i"}}),
    [](const auto& row) { return row.param.name; });

TEST_P(TerminalTest, CommandReadsTheTerminal) {
  Run(kCat);
  ExpectShown("started");
  Enter("hello");
  ExpectShown("hello");
  terminal_->Type(kCtrlD);
  ExpectPrompt();
  ExpectStatus(0);
  ExpectNothingLeft();
}

TEST_P(TerminalTest, CtrlZStopsCommandAndInstrument) {
  Run(kCat);
  ExpectShown("started");
  terminal_->Type(kCtrlZ);
  ExpectPrompt();
  ExpectStopped();
}

TEST_P(TerminalTest, CtrlZGivesTheShellItsTerminalBack) {
  Run(kCat);
  ExpectShown("started");
  terminal_->Type(kCtrlZ);
  ExpectPrompt();
  ExpectShellAnswers();
}

TEST_P(TerminalTest, FgGoesOnWithInput) {
  Run(kCat);
  ExpectShown("started");
  for (const std::string line : {"one", "two", "three"}) {
    terminal_->Type(kCtrlZ);
    ExpectPrompt();
    Enter("fg");
    Enter(line);
    ExpectShown(line + "\r\n");
  }
  terminal_->Type(kCtrlD);
  ExpectPrompt();
  ExpectStatus(0);
  ExpectNothingLeft();
}

TEST_P(TerminalTest, BgGoesOn) {
  ASSERT_EQ(::mkfifo(File("fifo").c_str(), 0600), 0);
  std::fstream fifo(File("fifo"));
  Run("sh -c 'echo started; read line <fifo; echo got $line; exit 4'");
  ExpectShown("started");
  terminal_->Type(kCtrlZ);
  ExpectPrompt();
  Enter("bg");
  ExpectPrompt();
  ExpectShellAnswers();
  fifo << "on" << std::endl;
  ExpectShown("got on");
  Enter("wait $!");
  ExpectPrompt();
  ExpectNothingLeft();
}

TEST_P(TerminalTest, JobThatReadsInTheBackgroundStops) {
  Run(kCat, "&");
  ExpectShown("started");
  ExpectStopped();
  ExpectShellAnswers();
}

TEST_P(TerminalTest, BackgroundJobBroughtForwardReadsItsInput) {
  Run(kCat, "&");
  ExpectShown("started");
  ExpectStopped();
  Enter("fg");
  Enter("hello");
  ExpectShown("hello\r\n");
  terminal_->Type(kCtrlD);
  ExpectPrompt();
  ExpectStatus(0);
  ExpectNothingLeft();
}

TEST_P(TerminalTest, BackgroundJobBroughtForwardBeforeItReadsReadsItsInput) {
  ASSERT_EQ(::mkfifo(File("fifo").c_str(), 0600), 0);
  std::fstream fifo(File("fifo"));
  Run("sh -c 'echo started; read line <fifo; exec cat'", "&");
  ExpectShown("started");
  Enter("fg");
  // The shell writes the command of a job that it has brought forward.
  ExpectShown("exec cat");
  fifo << "on" << std::endl;
  Enter("hello");
  ExpectShown("hello\r\n");
  terminal_->Type(kCtrlD);
  ExpectPrompt();
  ExpectStatus(0);
  ExpectNothingLeft();
}

TEST_P(TerminalTest, BackgroundJobDoesNotTakeTheTerminal) {
  Run("sh -c 'echo started'", "&");
  ExpectShown("started");
  ExpectShellAnswers();
  Enter("wait");
  ExpectPrompt();
  ExpectShellAnswers();
  ExpectNothingLeft();
}

TEST_P(TerminalTest, CtrlCEndsIt) {
  Run(kCat);
  ExpectShown("started");
  terminal_->Type(kCtrlC);
  ExpectPrompt();
  ExpectStatus(130);
  ExpectNothingLeft();
}

TEST_P(TerminalTest, CtrlBackslashEndsIt) {
  Enter("ulimit -c 0");
  ExpectPrompt();
  Run(kCat);
  ExpectShown("started");
  terminal_->Type(kCtrlBackslash);
  ExpectPrompt();
  ExpectStatus(131);
  ExpectNothingLeft();
}

TEST_P(TerminalTest, CommandMayHandleCtrlC) {
  Run("sh -c 'trap \"echo bye; exit 9\" INT; echo started; while :; do read line; done'");
  ExpectShown("started");
  terminal_->Type(kCtrlC);
  ExpectShown("bye");
  ExpectPrompt();
  ExpectStatus(9);
  ExpectNothingLeft();
}

TEST_P(TerminalTest, CtrlCAfterFgEndsIt) {
  Run(kCat);
  ExpectShown("started");
  terminal_->Type(kCtrlZ);
  ExpectPrompt();
  Enter("fg");
  Enter("hello");
  ExpectShown("hello\r\n");
  terminal_->Type(kCtrlC);
  ExpectPrompt();
  ExpectStatus(130);
  ExpectNothingLeft();
}

TEST_P(TerminalTest, StoppedJobIsEndedBySigterm) {
  Run(kCat);
  ExpectShown("started");
  terminal_->Type(kCtrlZ);
  ExpectPrompt();
  ExpectStopped();
  Enter("kill %1; fg");
  ExpectPrompt();
  ExpectStatus(143);
  ExpectNothingLeft();
}

TEST_P(TerminalTest, PipelineStopsAndGoesOn) {
  Run(kCat, "| tr a-z A-Z");
  ExpectShown("STARTED");
  terminal_->Type(kCtrlZ);
  ExpectPrompt();
  ExpectStopped();
  ExpectShellAnswers();
  Enter("fg");
  Enter("hello");
  ExpectShown("HELLO\r\n");
  terminal_->Type(kCtrlD);
  ExpectPrompt();
  ExpectStatus(0);
  ExpectNothingLeft();
}

TEST_P(TerminalTest, CtrlCEndsAPipeline) {
  Run(kCat, "| cat");
  ExpectShown("started");
  terminal_->Type(kCtrlC);
  ExpectPrompt();
  ExpectShellAnswers();
  ExpectNothingLeft();
}

TEST_P(TerminalTest, CtrlZWithOtherInputStopsCommandAndInstrument) {
  ASSERT_EQ(::mkfifo(File("fifo").c_str(), 0600), 0);
  std::fstream fifo(File("fifo"));
  Run(kCat, "<fifo");
  ExpectShown("started");
  terminal_->Type(kCtrlZ);
  ExpectPrompt();
  ExpectStopped();
  ExpectShellAnswers();
  Enter("fg");
  fifo << "on" << std::endl;
  ExpectShown("on\r\n");
  terminal_->Type(kCtrlC);
  ExpectPrompt();
  ExpectStatus(130);
  ExpectNothingLeft();
}

TEST_P(TerminalTest, CtrlZWithALogStopsCommandAndInstrument) {
  Enter(std::string("$SIM --fast --log log -- ") + kCat);
  ExpectShown("started");
  terminal_->Type(kCtrlZ);
  ExpectPrompt();
  ExpectStopped();
  ExpectShellAnswers();
  Enter("fg");
  Enter("hello");
  ExpectShown("hello\r\n");
  terminal_->Type(kCtrlD);
  ExpectPrompt();
  ExpectStatus(0);
  ExpectNothingLeft();
  EXPECT_EQ(ReadFile("log"), "stdout \"started\\n\"\nstdout \"hello\\n\"\nexit 0\n");
}

TEST_P(TerminalTest, CtrlZDuringTheStartStopsIt) {
  for (int i = 0; i < 5; ++i) {
    Run("sh -c 'cat; exit 4'");
    ASSERT_TRUE(Eventually([&] { return !Named("orvane-sim").empty(); }));
    terminal_->Type(kCtrlZ);
    ExpectPrompt();
    ExpectState("orvane-sim", 'T');
    ExpectShellAnswers();
    Enter("fg");
    Enter("hello");
    ExpectShown("hello\r\n");
    terminal_->Type(kCtrlD);
    ExpectPrompt();
    ExpectStatus(4);
  }
  ExpectNothingLeft();
}

TEST_P(TerminalTest, CommandThatStopsItselfStopsTheJob) {
  Run("sh -c 'echo started; kill -TSTP $$; echo on; exit 4'");
  ExpectShown("started");
  ExpectPrompt();
  ExpectShellAnswers();
  Enter("fg");
  ExpectShown("on");
  ExpectPrompt();
  ExpectStatus(4);
  ExpectNothingLeft();
}

TEST_P(TerminalTest, ShellAsCommandHasJobControl) {
  Enter("PS1='inner> ' $SIM --fast -- /bin/bash --norc --noprofile --noediting -i");
  ExpectShown("inner> ");
  Enter("cat");
  ExpectState("cat", 'S');
  terminal_->Type(kCtrlZ);
  ExpectShown("inner> ");
  ExpectState("cat", 'T');
  Enter("fg");
  Enter("hello");
  ExpectShown("hello\r\n");
  terminal_->Type(kCtrlD);
  ExpectShown("inner> ");
  Enter("exit 6");
  ExpectPrompt();
  ExpectStatus(6);
  ExpectShellAnswers();
  ExpectNothingLeft();
}

TEST_P(TerminalTest, ShellHasItsTerminalBackAfterSigkill) {
  Run(kCat);
  ExpectShown("started");
  const std::vector<Process> processes = Named("orvane-sim");
  const auto upper = std::find_if(processes.begin(), processes.end(), [&](const Process& process) {
    return process.parent == terminal_->Id();
  });
  ASSERT_NE(upper, processes.end());
  ::kill(upper->id, SIGKILL);
  ExpectPrompt();
  // Until it has ended, the command reads what is typed.
  ExpectNothingLeft();
  ExpectShellAnswers();
}

TEST_P(TerminalTest, EndOfTheTerminalEndsIt) {
  Run(kCat);
  ExpectShown("started");
  ::kill(terminal_->Id(), SIGHUP);
  ExpectNothingLeft();
}

}  // namespace
}  // namespace orvane
