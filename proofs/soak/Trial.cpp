#include "proofs/soak/Trial.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "base/FileDescriptor.h"
#include "tests/doubles/ChildProcess.h"
#include "tests/e2e/simulator/Processes.h"

namespace soak {

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using orvane::Process;

constexpr auto kPoll = std::chrono::milliseconds(2);
constexpr auto kLook = std::chrono::milliseconds(250);    // between two looks at the progress
constexpr auto kLongestPause = std::chrono::seconds(10);  // without progress
constexpr auto kLongestRun = std::chrono::seconds(120);   // with progress
constexpr int kExecFailed = 127;

volatile sig_atomic_t interrupted = 0;

template <typename Container>
std::optional<Container> Slurp(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    return std::nullopt;
  }
  Container contents;
  std::array<char, 1U << 16> piece{};
  do {
    file.read(piece.data(), piece.size());
    contents.insert(contents.end(), piece.data(), piece.data() + file.gcount());
  } while (file);
  return contents;
}

void Write(const fs::path& path, const Bytes& contents) {
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(contents.data()),
             static_cast<std::streamsize>(contents.size()));
  if (!file.flush()) {
    throw std::runtime_error("cannot write " + path.string());
  }
}

std::uintmax_t SizeOf(const fs::path& path) {
  std::error_code error;
  const std::uintmax_t size = fs::file_size(path, error);
  return error ? 0 : size;
}

void Limit(decltype(RLIMIT_AS) resource, rlim_t value) {
  const rlimit limit = {.rlim_cur = value, .rlim_max = value};
  ::setrlimit(resource, &limit);
}

void LimitAsPlanned(const Plan& plan) {
  Limit(RLIMIT_CORE, 0);
  switch (plan.disturbance) {
    case Disturbance::kDescriptors:
      return Limit(RLIMIT_NOFILE, plan.limit);
    case Disturbance::kMemory:
      return Limit(RLIMIT_AS, plan.limit);
    case Disturbance::kFileSize:
      return Limit(RLIMIT_FSIZE, plan.limit);
    default:
      return;
  }
}

/// The files of a run.
struct Place {
  fs::path folder;

  [[nodiscard]] fs::path Temporary() const { return folder / "t"; }
  [[nodiscard]] fs::path Working() const { return folder / "w"; }
  [[nodiscard]] fs::path Flash() const { return folder / "f"; }
  [[nodiscard]] fs::path Output() const { return folder / "o"; }
  [[nodiscard]] fs::path File(const char* name) const { return Output() / name; }

  /// The processes of the run: this is in their environment, and with it the folder.
  [[nodiscard]] std::vector<Process> Processes() const {
    return orvane::ProcessesWith("TMPDIR=" + Temporary().string());
  }
};

std::vector<std::string> EnvironmentIn(const Place& place) {
  std::vector<std::string> environment = {"TMPDIR=" + place.Temporary().string()};
  for (char** variable = environ; *variable != nullptr; ++variable) {
    const std::string text = *variable;
    if (!text.starts_with("TMPDIR=") && !text.starts_with("SPI_CLOCK_SPEED=")) {
      environment.push_back(text);
    }
  }
  return environment;
}

std::vector<std::string> WordsOf(const Update& update, const Place& place) {
  const std::string slot = std::to_string(update.slot);
  return {ORVANE_SIM,
          "--fast",
          "--log",
          place.File("log"),
          "--state",
          place.File("state"),
          "--module",
          update.target + "@" + slot + ",chip=" + update.chip +
              ",flash=" + (place.Flash() / "flash.bin").string(),
          "--",
          TARNWICK,
          update.target,
          "-sf",
          slot,
          "image.bin"};
}

/// A process of orvane-sim in a group of its own.
class Run {
 public:
  Run(std::vector<std::string> words, const Place& place, const Plan& plan) {
    std::vector<std::string> environment = EnvironmentIn(place);
    const std::vector<char*> wordPointers = ArgumentPointers(words);
    const std::vector<char*> environmentPointers = ArgumentPointers(environment);
    const std::string directory = place.Working();
    const std::array<std::string, 3> files = {"/dev/null", place.File("out"), place.File("err")};
    id_ = ::fork();
    if (id_ < 0) {
      throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (id_ == 0) {
      Start(wordPointers, environmentPointers, directory, files, plan);
    }
    ::setpgid(id_, id_);
  }
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;
  ~Run() {
    if (!HasEnded()) {
      ::kill(id_, SIGKILL);
      ::waitpid(id_, nullptr, 0);
    }
  }

  [[nodiscard]] pid_t Id() const { return id_; }
  [[nodiscard]] int Status() const { return status_; }

  bool HasEnded() {
    if (!hasEnded_) {
      hasEnded_ = ::waitpid(id_, &status_, WNOHANG) == id_;
    }
    return hasEnded_;
  }

  /// @return whether it ends before a moment
  bool EndsBefore(Clock::time_point moment) {
    while (!HasEnded()) {
      if (Clock::now() >= moment || interrupted != 0) {
        return false;
      }
      std::this_thread::sleep_for(kPoll);
    }
    return true;
  }

 private:
  /// Only calls that are allowed between fork and exec of a process with threads.
  [[noreturn]] static void Start(const std::vector<char*>& words,
                                 const std::vector<char*>& environment,
                                 const std::string& directory,
                                 const std::array<std::string, 3>& files,
                                 const Plan& plan) {
    ::setpgid(0, 0);
    for (int descriptor = 0; descriptor < 3; ++descriptor) {
      const int flags = descriptor == STDIN_FILENO ? O_RDONLY : O_WRONLY | O_CREAT | O_TRUNC;
      const int file =
          ::open(files.at(static_cast<std::size_t>(descriptor)).c_str(), flags | O_CLOEXEC, 0600);
      ::dup2(file, descriptor);
    }
    if (::chdir(directory.c_str()) == 0) {
      LimitAsPlanned(plan);
      ::execve(words[0], words.data(), environment.data());
    }
    ::_exit(kExecFailed);
  }

  pid_t id_ = -1;
  int status_ = 0;
  bool hasEnded_ = false;
};

/// The processor time of processes, in ticks.
std::uint64_t ProcessorTime(const std::vector<Process>& processes) {
  std::uint64_t sum = 0;
  for (const Process& process : processes) {
    const auto text = Slurp<std::string>("/proc/" + std::to_string(process.id) + "/stat");
    const std::size_t end = text ? text->rfind(')') : std::string::npos;
    if (end == std::string::npos) {
      continue;
    }
    std::istringstream fields(text->substr(end + 1));
    std::string skipped;
    constexpr int kBeforeTimes = 11;
    for (int i = 0; i < kBeforeTimes; ++i) {
      fields >> skipped;
    }
    std::uint64_t user = 0;
    std::uint64_t system = 0;
    fields >> user >> system;
    sum += user + system;
  }
  return sum;
}

/// What changes as long as a run makes progress: output, log, processor time, the processes.
std::string ProgressOf(const Place& place) {
  const std::vector<Process> processes = place.Processes();
  std::ostringstream text;
  text << ProcessorTime(processes) << ' ' << SizeOf(place.File("log")) << ' '
       << SizeOf(place.File("out")) << ' ' << SizeOf(place.File("err"));
  std::vector<pid_t> ids;
  ids.reserve(processes.size());
  for (const Process& process : processes) {
    ids.push_back(process.id);
  }
  std::sort(ids.begin(), ids.end());
  for (const pid_t id : ids) {
    text << ' ' << id;
  }
  return text.str();
}

/// @return the processes when the run hangs
std::optional<std::string> WaitForEnd(Run& run, const Place& place) {
  const auto start = Clock::now();
  auto last = start;
  std::string progress;
  while (!run.EndsBefore(Clock::now() + kLook)) {
    std::string now = ProgressOf(place);
    if (now != progress) {
      progress = std::move(now);
      last = Clock::now();
    }
    if (interrupted != 0 || Clock::now() - last > kLongestPause ||
        Clock::now() - start > kLongestRun) {
      return orvane::Describe(place.Processes());
    }
  }
  return std::nullopt;
}

/// The processes of a run that signals are sent to; 0: is not there.
struct Found {
  pid_t upper = 0;
  pid_t lower = 0;
  pid_t command = 0;
};

Found Find(const Run& run, const Place& place) {
  Found found{.upper = run.Id()};
  for (const Process& process : place.Processes()) {
    if (process.name == "orvane-sim" && process.parent == run.Id()) {
      found.lower = process.id;
    } else if (process.name == "tarnwick") {
      found.command = process.id;
    }
  }
  return found;
}

/// @return what kill() takes; a group as a negative number
std::vector<pid_t> Targets(Target target, const Found& found) {
  std::vector<pid_t> ids;
  switch (target) {
    case Target::kUpper:
      ids = {found.upper};
      break;
    case Target::kLower:
      ids = {found.lower};
      break;
    case Target::kBoth:
      ids = {found.lower, found.upper};
      break;
    case Target::kCommand:
      ids = {found.command};
      break;
    case Target::kGroup:
      ids = {found.command == 0 ? 0 : -::getpgid(found.command)};
      break;
  }
  // 1: the process has ended meanwhile, so it has no group
  const bool areThere =
      std::none_of(ids.begin(), ids.end(), [](pid_t id) { return id == 0 || id == 1; });
  return areThere ? ids : std::vector<pid_t>{};
}

/// @return whether every target was there
bool Send(int signal, const std::vector<pid_t>& targets) {
  bool found = !targets.empty();
  for (const pid_t target : targets) {
    found = ::kill(target, signal) == 0 && found;
  }
  return found;
}

bool HasSignal(const Plan& plan) { return plan.signal != 0; }

/// The moment of the signal. For the program it is counted from its start, for orvane-sim from
/// that of the run.
Clock::time_point MomentOf(const Plan& plan, Run& run, const Place& place, double seconds) {
  constexpr double kShareOfTheProgram = 0.12;
  double share = 1;
  if (plan.target >= Target::kCommand) {
    share = kShareOfTheProgram;
    while (Find(run, place).command == 0 && !run.EndsBefore(Clock::now() + kPoll) &&
           interrupted == 0) {
    }
  }
  const std::chrono::duration<double> delay(plan.moment * seconds * share);
  return Clock::now() + std::chrono::duration_cast<Clock::duration>(delay);
}

/// Notes what the signal found.
void Disturb(const Plan& plan, Run& run, const Place& place, double seconds, Observation& seen) {
  if (run.EndsBefore(MomentOf(plan, run, place, seconds))) {
    return;
  }
  const Found found = Find(run, place);
  const std::vector<pid_t> targets = Targets(plan.target, found);
  seen.wasAlone = found.lower == 0;
  seen.isHit = Send(plan.signal, targets);
  const std::chrono::milliseconds pause(plan.pauseMilliseconds);
  if (plan.signal == SIGSTOP && !run.EndsBefore(Clock::now() + pause)) {
    Send(SIGCONT, targets);
  }
}

/// Waits until the processes of a run have ended, which takes a moment after the instrument itself
/// was killed.
/// @return those that are left
std::string WaitForProcesses(const Place& place, bool takesAMoment) {
  const auto until = Clock::now() + (takesAMoment ? kLongestPause : std::chrono::seconds(0));
  for (;;) {
    const std::vector<Process> processes = place.Processes();
    if (processes.empty() || Clock::now() >= until || interrupted != 0) {
      return orvane::Describe(processes);
    }
    std::this_thread::sleep_for(kPoll);
  }
}

bool IsLocked(const fs::path& folder) {
  const FileDescriptor descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return descriptor.IsOpen() && ::flock(descriptor.Get(), LOCK_EX | LOCK_NB) != 0;
}

/// A process that is killed has its locks until its last thread has ended.
void WaitForLocks(const Place& place) {
  const auto until = Clock::now() + kLongestPause;
  for (const auto& folder : fs::directory_iterator(place.Temporary())) {
    while (IsLocked(folder.path()) && Clock::now() < until) {
      std::this_thread::sleep_for(kPoll);
    }
  }
}

void KillAll(const Place& place) {
  for (const Process& process : place.Processes()) {
    ::kill(process.id, SIGKILL);
  }
}

std::vector<std::string> FilesIn(const fs::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) {
    names.push_back(entry.path().filename());
  }
  return names;
}

/// What is left in the folders of a run, which only the folder for temporary files may hold for a
/// moment.
std::vector<std::string> FilesLeft(const Place& place, bool takesAMoment) {
  const auto until = Clock::now() + (takesAMoment ? kLongestPause : std::chrono::seconds(0));
  std::vector<std::string> names = FilesIn(place.Temporary());
  while (!names.empty() && Clock::now() < until && interrupted == 0) {
    std::this_thread::sleep_for(kPoll);
    names = FilesIn(place.Temporary());
  }
  for (const std::string& name : FilesIn(place.Flash())) {
    if (name != "flash.bin") {
      names.push_back("beside the flash: " + name);
    }
  }
  return names;
}

void RemoveLast(const fs::path& folder) {
  std::error_code ignored;  // what cannot be removed, is seen in the next run
  fs::remove_all(folder, ignored);
}

}  // namespace

/// A small file system on a folder, as long as it lives.
class Trial::Mount {
 public:
  Mount(fs::path folder, std::uint64_t bytes, unsigned inodes) : folder_(std::move(folder)) {
    const std::string options =
        "size=" + std::to_string(bytes) + ",nr_inodes=" + std::to_string(inodes);
    if (::mount("none", folder_.c_str(), "tmpfs", 0, options.c_str()) != 0) {
      throw std::system_error(errno, std::generic_category(), "mount " + folder_.string());
    }
  }
  Mount(const Mount&) = delete;
  Mount& operator=(const Mount&) = delete;
  ~Mount() { ::umount2(folder_.c_str(), MNT_DETACH); }

 private:
  fs::path folder_;
};

Trial::Trial(fs::path folder, bool mayMount) : folder_(std::move(folder)), mayMount_(mayMount) {}

Trial::~Trial() { RemoveLast(folder_); }

Observation Trial::Make(const Plan& plan, const Update& update, double seconds) const {
  const Place place{folder_};
  RemoveLast(folder_);
  for (const fs::path& folder :
       {place.Temporary(), place.Working(), place.Flash(), place.Output()}) {
    fs::create_directories(folder);
  }
  std::optional<Mount> mount;
  // The root of a file system takes one inode, the flash file another.
  if (plan.disturbance == Disturbance::kSmallTemporary && mayMount_) {
    mount.emplace(place.Temporary(), plan.spareBytes, plan.spareInodes + 1);
  } else if (plan.disturbance == Disturbance::kSmallFlash && mayMount_) {
    constexpr std::uint64_t kPage = 4096;
    const std::uint64_t pages = (update.flashFile.size() + kPage - 1) / kPage;
    mount.emplace(place.Flash(), pages * kPage + plan.spareBytes, plan.spareInodes + 2);
  }
  Write(place.Flash() / "flash.bin", update.flashFile);
  Write(place.Working() / "image.bin", update.image);

  Observation seen;
  const auto start = Clock::now();
  Run run(WordsOf(update, place), place, plan);
  if (HasSignal(plan)) {
    Disturb(plan, run, place, seconds, seen);
  }
  seen.hang = WaitForEnd(run, place);
  seen.seconds = std::chrono::duration<double>(Clock::now() - start).count();
  seen.waitStatus = run.Status();

  const bool isInstrumentKilled = plan.signal == SIGKILL && plan.target < Target::kCommand;
  seen.processes = seen.hang ? "" : WaitForProcesses(place, isInstrumentKilled);
  if (seen.hang || !seen.processes.empty()) {
    // Only then: the process that removes the folder cannot be seen while it executes, and may still
    // be at work.
    KillAll(place);
  }
  if (isInstrumentKilled && (plan.target == Target::kBoth || seen.wasAlone)) {
    // Nobody was there to remove the folder: the next start does it.
    WaitForLocks(place);
    Run next({ORVANE_SIM, "--", "/bin/true"}, place, {});
    if (WaitForEnd(next, place)) {
      seen.hang = "the next start";
    }
  }
  seen.files = FilesLeft(place, isInstrumentKilled);
  seen.out = Slurp<std::string>(place.File("out")).value_or("");
  seen.err = Slurp<std::string>(place.File("err")).value_or("");
  seen.log = Slurp<std::string>(place.File("log")).value_or("");
  seen.state = Slurp<std::string>(place.File("state"));
  seen.flash = Slurp<Bytes>(place.Flash() / "flash.bin");
  return seen;
}

void Interrupt() { interrupted = 1; }

bool IsInterrupted() { return interrupted != 0; }

bool EnterMountNamespace() {
  const uid_t user = ::getuid();
  const gid_t group = ::getgid();
  const bool isRoot = user == 0;
  if (::unshare(isRoot ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER) != 0) {
    return false;
  }
  if (!isRoot) {
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/uid_map") << "0 " << user << " 1";
    std::ofstream("/proc/self/gid_map") << "0 " << group << " 1";
  }
  return ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

}  // namespace soak
