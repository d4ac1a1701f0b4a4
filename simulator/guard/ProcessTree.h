#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

/// The processes of this machine, as /proc lists them. Those that have ended and are not waited for
/// yet do not count.
namespace orvane::process_tree {

/// Whether /proc lists processes.
bool IsReadable();

/// Whether this process has a child that it has not waited for.
/// @param except  does not count; 0: none
bool HasChildrenBut(pid_t except);

/// The processes below `root`: its children, theirs, and so on.
/// @param except  is left out, with everything below it; 0: none
std::vector<pid_t> Below(pid_t root, pid_t except);

/// Sends a signal to all of them once.
void Signal(pid_t root, pid_t except, int signal);

/// Kills all of them, also those that are created meanwhile.
/// @return false when some are left after several seconds
bool Kill(pid_t root, pid_t except);

/// Kills those of them that are in this session, also those that are created meanwhile.
/// @param session  as getsid() returns it; -1, for a process that does not exist: none
/// @return as Kill()
bool KillSession(pid_t root, pid_t except, pid_t session);

/// Whether there is no such process any more, or only its exit status is left.
bool HasEnded(pid_t process);

/// Kills every process but this one that was started with `variable`, NAME=VALUE, in its
/// environment, wherever it is in the tree.
/// @return as Kill()
bool KillWith(const std::string& variable);

}  // namespace orvane::process_tree
