#pragma once

#include <sys/uio.h>

#include "simulator/shim/LinkProtocol.h"

namespace orvane::shim {

/// The program's end of the link. Connects when the library is loaded, and in a forked child when
/// it asks for the first time. Its descriptor has a high number, so that the program gets the same
/// numbers as without it.
///
/// No function here changes errno, calls a function that may be interposed, or allocates memory.

/// Whether this process has a host. False also during Ask(), so that calls from a signal handler
/// bypass the link then.
bool IsLinked();

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
