#include "simulator/guard/Guard.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "simulator/guard/ExitStatus.h"
#include "simulator/guard/ProcessTree.h"

namespace orvane {

namespace {

constexpr auto kGrace = std::chrono::seconds(2);
constexpr int kEndSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

sigset_t SetOf(int signal) {
  sigset_t set;
  ::sigemptyset(&set);
  ::sigaddset(&set, signal);
  return set;
}

/// The signals that are read from a descriptor.
sigset_t HandledSignals(const StartSignals& start) {
  sigset_t handled = SetOf(SIGCHLD);
  for (const int signal : kEndSignals) {
    if (!start.Ignores(signal)) {
      ::sigaddset(&handled, signal);
    }
  }
  if (!start.Ignores(SIGTSTP)) {
    ::sigaddset(&handled, SIGTSTP);
  }
  return handled;
}

/// The host leaves signals and the terminal to the guard.
void SetHostSignals() {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGTTIN, SIGTTOU, SIGPIPE}) {
    static_cast<void>(::signal(signal, SIG_IGN));
  }
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

/// Our own environment, with the settings over it.
/// @param settings  each ends with '\0'
std::vector<std::string> EnvironmentWith(std::string_view settings) {
  std::map<std::string, std::string, std::less<>> variables;
  const auto set = [&variables](std::string_view text) {
    const std::size_t equals = text.find('=');
    if (equals != std::string_view::npos) {
      variables.insert_or_assign(std::string(text.substr(0, equals)), std::string(text));
    }
  };
  for (char** variable = environ; *variable != nullptr; ++variable) {
    set(*variable);
  }
  while (!settings.empty()) {
    const std::string_view first = settings.substr(0, settings.find('\0'));
    set(first);
    settings.remove_prefix(std::min(first.size() + 1, settings.size()));
  }
  std::vector<std::string> environment;
  std::ranges::transform(variables, std::back_inserter(environment), [](const auto& variable) {
    return variable.second;
  });
  return environment;
}

}  // namespace

std::string MakeReadyMessage(const std::vector<std::string>& settings) {
  std::string message;
  for (const std::string& setting : settings) {
    message.append(setting).push_back('\0');
  }
  return message;
}

FileDescriptor Guard::BlockSignals(const StartSignals& signals) {
  const sigset_t handled = HandledSignals(signals);
  sigset_t blocked = handled;
  ::sigaddset(&blocked, SIGTTOU);  // or a change of the terminal's foreground would stop us
  ::sigaddset(&blocked, SIGCONT);  // StopOwnGroup() looks for it
  ::sigprocmask(SIG_BLOCK, &blocked, nullptr);
  // If SIGCHLD were ignored, as it can be at the start, children would vanish without a status.
  static_cast<void>(::signal(SIGCHLD, SIG_DFL));
  static_cast<void>(::signal(SIGPIPE, SIG_IGN));  // the run goes on without a reader of our output
  FileDescriptor descriptor(::signalfd(-1, &handled, SFD_CLOEXEC | SFD_NONBLOCK));
  if (!descriptor.IsOpen()) {
    throw std::system_error(errno, std::generic_category(), "cannot wait for signals");
  }
  return descriptor;
}

Guard::Guard(GuardedRun run, const StartSignals& signals, FileDescriptor blockedSignals)
    : run_(std::move(run)),
      signals_(signals),
      terminal_(run_.command.standard[0] == STDIN_FILENO),
      signalDescriptor_(std::move(blockedSignals)) {
  // Processes whose parents end become children of this one, so that none is lost.
  ::prctl(PR_SET_CHILD_SUBREAPER, 1);
}

Guard::~Guard() { EndAll(); }

int Guard::Run() {
  StartHost();
  while (host_ > 0) {
    Wait();
  }
  EndAll();
  return Status();
}

void Guard::StartHost() {
  auto [ours, theirs] = ControlChannel::MakePair();
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot create a pipe");
  }
  FileDescriptor lifelineReader(ends[0]);
  FileDescriptor lifelineWriter(ends[1]);
  const pid_t guard = ::getpid();
  host_ = ::fork();
  if (host_ < 0) {
    throw std::system_error(errno, std::generic_category(), "cannot start the instrument");
  }
  if (host_ == 0) {
    static_cast<void>(lifelineWriter.Close());
    { const ControlChannel closed(std::move(ours)); }
    static_cast<void>(signalDescriptor_.Close());
    ::setpgid(0, 0);  // what kills our whole group leaves one of the two
    SetHostSignals();
    std::exit(run_.host({std::move(theirs), std::move(lifelineReader), guard}));
  }
  control_.emplace(std::move(ours));
  lifeline_.emplace(std::move(lifelineWriter));
}

void Guard::Wait() {
  std::array<pollfd, 2> waits = {
      {{signalDescriptor_.Get(), POLLIN, 0}, {control_ ? control_->Descriptor() : -1, POLLIN, 0}}};
  if (::poll(waits.data(), waits.size(), MillisecondsLeft()) < 0) {
    return;  // a signal that is not blocked
  }
  if (deadline_ && Clock::now() >= *deadline_) {
    Press();
  }
  signalfd_siginfo info{};
  while (::read(signalDescriptor_.Get(), &info, sizeof info) == ssize_t{sizeof info}) {
    OnSignal(static_cast<int>(info.ssi_signo));
  }
  if (waits[1].revents != 0) {
    OnControl();
  }
}

int Guard::MillisecondsLeft() const {
  if (!deadline_) {
    return -1;
  }
  const auto left =
      std::chrono::duration_cast<std::chrono::milliseconds>(*deadline_ - Clock::now()).count();
  return static_cast<int>(std::max<std::int64_t>(left + 1, 0));
}

void Guard::OnControl() {
  const std::optional<std::string> message = control_->Receive();
  if (!message) {
    control_.reset();  // its end follows
  } else if (endSignal_ == 0) {
    StartCommand(*message);
  }
}

void Guard::StartCommand(std::string_view readyMessage) {
  run_.command.environment = EnvironmentWith(readyMessage);
  command_.emplace(run_.command, signals_, terminal_);
  run_.onStarted();
}

void Guard::OnSignal(int signal) {
  if (signal == SIGCHLD) {
    Reap();
  } else if (signal == SIGTSTP) {
    if (command_ && !commandStatus_) {
      isStopping_ = true;
      command_->Signal(SIGTSTP);
    } else {
      StopOwnGroup(SIGTSTP);
    }
  } else if (endSignal_ == 0) {
    isStopping_ = false;
    endSignal_ = signal;
    deadline_ = Clock::now() + kGrace;
    process_tree::Signal(::getpid(), host_, signal);
    process_tree::Signal(::getpid(), host_, SIGCONT);
    if (!command_) {
      SignalHost(SIGKILL);  // no flash has been changed yet
    }
  } else {
    Press();
  }
}

/// Kills what has not ended in time.
void Guard::Press() {
  deadline_ = Clock::now() + kGrace;
  if (!isCommandKilled_) {
    isCommandKilled_ = true;
    static_cast<void>(process_tree::Kill(::getpid(), host_));
    Reap();
  } else {
    SignalHost(SIGKILL);
  }
}

/// A host that has been waited for gets none: -1 would stand for every process there is.
void Guard::SignalHost(int signal) const {
  if (host_ > 0) {
    ::kill(host_, signal);
  }
}

/// Waits for every process that has ended or stopped, and lets the host finish after the last.
void Guard::Reap() {
  while (ReapOne()) {
  }
  if (!commandStatus_ || hostIsFinishing_ || host_ < 0) {
    return;
  }
  if (process_tree::HasChildrenBut(host_)) {
    return;
  }
  hostIsFinishing_ = true;
  try {
    control_.value().Send(std::to_string(*commandStatus_) + ' ' + std::to_string(endSignal_));
  } catch (const std::exception&) {  // the host is ending
  }
}

/// @return whether there was one
bool Guard::ReapOne() {
  int status = 0;
  const pid_t process = ::waitpid(-1, &status, WNOHANG | WUNTRACED);
  if (process <= 0) {
    return false;
  }
  if (process == host_) {
    if (!WIFSTOPPED(status)) {
      host_ = -1;
      hostStatus_ = status;
      if (WIFSIGNALED(status)) {
        run_.cleanUp(process);
      }
    }
  } else if (command_ && process == command_->Id() && !commandStatus_) {
    if (WIFSTOPPED(status)) {
      OnCommandStopped(WSTOPSIG(status));
    } else {
      commandStatus_ = status;
    }
  }
  return true;
}

void Guard::OnCommandStopped(int signal) {
  if (!terminal_.Exists() && !isStopping_) {
    return;  // whoever stopped it will let it go on
  }
  const bool usesTerminal = signal == SIGTTIN || signal == SIGTTOU;
  isStopping_ = false;
  // A command that was started in the background, and waits for input now that we are in front.
  if (!usesTerminal || !terminal_.IsOurs()) {
    StopOwnGroup(signal);
  }
  if (terminal_.IsOurs()) {
    terminal_.Set(command_->Id());
  }
  command_->Signal(SIGCONT);
}

/// Returns when a shell lets our group go on, with the terminal or without it.
void Guard::StopOwnGroup(int signal) {
  const sigset_t continued = SetOf(SIGCONT);
  const timespec now{};
  while (::sigtimedwait(&continued, nullptr, &now) > 0) {  // from earlier
  }
  SignalHost(SIGSTOP);
  ::kill(0, signal);
  const sigset_t stop = SetOf(signal);
  sigset_t before;
  ::sigprocmask(SIG_UNBLOCK, &stop, &before);  // here we stop
  ::sigprocmask(SIG_SETMASK, &before, nullptr);
  SignalHost(SIGCONT);
  const bool wasStopped = ::sigtimedwait(&continued, nullptr, &now) > 0;
  if (!wasStopped && signal != SIGTSTP && command_) {
    // No shell can let us go on, so the system has not stopped us. It ends such a process group
    // when it is stopped, in this way.
    command_->Signal(SIGHUP);
  }
}

/// Ends every process, and waits for it.
void Guard::EndAll() {
  while (ReapOne()) {
  }
  if (process_tree::HasChildrenBut(0)) {
    static_cast<void>(process_tree::Kill(::getpid(), 0));
    while (ReapOne()) {
    }
  }
  if (command_) {
    terminal_.TakeBack(command_->Id());
  }
}

int Guard::Status() const {
  if (WIFEXITED(hostStatus_)) {
    return WEXITSTATUS(hostStatus_);
  }
  if (endSignal_ != 0) {
    return kSignalStatus + endSignal_;
  }
  const char* const name = ::sigabbrev_np(WTERMSIG(hostStatus_));
  throw std::runtime_error(std::string("the instrument was killed by SIG") +
                           (name == nullptr ? "?" : name));
}

}  // namespace orvane
