#include <fcntl.h>

#include <cstdarg>

#include "tests/doubles/Kernel.h"

extern "C" {
int RealOpen(const char* path, int flags, ...) __asm__("__real_open");
int WrapOpen(const char* path, int flags, ...) __asm__("__wrap_open");

int WrapOpen(const char* path, int flags, ...) {
  mode_t mode = 0;
  if ((flags & O_CREAT) != 0) {
    va_list arguments;
    va_start(arguments, flags);
    mode = va_arg(arguments, mode_t);
    va_end(arguments);
  }
  Kernel* const kernel = Kernel::Current();
  return kernel == nullptr ? RealOpen(path, flags, mode) : kernel->Open(path, flags, mode);
}
}
