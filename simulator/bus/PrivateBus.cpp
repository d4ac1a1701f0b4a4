#include "simulator/bus/PrivateBus.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace orvane {

namespace {

constexpr int kReadyDescriptor = 3;  // in the daemon
constexpr int kExecFailed = 127;

void WriteConfiguration(const std::string& path, const std::string& socketPath) {
  std::ofstream file(path);
  file << R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path=)"
       << socketPath << R"(</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
  </policy>
</busconfig>
)";
  if (!file.flush()) {
    throw std::runtime_error("cannot write " + path);
  }
}

/// Only calls that are allowed between fork and exec of a process with threads.
[[noreturn]] void RunDaemon(char* const* words, int ready, int null, pid_t parent) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != parent) {
    ::_exit(kExecFailed);
  }
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    ::dup2(null, descriptor);
  }
  ::close_range(STDERR_FILENO + 1, UINT_MAX, CLOSE_RANGE_CLOEXEC);
  if (ready == kReadyDescriptor) {
    ::fcntl(ready, F_SETFD, 0);
  } else {
    ::dup2(ready, kReadyDescriptor);
  }
  ::setpgid(0, 0);  // a Control-C at the terminal is for the command
  ::execvp(words[0], words);
  ::_exit(kExecFailed);
}

}  // namespace

PrivateBus::PrivateBus(const std::string& directory) {
  const std::string configuration = directory + "/bus.conf";
  const std::string socketPath = directory + "/bus";
  WriteConfiguration(configuration, socketPath);

  std::array<int, 2> ready{};
  const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  if (null < 0 || ::pipe2(ready.data(), O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot start dbus-daemon");
  }
  std::string words[] = {"dbus-daemon",
                         "--config-file=" + configuration,
                         "--nofork",
                         "--nopidfile",
                         "--print-address=" + std::to_string(kReadyDescriptor)};
  char* arguments[] = {
      words[0].data(), words[1].data(), words[2].data(), words[3].data(), words[4].data(), nullptr};
  const pid_t parent = ::getpid();
  daemon_ = ::fork();
  if (daemon_ == 0) {
    RunDaemon(arguments, ready[1], null, parent);
  }
  ::close(ready[1]);
  ::close(null);
  // One line when the bus is ready; the end of the pipe when it cannot start.
  char byte = '\0';
  const bool isReady = daemon_ > 0 && ::read(ready[0], &byte, sizeof byte) == 1;
  ::close(ready[0]);
  if (!isReady) {
    throw std::runtime_error("cannot start dbus-daemon");
  }
  address_ = "unix:path=" + socketPath;
}

PrivateBus::~PrivateBus() {
  ::kill(daemon_, SIGKILL);  // it holds nothing that has to be saved
  ::waitpid(daemon_, nullptr, 0);
}

}  // namespace orvane
