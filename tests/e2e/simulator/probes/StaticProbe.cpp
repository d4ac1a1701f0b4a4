// A statically linked program: it would run outside the instrument.

#include <unistd.h>

int main() {
  static_cast<void>(!::write(STDOUT_FILENO, "outside\n", 8));
  return 0;
}
