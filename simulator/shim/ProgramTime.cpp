#include "simulator/shim/ProgramTime.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "simulator/shim/LinkEnvironment.h"
#include "simulator/shim/ShimLink.h"

namespace orvane::shim {

namespace {

TimePage* page = nullptr;

TimePage* Map(const char* path) {
  const auto descriptor =
      static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path, O_RDWR | O_CLOEXEC));
  if (descriptor < 0) {
    Die("the clock of the virtual instrument cannot be opened");
  }
  void* const memory =
      ::mmap(nullptr, sizeof(TimePage), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  static_cast<void>(::syscall(SYS_close, descriptor));
  if (memory == MAP_FAILED) {
    Die("the clock of the virtual instrument cannot be mapped");
  }
  return static_cast<TimePage*>(memory);
}

/// Whether an address is in one of the libraries with which programs use D-Bus.
bool IsInBusLibrary(const void* address) {
  constexpr const char* kNames[] = {
      "libsystemd.so", "libdbus-1.so", "libgio-2.0.so", "libglib-2.0.so"};
  Dl_info info{};
  if (::dladdr(address, &info) == 0 || info.dli_fname == nullptr) {
    return false;
  }
  const char* const slash = std::strrchr(info.dli_fname, '/');
  const char* const file = slash == nullptr ? info.dli_fname : slash + 1;
  for (const char* const name : kNames) {
    if (std::strncmp(file, name, std::strlen(name)) == 0) {
      return true;
    }
  }
  return false;
}

/// The answers for some callers, because programs look often. Each place is for one caller at a time.
constexpr std::size_t kPlaces = 64;
std::atomic<const void*> moving[kPlaces];
std::atomic<const void*> notMoving[kPlaces];

}  // namespace

bool MovesTime(const void* caller) {
  const std::size_t place = reinterpret_cast<std::uintptr_t>(caller) % kPlaces;
  if (moving[place] == caller) {
    return true;
  }
  if (notMoving[place] == caller) {
    return false;
  }
  const bool moves = !IsInBusLibrary(caller);
  (moves ? moving : notMoving)[place] = caller;
  return moves;
}

TimePage* ProgramTime() {
  if (page == nullptr && IsOnInstrument() && TimePagePath() != nullptr) {
    const int savedErrno = errno;
    page = Map(TimePagePath());
    errno = savedErrno;
  }
  return page;
}

}  // namespace orvane::shim
