// The functions with which the linker's --wrap replaces the system calls.
#include <fcntl.h>
#include <sys/types.h>
#include <time.h>

#include <cstdarg>
#include <cstddef>

#include "tests/doubles/Kernel.h"

// The linker's names. With 32 bits, those of calls with a file offset are macros: tarnwick_wrap().
#define LINK_NAME(name) LINK_NAME_TEXT(name)
#define LINK_NAME_TEXT(name) #name

namespace {

/// @return the kernel that handles calls on this descriptor; null for the operating system
Kernel* OwnerOf(int fd) {
  Kernel* const kernel = Kernel::Current();
  return kernel != nullptr && kernel->Owns(fd) ? kernel : nullptr;
}

}  // namespace

extern "C" {
int RealOpen(const char* path, int flags, ...) __asm__(LINK_NAME(__real_open));
int WrapOpen(const char* path, int flags, ...) __asm__(LINK_NAME(__wrap_open));
int RealClose(int fd) __asm__(LINK_NAME(__real_close));
int WrapClose(int fd) __asm__(LINK_NAME(__wrap_close));
ssize_t RealRead(int fd, void* buffer, std::size_t length) __asm__(LINK_NAME(__real_read));
ssize_t WrapRead(int fd, void* buffer, std::size_t length) __asm__(LINK_NAME(__wrap_read));
ssize_t RealWrite(int fd, const void* buffer, std::size_t length) __asm__(LINK_NAME(__real_write));
ssize_t WrapWrite(int fd, const void* buffer, std::size_t length) __asm__(LINK_NAME(__wrap_write));
off_t RealSeek(int fd, off_t offset, int whence) __asm__(LINK_NAME(__real_lseek));
off_t WrapSeek(int fd, off_t offset, int whence) __asm__(LINK_NAME(__wrap_lseek));
int RealIoctl(int fd, unsigned long request, ...) __asm__(LINK_NAME(__real_ioctl));
int WrapIoctl(int fd, unsigned long request, ...) __asm__(LINK_NAME(__wrap_ioctl));
int RealUsleep(useconds_t microseconds) __asm__(LINK_NAME(__real_usleep));
int WrapUsleep(useconds_t microseconds) __asm__(LINK_NAME(__wrap_usleep));
unsigned RealSleep(unsigned seconds) __asm__(LINK_NAME(__real_sleep));
unsigned WrapSleep(unsigned seconds) __asm__(LINK_NAME(__wrap_sleep));
int RealNanosleep(const timespec* duration, timespec* left) __asm__(LINK_NAME(__real_nanosleep));
int WrapNanosleep(const timespec* duration, timespec* left) __asm__(LINK_NAME(__wrap_nanosleep));

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

int WrapClose(int fd) {
  Kernel* const kernel = OwnerOf(fd);
  return kernel == nullptr ? RealClose(fd) : kernel->Close(fd);
}

ssize_t WrapRead(int fd, void* buffer, std::size_t length) {
  Kernel* const kernel = OwnerOf(fd);
  return kernel == nullptr ? RealRead(fd, buffer, length) : kernel->Read(fd, buffer, length);
}

ssize_t WrapWrite(int fd, const void* buffer, std::size_t length) {
  Kernel* const kernel = OwnerOf(fd);
  return kernel == nullptr ? RealWrite(fd, buffer, length) : kernel->Write(fd, buffer, length);
}

off_t WrapSeek(int fd, off_t offset, int whence) {
  Kernel* const kernel = OwnerOf(fd);
  return kernel == nullptr ? RealSeek(fd, offset, whence) : kernel->Seek(fd, offset, whence);
}

int WrapIoctl(int fd, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  Kernel* const kernel = OwnerOf(fd);
  return kernel == nullptr ? RealIoctl(fd, request, argument)
                           : kernel->Ioctl(fd, request, argument);
}

int WrapUsleep(useconds_t microseconds) {
  Kernel* const kernel = Kernel::Current();
  return kernel == nullptr ? RealUsleep(microseconds) : kernel->Usleep(microseconds);
}

unsigned WrapSleep(unsigned seconds) {
  Kernel* const kernel = Kernel::Current();
  return kernel == nullptr ? RealSleep(seconds) : kernel->Sleep(seconds);
}

int WrapNanosleep(const timespec* duration, timespec* left) {
  Kernel* const kernel = Kernel::Current();
  return kernel == nullptr ? RealNanosleep(duration, left) : kernel->Nanosleep(duration, left);
}
}
