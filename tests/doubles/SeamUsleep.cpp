#include "tests/doubles/Kernel.h"

extern "C" {
int RealUsleep(useconds_t microseconds) __asm__("__real_usleep");
int WrapUsleep(useconds_t microseconds) __asm__("__wrap_usleep");

int WrapUsleep(useconds_t microseconds) {
  Kernel* const kernel = Kernel::Current();
  return kernel == nullptr ? RealUsleep(microseconds) : kernel->Usleep(microseconds);
}
}
