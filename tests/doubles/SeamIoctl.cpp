#include <cstdarg>

#include "tests/doubles/Kernel.h"

extern "C" {
int RealIoctl(int fd, unsigned long request, ...) __asm__("__real_ioctl");
int WrapIoctl(int fd, unsigned long request, ...) __asm__("__wrap_ioctl");

int WrapIoctl(int fd, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  Kernel* const kernel = Kernel::Current();
  return kernel == nullptr ? RealIoctl(fd, request, argument)
                           : kernel->Ioctl(fd, request, argument);
}
}
