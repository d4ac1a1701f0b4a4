#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

namespace orvane {

/// What the parts that serve programs ask of the run as a whole. All may be called from callbacks of
/// C libraries: none throws.
struct RunHooks {
  /// To be called before each event. Lets the writes that came without a call become events, then
  /// logs what the command has printed so far.
  std::function<void()> beforeEvent;
  /// To be called after each event, before the program is answered. Lets the program's clock show what
  /// time it is, and waits for real time when it is far behind.
  /// @param programSleeps  the program itself will wait, as long as the event takes
  std::function<void(bool programSleeps)> afterEvent;
  /// Ends the run: every process of the command is killed, `why` is shown in a line on standard
  /// error, and the exit status is 125. Only the first call counts.
  std::function<void(const std::string& why)> fail;
  /// Kills every process of the command; none makes another call when this returns.
  std::function<void()> killAll;
  /// Kills every process of the command that is in the session of this one, which is one of them;
  /// nothing that one of them has asked before is answered.
  std::function<void(pid_t process)> killSession;
};

}  // namespace orvane
