// What the tested code asks of the system. Calls from our own objects come here through the
// linker's --wrap; those that the C++ library makes for a stream are interposed by name.
#include <dlfcn.h>
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <string>

#include "tests/unit/programmers/expander/ExpanderLog.h"
#include "tests/unit/programmers/expander/ExpanderScript.h"

namespace {

constexpr const char* kSlotFiles = "/sys/platform/module_selector/";

std::FILE* slotFile = nullptr;

void Log(const std::string& event) { ExpanderLog::Instance().Add(event); }

template <typename Function>
Function* Next(const char* symbol) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, symbol));
}

std::FILE* OpenStream(const char* path, const char* mode, const char* symbol) {
  const auto next = Next<std::FILE*(const char*, const char*)>(symbol);
  const ExpanderScript* const script = ExpanderScript::Current();
  const std::string file = path;
  if (script == nullptr || !file.starts_with(kSlotFiles)) {
    return next(path, mode);
  }
  Log("selector.open " + file + " " + mode);
  if (script->selectorMissing) {
    errno = ENOENT;
    return nullptr;
  }
  const std::string slot = file.substr(std::string(kSlotFiles).size());
  slotFile = next((script->directory + "/" + slot).c_str(), mode);
  return slotFile;
}

std::string Octal(unsigned value) {
  char text[16];
  static_cast<void>(std::snprintf(text, sizeof text, "0%o", value));
  return text;
}

}  // namespace

extern "C" {
int RealOpen(const char* path, int flags, ...) __asm__("__real_open");
int WrapOpen(const char* path, int flags, ...) __asm__("__wrap_open");
ssize_t RealRead(int fd, void* buffer, std::size_t length) __asm__("__real_read");
ssize_t WrapRead(int fd, void* buffer, std::size_t length) __asm__("__wrap_read");
int RealClose(int fd) __asm__("__real_close");
int WrapClose(int fd) __asm__("__wrap_close");
int RealUsleep(useconds_t microseconds) __asm__("__real_usleep");
int WrapUsleep(useconds_t microseconds) __asm__("__wrap_usleep");
unsigned RealSleep(unsigned seconds) __asm__("__real_sleep");
unsigned WrapSleep(unsigned seconds) __asm__("__wrap_sleep");
int RealNanosleep(const timespec* duration, timespec* left) __asm__("__real_nanosleep");
int WrapNanosleep(const timespec* duration, timespec* left) __asm__("__wrap_nanosleep");

constexpr const char* kFilebufInsert = "_ZNSt13basic_filebufIcSt11char_traitsIcEE6xsputnEPKcl";
std::streamsize FilebufInsert(
    std::filebuf* buffer,
    const char* text,
    std::streamsize count) __asm__("_ZNSt13basic_filebufIcSt11char_traitsIcEE6xsputnEPKcl");

int WrapOpen(const char* path, int flags, ...) {
  mode_t mode = 0;
  if ((flags & O_CREAT) != 0) {
    va_list arguments;
    va_start(arguments, flags);
    mode = va_arg(arguments, mode_t);
    va_end(arguments);
  }
  ExpanderScript* const script = ExpanderScript::Current();
  if (script == nullptr || !ExpanderLog::Instance().IsRecording()) {
    return RealOpen(path, flags, mode);
  }
  std::string call = std::string("open ") + path + " " + Octal(static_cast<unsigned>(flags));
  if ((flags & O_CREAT) != 0) {
    call += " " + Octal(mode);
  }
  const int fd = RealOpen(path, flags, mode);
  if (fd >= 0) {
    script->openFiles[fd] = ++script->filesOpened;
    call += " #" + std::to_string(script->filesOpened);
  } else {
    call += " failed";
  }
  Log(call);
  return fd;
}

ssize_t WrapRead(int fd, void* buffer, std::size_t length) {
  ExpanderScript* const script = ExpanderScript::Current();
  if (script == nullptr || !script->openFiles.contains(fd)) {
    return RealRead(fd, buffer, length);
  }
  if (script->failingReads.contains(++script->reads)) {
    errno = EIO;
    return -1;
  }
  const bool limited = script->readLimit != 0 && length > script->readLimit;
  return RealRead(fd, buffer, limited ? script->readLimit : length);
}

int WrapClose(int fd) {
  ExpanderScript* const script = ExpanderScript::Current();
  if (script != nullptr) {
    const auto file = script->openFiles.find(fd);
    if (file != script->openFiles.end()) {
      Log("close #" + std::to_string(file->second));
      script->openFiles.erase(file);
    }
  }
  return RealClose(fd);
}

int WrapUsleep(useconds_t microseconds) {
  ExpanderScript* const script = ExpanderScript::Current();
  if (script == nullptr) {
    return RealUsleep(microseconds);
  }
  ++script->usleeps;
  if (script->logsPolls || microseconds != 1000) {
    Log("usleep " + std::to_string(microseconds));
  }
  return 0;
}

unsigned WrapSleep(unsigned seconds) {
  if (ExpanderScript::Current() == nullptr) {
    return RealSleep(seconds);
  }
  Log("sleep " + std::to_string(seconds));
  return 0;
}

int WrapNanosleep(const timespec* duration, timespec* left) {
  ExpanderScript* const script = ExpanderScript::Current();
  if (script == nullptr) {
    return RealNanosleep(duration, left);
  }
  Log("nanosleep " + std::to_string(duration->tv_sec) + " " + std::to_string(duration->tv_nsec));
  if (script->onNanosleep) {
    script->onNanosleep();
  }
  if (script->interruptedSleepsLeave.empty()) {
    return 0;
  }
  if (left != nullptr) {
    *left = {.tv_sec = 0, .tv_nsec = script->interruptedSleepsLeave.front()};
  }
  script->interruptedSleepsLeave.erase(script->interruptedSleepsLeave.begin());
  errno = EINTR;
  return -1;
}

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library's are reserved
std::FILE* fopen(const char* path, const char* mode) { return OpenStream(path, mode, "fopen"); }

std::FILE* fopen64(const char* path, const char* mode) { return OpenStream(path, mode, "fopen64"); }

int fclose(std::FILE* stream) {
  static const auto next = Next<int(std::FILE*)>("fclose");
  const ExpanderScript* const script = ExpanderScript::Current();
  if (script != nullptr && stream == slotFile && slotFile != nullptr) {
    Log("selector.close");
    slotFile = nullptr;
  }
  return next(stream);
}

ssize_t write(int fd, const void* buffer, std::size_t length) {
  static const auto next = Next<ssize_t(int, const void*, std::size_t)>("write");
  const ExpanderScript* const script = ExpanderScript::Current();
  if (script != nullptr && slotFile != nullptr && fd == ::fileno(slotFile)) {
    Log("selector.write " + std::string(static_cast<const char*>(buffer), length));
    if (script->selectorWriteFails) {
      errno = EINVAL;
      return -1;
    }
  }
  return next(fd, buffer, length);
}

// std::filebuf::xsputn, which the C++ library's own table of virtual functions names: where the
// text of an insertion arrives. A result below `count` breaks the stream.
std::streamsize FilebufInsert(std::filebuf* buffer, const char* text, std::streamsize count) {
  static const auto next =
      Next<std::streamsize(std::filebuf*, const char*, std::streamsize)>(kFilebufInsert);
  const ExpanderScript* const script = ExpanderScript::Current();
  if (script != nullptr && slotFile != nullptr) {
    Log("selector.insert " + std::string(text, static_cast<std::size_t>(count)));
    if (script->selectorInsertFails) {
      return 0;
    }
  }
  return next(buffer, text, count);
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
}
