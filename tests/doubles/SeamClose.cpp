#include "tests/doubles/Kernel.h"

extern "C" {
int RealClose(int fd) __asm__("__real_close");
int WrapClose(int fd) __asm__("__wrap_close");

int WrapClose(int fd) {
  Kernel* const kernel = Kernel::Current();
  return kernel == nullptr ? RealClose(fd) : kernel->Close(fd);
}
}
