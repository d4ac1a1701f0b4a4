#pragma once

#include <sys/uio.h>

#include "simulator/shim/LinkProtocol.h"

namespace orvane::shim {

/// The program's end of the link. Connects when first used, and again in a forked child. Its
/// descriptor has a high number, so that the program gets the same numbers as without it.
///
/// Every function here leaves errno alone unless it says otherwise, and calls nothing that may be
/// interposed. Nothing here allocates.

/// Whether this process has a host. False also inside of Ask, so that calls made from a signal
/// handler meanwhile bypass the link.
bool IsLinked();

/// What is sent and where the answer's payload goes. The arrays are used up.
struct Buffers {
  iovec* send = nullptr;
  int sendCount = 0;
  iovec* receive = nullptr;
  int receiveCount = 0;
};

/// Sends one question and waits for its answer. When the host is gone, the process ends with
/// status 125 and a line on standard error: nobody can say what the calls of a program lead to.
/// @param question  payloadBytes is filled in here
/// @return 0, or the errno for a buffer that is none of this process's memory
int Ask(link::Question question, Buffers buffers, link::Answer& answer);

}  // namespace orvane::shim
