#include <cstddef>

#include "tests/doubles/Kernel.h"

extern "C" {
ssize_t RealWrite(int fd, const void* buffer, std::size_t length) __asm__("__real_write");
ssize_t WrapWrite(int fd, const void* buffer, std::size_t length) __asm__("__wrap_write");

ssize_t WrapWrite(int fd, const void* buffer, std::size_t length) {
  Kernel* const kernel = Kernel::Current();
  return kernel == nullptr ? RealWrite(fd, buffer, length) : kernel->Write(fd, buffer, length);
}
}
