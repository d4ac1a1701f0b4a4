#pragma once

#include <sys/types.h>

#include <array>
#include <string>
#include <system_error>
#include <vector>

namespace orvane {

/// A command that cannot be executed; the code is the errno.
class CommandError : public std::system_error {
 public:
  CommandError(int error, const std::string& command)
      : std::system_error(error, std::generic_category(), command) {}
};

/// The command, in a process group of its own, which is in the foreground of the terminal while it
/// runs. It is killed when this process ends.
class CommandProcess {
 public:
  static constexpr int kClosed = -1;

  /// @param words        the command and its arguments; searched for in PATH
  /// @param environment  "NAME=VALUE", complete
  /// @param standard     what becomes its descriptors 0, 1 and 2, borrowed; kClosed: closed
  /// @param kept         other descriptors that it inherits, borrowed
  /// @throw CommandError; std::system_error when no process can be created
  CommandProcess(const std::vector<std::string>& words,
                 const std::vector<std::string>& environment,
                 const std::array<int, 3>& standard,
                 const std::vector<int>& kept);
  CommandProcess(const CommandProcess&) = delete;
  CommandProcess& operator=(const CommandProcess&) = delete;
  /// Kills what is left of the group and takes the terminal back. The caller has waited for the
  /// command itself already.
  ~CommandProcess();

  pid_t Id() const { return id_; }
  /// Sends a signal to the whole group.
  void Signal(int signal) const;

 private:
  pid_t id_ = -1;
  bool hasTerminal_ = false;
};

}  // namespace orvane
