#include "simulator/host/Host.h"

#include <glib-unix.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <latch>
#include <memory>
#include <optional>
#include <span>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "simulator/boards/ModuleFactory.h"
#include "simulator/bus/PrivateBus.h"
#include "simulator/guard/ExitStatus.h"
#include "simulator/guard/ProcessTree.h"
#include "simulator/host/Console.h"
#include "simulator/host/PlatformServices.h"
#include "simulator/host/ProgramClock.h"
#include "simulator/host/RealPace.h"
#include "simulator/host/RunControl.h"
#include "simulator/host/RunFiles.h"
#include "simulator/host/RunHooks.h"
#include "simulator/host/RunObservers.h"
#include "simulator/host/ShimFolders.h"
#include "simulator/host/ShimServer.h"
#include "simulator/host/Testbed.h"
#include "simulator/host/UnhitReport.h"
#include "simulator/instrument/EventLog.h"
#include "simulator/instrument/Instrument.h"

namespace orvane {

namespace {

constexpr const char* kBufsizPath = "/sys/module/spidev/parameters/bufsiz";
constexpr const char* kUmockdevPreload = "libumockdev-preload.so.0";
constexpr useconds_t kRemovePollMicroseconds = 1000;
constexpr const char* kShimName = "liborvane-shim.so";

std::string LinkAddress(const std::string& directory) { return directory + "/link"; }

std::string TimePagePath(const std::string& directory) { return directory + "/time"; }

/// The shim, in one of the folders that the build or an installation gives it, seen from this executable.
/// @throw std::runtime_error
std::string FindShim() {
  namespace fs = std::filesystem;
  const fs::path here = fs::read_symlink("/proc/self/exe").parent_path();
  for (const char* const folder : kShimFolders) {
    const fs::path shim = (here / folder / kShimName).lexically_normal();
    if (fs::exists(shim)) {
      return shim.string();
    }
  }
  throw std::runtime_error((here / kShimFolders[0] / kShimName).lexically_normal().string() +
                           " not found");
}

std::vector<std::unique_ptr<Module>> PlugIn(const std::vector<ModuleOptions>& wanted,
                                            RunFiles& files,
                                            const ModuleSelectorModel& selector) {
  std::vector<std::unique_ptr<Module>> modules;
  modules.reserve(wanted.size());
  for (const ModuleOptions& module : wanted) {
    modules.push_back(MakeModule(module, files.TakeFlash(module), selector));
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

struct UnrefLoop {
  void operator()(GMainLoop* loop) const { g_main_loop_unref(loop); }
};

[[noreturn]] void EndAfter(std::string_view message) {
  std::cerr << "orvane-sim: " << message.substr(0, message.find('\n')) << std::endl;
  ::_exit(kInstrumentFailed);
}

/// What a library finds fatal is shown in one line, as all that ends a run is. Its warnings are
/// not: where they matter, something fails that is shown.
GLogWriterOutput WriteMessage(GLogLevelFlags level,
                              const GLogField* fields,
                              gsize count,
                              void* /*data*/) {
  if ((level & G_LOG_LEVEL_ERROR) == 0) {
    return G_LOG_WRITER_HANDLED;
  }
  for (const GLogField& field : std::span(fields, count)) {
    if (std::string_view(field.key) == "MESSAGE" && field.length < 0) {
      EndAfter(static_cast<const char*>(field.value));
    }
  }
  EndAfter("a library has failed");
}

/// An assertion that fails prints before it ends the process.
void PrintAssertion(const char* text) {
  constexpr std::string_view kStart = "**\n";
  const std::string_view message = text;
  EndAfter(message.starts_with(kStart) ? message.substr(kStart.size()) : message);
}

/// Starts a process that removes the directory when this one has ended, which may be filling it. Between
/// fork and exec nothing is allocated: another thread may have been doing that, and the sanitizers'
/// allocation waits for it then.
void RemoveAfterThisProcess(const std::string& directory) {
  const pid_t self = ::getpid();
  if (::fork() == 0) {
    while (::getppid() == self) {
      ::usleep(kRemovePollMicroseconds);
    }
    ::execl("/bin/rm", "rm", "-rf", "--", directory.c_str(), nullptr);
    ::_exit(kInstrumentFailed);
  }
}

/// Ends this process, and every process of the command, when the guard has been killed: then nobody
/// else does. It needs a thread of its own, because the others may be waiting for anything.
/// Returns when the thread runs.
void EndWithGuard(FileDescriptor lifeline, const std::string& directory) {
  const auto started = std::make_shared<std::latch>(1);
  std::thread([started, lifeline = std::move(lifeline), directory] {
    started->count_down();
    char byte = '\0';
    while (::read(lifeline.Get(), &byte, sizeof byte) < 0 && errno == EINTR) {
    }
    static_cast<void>(
        process_tree::KillWith(std::string(link::kAddressVariable) + "=" + LinkAddress(directory)));
    static_cast<void>(process_tree::Kill(::getpid(), 0));  // the bus
    while (::waitpid(-1, nullptr, WNOHANG) > 0) {
    }
    RemoveAfterThisProcess(directory);
    ::_exit(kInstrumentFailed);
  }).detach();
  started->wait();
}

/// Everything of one run, built in the order of the members and destroyed in reverse.
class Host {
 public:
  Host(const Options& options,
       const std::string& directory,
       ConsoleSockets* console,
       ControlChannel guard,
       pid_t guardProcess)
      : guardProcess_(guardProcess),
        options_(options),
        directory_(directory),
        guard_(std::move(guard)),
        files_(options),
        log_(files_.Stream(StreamKind::kLog)),
        observers_(options, files_, [this]() -> const TimeTotals& { return instrument_.Totals(); }),
        selector_(options.withSelector),
        instrument_(PlugIn(options.modules, files_, selector_.Selector()),
                    selector_,
                    Rules(options.faults),
                    {.bytes = options.SpiLimit(), .alignment = options.spiAlignment},
                    log_,
                    {.timing = options.timing,
                     .messageCost = options.messageCost,
                     .observer = observers_.Observer()}),
        testbed_(directory),
        server_(LinkAddress(directory),
                options.fast,
                options.fileEvents,
                instrument_,
                testbed_,
                hooks_) {
    FillTestbed();
    if (options_.timing != Timing::kPolls) {
      clock_.emplace(TimePagePath(directory_));
    }
    if (options_.withBus) {
      bus_.emplace(directory_);
      services_.emplace(bus_->Address(),
                        PlatformServices::Wanted{options_.withInventory, options_.withResources},
                        instrument_,
                        hooks_);
    }
    if (options_.control) {
      control_.emplace(*options_.control, instrument_, server_, hooks_);
    }
    if (console != nullptr) {
      console_.emplace(*console, log_, instrument_);
    }
  }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;
  ~Host() = default;

  int Run() {
    if (console_) {
      g_unix_fd_add(console_->Descriptor(), G_IO_IN, OnConsole, this);
    }
    g_unix_fd_add(guard_.Descriptor(), G_IO_IN, OnGuard, this);
    if (options_.timing != Timing::kPolls && !options_.fast) {
      pace_.emplace();
    }
    guard_.Send(MakeReadyMessage(Settings()));
    g_main_loop_run(loop_.get());
    BeforeEvent();
    if (pace_ && endSignal_ == 0 && !hasFailed_) {
      pace_->WaitFor(instrument_.Now(), std::chrono::nanoseconds(0));
    }
    LogEnd();
    instrument_.NoteEnd();
    SaveFiles();
    // A signal from outside can end it before it has begun.
    if (!server_.HasHadConnections() && endSignal_ == 0) {
      problems_.emplace_back("COMMAND never connected to the instrument");
    }
    // What is wrong comes last, where it is seen.
    std::cerr << observers_.Summary() << std::flush;
    for (const std::string& problem : problems_) {
      std::cerr << "orvane-sim: " << problem << std::endl;
    }
    const int status =
        WIFEXITED(waitStatus_) ? WEXITSTATUS(waitStatus_) : kSignalStatus + WTERMSIG(waitStatus_);
    const int reported = ReportUnhit(options_, instrument_.UnhitFaults(), status, std::cerr);
    return problems_.empty() ? reported : kInstrumentFailed;
  }

 private:
  static int OnConsole(int /*descriptor*/, GIOCondition /*condition*/, void* self) {
    static_cast<Host*>(self)->BeforeEvent();
    return G_SOURCE_CONTINUE;
  }
  static int OnGuard(int /*descriptor*/, GIOCondition /*condition*/, void* self) {
    auto* const host = static_cast<Host*>(self);
    const std::optional<std::string> message = host->guard_.Receive();
    if (message) {
      std::istringstream(*message) >> host->waitStatus_ >> host->endSignal_;
      g_main_loop_quit(host->loop_.get());
    }
    return G_SOURCE_REMOVE;  // it says no more
  }

  /// A program that has written to an attribute goes on printing after it, and a new write asks a
  /// question first.
  void BeforeEvent() {
    if (clock_) {
      const ProgramClock::Passed passed = clock_->Take();
      instrument_.PassTime(Cause::kLook, passed.looks);
      instrument_.PassTime(Cause::kWait, passed.waits);
    }
    server_.TakeUnseenWrites();
    if (console_) {
      console_->Drain();
    }
  }

  void AfterEvent(bool programSleeps) {
    if (clock_) {
      clock_->Show(instrument_.Now());
    }
    if (pace_ && !programSleeps) {
      pace_->WaitFor(instrument_.Now(), RealPace::kLead);
    }
  }

  void Fail(const std::string& why) {
    if (!hasFailed_) {
      hasFailed_ = true;
      problems_.insert(problems_.begin(), why);
      KillCommand();
    }
  }

  void KillCommand() const {
    if (!process_tree::Kill(guardProcess_, ::getpid())) {
      std::cerr << "orvane-sim: a process of COMMAND cannot be killed" << std::endl;
    }
  }

  /// The questions of processes that are dead would become events after their end.
  void KillSession(pid_t process) {
    if (!process_tree::KillSession(guardProcess_, ::getpid(), ::getsid(process))) {
      std::cerr << "orvane-sim: a process of COMMAND cannot be killed" << std::endl;
    }
    server_.RemoveEnded();
  }

  void FillTestbed() {
    for (const I2cAdapter& adapter : instrument_.I2cAdapters()) {
      testbed_.AddAdapter(adapter);
    }
    if (options_.i2cClients) {
      for (const I2cClient& client : PlanI2cClients(instrument_.I2cAdapters())) {
        testbed_.AddClient(client);
      }
    }
    if (options_.bufsiz) {
      testbed_.AddFile(kBufsizPath, *options_.bufsiz + "\n");
    }
  }

  /// The variables that make a process part of the instrument. The processes that the command
  /// starts inherit them.
  std::vector<std::string> Settings() const {
    // A path without blanks and colons, because these separate paths in LD_PRELOAD.
    const std::string shim = directory_ + "/" + kShimName;
    std::filesystem::create_symlink(FindShim(), shim);

    const char* const preload = std::getenv("LD_PRELOAD");
    const std::string before =
        preload == nullptr || *preload == '\0' ? "" : preload + std::string(":");
    std::vector<std::string> settings = {
        "LD_PRELOAD=" + before + shim + ":" + kUmockdevPreload,
        std::string(link::kAddressVariable) + "=" + LinkAddress(directory_),
        "UMOCKDEV_DIR=" + testbed_.RealPath(""),
        "DBUS_SYSTEM_BUS_ADDRESS=" +
            (bus_ ? bus_->Address() : "unix:path=" + directory_ + "/no-bus")};
    if (options_.clockStep.count() > 0) {
      settings.push_back(std::string(link::kClockStepVariable) + "=" +
                         std::to_string(std::chrono::nanoseconds(options_.clockStep).count()));
    }
    if (clock_) {
      settings.push_back(std::string(link::kTimePageVariable) + "=" + TimePagePath(directory_));
    }
    return settings;
  }

  void LogEnd() {
    if (WIFEXITED(waitStatus_)) {
      log_.End("exit " + std::to_string(WEXITSTATUS(waitStatus_)));
    } else {
      const char* const name = ::sigabbrev_np(WTERMSIG(waitStatus_));
      log_.End(std::string("killed SIG") + (name == nullptr ? "?" : name));
    }
  }

  /// A file that cannot be saved does not keep the others from it.
  void SaveFiles() {
    for (const auto& module : instrument_.Modules()) {
      if (!module->Options().flashFile.empty()) {  // else nobody looks at the whole flash
        NoteProblem([&] { files_.SaveFlash(module->Options(), module->Flash().Contents()); });
      }
      if (!module->Options().loadedFile.empty()) {
        NoteProblem([&] {
          files_.SaveLoaded(module->Options(),
                            module->LoadedContents().value_or(std::vector<std::uint8_t>()));
        });
      }
    }
    NoteProblem(
        [&] { files_.SaveState(instrument_.DescribeModules() + instrument_.DescribeTime()); });
    std::ranges::move(files_.FinishStreams(), std::back_inserter(problems_));
  }

  template <typename Save>
  void NoteProblem(const Save& save) {
    try {
      save();
    } catch (const std::exception& error) {  // also when memory is short
      problems_.emplace_back(error.what());
    }
  }

  std::unique_ptr<GMainLoop, UnrefLoop> loop_{g_main_loop_new(nullptr, FALSE)};
  const pid_t guardProcess_;
  const RunHooks hooks_{.beforeEvent = [this] { BeforeEvent(); },
                        .afterEvent = [this](bool programSleeps) { AfterEvent(programSleeps); },
                        .fail = [this](const std::string& why) { Fail(why); },
                        .killAll = [this] { KillCommand(); },
                        .killSession = [this](pid_t process) { KillSession(process); }};
  const Options& options_;
  const std::string& directory_;
  ControlChannel guard_;
  RunFiles files_;
  EventLog log_;
  RunObservers observers_;
  ModuleSelectorFiles selector_;
  Instrument instrument_;
  std::optional<ProgramClock> clock_;  // none: that of the machine
  std::optional<RealPace> pace_;       // none: a run may be as fast as it is
  Testbed testbed_;
  ShimServer server_;
  std::optional<PrivateBus> bus_;
  std::optional<PlatformServices> services_;
  std::optional<Console> console_;
  std::optional<RunControl> control_;
  int waitStatus_ = 0;  // of the command
  int endSignal_ = 0;   // that the guard was sent; 0: none
  bool hasFailed_ = false;
  std::vector<std::string> problems_;  // why the status is not that of the command
};

}  // namespace

int RunHost(const Options& options,
            const RunDirectory& directory,
            ConsoleSockets* console,
            HostEnds ends) {
  g_log_set_writer_func(WriteMessage, nullptr, nullptr);
  g_set_printerr_handler(PrintAssertion);
  EndWithGuard(std::move(ends.lifeline), directory.Path());
  const RunDirectory::Contents contents(directory);
  return Host(options, directory.Path(), console, std::move(ends.control), ends.guard).Run();
}

}  // namespace orvane
