// open, fopen, close, fclose, dup, read, write, ftruncate and their variants, on device nodes too.

#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "simulator/shim/Interpose.h"
#include "simulator/shim/LinkProtocol.h"
#include "simulator/shim/ReportFilter.h"
#include "simulator/shim/ShimLink.h"

namespace {

using namespace orvane;
using link::Action;
using link::Answer;
using link::Kind;
using link::Op;
using shim::AskBare;
using shim::Decide;
using shim::Decision;
using shim::Descriptors;
using shim::DescriptorTable;
using shim::Fail;

constexpr int kMaxPathBytes = 4096;

// --- Opening and closing ------------------------------------------------------------------------

/// The host's answer to an open, and the path to go on with.
struct OpenAnswer {
  Answer answer{};
  char path[kMaxPathBytes] = {};
};

void AskOpen(const char* path, int flags, mode_t mode, OpenAnswer& out) {
  iovec send[2] = {{}, {const_cast<char*>(path), std::strlen(path)}};
  iovec receive[2] = {{}, {out.path, sizeof out.path - 1}};
  const int failed = shim::Ask({.op = Op::kOpen, .a = flags, .b = static_cast<std::int64_t>(mode)},
                               {send, 2, receive, 2},
                               out.answer);
  if (failed != 0) {
    out.answer.action = Action::kDone;
    out.answer.error = failed;
  }
}

void ReportOpened(const Answer& answer, int descriptor) {
  const int error = descriptor < 0 ? errno : 0;
  Descriptors().Set(descriptor, {answer.handle, answer.kind});
  Answer ignored{};
  AskBare({.op = Op::kOpened, .handle = answer.handle, .a = error}, ignored);
}

/// Attributes and device nodes can be neither created nor truncated.
int FlagsAt(const Answer& answer, int flags) {
  const int kept = answer.kind == Kind::kFile ? flags : flags & ~(O_CREAT | O_EXCL | O_TRUNC);
  return kept | static_cast<int>(answer.result);
}

int RawOpen(const char* path, int flags, mode_t mode) {
  return static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

template <typename RealOpen>
int Open(const char* path, int flags, mode_t mode, RealOpen realOpen) {
  if (path == nullptr || !shim::IsLinked() || !IsReported(path, flags)) {
    const int descriptor = realOpen();
    Descriptors().Set(descriptor, {});
    return descriptor;
  }
  OpenAnswer out;
  AskOpen(path, flags, mode, out);
  if (out.answer.action == Action::kDone) {
    return Fail(out.answer.error);
  }
  // The next library (umockdev) opens sockets of its own for every node under /dev. They would take
  // the descriptor numbers that the program gets without it.
  const int descriptor = out.answer.action == Action::kProceedAt
                             ? RawOpen(out.path, FlagsAt(out.answer, flags), mode)
                             : realOpen();
  ReportOpened(out.answer, descriptor);
  return descriptor;
}

bool TakesMode(int flags) { return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE; }

/// The flags that fopen's mode stands for.
int FlagsOfMode(const char* mode) {
  int flags = O_RDONLY;
  if (*mode == 'w') {
    flags = O_WRONLY | O_CREAT | O_TRUNC;
  } else if (*mode == 'a') {
    flags = O_WRONLY | O_CREAT | O_APPEND;
  }
  for (const char* letter = mode + 1; *letter != '\0' && *letter != ','; ++letter) {
    if (*letter == '+') {
      flags = (flags & ~O_ACCMODE) | O_RDWR;
    } else if (*letter == 'x') {
      flags |= O_EXCL;
    } else if (*letter == 'e') {
      flags |= O_CLOEXEC;
    }
  }
  return flags;
}

constexpr mode_t kStreamMode = 0666;

template <typename RealOpen>
FILE* OpenStream(const char* path, const char* mode, RealOpen realOpen) {
  if (path == nullptr || mode == nullptr || !shim::IsLinked() ||
      !IsReported(path, FlagsOfMode(mode))) {
    FILE* const stream = realOpen();
    if (stream != nullptr) {
      Descriptors().Set(::fileno(stream), {});
    }
    return stream;
  }
  const int flags = FlagsOfMode(mode);
  OpenAnswer out;
  AskOpen(path, flags, kStreamMode, out);
  if (out.answer.action == Action::kDone) {
    errno = out.answer.error;
    return nullptr;
  }
  FILE* stream = nullptr;
  if (out.answer.action == Action::kProceedAt) {
    const int descriptor = RawOpen(out.path, FlagsAt(out.answer, flags), kStreamMode);
    stream = descriptor < 0 ? nullptr : ::fdopen(descriptor, mode);
  } else {
    stream = realOpen();
  }
  ReportOpened(out.answer, stream == nullptr ? -1 : ::fileno(stream));
  return stream;
}

/// Asks the host about closing, when it has to know of it.
/// @return the errno that the close is to end with, or 0
int AskClose(int descriptor) {
  const DescriptorTable::Entry entry = Descriptors().Get(descriptor);
  Descriptors().Set(descriptor, {});
  if ((descriptor >= 0 && entry.handle == link::kNoHandle) || !shim::IsLinked()) {
    return 0;
  }
  Answer answer{};
  AskBare({.op = Op::kClose, .handle = entry.handle, .a = descriptor}, answer);
  return answer.action == Action::kDone ? answer.error : 0;
}

/// Whether a descriptor is of a file of the instrument.
bool IsControlFile(int descriptor) {
  const DescriptorTable::Entry entry = Descriptors().Get(descriptor);
  return entry.handle != link::kNoHandle && entry.kind != Kind::kFile;
}

/// A shell leads its own output to a control file and back, and writes to it by calls that are not
/// seen. What it prints before and after has to stay before and after.
void SyncBeforeCopy(int from, int to) {
  if ((IsControlFile(from) || IsControlFile(to)) && shim::IsLinked()) {
    Answer ignored{};
    AskBare({.op = Op::kSync}, ignored);
  }
}

void CopyEntry(int from, int to) {
  if (to >= 0) {
    Descriptors().Set(to, Descriptors().Get(from));
  }
}

// --- Reading and writing ------------------------------------------------------------------------

template <typename RealRead>
ssize_t Read(int descriptor, void* buffer, size_t count, RealRead realRead) {
  const DescriptorTable::Entry entry = Descriptors().Get(descriptor);
  if (entry.handle == link::kNoHandle || entry.kind == Kind::kFile || !shim::IsLinked()) {
    return realRead();
  }
  const long offset =
      entry.kind == Kind::kSysfs ? ::syscall(SYS_lseek, descriptor, 0, SEEK_CUR) : 0;
  iovec send[1] = {};
  iovec receive[2] = {{}, {buffer, count}};
  Answer answer{};
  const int failed = shim::Ask(
      {.op = Op::kRead, .handle = entry.handle, .a = static_cast<std::int64_t>(count), .b = offset},
      {send, 1, receive, 2},
      answer);
  const Decision decision = Decide(failed, answer);
  if (decision.proceed) {
    return realRead();
  }
  if (entry.kind == Kind::kSysfs && decision.result > 0) {
    const int savedErrno = errno;
    static_cast<void>(::syscall(SYS_lseek, descriptor, decision.result, SEEK_CUR));
    errno = savedErrno;
  }
  return decision.result;
}

template <typename RealWrite>
ssize_t Write(int descriptor, const iovec* pieces, int count, RealWrite realWrite) {
  const DescriptorTable::Entry entry = Descriptors().Get(descriptor);
  constexpr int kMaxPieces = 64;
  if (entry.handle == link::kNoHandle || count > kMaxPieces || !shim::IsLinked()) {
    return realWrite();
  }
  iovec send[1 + kMaxPieces] = {};
  std::int64_t bytes = 0;
  for (int i = 0; i < count; ++i) {
    send[1 + i] = pieces[i];
    bytes += static_cast<std::int64_t>(pieces[i].iov_len);
  }
  iovec receive[1] = {};
  Answer answer{};
  const int failed = shim::Ask({.op = Op::kWrite, .handle = entry.handle, .a = bytes},
                               {send, entry.kind == Kind::kFile ? 1 : 1 + count, receive, 1},
                               answer);
  const Decision decision = Decide(failed, answer);
  if (!decision.proceed) {
    return decision.result;
  }
  const ssize_t result = realWrite();
  const int savedErrno = errno;
  AskBare({.op = Op::kWritten, .handle = entry.handle, .a = result < 0 ? -savedErrno : result},
          answer);
  errno = savedErrno;
  return result;
}

/// Attributes ignore it, device nodes refuse it.
template <typename RealTruncate>
int Truncate(int descriptor, RealTruncate realTruncate) {
  if (!IsControlFile(descriptor)) {
    return realTruncate();
  }
  return Descriptors().Get(descriptor).kind == Kind::kSysfs ? 0 : Fail(EINVAL);
}

}  // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the system's names are reserved
// NOLINTBEGIN(bugprone-reserved-identifier): some functions have such names
extern "C" {

#pragma GCC visibility push(default)

int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): started in the line above
  const mode_t mode = TakesMode(flags) ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return Open(path, flags, mode, [&] { return NEXT(open)(path, flags, mode); });
}

int open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): started in the line above
  const mode_t mode = TakesMode(flags) ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return Open(path, flags, mode, [&] { return NEXT(open64)(path, flags, mode); });
}

// What open becomes in programs that are built with _FORTIFY_SOURCE.
int __open_2(const char* path, int flags);
int __open64_2(const char* path, int flags);
ssize_t __read_chk(int descriptor, void* buffer, size_t count, size_t bufferBytes);

int __open_2(const char* path, int flags) {
  return Open(path, flags, 0, [&] { return NEXT(__open_2)(path, flags); });
}

int __open64_2(const char* path, int flags) {
  return Open(path, flags, 0, [&] { return NEXT(__open64_2)(path, flags); });
}

FILE* fopen(const char* path, const char* mode) {
  return OpenStream(path, mode, [&] { return NEXT(fopen)(path, mode); });
}

FILE* fopen64(const char* path, const char* mode) {
  return OpenStream(path, mode, [&] { return NEXT(fopen64)(path, mode); });
}

int close(int descriptor) {
  const int error = AskClose(descriptor);
  const int result = NEXT(close)(descriptor);
  return error != 0 ? Fail(error) : result;
}

int fclose(FILE* stream) {
  if (stream != nullptr && IsControlFile(::fileno(stream))) {
    static_cast<void>(::fflush(stream));  // so that what it still holds is written before the close
  }
  const int error = stream == nullptr ? 0 : AskClose(::fileno(stream));
  const int result = NEXT(fclose)(stream);
  if (error != 0) {
    errno = error;
    return EOF;
  }
  return result;
}

int dup(int from) noexcept {
  const int to = NEXT(dup)(from);
  CopyEntry(from, to);
  return to;
}

int dup2(int from, int to) noexcept {
  SyncBeforeCopy(from, to);
  const int result = NEXT(dup2)(from, to);
  CopyEntry(from, result);
  return result;
}

int dup3(int from, int to, int flags) noexcept {
  SyncBeforeCopy(from, to);
  const int result = NEXT(dup3)(from, to, flags);
  CopyEntry(from, result);
  return result;
}

ssize_t read(int descriptor, void* buffer, size_t count) {
  return Read(descriptor, buffer, count, [&] { return NEXT(read)(descriptor, buffer, count); });
}

ssize_t __read_chk(int descriptor, void* buffer, size_t count, size_t bufferBytes) {
  return Read(descriptor, buffer, count < bufferBytes ? count : bufferBytes, [&] {
    return NEXT(__read_chk)(descriptor, buffer, count, bufferBytes);
  });
}

ssize_t write(int descriptor, const void* buffer, size_t count) {
  const iovec piece = {const_cast<void*>(buffer), count};
  return Write(descriptor, &piece, 1, [&] { return NEXT(write)(descriptor, buffer, count); });
}

ssize_t writev(int descriptor, const iovec* pieces, int count) {
  return Write(descriptor, pieces, count, [&] { return NEXT(writev)(descriptor, pieces, count); });
}

int ftruncate(int descriptor, off_t length) noexcept {
  return Truncate(descriptor, [&] { return NEXT(ftruncate)(descriptor, length); });
}

int ftruncate64(int descriptor, off64_t length) noexcept {
  return Truncate(descriptor, [&] { return NEXT(ftruncate64)(descriptor, length); });
}

#pragma GCC visibility pop

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
