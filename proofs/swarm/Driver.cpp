#include "proofs/swarm/Driver.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "proofs/swarm/Images.h"
#include "proofs/swarm/Observation.h"
#include "tests/doubles/ChildProcess.h"

namespace swarm {

namespace {

namespace fs = std::filesystem;

constexpr const char* kStateFolder = "state";
constexpr const char* kProgramSeconds =
    "30";  // the longest run of the program that an update waits
constexpr int kLongestUpdateSeconds = 120;
constexpr int kLongestBareRunSeconds = 15;  // some faults keep the program running
constexpr int kPollMilliseconds = 1;
constexpr std::size_t kPartBytes = 64U << 10;
constexpr std::size_t kLookedAtBytes = 132U << 10;  // no step changes what is behind it

[[noreturn]] void Fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

/// The machine's clock: the one of the C library is the instrument's.
long Seconds() {
  timespec now{};
  ::syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now);
  return now.tv_sec;
}

// --- The start ----------------------------------------------------------------------------------

void WriteControlFile(const std::string& path, const std::string& value) {
  const int file = ::open(path.c_str(), O_WRONLY);
  static_cast<void>(!::write(file, value.data(), value.size()));
  ::close(file);
}

/// Sets outputs and directions of the expander.
void DriveLines(const World& world, std::uint16_t outputs, std::uint16_t driven) {
  const unsigned slot = SlotOf(world);
  const std::string node = world.type == "dax" ? "/dev/i2c-11" : "/dev/i2c-" + std::to_string(slot);
  const int bus = ::open(node.c_str(), O_RDWR);
  const auto address =
      static_cast<std::uint16_t>((world.type == "dax" ? 0x21 : 0x20) + (slot == 5 ? 1 : 0));
  const auto inputs = static_cast<std::uint16_t>(~driven);
  constexpr std::uint8_t kOutputs = 2;
  constexpr std::uint8_t kDirections = 6;
  for (const auto& [reg, value] : {std::pair{kOutputs, outputs}, {kDirections, inputs}}) {
    std::array<std::uint8_t, 3> bytes = {
        reg, static_cast<std::uint8_t>(value & 0xFFU), static_cast<std::uint8_t>(value >> 8U)};
    i2c_msg message = {.addr = address, .flags = 0, .len = bytes.size(), .buf = bytes.data()};
    i2c_rdwr_ioctl_data data = {.msgs = &message, .nmsgs = 1};
    ::ioctl(bus, I2C_RDWR, &data);
  }
  ::close(bus);
}

void MakeStart(const World& world, const std::string& start) {
  const std::string slot = std::to_string(SlotOf(world));
  const bool isPyx2 = world.type == "pyx2";
  if (start == "endpoint") {
    WriteControlFile("/sys/bus/pci/devices/0000:0" + slot + ":00.0/remove", "1");
  } else if (start == "selector") {
    WriteControlFile(std::string("/sys/platform/module_selector/slot") + (slot == "4" ? "A" : "B"),
                     "SPIFIFO");
  } else if (start == "reset" && world.type == "wend") {
    WriteControlFile("/sys/platform_m1/zynq_hw_reset_n/value", "0");
  } else if (start == "reset") {
    DriveLines(world, 0, isPyx2 ? 0x0200 : 0x0080);
  } else if (start == "driven") {
    DriveLines(world, isPyx2 ? 0x0204 : 0x2C9D, isPyx2 ? 0x0204 : 0xEC9F);
  } else {
    throw std::invalid_argument("not a start: '" + start + "'");
  }
}

// --- The instrument -----------------------------------------------------------------------------

/// The driver's end of --control.
class Control {
 public:
  explicit Control(int descriptor) : descriptor_(descriptor) {}

  int Descriptor() const { return descriptor_; }

  /// @return the answer; "held" before it is left out
  std::string Ask(const std::string& question) const {
    if (::send(descriptor_, question.data(), question.size(), MSG_NOSIGNAL) < 0) {
      Fail("control");
    }
    std::string answer = Receive();
    if (question == "go" && answer == "held") {
      answer = Receive();
    }
    return answer;
  }

  std::string Receive() const {
    std::string answer(2 * kPartBytes, '\0');
    const ssize_t bytes = ::recv(descriptor_, answer.data(), answer.size(), 0);
    if (bytes < 0) {
      Fail("control");
    }
    answer.resize(static_cast<std::size_t>(bytes));
    return answer;
  }

  /// @param what  "flash" or "loaded"
  Bytes Contents(const std::string& what, unsigned slot, std::size_t count) const {
    Bytes bytes;
    while (bytes.size() < count) {
      const std::string part =
          Ask(what + " " + std::to_string(slot) + " " + std::to_string(bytes.size()) + " " +
              std::to_string(std::min(kPartBytes, count - bytes.size())));
      if (part.empty()) {
        break;
      }
      bytes.insert(bytes.end(), part.begin(), part.end());
    }
    return bytes;
  }

 private:
  int descriptor_;
};

// --- Processes ----------------------------------------------------------------------------------

/// Reads with system calls, which are no events.
std::string ReadProcFile(const std::string& path) {
  std::string text(4096, '\0');
  const int file =
      static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path.c_str(), O_RDONLY | O_CLOEXEC));
  if (file < 0) {
    return "";
  }
  const long bytes = ::syscall(SYS_read, file, text.data(), text.size());
  ::syscall(SYS_close, file);
  text.resize(static_cast<std::size_t>(std::max(0L, bytes)));
  return text;
}

std::vector<pid_t> ChildrenOf(pid_t process) {
  std::istringstream text(ReadProcFile("/proc/" + std::to_string(process) + "/task/" +
                                       std::to_string(process) + "/children"));
  std::vector<pid_t> children;
  for (pid_t child = 0; text >> child;) {
    children.push_back(child);
  }
  return children;
}

/// The first processes of steps that are under way; their ends are asked for later.
std::set<pid_t>& FirstProcesses() {
  static std::set<pid_t> processes;
  return processes;
}

/// The processes of a session that have not ended, below this process.
std::vector<pid_t> ProcessesOf(pid_t session) {
  std::vector<pid_t> found;
  std::vector<pid_t> parents = {::getpid()};
  while (!parents.empty()) {
    const pid_t parent = parents.back();
    parents.pop_back();
    for (const pid_t child : ChildrenOf(parent)) {
      parents.push_back(child);
      if (parent == ::getpid() && FirstProcesses().count(child) == 0) {
        ::waitpid(child, nullptr, WNOHANG);  // an orphan that has ended
      }
      if (::getsid(child) != session) {
        continue;
      }
      const std::string status = ReadProcFile("/proc/" + std::to_string(child) + "/stat");
      const std::size_t end = status.rfind(") ");
      if (end != std::string::npos && status.compare(end + 2, 1, "Z") != 0) {
        found.push_back(child);
      }
    }
  }
  return found;
}

/// The first process of a step, in a session of its own.
class StepProcess {
 public:
  StepProcess(std::vector<std::string> words, int console) {
    const std::vector<char*> arguments = ArgumentPointers(words);
    id_ = ::fork();
    if (id_ < 0) {
      Fail("fork");
    }
    if (id_ == 0) {
      ::setsid();
      ::dup2(console, STDOUT_FILENO);
      ::dup2(console, STDERR_FILENO);
      ::execv(arguments[0], arguments.data());
      ::_exit(127);
    }
    FirstProcesses().insert(id_);
    descriptor_ = static_cast<int>(::syscall(SYS_pidfd_open, id_, 0));
    if (descriptor_ < 0) {
      Fail("pidfd_open");
    }
  }
  StepProcess(const StepProcess&) = delete;
  StepProcess& operator=(const StepProcess&) = delete;
  ~StepProcess() { ::syscall(SYS_close, descriptor_); }

  pid_t Id() const { return id_; }
  int Descriptor() const { return descriptor_; }

  /// Waits for the end.
  int Status() const {
    int status = 0;
    ::waitpid(id_, &status, 0);
    FirstProcesses().erase(id_);
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
  }

 private:
  pid_t id_ = -1;
  int descriptor_ = -1;
};

// --- Steps --------------------------------------------------------------------------------------

class Driver {
 public:
  explicit Driver(const Drive& drive)
      : drive_(drive), slot_(SlotOf(drive.world)), control_(drive.control) {
    for (const char letter : {'a', 'b'}) {
      images_[letter] = ImageInFlash(drive.world, letter);
    }
  }

  void MakeAll() {
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    control_.Ask("faults off");
    if (drive_.firstStep == 0) {
      for (const std::string& start : drive_.world.starts) {
        MakeStartInChild(start);
      }
    }
    control_.Ask("faults on");
    const std::vector<Step>& steps = drive_.world.steps;
    for (std::size_t i = drive_.firstStep; i < steps.size(); ++i) {
      Make(steps[i], std::to_string(i));
    }
    if (drive_.endsHere) {
      control_.Ask("faults off");
      Make({.what = LastUpdate(drive_.world), .holds = {}}, "final");
    }
  }

 private:
  /// The instrument asks nothing of a process that makes no event, so it needs one of its own.
  void MakeStartInChild(const std::string& start) const {
    const pid_t child = ::fork();
    if (child == 0) {
      MakeStart(drive_.world, start);
      ::_exit(0);
    }
    ::waitpid(child, nullptr, 0);
  }

  std::vector<std::string> WordsOf(const Step& step) const {
    const std::string slot = std::to_string(slot_);
    const bool isA = std::islower(step.what) != 0;
    const std::string image = isA ? "image.a" : "image.b";
    const std::string& type = drive_.world.type;
    switch (std::tolower(step.what)) {
      case 't':
        return {drive_.program, type, "-sf", slot, image};
      case 'v':
        return {drive_.companion, "verify", type, slot, image, "--state", kStateFolder};
      default:
        break;
    }
    std::vector<std::string> words = {drive_.companion,
                                      "update",
                                      type,
                                      slot,
                                      image,
                                      "--state",
                                      kStateFolder,
                                      "--program",
                                      drive_.program,
                                      "--timeout",
                                      kProgramSeconds};
    if (std::tolower(step.what) == 'r') {
      words.emplace_back("--restart");
    }
    return words;
  }

  void Make(const Step& step, const std::string& name) {  // NOLINT(misc-no-recursion)
    Observation seen{
        .step = name, .what = step.what, .before = FilesOfState(), .files = "", .state = ""};
    const Bytes before = control_.Contents("flash", slot_, kLookedAtBytes);
    const long longest =
        std::tolower(step.what) == 't' ? kLongestBareRunSeconds : kLongestUpdateSeconds;
    const long deadline = Seconds() + longest;
    if (!step.holds.empty()) {  // before there is a process that could make the call
      control_.Ask("hold " + std::to_string(step.holds.front().call));
    }
    const StepProcess process(WordsOf(step), drive_.console);
    MakeHolds(step, name, process, deadline, seen);
    if (!HasEndedBy(process.Descriptor(), deadline)) {
      seen.hangs = true;
      KillSession(process.Id());
    }
    seen.code = process.Status();
    std::vector<pid_t> left = ProcessesOf(process.Id());
    seen.left = static_cast<unsigned>(left.size());
    for (; !left.empty(); left = ProcessesOf(process.Id())) {
      if (Seconds() > deadline) {
        seen.hangs = true;
        KillSession(process.Id());
      }
      ::poll(nullptr, 0, kPollMilliseconds);
    }
    LookAtModule(step, before, seen);
    const std::string line = Print(seen) + "\n";
    if (::write(drive_.observations, line.data(), line.size()) < 0) {
      Fail("observations");
    }
  }

  static bool HasEndedBy(int process, long deadline) {
    pollfd waited = {.fd = process, .events = POLLIN, .revents = 0};
    while (::poll(&waited, 1, 1000) == 0) {
      if (Seconds() > deadline) {
        return false;
      }
    }
    return true;
  }

  void MakeHolds(const Step& step,  // NOLINT(misc-no-recursion)
                 const std::string& name,
                 const StepProcess& process,
                 long deadline,
                 Observation& seen) {
    std::size_t inner = 0;
    for (std::size_t i = 0; i < step.holds.size(); ++i) {
      const Hold& hold = step.holds[i];
      if (!WaitForHeld(process.Descriptor(), deadline)) {
        control_.Ask("go");
        return;
      }
      if (hold.action != '[') {
        Disturb(hold.action, process, seen);
      }
      for (const Step& inside : hold.inside) {
        Make({.what = inside.what, .holds = {}}, name + "." + std::to_string(inner++));
      }
      const bool isLast = i + 1 == step.holds.size();
      control_.Ask(isLast ? "go" : "go " + std::to_string(step.holds[i + 1].call));
    }
  }

  bool WaitForHeld(int process, long deadline) const {
    std::array<pollfd, 2> waited = {
        {{.fd = process, .events = POLLIN, .revents = 0},
         {.fd = control_.Descriptor(), .events = POLLIN, .revents = 0}}};
    while (::poll(waited.data(), waited.size(), 1000) == 0) {
      if (Seconds() > deadline) {
        return false;
      }
    }
    return waited[1].revents != 0 && control_.Receive() == "held";
  }

  static void Disturb(char action, const StepProcess& process, Observation& seen) {
    static const std::map<char, int> kSignals = {{'i', SIGINT}, {'t', SIGTERM}, {'h', SIGHUP}};
    const auto signal = kSignals.find(action);
    if (signal != kSignals.end()) {
      ::kill(process.Id(), signal->second);
      return;
    }
    seen.isCut = true;
    if (action == 's') {
      KillSession(process.Id());
    }
    ::kill(process.Id(), SIGKILL);
    // The others know that it has ended before they go on.
    pollfd ended = {.fd = process.Descriptor(), .events = POLLIN, .revents = 0};
    ::poll(&ended, 1, -1);
  }

  static void KillSession(pid_t session) {
    for (std::vector<pid_t> all = ProcessesOf(session); !all.empty(); all = ProcessesOf(session)) {
      for (const pid_t process : all) {
        ::kill(process, SIGKILL);
      }
      ::poll(nullptr, 0, kPollMilliseconds);
    }
  }

  void LookAtModule(const Step& step, const Bytes& before, Observation& seen) {
    const char letter = std::islower(step.what) != 0 ? 'a' : 'b';
    const Bytes& image = images_.at(letter);
    const Bytes after = control_.Contents("flash", slot_, kLookedAtBytes);
    seen.isSame = before == after;
    seen.isHolding = std::equal(image.begin(), image.end(), after.begin());
    const std::string state = control_.Ask("state");
    seen.state = state.substr(state.find(' ') + 1);
    seen.state.resize(std::min(seen.state.find('\n'), seen.state.size()));
    const std::string loaded = ValueIn(seen.state, "loaded");
    seen.isLoaded =
        (loaded == "current" && seen.isHolding) ||
        (loaded == "other" && control_.Contents("loaded", slot_, image.size()) == image);
    seen.files = FilesOfState();
  }

  static std::string FilesOfState() {
    std::error_code ignored;
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(kStateFolder, ignored)) {
      names.insert(entry.path().filename());
    }
    std::string files;
    for (const std::string& file : names) {
      files += (files.empty() ? "" : ",") + file;
    }
    return files;
  }

  const Drive& drive_;
  unsigned slot_;
  Control control_;
  std::map<char, Bytes> images_;
};

}  // namespace

void MakeSteps(const Drive& drive) { Driver(drive).MakeAll(); }

}  // namespace swarm
