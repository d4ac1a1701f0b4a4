#include "tests/support/PrivateBus.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <utility>

#include "devices/FileDescriptor.h"

namespace {

constexpr pid_t kNone = -1;

/// Between fork and exec, where little is allowed.
[[noreturn]] void BecomeDaemon(const char* listen, const char* printAddress, int addressPipe) {
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  ::fcntl(addressPipe, F_SETFD, 0);  // the daemon inherits this one
  ::execlp("dbus-daemon", "dbus-daemon", "--session", "--nofork", listen, printAddress, nullptr);
  constexpr int kNotFound = 127;
  ::_exit(kNotFound);
}

/// @return what comes before the newline or the end
std::string ReadLine(int fd) {
  std::string line;
  for (char c = 0; ::read(fd, &c, 1) == 1 && c != '\n';) {
    line += c;
  }
  return line;
}

}  // namespace

PrivateBus::PrivateBus() : daemon_(kNone) {
  int ends[2] = {FileDescriptor::kClosed, FileDescriptor::kClosed};
  EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const FileDescriptor readEnd(ends[0]);
  FileDescriptor writeEnd(ends[1]);
  static int count = 0;  // an abstract socket leaves no file behind
  const std::string listen = "--address=unix:abstract=tarnwick-test-" + std::to_string(::getpid()) +
                             "-" + std::to_string(++count);
  const std::string printAddress = "--print-address=" + std::to_string(writeEnd.get());

  daemon_ = ::fork();
  if (daemon_ == 0) {
    BecomeDaemon(listen.c_str(), printAddress.c_str(), writeEnd.get());
  }
  EXPECT_EQ(writeEnd.Close(), 0);
  address_ = ReadLine(readEnd.get());
  EXPECT_NE(address_, "") << "dbus-daemon did not start";
  systemBus_ = std::make_unique<EnvironmentVariable>("DBUS_SYSTEM_BUS_ADDRESS", address_);
}

PrivateBus::~PrivateBus() { Stop(); }

void PrivateBus::Stop() {
  if (const pid_t daemon = std::exchange(daemon_, kNone); daemon > 0) {
    EXPECT_EQ(::kill(daemon, SIGTERM), 0);
    EXPECT_EQ(::waitpid(daemon, nullptr, 0), daemon);
  }
}
