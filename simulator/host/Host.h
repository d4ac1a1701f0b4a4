#pragma once

#include "simulator/guard/Guard.h"
#include "simulator/guard/RunDirectory.h"
#include "simulator/host/ConsoleSockets.h"
#include "simulator/host/Options.h"

namespace orvane {

/// Builds the instrument that the options describe, lets the command run on it, and saves what it
/// leaves. The command is the guard's: it starts when the instrument is ready.
/// @param directory  of the run; created here
/// @param console    what the command prints; null: it is not logged
/// @param ends       to the guard, which is this process's parent
/// @return the exit status: the command's, or 128 + the number of the signal that ended it; 125
///         after a report of fault rules that never hit or keys without effect
/// @throw UsageError      for files that cannot be used as the options say
/// @throw std::exception  when the instrument cannot be built, the run has been ended by it, or the
///                        flash, log or state is not saved
int RunHost(const Options& options,
            const RunDirectory& directory,
            ConsoleSockets* console,
            HostEnds ends);

}  // namespace orvane
