#pragma once

#include <sys/resource.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace soak {

enum class Disturbance {
  kNone,
  kKill,            ///< SIGKILL
  kEnd,             ///< SIGTERM, SIGINT or SIGHUP
  kStop,            ///< SIGSTOP, and SIGCONT after a pause
  kDescriptors,     ///< few descriptors
  kMemory,          ///< little memory
  kFileSize,        ///< no large files
  kSmallTemporary,  ///< few blocks or inodes for temporary files
  kSmallFlash,      ///< the same where the flash file is
};

/// What a signal is sent to. A process that is not there gets none.
enum class Target {
  kUpper,    ///< the process of orvane-sim that was started
  kLower,    ///< the other one
  kBoth,     ///< first the lower one
  kCommand,  ///< the process of the program
  kGroup,    ///< its process group
};

/// A run, the same for the same seed and index. Which moment of the run a signal hits depends on the
/// machine too.
struct Plan {
  std::uint64_t seed = 0;
  std::uint64_t index = 0;
  std::size_t update = 0;  ///< which of the updates
  Disturbance disturbance = Disturbance::kNone;
  Target target = Target::kUpper;
  int signal = 0;
  double moment = 0;               ///< of the signal, in durations of the undisturbed run
  unsigned pauseMilliseconds = 0;  ///< between SIGSTOP and SIGCONT
  rlim_t limit = RLIM_INFINITY;
  std::uint64_t spareBytes = 0;  ///< of a small file system, beside what it has to hold
  unsigned spareInodes = 0;      ///< likewise
};

/// @param updates  how many there are
Plan PlanOf(std::uint64_t seed, std::uint64_t index, std::size_t updates);

/// One in so many runs is undisturbed.
inline constexpr std::uint64_t kUndisturbedEvery = 11;

/// The class of a disturbance, for the report: "SIGKILL, lower process".
std::string ClassOf(const Plan& plan);

}  // namespace soak
