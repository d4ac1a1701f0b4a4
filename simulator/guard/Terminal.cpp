#include "simulator/guard/Terminal.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>

namespace orvane {

Terminal::Terminal(bool isStandardInput)
    : exists_(isStandardInput && ::isatty(STDIN_FILENO) == 1 && ::tcgetpgrp(STDIN_FILENO) > 0) {}

bool Terminal::IsOurs() const { return exists_ && ::tcgetpgrp(STDIN_FILENO) == ::getpgrp(); }

void Terminal::Set(pid_t group) const { ::tcsetpgrp(STDIN_FILENO, group); }

void Terminal::TakeBack(pid_t group) const {
  if (!exists_) {
    return;
  }
  const pid_t foreground = ::tcgetpgrp(STDIN_FILENO);
  const bool isEmpty = foreground > 0 && ::kill(-foreground, 0) != 0 && errno == ESRCH;
  if (foreground == group || isEmpty) {
    Set(::getpgrp());
  }
}

}  // namespace orvane
