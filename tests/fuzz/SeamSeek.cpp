#include <sys/types.h>

#include "tests/fuzz/MemoryFiles.h"

extern "C" {
off_t RealSeek(int fd, off_t offset, int whence) __asm__("__real_lseek");
off_t WrapSeek(int fd, off_t offset, int whence) __asm__("__wrap_lseek");

off_t WrapSeek(int fd, off_t offset, int whence) {
  MemoryFiles* const files = MemoryFiles::Current();
  return files == nullptr ? RealSeek(fd, offset, whence) : files->Seek(fd, offset, whence);
}
}
