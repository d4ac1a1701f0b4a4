#pragma once

#include <fcntl.h>

#include <cstddef>

namespace orvane {

namespace report_filter {

inline bool StartsWith(const char* text, const char* prefix) {
  std::size_t i = 0;
  while (prefix[i] != '\0' && text[i] == prefix[i]) {
    ++i;
  }
  return prefix[i] == '\0';
}

inline bool Equals(const char* left, const char* right) {
  std::size_t i = 0;
  while (left[i] != '\0' && left[i] == right[i]) {
    ++i;
  }
  return left[i] == right[i];
}

inline const char* LastComponent(const char* path) {
  const char* last = path;
  for (; *path != '\0'; ++path) {
    last = *path == '/' ? path + 1 : last;
  }
  return last;
}

/// Whether a file is a shared object by its name: "x.so" or "x.so.1".
inline bool IsSharedObject(const char* path) {
  for (const char* at = LastComponent(path); *at != '\0'; ++at) {
    if (StartsWith(at, ".so") && (at[3] == '\0' || at[3] == '.')) {
      return true;
    }
  }
  return false;
}

}  // namespace report_filter

inline bool IsBelowDevOrSys(const char* path) {
  return report_filter::StartsWith(path, "/dev/") || report_filter::StartsWith(path, "/sys/");
}

/// Whether a path can be a node or an attribute of the instrument.
/// @param path  plain
inline bool CanBeOnInstrument(const char* path) {
  using namespace report_filter;
  return StartsWith(path, "/dev/spidev") || StartsWith(path, "/dev/i2c-") ||
         StartsWith(path, "/sys/");
}

/// Whether opening this file is an event of the instrument: devices, sysfs attributes and the
/// program's own files are; what libraries and the run time open by themselves is not.
/// It depends on path and flags alone, so the answer is the same in every build of a program.
/// @param path  plain
inline bool IsReported(const char* path, int flags) {
  using namespace report_filter;
  if ((flags & (O_PATH | O_DIRECTORY)) != 0) {
    return false;  // no access to contents
  }
  if (StartsWith(path, "/sys/")) {
    // libudev reads uevent files when it enumerates devices, the run time reads the others.
    return !Equals(LastComponent(path), "uevent") && !StartsWith(path, "/sys/devices/system/") &&
           !StartsWith(path, "/sys/fs/") && !StartsWith(path, "/sys/kernel/");
  }
  if (IsSharedObject(path)) {
    return false;  // debuggers and sanitizers look for symbols there
  }
  constexpr const char* kSystemTrees[] = {
      "/proc/", "/etc/", "/run/", "/usr/", "/lib/", "/lib64/", "/bin/", "/sbin/"};
  for (const char* const tree : kSystemTrees) {
    if (StartsWith(path, tree)) {
      return false;
    }
  }
  constexpr const char* kOtherDevices[] = {"/dev/urandom", "/dev/random", "/dev/tty"};
  for (const char* const device : kOtherDevices) {
    if (Equals(path, device)) {
      return false;
    }
  }
  return true;
}

}  // namespace orvane
