#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace companion {

/// How one run of `tarnwick` ended.
struct ProgramRun {
  std::string problem;          ///< why it could not be started, one line; empty: it was
  std::optional<int> exitCode;  ///< nothing when a signal ended it
  int signal = 0;               ///< 0: none
  bool timedOut = false;        ///< the signal was that of its time limit
  bool killed = false;          ///< by Kill()
  std::string out;              ///< its console
  std::string err;
  std::chrono::milliseconds took{0};
};

/// The unmodified `tarnwick`.
class ProgramInterface {
 public:
  virtual ~ProgramInterface() = default;

  /// Starts it for its help, and checks that it is `tarnwick`. Nothing is touched.
  /// @return why it cannot be used, one line; empty when it can
  virtual std::string Check() = 0;

  /// Updates a module in the work folder. Passes on what it prints as it comes.
  /// @param image  name of the image in the work folder
  virtual ProgramRun Update(const std::string& target,
                            unsigned module,
                            const std::string& image) = 0;

  /// Ends a running update at once (SIGKILL). May be called in a signal callback.
  virtual void Kill() = 0;
};

}  // namespace companion
