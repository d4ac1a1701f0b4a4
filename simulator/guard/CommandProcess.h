#pragma once

#include <sys/types.h>

#include <array>
#include <string>
#include <system_error>
#include <vector>

#include "simulator/guard/StartSignals.h"
#include "simulator/guard/Terminal.h"

namespace orvane {

/// A command that cannot be executed; the code is the errno.
class CommandError : public std::system_error {
 public:
  CommandError(int error, const std::string& command)
      : std::system_error(error, std::generic_category(), command) {}
};

/// The command, in a process group of its own, which is in the foreground of the terminal when ours
/// has been there. It cannot gain privileges: a program that is executed with others than its
/// caller's loses what is preloaded into it, so that it would not run on the instrument.
class CommandProcess {
 public:
  static constexpr int kClosed = -1;

  struct Start {
    std::vector<std::string> words;        // the command and its arguments; searched for in PATH
    std::vector<std::string> environment;  // "NAME=VALUE", complete
    std::array<int, 3> standard{};         // what becomes its descriptors 0, 1 and 2; or kClosed
    std::vector<int> kept;                 // other descriptors that it inherits
  };

  /// @param start  the descriptors are borrowed
  /// @throw CommandError; std::system_error when no process can be created
  CommandProcess(const Start& start, const StartSignals& signals, const Terminal& terminal);

  /// Also the number of its process group.
  pid_t Id() const { return id_; }
  /// Sends a signal to the whole group.
  void Signal(int signal) const;

 private:
  pid_t id_ = -1;
};

}  // namespace orvane
