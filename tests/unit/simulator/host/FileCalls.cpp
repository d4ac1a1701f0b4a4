#include "tests/unit/simulator/host/FileCalls.h"

#include <fcntl.h>
#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstddef>

namespace orvane {

namespace {

FileCalls* current = nullptr;

bool Fails(const char* name) { return current != nullptr && current->Fails(name); }

}  // namespace

FileCalls::FileCalls() { current = this; }
FileCalls::~FileCalls() { current = nullptr; }

bool FileCalls::Fails(const std::string& name) {
  if (before) {
    before(name);
  }
  names.push_back(name);
  const int number = static_cast<int>(names.size());
  if (number == killAt) {
    static_cast<void>(::raise(SIGKILL));
  }
  errno = failure;
  return number == failAt || name == failingName;
}

}  // namespace orvane

using orvane::current;
using orvane::Fails;

extern "C" {
int RealOpenAt(int folder, const char* path, int flags, ...) __asm__("__real_openat");
int WrapOpenAt(int folder, const char* path, int flags, ...) __asm__("__wrap_openat");
ssize_t RealWrite(int fd, const void* bytes, std::size_t length) __asm__("__real_write");
ssize_t WrapWrite(int fd, const void* bytes, std::size_t length) __asm__("__wrap_write");
int RealLinkAt(int from, const char* path, int to, const char* name, int flags) __asm__(
    "__real_linkat");
int WrapLinkAt(int from, const char* path, int to, const char* name, int flags) __asm__(
    "__wrap_linkat");
int RealRenameAt(int from, const char* path, int to, const char* name) __asm__("__real_renameat");
int WrapRenameAt(int from, const char* path, int to, const char* name) __asm__("__wrap_renameat");
int RealSync(int fd) __asm__("__real_fsync");
int WrapSync(int fd) __asm__("__wrap_fsync");
int RealOwner(int fd, uid_t user, gid_t group) __asm__("__real_fchown");
int WrapOwner(int fd, uid_t user, gid_t group) __asm__("__wrap_fchown");
int RealMode(int fd, mode_t mode) __asm__("__real_fchmod");
int WrapMode(int fd, mode_t mode) __asm__("__wrap_fchmod");
int RealUnlinkAt(int folder, const char* path, int flags) __asm__("__real_unlinkat");
int WrapUnlinkAt(int folder, const char* path, int flags) __asm__("__wrap_unlinkat");
int RealLock(int fd, int operation) __asm__("__real_flock");
int WrapLock(int fd, int operation) __asm__("__wrap_flock");

int WrapOpenAt(int folder, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  const bool isUnnamed = (flags & O_TMPFILE) == O_TMPFILE;
  if (Fails(isUnnamed ? "tmpfile" : "openat")) {
    return -1;
  }
  if (current != nullptr && isUnnamed && current->unnamedFailure != 0) {
    errno = current->unnamedFailure;
    return -1;
  }
  return RealOpenAt(folder, path, flags, mode);
}

ssize_t WrapWrite(int fd, const void* bytes, std::size_t length) {
  if (Fails("write")) {
    return -1;
  }
  if (current != nullptr && current->interruptedWrites > 0) {
    --current->interruptedWrites;
    errno = EINTR;
    return -1;
  }
  const bool isShort = current != nullptr && current->mostWritten != 0;
  return RealWrite(fd, bytes, isShort ? std::min(length, current->mostWritten) : length);
}

int WrapLinkAt(int from, const char* path, int to, const char* name, int flags) {
  return Fails("linkat") ? -1 : RealLinkAt(from, path, to, name, flags);
}

int WrapRenameAt(int from, const char* path, int to, const char* name) {
  return Fails("renameat") ? -1 : RealRenameAt(from, path, to, name);
}

int WrapSync(int fd) { return Fails("fsync") ? -1 : RealSync(fd); }

int WrapOwner(int fd, uid_t user, gid_t group) {
  return Fails("fchown") ? -1 : RealOwner(fd, user, group);
}

int WrapMode(int fd, mode_t mode) { return Fails("fchmod") ? -1 : RealMode(fd, mode); }

int WrapUnlinkAt(int folder, const char* path, int flags) {
  return Fails("unlinkat") ? -1 : RealUnlinkAt(folder, path, flags);
}

int WrapLock(int fd, int operation) { return Fails("flock") ? -1 : RealLock(fd, operation); }
}  // extern "C"
