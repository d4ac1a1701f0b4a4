#include "tests/doubles/Require.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

void Require(bool condition, const char* rule) {
  if (!condition) {
    // Not to stderr, which may be captured.
    static_cast<void>(::dprintf(STDERR_FILENO, "Does not hold: %s\n", rule));
    std::abort();
  }
}
