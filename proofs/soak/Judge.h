#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "proofs/soak/Plan.h"
#include "proofs/soak/Trial.h"
#include "proofs/soak/Update.h"

namespace soak {

/// An undisturbed run of an update, which others are compared with.
struct Reference {
  Observation seen;
  std::set<std::uint64_t> flashes;  ///< fingerprints of all that the flash holds during the update
};

Reference MakeReference(const Update& update, const Observation& seen);

/// How a run ended, as a shell shows it: 128 + the signal.
int ExitCode(const Observation& seen);

/// The rules that a run broke, one line each.
/// @param reference  of the same update
std::vector<std::string> ViolationsOf(const Plan& plan,
                                      const Update& update,
                                      const Reference& reference,
                                      const Observation& seen);

}  // namespace soak
