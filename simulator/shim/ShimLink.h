#pragma once

#include <sys/uio.h>

#include "simulator/shim/LinkProtocol.h"

namespace orvane::shim {

/// The program's end of the link. Connects when the library is loaded, and in a forked child when
/// it asks for the first time. Its descriptor has a high number, so that the program gets the same
/// numbers as without it.
///
/// No function here changes errno, calls a function that may be interposed, or allocates memory.

/// Ends this process, with status 125 and a line on standard error.
[[noreturn]] void Die(const char* why);

/// Whether this process has a host.
bool IsOnInstrument();

/// Whether this process has a host that can be asked. Not so during Ask(): calls from a signal
/// handler bypass the link then.
bool IsLinked();

/// False in a child of vfork: what it changes in memory is changed in its parent too.
bool OwnsItsMemory();

/// Whether a descriptor is the link's. The program does not know of it.
bool IsLinkDescriptor(int descriptor);

/// Moves the link to another descriptor, if it has this one, which the program is about to take.
void LeaveDescriptor(int descriptor);

/// What is sent, and where the answer's payload is stored. The first element of each array is left
/// for the header. The arrays are changed by Ask().
struct Buffers {
  iovec* send = nullptr;
  int sendCount = 0;
  iovec* receive = nullptr;
  int receiveCount = 0;
};

/// Sends one question and waits for its answer. When the host has ended, the process ends with
/// status 125 and a line on standard error, because only the host knows the results of its calls.
/// @param question  payloadBytes is filled in here
/// @return 0, or EFAULT for a buffer that is not in the memory of this process
int Ask(link::Question question, Buffers buffers, link::Answer& answer);

}  // namespace orvane::shim
