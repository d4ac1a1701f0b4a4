#include "tests/doubles/Kernel.h"

extern "C" {
unsigned RealSleep(unsigned seconds) __asm__("__real_sleep");
unsigned WrapSleep(unsigned seconds) __asm__("__wrap_sleep");

unsigned WrapSleep(unsigned seconds) {
  Kernel* const kernel = Kernel::Current();
  return kernel == nullptr ? RealSleep(seconds) : kernel->Sleep(seconds);
}
}
