#include <cstddef>

#include "tests/doubles/Kernel.h"

extern "C" {
ssize_t RealRead(int fd, void* buffer, std::size_t length) __asm__("__real_read");
ssize_t WrapRead(int fd, void* buffer, std::size_t length) __asm__("__wrap_read");

ssize_t WrapRead(int fd, void* buffer, std::size_t length) {
  Kernel* const kernel = Kernel::Current();
  return kernel == nullptr ? RealRead(fd, buffer, length) : kernel->Read(fd, buffer, length);
}
}
