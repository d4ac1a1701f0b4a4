// open, fopen, freopen, close, fclose, dup, read, write, ftruncate and their variants, on device nodes
// too.

#include <fcntl.h>
#include <linux/close_range.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "simulator/shim/FileCall.h"
#include "simulator/shim/Interpose.h"
#include "simulator/shim/LinkProtocol.h"
#include "simulator/shim/PlainPath.h"
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
using shim::DescriptorTable;
using shim::Fail;
using shim::Known;
using shim::SetKnown;

// --- Opening and closing ------------------------------------------------------------------------

/// The host's answer to an open, and the path to go on with.
struct OpenAnswer {
  Answer answer{};
  char path[kMaxPathBytes] = {};
};

void AskOpen(Op op, const char* path, int flags, mode_t mode, OpenAnswer& out) {
  // One byte more than a path can have shows the host that it is too long.
  iovec send[2] = {{}, {const_cast<char*>(path), ::strnlen(path, kMaxPathBytes)}};
  iovec receive[2] = {{}, {out.path, sizeof out.path - 1}};
  const int failed = shim::Ask({.op = op, .a = flags, .b = static_cast<std::int64_t>(mode)},
                               {send, 2, receive, 2},
                               out.answer);
  if (failed != 0) {
    out.answer.action = Action::kDone;
    out.answer.error = failed;
  }
}

void ReportOpened(const Answer& answer, int descriptor) {
  const int error = descriptor < 0 ? errno : 0;
  SetKnown(descriptor, {answer.handle, answer.kind});
  if (answer.handle == link::kNoHandle) {
    return;  // it was no event
  }
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

/// A path, and what it is when it is plain.
class Path {
 public:
  explicit Path(const char* given)
      : given_(given), plain_(given == nullptr ? nullptr : PlainPath(given, buffer_)) {}
  Path(const Path&) = delete;
  Path& operator=(const Path&) = delete;
  ~Path() = default;

  /// Whether opening it is an event.
  bool IsEvent(int flags) const {
    return given_ != nullptr && shim::IsLinked() && IsReported(plain_, flags);
  }
  /// Whether it can be a node or an attribute of the instrument, and opening it is an event.
  bool IsInstrumentEvent(int flags) const { return IsEvent(flags) && CanBeOnInstrument(plain_); }

  const char* Given() const { return given_; }
  /// Whether the next library can redirect it.
  bool IsBelowDevOrSys() const { return given_ != nullptr && orvane::IsBelowDevOrSys(plain_); }
  /// The path for the next library, which redirects plain ones below /sys and /dev only.
  const char* ForNext() const { return IsBelowDevOrSys() ? plain_ : given_; }

 private:
  char buffer_[kMaxPathBytes];
  const char* given_;
  const char* plain_;
};

/// @param realOpen  takes the path
template <typename RealOpen>
int OpenEvent(Op op, const Path& path, int flags, mode_t mode, RealOpen realOpen) {
  OpenAnswer out;
  AskOpen(op, path.Given(), flags, mode, out);
  if (out.answer.action == Action::kDone) {
    return Fail(out.answer.error);
  }
  // The next library (umockdev) opens sockets of its own for every node under /dev. They would take
  // the descriptor numbers that the program gets without it.
  const int descriptor = out.answer.action == Action::kProceedAt
                             ? RawOpen(out.path, FlagsAt(out.answer, flags), mode)
                             : realOpen(path.ForNext());
  ReportOpened(out.answer, descriptor);
  return descriptor;
}

template <typename RealOpen>
int Open(const char* given, int flags, mode_t mode, RealOpen realOpen) {
  const Path path(given);
  if (path.IsEvent(flags)) {
    return OpenEvent(Op::kOpen, path, flags, mode, realOpen);
  }
  const int descriptor = realOpen(path.ForNext());
  SetKnown(descriptor, {});
  return descriptor;
}

/// As Open(), for calls that are events on nodes and attributes; on ordinary files the host decides.
template <typename RealOpen>
int OpenInstrumentFile(const char* given, int flags, mode_t mode, RealOpen realOpen) {
  const Path path(given);
  if (path.IsEvent(flags)) {
    const Op op = path.IsInstrumentEvent(flags) ? Op::kOpen : Op::kOpenAt;
    return OpenEvent(op, path, flags, mode, realOpen);
  }
  const int descriptor = realOpen(path.ForNext());
  SetKnown(descriptor, {});
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
  for (const char* letter = mode; *letter != '\0' && *letter != ','; ++letter) {
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

/// @param realOpen  takes the path
template <typename RealOpen>
FILE* OpenStream(const char* given, const char* mode, RealOpen realOpen) {
  const Path path(given);
  const int flags = mode == nullptr ? 0 : FlagsOfMode(mode);
  if (mode == nullptr || !path.IsEvent(flags)) {
    FILE* const stream = realOpen(path.ForNext());
    if (stream != nullptr) {
      SetKnown(::fileno(stream), {});
    }
    return stream;
  }
  OpenAnswer out;
  AskOpen(Op::kOpen, path.Given(), flags, kStreamMode, out);
  if (out.answer.action == Action::kDone) {
    errno = out.answer.error;
    return nullptr;
  }
  FILE* stream = nullptr;
  if (out.answer.action == Action::kProceedAt) {
    const int descriptor = RawOpen(out.path, FlagsAt(out.answer, flags), kStreamMode);
    stream = descriptor < 0 ? nullptr : ::fdopen(descriptor, mode);
    if (descriptor >= 0 && stream == nullptr) {
      const int savedErrno = errno;
      static_cast<void>(::syscall(SYS_close, descriptor));
      errno = savedErrno;
    }
  } else {
    stream = realOpen(path.ForNext());
  }
  ReportOpened(out.answer, stream == nullptr ? -1 : ::fileno(stream));
  return stream;
}

/// A mode of fopen that neither creates nor truncates: an attribute keeps its contents until the
/// instrument changes them.
const char* ModeAt(int flags) {
  if ((flags & O_APPEND) != 0) {
    return "a";
  }
  return (flags & O_ACCMODE) == O_RDONLY ? "r" : "r+";
}

/// @param realOpen  takes path and mode
template <typename RealOpen>
FILE* ReopenStream(const char* given, const char* mode, FILE* stream, RealOpen realOpen) {
  const Path path(given);
  const int flags = mode == nullptr ? 0 : FlagsOfMode(mode);
  OpenAnswer out;
  const char* realPath = path.ForNext();
  const bool isEvent = mode != nullptr && path.IsInstrumentEvent(flags);
  if (isEvent) {
    AskOpen(Op::kOpen, path.Given(), flags, kStreamMode, out);
    if (out.answer.action == Action::kDone) {
      SetKnown(::fileno(stream), {});
      static_cast<void>(::fclose(stream));
      errno = out.answer.error;
      return nullptr;
    }
    realPath = out.answer.action == Action::kProceedAt ? out.path : realPath;
    mode = out.answer.kind == Kind::kFile ? mode : ModeAt(FlagsAt(out.answer, flags));
  }
  SetKnown(stream == nullptr ? -1 : ::fileno(stream), {});
  FILE* const opened = realOpen(realPath, mode);
  if (isEvent) {
    ReportOpened(out.answer, opened == nullptr ? -1 : ::fileno(opened));
  }
  return opened;
}

/// Asks the host about closing, when it has to know of it.
/// @return the errno that the close is to end with, or 0
int AskClose(int descriptor) {
  const DescriptorTable::Entry entry = Known(descriptor);
  SetKnown(descriptor, {});
  if ((descriptor >= 0 && entry.handle == link::kNoHandle) || !shim::IsLinked()) {
    return 0;
  }
  Answer answer{};
  AskBare({.op = Op::kClose, .handle = entry.handle, .a = descriptor}, answer);
  return answer.action == Action::kDone ? answer.error : 0;
}

/// Whether a descriptor is of a file of the instrument.
bool IsControlFile(int descriptor) {
  const DescriptorTable::Entry entry = Known(descriptor);
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

/// Closes what the host knows, one after the other, as the program closes a range of descriptors.
void AskCloseRange(unsigned first, unsigned last) {
  const unsigned end = last < DescriptorTable::kDescriptors - 1U
                           ? last
                           : static_cast<unsigned>(DescriptorTable::kDescriptors - 1);
  for (unsigned descriptor = first; descriptor <= end; ++descriptor) {
    if (Known(static_cast<int>(descriptor)).handle != link::kNoHandle) {
      static_cast<void>(AskClose(static_cast<int>(descriptor)));
    }
  }
}

/// close_range, but for the descriptors of the link.
int CloseRange(unsigned first, unsigned last, int flags) {
  constexpr unsigned kLastForLink = (1U << 16) - 1;  // the link has none behind it
  const unsigned end = last < kLastForLink ? last : kLastForLink;
  for (unsigned descriptor = first; descriptor <= end; ++descriptor) {
    if (shim::IsLinkDescriptor(static_cast<int>(descriptor))) {
      const long result =
          descriptor > first ? ::syscall(SYS_close_range, first, descriptor - 1, flags) : 0;
      if (result != 0 || descriptor == last) {
        return static_cast<int>(result);
      }
      return CloseRange(descriptor + 1, last, flags);
    }
  }
  return static_cast<int>(::syscall(SYS_close_range, first, last, flags));
}

void CopyEntry(int from, int to) {
  if (to >= 0) {
    SetKnown(to, Known(from));
  }
}

/// As dup for a copy that fcntl makes, but not of ordinary files: shells keep theirs in this way.
int CopyByFcntl(int from, int command, int to) {
  if (to >= 0 && (command == F_DUPFD || command == F_DUPFD_CLOEXEC)) {
    const DescriptorTable::Entry entry = Known(from);
    SetKnown(to, entry.kind == Kind::kFile ? DescriptorTable::Entry{} : entry);
  }
  return to;
}

// --- Reading and writing ------------------------------------------------------------------------

constexpr std::size_t kMaxCount = 0x7FFFF000;  // what the kernel reads or writes in one call
constexpr std::size_t kAttributeBytes = 4096;  // what it passes to an attribute

/// Whether a descriptor is open for reading (O_RDONLY) or writing (O_WRONLY). The kernel looks at this
/// before it asks a driver.
bool IsOpenFor(int descriptor, int access) {
  const long flags = ::syscall(SYS_fcntl, descriptor, F_GETFL);
  const long mode = flags & O_ACCMODE;
  return flags >= 0 && (mode == O_RDWR || mode == access);
}

template <typename RealRead>
ssize_t Read(int descriptor, void* buffer, size_t count, RealRead realRead) {
  const DescriptorTable::Entry entry = Known(descriptor);
  if (entry.handle == link::kNoHandle || entry.kind == Kind::kFile || !shim::IsLinked()) {
    return realRead();
  }
  if (!IsOpenFor(descriptor, O_RDONLY)) {
    return Fail(EBADF);
  }
  count = count < kMaxCount ? count : kMaxCount;
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

/// Cuts a list of pieces to a number of bytes.
/// @return how many bytes it has then
std::size_t CutTo(std::size_t most, iovec* pieces, int count) {
  std::size_t bytes = 0;
  for (int i = 0; i < count; ++i) {
    const std::size_t left = most - bytes;
    pieces[i].iov_len = pieces[i].iov_len < left ? pieces[i].iov_len : left;
    bytes += pieces[i].iov_len;
  }
  return bytes;
}

template <typename RealWrite>
ssize_t Write(int descriptor, const iovec* pieces, int count, RealWrite realWrite) {
  const DescriptorTable::Entry entry = Known(descriptor);
  constexpr int kMaxPieces = 1024;  // the kernel's limit
  if (entry.handle == link::kNoHandle || count < 0 || count > kMaxPieces || !shim::IsLinked()) {
    return realWrite();
  }
  if (entry.kind != Kind::kFile && !IsOpenFor(descriptor, O_WRONLY)) {
    return Fail(EBADF);
  }
  iovec send[1 + kMaxPieces];  // not all set to zero: it is large
  send[0] = {};
  for (int i = 0; i < count; ++i) {
    send[1 + i] = pieces[i];
  }
  const std::size_t bytes =
      CutTo(entry.kind == Kind::kSysfs ? kAttributeBytes : kMaxCount, send + 1, count);
  const bool tooMuch = bytes > link::kMaxPayloadBytes;
  iovec receive[1] = {};
  Answer answer{};
  const int failed =
      shim::Ask({.op = Op::kWrite,
                 .handle = entry.handle,
                 .a = static_cast<std::int64_t>(bytes),
                 .b = tooMuch ? 1 : 0},
                {send, tooMuch || entry.kind == Kind::kFile ? 1 : 1 + count, receive, 1},
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
    return shim::FileCall("ftruncate", descriptor, nullptr, realTruncate);
  }
  return Known(descriptor).kind == Kind::kSysfs ? 0 : Fail(EINVAL);
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
  return Open(path, flags, mode, [&](const char* at) { return NEXT(open)(at, flags, mode); });
}

int open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): started in the line above
  const mode_t mode = TakesMode(flags) ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return Open(path, flags, mode, [&](const char* at) { return NEXT(open64)(at, flags, mode); });
}

// What open becomes in programs that are built with _FORTIFY_SOURCE.
int __open_2(const char* path, int flags);
int __open64_2(const char* path, int flags);
int __openat_2(int directory, const char* path, int flags);
int __openat64_2(int directory, const char* path, int flags);
ssize_t __read_chk(int descriptor, void* buffer, size_t count, size_t bufferBytes);

int __open_2(const char* path, int flags) {
  return Open(path, flags, 0, [&](const char* at) { return NEXT(__open_2)(at, flags); });
}

int __open64_2(const char* path, int flags) {
  return Open(path, flags, 0, [&](const char* at) { return NEXT(__open64_2)(at, flags); });
}

int openat(int directory, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): started in the line above
  const mode_t mode = TakesMode(flags) ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return OpenInstrumentFile(
      path, flags, mode, [&](const char* at) { return NEXT(openat)(directory, at, flags, mode); });
}

int openat64(int directory, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): started in the line above
  const mode_t mode = TakesMode(flags) ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return OpenInstrumentFile(path, flags, mode, [&](const char* at) {
    return NEXT(openat64)(directory, at, flags, mode);
  });
}

int __openat_2(int directory, const char* path, int flags) {
  return OpenInstrumentFile(
      path, flags, 0, [&](const char* at) { return NEXT(__openat_2)(directory, at, flags); });
}

int __openat64_2(int directory, const char* path, int flags) {
  return OpenInstrumentFile(
      path, flags, 0, [&](const char* at) { return NEXT(__openat64_2)(directory, at, flags); });
}

// The next library redirects access() alone. Shells test files with the others ("[ -w FILE ]"). No
// program on the instrument has gained privileges, so the real user is the effective one.
int faccessat(int directory, const char* given, int mode, int flags) {
  const Path path(given);
  const bool isOfLink = (flags & AT_SYMLINK_NOFOLLOW) != 0;
  return path.IsBelowDevOrSys() && !isOfLink ? ::access(path.ForNext(), mode)
                                             : NEXT(faccessat)(directory, given, mode, flags);
}

int eaccess(const char* path, int mode) noexcept {
  return faccessat(AT_FDCWD, path, mode, AT_EACCESS);
}

int euidaccess(const char* path, int mode) noexcept {
  return faccessat(AT_FDCWD, path, mode, AT_EACCESS);
}

int creat(const char* path, mode_t mode) {
  return OpenInstrumentFile(path, O_WRONLY | O_CREAT | O_TRUNC, mode, [&](const char* at) {
    return NEXT(creat)(at, mode);
  });
}

int creat64(const char* path, mode_t mode) {
  return OpenInstrumentFile(path, O_WRONLY | O_CREAT | O_TRUNC, mode, [&](const char* at) {
    return NEXT(creat64)(at, mode);
  });
}

FILE* fopen(const char* path, const char* mode) {
  return OpenStream(path, mode, [&](const char* at) { return NEXT(fopen)(at, mode); });
}

FILE* fopen64(const char* path, const char* mode) {
  return OpenStream(path, mode, [&](const char* at) { return NEXT(fopen64)(at, mode); });
}

FILE* freopen(const char* path, const char* mode, FILE* stream) {
  return ReopenStream(path, mode, stream, [&](const char* at, const char* how) {
    return NEXT(freopen)(at, how, stream);
  });
}

FILE* freopen64(const char* path, const char* mode, FILE* stream) {
  return ReopenStream(path, mode, stream, [&](const char* at, const char* how) {
    return NEXT(freopen64)(at, how, stream);
  });
}

int close(int descriptor) {
  if (shim::IsLinkDescriptor(descriptor)) {
    return Fail(EBADF);  // the program has not opened it
  }
  const int error = AskClose(descriptor);
  const int result = NEXT(close)(descriptor);
  return error != 0 ? Fail(error) : result;
}

int close_range(unsigned first, unsigned last, int flags) noexcept {
  constexpr unsigned kFlags = CLOSE_RANGE_CLOEXEC | CLOSE_RANGE_UNSHARE;
  if (first > last || (static_cast<unsigned>(flags) & ~kFlags) != 0) {
    return Fail(EINVAL);
  }
  if ((static_cast<unsigned>(flags) & CLOSE_RANGE_CLOEXEC) == 0) {
    AskCloseRange(first, last);
  }
  return CloseRange(first, last, flags);
}

void closefrom(int lowest) noexcept {
  static_cast<void>(::close_range(lowest < 0 ? 0 : static_cast<unsigned>(lowest), ~0U, 0));
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
  shim::LeaveDescriptor(to);
  const int result = NEXT(dup2)(from, to);
  CopyEntry(from, result);
  return result;
}

int dup3(int from, int to, int flags) noexcept {
  SyncBeforeCopy(from, to);
  shim::LeaveDescriptor(to);
  const int result = NEXT(dup3)(from, to, flags);
  CopyEntry(from, result);
  return result;
}

int fcntl(int descriptor, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  return CopyByFcntl(descriptor, command, NEXT(fcntl)(descriptor, command, argument));
}

int fcntl64(int descriptor, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  return CopyByFcntl(descriptor, command, NEXT(fcntl64)(descriptor, command, argument));
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
