#include "tests/e2e/simulator/Terminal.h"

#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <utmp.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "tests/doubles/ChildProcess.h"
#include "tests/e2e/simulator/Processes.h"

namespace orvane {

namespace {

constexpr int kLongestWaitMilliseconds = 10'000;
constexpr int kExecFailed = 127;

/// Reads and writes whole lines, and signals for Ctrl-C and Ctrl-Z, but no echo.
void SwitchEchoOff(int terminal) {
  termios settings{};
  ::tcgetattr(terminal, &settings);
  settings.c_lflag &= ~static_cast<tcflag_t>(ECHO);
  ::tcsetattr(terminal, TCSANOW, &settings);
}

}  // namespace

Terminal::Terminal(std::vector<std::string> words,
                   const std::string& directory,
                   std::vector<std::string> environment) {
  const std::vector<char*> wordPointers = ArgumentPointers(words);
  const std::vector<char*> environmentPointers = ArgumentPointers(environment);
  int screen = -1;
  if (::openpty(&keyboard_, &screen, nullptr, nullptr, nullptr) != 0) {
    throw std::system_error(errno, std::generic_category(), "openpty");
  }
  SwitchEchoOff(screen);
  id_ = ::fork();
  if (id_ < 0) {
    throw std::system_error(errno, std::generic_category(), "fork");
  }
  if (id_ == 0) {
    ::close(keyboard_);
    if (::login_tty(screen) == 0 && ::chdir(directory.c_str()) == 0) {
      ::execve(wordPointers[0], wordPointers.data(), environmentPointers.data());
    }
    ::_exit(kExecFailed);
  }
  ::close(screen);
}

Terminal::~Terminal() {
  for (const Process& process : AllProcesses()) {
    if (process.session == id_) {
      ::kill(process.id, SIGKILL);
    }
  }
  ::waitpid(id_, nullptr, 0);
  ::close(keyboard_);
}

void Terminal::Type(std::string_view keys) const {
  while (!keys.empty()) {
    const ssize_t written = ::write(keyboard_, keys.data(), keys.size());
    if (written < 0) {
      throw std::system_error(errno, std::generic_category(), "write to the terminal");
    }
    keys.remove_prefix(static_cast<std::size_t>(written));
  }
}

bool Terminal::Shows(std::string_view text) {
  for (;;) {
    const std::size_t at = seen_.find(text, read_);
    if (at != std::string::npos) {
      read_ = at + text.size();
      return true;
    }
    pollfd screen = {.fd = keyboard_, .events = POLLIN, .revents = 0};
    std::array<char, 4096> piece{};
    if (::poll(&screen, 1, kLongestWaitMilliseconds) <= 0) {
      return false;
    }
    const ssize_t count = ::read(keyboard_, piece.data(), piece.size());
    if (count <= 0) {
      return false;
    }
    seen_.append(piece.data(), static_cast<std::size_t>(count));
  }
}

}  // namespace orvane
