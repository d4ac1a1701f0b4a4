#pragma once

#include <cstddef>

namespace orvane::shim {

/// The variables that make a process part of the instrument, as this process found them. Programs
/// that it starts get them too, whatever environment they are given.
///
/// Nothing here allocates memory, except RepairEnvironment().

/// Remembers the variables. To be called before the program can change them; again without effect.
void RememberEnvironment();

/// The address of the host's socket; null in a process that is not on the instrument.
const char* LinkAddress();
/// The text of the variable for the clock's step; null when there is none.
const char* ClockStepText();
/// The path of the program's clock; null when it is that of the machine.
const char* TimePagePath();

/// Whether programs that this process starts can load the instrument's libraries. They cannot after a
/// change of the user or the root directory.
bool LibrariesCanBeLoaded();

/// How much memory MergeEnvironment needs.
struct MergeSize {
  std::size_t variables;  // elements of the array
  std::size_t bytes;      // of text
};
MergeSize SizeOfMerge(char* const* given);

/// Copies an environment and puts back what makes a process part of the instrument.
/// @param given   may be null
/// @param merged  the result; borrows the texts of `given` and `text`
void MergeEnvironment(char* const* given, char** merged, char* text);

/// Puts the variables back into the environment of this process. Not to be called between vfork and
/// exec.
void RepairEnvironment();

}  // namespace orvane::shim
