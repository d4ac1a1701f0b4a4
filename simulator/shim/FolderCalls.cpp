// mkdir, rename, unlink, pwrite, fsync, flock and their variants: events on ordinary files, if they are to be.

#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "simulator/shim/FileCall.h"
#include "simulator/shim/Interpose.h"

namespace {

using orvane::shim::FileCall;

constexpr int kNoDescriptor = -1;

}  // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the system's names are reserved
extern "C" {

#pragma GCC visibility push(default)

int mkdir(const char* path, mode_t mode) noexcept {
  return FileCall("mkdir", kNoDescriptor, path, [&] { return NEXT(mkdir)(path, mode); });
}

int mkdirat(int directory, const char* path, mode_t mode) noexcept {
  return FileCall(
      "mkdirat", kNoDescriptor, path, [&] { return NEXT(mkdirat)(directory, path, mode); });
}

int rmdir(const char* path) noexcept {
  return FileCall("rmdir", kNoDescriptor, path, [&] { return NEXT(rmdir)(path); });
}

int unlink(const char* path) noexcept {
  return FileCall("unlink", kNoDescriptor, path, [&] { return NEXT(unlink)(path); });
}

int unlinkat(int directory, const char* path, int flags) noexcept {
  return FileCall(
      "unlinkat", kNoDescriptor, path, [&] { return NEXT(unlinkat)(directory, path, flags); });
}

int rename(const char* from, const char* to) noexcept {
  return FileCall("rename", kNoDescriptor, to, [&] { return NEXT(rename)(from, to); });
}

int renameat(int fromDirectory, const char* from, int toDirectory, const char* to) noexcept {
  return FileCall("renameat", kNoDescriptor, to, [&] {
    return NEXT(renameat)(fromDirectory, from, toDirectory, to);
  });
}

int renameat2(
    int fromDirectory, const char* from, int toDirectory, const char* to, unsigned flags) noexcept {
  return FileCall("renameat2", kNoDescriptor, to, [&] {
    return NEXT(renameat2)(fromDirectory, from, toDirectory, to, flags);
  });
}

int linkat(
    int fromDirectory, const char* from, int toDirectory, const char* to, int flags) noexcept {
  return FileCall("linkat", kNoDescriptor, to, [&] {
    return NEXT(linkat)(fromDirectory, from, toDirectory, to, flags);
  });
}

ssize_t pwrite(int descriptor, const void* buffer, size_t count, off_t offset) {
  return FileCall("pwrite", descriptor, nullptr, [&] {
    return NEXT(pwrite)(descriptor, buffer, count, offset);
  });
}

ssize_t pwrite64(int descriptor, const void* buffer, size_t count, off64_t offset) {
  return FileCall("pwrite", descriptor, nullptr, [&] {
    return NEXT(pwrite64)(descriptor, buffer, count, offset);
  });
}

int fsync(int descriptor) {
  return FileCall("fsync", descriptor, nullptr, [&] { return NEXT(fsync)(descriptor); });
}

int fdatasync(int descriptor) {
  return FileCall("fdatasync", descriptor, nullptr, [&] { return NEXT(fdatasync)(descriptor); });
}

int flock(int descriptor, int operation) noexcept {
  return FileCall("flock", descriptor, nullptr, [&] { return NEXT(flock)(descriptor, operation); });
}

#pragma GCC visibility pop

}  // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
