#include "tests/fuzz/Require.h"

#include <cstdio>
#include <cstdlib>

void Require(bool condition, const char* rule) {
  if (!condition) {
    static_cast<void>(std::fprintf(stderr, "Does not hold: %s\n", rule));
    std::abort();
  }
}
