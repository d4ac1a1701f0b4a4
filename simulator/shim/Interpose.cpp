// The calls of a program that are events of the instrument. Each asks the host first and then makes
// the real call, or takes the host's answer for it. What is no event goes straight to the next
// library.

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "simulator/shim/DescriptorTable.h"
#include "simulator/shim/LinkProtocol.h"
#include "simulator/shim/ReportFilter.h"
#include "simulator/shim/ShimLink.h"

namespace {

using namespace orvane;
using link::Action;
using link::Answer;
using link::Kind;
using link::Op;
using shim::DescriptorTable;

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
constexpr std::int64_t kNanosecondsPerMicrosecond = 1'000;
constexpr int kMaxSpiTransfers = 511;  // as many as fit into the size field of a request
constexpr int kMaxPathBytes = 4096;
constexpr int kMaxIoctlBytes = 256;

DescriptorTable descriptors;  // zero from the start: knows nothing

/// The function of this name in the libraries behind this one.
template <typename Function>
Function* Next(Function*& cache, const char* name) {
  if (cache == nullptr) {
    cache = reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
  }
  return cache;
}

#define NEXT(name)                          \
  ([]() {                                   \
    static decltype(name)* cache = nullptr; \
    return Next(cache, #name);              \
  }())

int Fail(int error) {
  errno = error;
  return -1;
}

/// Asks without a payload either way.
int AskBare(const link::Question& question, Answer& answer) {
  iovec send[1] = {};
  iovec receive[1] = {};
  return shim::Ask(question, {send, 1, receive, 1}, answer);
}

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
  descriptors.Set(descriptor, {answer.handle, answer.kind});
  Answer ignored{};
  AskBare({.op = Op::kOpened, .handle = answer.handle, .a = error}, ignored);
}

/// An attribute and a device node have no contents of their own to create or cut.
int FlagsAt(const Answer& answer, int flags) {
  return answer.kind == Kind::kFile ? flags : flags & ~(O_CREAT | O_EXCL | O_TRUNC);
}

int RawOpen(const char* path, int flags, mode_t mode) {
  return static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

template <typename RealOpen>
int Open(const char* path, int flags, mode_t mode, RealOpen realOpen) {
  if (path == nullptr || !shim::IsLinked() || !IsReported(path, flags)) {
    const int descriptor = realOpen();
    descriptors.Set(descriptor, {});
    return descriptor;
  }
  OpenAnswer out;
  AskOpen(path, flags, mode, out);
  if (out.answer.action == Action::kDone) {
    return Fail(out.answer.error);
  }
  // The next library keeps sockets of its own for every node under /dev. They would take the
  // descriptor numbers that the program is about to get.
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
      descriptors.Set(::fileno(stream), {});
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

/// Asks about closing, when the host has to know of it.
/// @return the errno that the close is to end with, or 0
int AskClose(int descriptor) {
  const DescriptorTable::Entry entry = descriptors.Get(descriptor);
  descriptors.Set(descriptor, {});
  if ((descriptor >= 0 && entry.handle == link::kNoHandle) || !shim::IsLinked()) {
    return 0;
  }
  Answer answer{};
  AskBare({.op = Op::kClose, .handle = entry.handle, .a = descriptor}, answer);
  return answer.action == Action::kDone ? answer.error : 0;
}

void CopyEntry(int from, int to) {
  if (to >= 0) {
    descriptors.Set(to, descriptors.Get(from));
  }
}

// --- Reading and writing ------------------------------------------------------------------------

/// What the host says about a call that moves bytes.
struct Decision {
  bool proceed = true;
  ssize_t result = 0;  // errno is set when it is negative
};

Decision Decide(int failed, const Answer& answer) {
  if (failed != 0) {
    return {false, Fail(failed)};
  }
  if (answer.action != Action::kDone) {
    return {};
  }
  if (answer.error != 0) {
    return {false, Fail(answer.error)};
  }
  return {false, static_cast<ssize_t>(answer.result)};
}

template <typename RealRead>
ssize_t Read(int descriptor, void* buffer, size_t count, RealRead realRead) {
  const DescriptorTable::Entry entry = descriptors.Get(descriptor);
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
  const DescriptorTable::Entry entry = descriptors.Get(descriptor);
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

// --- Devices ------------------------------------------------------------------------------------

// NOLINTNEXTLINE(performance-no-int-to-ptr): the kernel's struct carries pointers as numbers
void* Pointer(std::uint64_t address) { return reinterpret_cast<void*>(address); }

int SubmitSpi(std::uint32_t handle, unsigned long request, const void* argument) {
  const std::size_t bytes = _IOC_SIZE(request);
  const std::size_t count = bytes / sizeof(spi_ioc_transfer);
  if (bytes % sizeof(spi_ioc_transfer) != 0) {
    return Fail(EINVAL);
  }
  if (argument == nullptr) {
    return Fail(EFAULT);
  }
  const auto* const transfers = static_cast<const spi_ioc_transfer*>(argument);
  link::SpiTransfer wire[kMaxSpiTransfers];
  iovec send[2 + kMaxSpiTransfers] = {{}, {wire, count * sizeof wire[0]}};
  iovec receive[1 + kMaxSpiTransfers] = {};
  int sendCount = 2;
  int receiveCount = 1;
  std::uint64_t sendBytes = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const spi_ioc_transfer& transfer = transfers[i];
    wire[i] = {.length = transfer.len,
               .speedHz = transfer.speed_hz,
               .bitsPerWord = transfer.bits_per_word,
               .chipSelectChange = transfer.cs_change,
               .sends = transfer.tx_buf != 0 ? std::uint8_t{1} : std::uint8_t{0},
               .receives = transfer.rx_buf != 0 ? std::uint8_t{1} : std::uint8_t{0}};
    if (transfer.tx_buf != 0) {
      send[sendCount++] = {Pointer(transfer.tx_buf), transfer.len};
      sendBytes += transfer.len;
    }
    if (transfer.rx_buf != 0) {
      receive[receiveCount++] = {Pointer(transfer.rx_buf), transfer.len};
    }
  }
  const bool tooMuch = sendBytes > link::kMaxPayloadBytes;
  Answer answer{};
  const int failed = shim::Ask({.op = Op::kSpi,
                                .handle = handle,
                                .a = static_cast<std::int64_t>(count),
                                .b = tooMuch ? 1 : 0},
                               {send, tooMuch ? 2 : sendCount, receive, receiveCount},
                               answer);
  return static_cast<int>(Decide(failed, answer).result);
}

int SubmitI2c(std::uint32_t handle, const void* argument) {
  if (argument == nullptr) {
    return Fail(EFAULT);
  }
  const auto* const data = static_cast<const i2c_rdwr_ioctl_data*>(argument);
  if (data->msgs == nullptr || data->nmsgs == 0 || data->nmsgs > I2C_RDWR_IOCTL_MAX_MSGS) {
    return Fail(EINVAL);
  }
  link::I2cMessage wire[I2C_RDWR_IOCTL_MAX_MSGS];
  iovec send[2 + I2C_RDWR_IOCTL_MAX_MSGS] = {{}, {wire, data->nmsgs * sizeof wire[0]}};
  iovec receive[1 + I2C_RDWR_IOCTL_MAX_MSGS] = {};
  int sendCount = 2;
  int receiveCount = 1;
  for (std::uint32_t i = 0; i < data->nmsgs; ++i) {
    const i2c_msg& message = data->msgs[i];
    const bool reads = (message.flags & I2C_M_RD) != 0;
    wire[i] = {.address = message.addr,
               .flags = message.flags,
               .length = message.len,
               .reads = reads ? std::uint16_t{1} : std::uint16_t{0}};
    iovec& piece = reads ? receive[receiveCount++] : send[sendCount++];
    piece = {message.buf, message.len};
  }
  Answer answer{};
  const int failed =
      shim::Ask({.op = Op::kI2c, .handle = handle, .a = static_cast<std::int64_t>(data->nmsgs)},
                {send, sendCount, receive, receiveCount},
                answer);
  return static_cast<int>(Decide(failed, answer).result);
}

/// A request that carries its size and direction.
int SubmitOther(std::uint32_t handle, unsigned long request, void* argument) {
  const std::size_t bytes = _IOC_SIZE(request);
  if (bytes > kMaxIoctlBytes) {
    return Fail(ENOTTY);
  }
  const bool gives = (_IOC_DIR(request) & _IOC_WRITE) != 0;
  const bool takes = (_IOC_DIR(request) & _IOC_READ) != 0;
  iovec send[2] = {{}, {argument, bytes}};
  iovec receive[2] = {{}, {argument, bytes}};
  Answer answer{};
  const int failed = shim::Ask(
      {.op = Op::kIoctl, .handle = handle, .a = static_cast<std::int64_t>(request & 0xFFFFFFFFU)},
      {send, gives ? 2 : 1, receive, takes ? 2 : 1},
      answer);
  return static_cast<int>(Decide(failed, answer).result);
}

// --- Sleeping -----------------------------------------------------------------------------------

std::int64_t Nanoseconds(const timespec& time) {
  return time.tv_sec * kNanosecondsPerSecond + time.tv_nsec;
}

/// Reports a sleep of this length, when it is one.
/// @param error  what it is to end with; only when the real call is not to be made
/// @return whether to make the real call
bool AskSleep(std::int64_t nanoseconds, int& error) {
  error = 0;
  if (nanoseconds <= 0 || !shim::IsLinked()) {
    return true;
  }
  Answer answer{};
  AskBare({.op = Op::kSleep, .a = nanoseconds}, answer);
  error = answer.action == Action::kDone ? answer.error : 0;
  return answer.action != Action::kDone;
}

// --- The monotonic clock ------------------------------------------------------------------------

/// By how much each look at the clock moves it on.
std::int64_t ClockStep() {
  static std::int64_t step = -1;  // not looked up yet
  if (step < 0) {
    const char* const text = std::getenv(link::kClockStepVariable);
    step = text == nullptr ? 0 : std::strtoll(text, nullptr, 10);
  }
  return step;
}

/// By how much the program's clock is ahead of the machine's.
std::atomic<std::int64_t> clockLead = 0;

timespec TimeSpec(std::int64_t nanoseconds) {
  return {.tv_sec = nanoseconds / kNanosecondsPerSecond,
          .tv_nsec = nanoseconds % kNanosecondsPerSecond};
}

bool IsValid(const timespec* time) {
  return time != nullptr && time->tv_sec >= 0 && time->tv_nsec >= 0 &&
         time->tv_nsec < kNanosecondsPerSecond;
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
  const int result = NEXT(dup2)(from, to);
  CopyEntry(from, result);
  return result;
}

int dup3(int from, int to, int flags) noexcept {
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

int ioctl(int descriptor, unsigned long request, ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  if (descriptor < 0) {
    return Fail(EBADF);
  }
  const DescriptorTable::Entry entry = descriptors.Get(descriptor);
  if (entry.handle == link::kNoHandle || entry.kind != Kind::kDevice || !shim::IsLinked()) {
    return NEXT(ioctl)(descriptor, request, argument);
  }
  const bool isSpiMessage = _IOC_TYPE(request) == SPI_IOC_MAGIC && _IOC_NR(request) == 0 &&
                            _IOC_DIR(request) == _IOC_WRITE;
  if (isSpiMessage) {
    return SubmitSpi(entry.handle, request, argument);
  }
  if (request == I2C_RDWR) {
    return SubmitI2c(entry.handle, argument);
  }
  return SubmitOther(entry.handle, request, argument);
}

unsigned int sleep(unsigned int seconds) {
  int error = 0;
  if (AskSleep(std::int64_t{seconds} * kNanosecondsPerSecond, error)) {
    return NEXT(sleep)(seconds);
  }
  return error != 0 ? seconds : 0;
}

int usleep(useconds_t microseconds) {
  int error = 0;
  if (AskSleep(std::int64_t{microseconds} * kNanosecondsPerMicrosecond, error)) {
    return NEXT(usleep)(microseconds);
  }
  return error != 0 ? Fail(error) : 0;
}

int nanosleep(const timespec* wanted, timespec* left) {
  int error = 0;
  if (!IsValid(wanted) || AskSleep(Nanoseconds(*wanted), error)) {
    return NEXT(nanosleep)(wanted, left);
  }
  if (error != 0 && left != nullptr) {
    *left = *wanted;
  }
  return error != 0 ? Fail(error) : 0;
}

int clock_gettime(clockid_t clock, timespec* time) noexcept {
  const int result = NEXT(clock_gettime)(clock, time);
  if (result == 0 && clock == CLOCK_MONOTONIC && ClockStep() > 0) {
    *time = TimeSpec(Nanoseconds(*time) + (clockLead += ClockStep()));
  }
  return result;
}

int clock_nanosleep(clockid_t clock, int flags, const timespec* wanted, timespec* left) {
  timespec end{};
  if (IsValid(wanted)) {
    int error = 0;
    std::int64_t nanoseconds = Nanoseconds(*wanted);
    timespec now{};
    const int unknown = NEXT(clock_gettime)(clock, &now);
    if ((flags & TIMER_ABSTIME) != 0 && unknown == 0) {
      // The machine sleeps by its own clock.
      nanoseconds -= clock == CLOCK_MONOTONIC ? clockLead.load() : 0;
      end = TimeSpec(nanoseconds < 0 ? 0 : nanoseconds);
      wanted = &end;
      nanoseconds -= Nanoseconds(now);
    }
    if (!AskSleep(nanoseconds, error)) {
      if (error != 0 && left != nullptr && (flags & TIMER_ABSTIME) == 0) {
        *left = *wanted;
      }
      return error;  // not in errno
    }
  }
  return NEXT(clock_nanosleep)(clock, flags, wanted, left);
}

#pragma GCC visibility pop

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
