#include "simulator/host/Host.h"

#include <fcntl.h>
#include <glib-unix.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "simulator/boards/ModuleFactory.h"
#include "simulator/bus/PrivateBus.h"
#include "simulator/host/CommandProcess.h"
#include "simulator/host/Console.h"
#include "simulator/host/FlashFile.h"
#include "simulator/host/PlatformServices.h"
#include "simulator/host/RunHooks.h"
#include "simulator/host/ShimServer.h"
#include "simulator/host/TemporaryDirectory.h"
#include "simulator/host/Testbed.h"
#include "simulator/instrument/EventLog.h"
#include "simulator/instrument/Instrument.h"

namespace orvane {

namespace {

constexpr const char* kBufsizPath = "/sys/module/spidev/parameters/bufsiz";
constexpr const char* kUmockdevPreload = "libumockdev-preload.so.0";
constexpr const char* kShimName = "liborvane-shim.so";
constexpr unsigned kGraceMilliseconds = 2000;
constexpr int kReapMilliseconds = 2000;
constexpr useconds_t kReapPollMicroseconds = 1000;
constexpr int kSignalStatus = 128;

/// Where the build puts the shim, seen from this executable.
std::string FindShim() {
  namespace fs = std::filesystem;
  const fs::path here = fs::read_symlink("/proc/self/exe").parent_path();
  const fs::path shim = here.parent_path() / "lib" / kShimName;
  if (!fs::exists(shim)) {
    throw std::runtime_error(shim.string() + " not found");
  }
  return shim.string();
}

std::vector<std::unique_ptr<Module>> PlugIn(const std::vector<ModuleOptions>& wanted,
                                            const ModuleSelectorModel& selector) {
  std::vector<std::unique_ptr<Module>> modules;
  for (const ModuleOptions& module : wanted) {
    std::vector<std::uint8_t> contents;
    if (!module.flashFile.empty()) {
      try {
        contents = LoadFlashFile(module.flashFile);
      } catch (const std::runtime_error& error) {
        throw UsageError(error.what());
      }
    }
    modules.push_back(MakeModule(module, contents, selector));
  }
  return modules;
}

FaultRules Rules(const std::vector<FaultRule>& wanted) {
  FaultRules rules;
  for (const FaultRule& rule : wanted) {
    rules.Add(rule);
  }
  return rules;
}

std::unique_ptr<std::ofstream> OpenLog(const std::string& path) {
  if (path.empty()) {
    return nullptr;
  }
  auto log = std::make_unique<std::ofstream>(path, std::ios::binary);
  if (!*log) {
    throw UsageError("cannot write log file '" + path + "': " + std::strerror(errno));
  }
  return log;
}

struct UnrefLoop {
  void operator()(GMainLoop* loop) const { g_main_loop_unref(loop); }
};

/// Handles a signal in the main loop, instead of its default action, until it is destroyed.
class SignalSource {
 public:
  SignalSource(int signal, GSourceFunc function, void* self)
      : source_(g_unix_signal_add(signal, function, self)) {}
  SignalSource(const SignalSource&) = delete;
  SignalSource& operator=(const SignalSource&) = delete;
  ~SignalSource() { g_source_remove(source_); }

 private:
  unsigned source_;
};

/// Everything of one run, built in the order of the members and destroyed in reverse.
class Host {
 public:
  Host(const Options& options, const InheritedDescriptors& descriptors)
      : options_(options),
        descriptors_(descriptors),
        logFile_(OpenLog(options.logFile)),
        log_(logFile_.get()),
        selector_(options.withSelector),
        instrument_(PlugIn(options.modules, selector_.Selector()),
                    selector_,
                    Rules(options.faults),
                    options.SpiLimit(),
                    log_),
        testbed_(directory_.Path()),
        server_(directory_.Path() + "/link", options.fast, instrument_, testbed_, hooks_) {
    FillTestbed();
    if (options_.withBus) {
      bus_.emplace(directory_.Path());
      services_.emplace(bus_->Address(),
                        PlatformServices::Wanted{options_.withInventory, options_.withResources},
                        instrument_,
                        hooks_);
    }
    if (logFile_ != nullptr) {
      console_.emplace(directory_.Path(), log_);
    }
  }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;
  ~Host() = default;

  int Run() {
    command_.emplace(options_.command, Environment(), StandardOfCommand(), descriptors_.others);
    if (console_) {
      console_->CloseWriters();
      g_unix_fd_add(console_->Descriptor(), G_IO_IN, OnConsole, this);
    }
    g_child_watch_add(command_->Id(), OnEnd, this);
    g_main_loop_run(loop_.get());
    KillRest();
    DrainConsole();
    LogEnd();
    SaveFlashes();
    SaveState();
    if (failure_) {
      throw std::runtime_error(*failure_);
    }
    if (logFile_ != nullptr && !*logFile_) {
      throw std::runtime_error("cannot write log file '" + options_.logFile + "'");
    }
    return WIFEXITED(waitStatus_) ? WEXITSTATUS(waitStatus_)
                                  : kSignalStatus + WTERMSIG(waitStatus_);
  }

 private:
  static int OnConsole(int /*descriptor*/, GIOCondition /*condition*/, void* self) {
    static_cast<Host*>(self)->DrainConsole();
    return G_SOURCE_CONTINUE;
  }
  static void OnEnd(GPid /*process*/, int status, void* self) {
    auto* const host = static_cast<Host*>(self);
    host->waitStatus_ = status;
    g_main_loop_quit(host->loop_.get());
  }
  template <int kSignal>
  static int OnSignal(void* self) {
    static_cast<Host*>(self)->Forward(kSignal);
    return G_SOURCE_CONTINUE;
  }
  static int OnGraceOver(void* self) {
    static_cast<Host*>(self)->command_->Signal(SIGKILL);
    return G_SOURCE_CONTINUE;
  }

  void DrainConsole() {
    if (console_) {
      console_->Drain();
    }
  }

  /// Passes a signal on. The command is killed when it has not ended within the grace period, or
  /// when a second signal arrives.
  void Forward(int signal) {
    if (graceSource_ != 0) {
      signal = SIGKILL;
    } else {
      graceSource_ = g_timeout_add(kGraceMilliseconds, OnGraceOver, this);
    }
    command_->Signal(signal);
  }

  void Fail(const std::string& why) {
    if (!failure_) {
      failure_ = why;
      KillCommand();
    }
  }

  void KillCommand() {
    if (command_) {
      command_->Signal(SIGKILL);
    }
    for (const pid_t process : server_.ConnectedProcesses()) {
      ::kill(process, SIGKILL);
    }
  }

  void FillTestbed() {
    for (const std::string& path : instrument_.NodePaths()) {
      testbed_.AddFile(path, "");
    }
    for (const I2cAdapter& adapter : instrument_.I2cAdapters()) {
      testbed_.AddAdapter(adapter);
    }
    if (options_.bufsiz) {
      testbed_.AddFile(kBufsizPath, *options_.bufsiz + "\n");
    }
  }

  /// Our environment and the variables that make a process part of the instrument. The processes
  /// that the command starts inherit it.
  std::vector<std::string> Environment() const {
    // A path without blanks and colons, because these separate paths in LD_PRELOAD.
    const std::string shim = directory_.Path() + "/" + kShimName;
    std::filesystem::create_symlink(FindShim(), shim);

    std::map<std::string, std::string> variables;
    for (char** variable = environ; *variable != nullptr; ++variable) {
      const std::string text = *variable;
      const std::size_t equals = text.find('=');
      if (equals != std::string::npos) {
        variables.emplace(text.substr(0, equals), text.substr(equals + 1));
      }
    }
    std::string& preload = variables["LD_PRELOAD"];
    preload += (preload.empty() ? "" : ":") + shim + ":" + kUmockdevPreload;
    variables[link::kAddressVariable] = directory_.Path() + "/link";
    if (options_.clockStep.count() > 0) {
      variables[link::kClockStepVariable] =
          std::to_string(std::chrono::nanoseconds(options_.clockStep).count());
    }
    variables["DBUS_SYSTEM_BUS_ADDRESS"] =
        bus_ ? bus_->Address() : "unix:path=" + directory_.Path() + "/no-bus";
    std::vector<std::string> environment;
    environment.reserve(variables.size());
    for (const auto& [name, value] : variables) {
      environment.push_back(std::string(name).append("=").append(value));
    }
    return environment;
  }

  std::array<int, 3> StandardOfCommand() const {
    std::array<int, 3> standard{};
    for (int descriptor = 0; descriptor < 3; ++descriptor) {
      int& place = standard[static_cast<std::size_t>(descriptor)];
      if (!descriptors_.standard.at(static_cast<std::size_t>(descriptor))) {
        place = CommandProcess::kClosed;
      } else if (console_ && descriptor != STDIN_FILENO) {
        place = console_->WriterFor(descriptor);
      } else {
        place = descriptor;
      }
    }
    return standard;
  }

  /// Kills the processes that the command has left running, in its group or outside, and waits for
  /// them.
  void KillRest() {
    command_.reset();
    for (const pid_t process : server_.ConnectedProcesses()) {
      ::kill(process, SIGKILL);
    }
    services_.reset();
    bus_.reset();
    // Processes whose parents have ended are our children by now.
    for (int waited = 0; waited < kReapMilliseconds; ++waited) {
      pid_t reaped = 0;
      while ((reaped = ::waitpid(-1, nullptr, WNOHANG)) > 0) {
      }
      if (reaped < 0) {
        return;
      }
      ::usleep(kReapPollMicroseconds);
    }
  }

  void LogEnd() {
    if (WIFEXITED(waitStatus_)) {
      log_.End("exit " + std::to_string(WEXITSTATUS(waitStatus_)));
    } else {
      const char* const name = ::sigabbrev_np(WTERMSIG(waitStatus_));
      log_.End(std::string("killed SIG") + (name == nullptr ? "?" : name));
    }
  }

  /// How the run left each module, one line each.
  void SaveState() const {
    if (options_.stateFile.empty()) {
      return;
    }
    std::ofstream file(options_.stateFile, std::ios::binary);
    for (const auto& module : instrument_.Modules()) {
      file << module->Slot() << ' ' << module->DescribeState() << '\n';
    }
    if (!file.flush()) {
      throw std::runtime_error("cannot write state file '" + options_.stateFile + "'");
    }
  }

  void SaveFlashes() const {
    for (const auto& module : instrument_.Modules()) {
      if (!module->Options().flashFile.empty()) {
        SaveFlashFile(module->Options().flashFile, module->Flash().Contents());
      }
    }
  }

  std::unique_ptr<GMainLoop, UnrefLoop> loop_{g_main_loop_new(nullptr, FALSE)};
  // Before anything is created that has to be removed: from here on a signal waits for the main
  // loop.
  SignalSource interrupt_{SIGINT, OnSignal<SIGINT>, this};
  SignalSource terminate_{SIGTERM, OnSignal<SIGTERM>, this};
  SignalSource hangUp_{SIGHUP, OnSignal<SIGHUP>, this};
  const RunHooks hooks_{.beforeEvent = [this] { DrainConsole(); },
                        .fail = [this](const std::string& why) { Fail(why); },
                        .killAll = [this] { KillCommand(); }};
  const Options& options_;
  const InheritedDescriptors& descriptors_;
  TemporaryDirectory directory_;
  std::unique_ptr<std::ofstream> logFile_;  // null: no log
  EventLog log_;
  ModuleSelectorFiles selector_;
  Instrument instrument_;
  Testbed testbed_;
  ShimServer server_;
  std::optional<PrivateBus> bus_;
  std::optional<PlatformServices> services_;
  std::optional<Console> console_;
  std::optional<CommandProcess> command_;
  std::optional<std::string> failure_;  // why the run was ended
  unsigned graceSource_ = 0;
  int waitStatus_ = 0;
};

}  // namespace

InheritedDescriptors SecureDescriptors() {
  InheritedDescriptors inherited;
  for (int descriptor = 0; descriptor < 3; ++descriptor) {
    const bool isOpen = ::fcntl(descriptor, F_GETFD) != -1;
    inherited.standard.at(static_cast<std::size_t>(descriptor)) = isOpen;
    if (!isOpen) {
      static_cast<void>(::open("/dev/null", O_RDWR));  // the lowest free one is `descriptor`
    }
  }
  std::vector<int> listed;  // contains that of the directory itself, which is closed by then
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    listed.push_back(std::stoi(entry.path().filename()));
  }
  for (const int descriptor : listed) {
    if (descriptor > STDERR_FILENO && ::fcntl(descriptor, F_GETFD) != -1) {
      inherited.others.push_back(descriptor);
    }
  }
  return inherited;
}

int RunOnInstrument(const Options& options, const InheritedDescriptors& descriptors) {
  static_cast<void>(
      ::signal(SIGPIPE, SIG_IGN));  // the run goes on when the reader of our output ends
  // Processes whose parents end become children of this one, so that none is lost.
  ::prctl(PR_SET_CHILD_SUBREAPER, 1);
  return Host(options, descriptors).Run();
}

}  // namespace orvane
