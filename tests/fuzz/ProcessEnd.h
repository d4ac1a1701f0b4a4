#pragma once

// Included ahead of each source of the programmers: their std::exit() throws ProcessEnd instead. A
// link seam cannot do that, because nothing may leave the C library's own function.

#include <cstdlib>

/// The process has ended with an exit status.
struct ProcessEnd {
  int status;
};

namespace std {
[[noreturn]] inline void ThrowProcessEnd(int status) { throw ProcessEnd{status}; }
}  // namespace std

#define exit ThrowProcessEnd
