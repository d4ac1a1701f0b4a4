#include "tests/doubles/Kernel.h"

extern "C" {
int RealNanosleep(const timespec* duration, timespec* left) __asm__("__real_nanosleep");
int WrapNanosleep(const timespec* duration, timespec* left) __asm__("__wrap_nanosleep");

int WrapNanosleep(const timespec* duration, timespec* left) {
  Kernel* const kernel = Kernel::Current();
  return kernel == nullptr ? RealNanosleep(duration, left) : kernel->Nanosleep(duration, left);
}
}
