#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "proofs/soak/Plan.h"
#include "proofs/soak/Update.h"

namespace soak {

/// What a run of orvane-sim left behind.
struct Observation {
  int waitStatus = 0;               ///< of the process that was started
  std::optional<std::string> hang;  ///< the processes that made no progress
  bool isHit = false;               ///< the signal found its target
  bool wasAlone = false;            ///< the upper process had no lower one when the signal came
  double seconds = 0;
  std::string out;
  std::string err;
  std::string log;
  std::optional<std::string> state;  ///< nothing: there is no such file
  std::optional<Bytes> flash;        ///< likewise
  std::vector<std::string> files;    ///< those that it left beside the flash and in its TMPDIR
  std::string processes;             ///< those that it left, "" for none
};

/// A place for one run after another.
class Trial {
 public:
  /// @param folder       a short path, of a folder that does not exist; it is removed at the end
  /// @param mayMount     whether small file systems can be mounted
  Trial(std::filesystem::path folder, bool mayMount);
  Trial(const Trial&) = delete;
  Trial& operator=(const Trial&) = delete;
  ~Trial();

  /// Makes the run of a plan, ends what it leaves, and empties the place.
  /// @param seconds  how long an undisturbed run takes
  /// @throw std::system_error, std::runtime_error when the run cannot be made
  Observation Make(const Plan& plan, const Update& update, double seconds) const;

 private:
  class Mount;

  std::filesystem::path folder_;
  bool mayMount_;
};

/// Ends the runs that are being made; they are not to be judged. May be called by a signal handler.
void Interrupt();
bool IsInterrupted();

/// Puts this process into a mount namespace of its own, before it starts a thread.
/// @return whether it may mount file systems there
bool EnterMountNamespace();

}  // namespace soak
