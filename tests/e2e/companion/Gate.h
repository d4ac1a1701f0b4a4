#pragma once

#include <string>

#include "tests/e2e/companion/Bench.h"

/// Holds the `tarnwick` of an update just before it begins, so that something else can happen then.
/// Everything waits a limited time: a test whose update never comes so far fails and ends.
namespace companion_test {

/// The first `tarnwick` that an update starts arrives at the gate, and waits there until it is open.
/// @param atGate  commands of the script that becomes `tarnwick`, once the gate is open
void PutGate(Bench& bench, const std::string& atGate = "");

/// Commands of that script that never end.
std::string WaitForEver();

/// Makes the pipes of the gate; the first command of a script.
std::string MakeGate();
/// Waits until an update has arrived.
std::string AwaitArrival();
/// Lets it go on.
std::string OpenGate();

/// Joins commands. Each begins when the one before it has ended.
template <typename... Commands>
std::string Script(const Commands&... commands) {
  std::string script;
  ((script += std::string(commands) + "\n"), ...);
  return script;
}

/// A command that goes on in the background, with its own files for standard output and error:
/// NAME.out and NAME.err. Its process is `$NAME`.
std::string InBackground(const std::string& name, const std::string& command);
/// Waits for it and prints its exit code.
std::string ExitCodeOf(const std::string& name);

}  // namespace companion_test
