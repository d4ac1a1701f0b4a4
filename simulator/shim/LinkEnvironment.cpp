#include "simulator/shim/LinkEnvironment.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "simulator/shim/LinkProtocol.h"

namespace orvane::shim {

namespace {

constexpr std::size_t kMaxTextBytes = 512;  // the host's texts are shorter
constexpr const char* kOurLibrary = "liborvane-shim.so";
constexpr const char* kNextLibrary = "libumockdev-preload.so";  // with a number behind it

/// A variable as this process found it.
struct Variable {
  const char* name;
  bool isOptional;           // another value than ours is left alone
  char text[kMaxTextBytes];  // NAME=VALUE; empty: it was not there
};

enum { kPreload, kLink, kClockStep, kTimePage, kTree, kBus, kVariables };

Variable variables[kVariables] = {{"LD_PRELOAD", false, {}},
                                  {link::kAddressVariable, false, {}},
                                  {link::kClockStepVariable, false, {}},
                                  {link::kTimePageVariable, false, {}},
                                  {"UMOCKDEV_DIR", false, {}},
                                  {"DBUS_SYSTEM_BUS_ADDRESS", true, {}}};
bool isRemembered = false;

const char* ValueOf(const Variable& variable) {
  return variable.text[0] == '\0' ? nullptr : variable.text + std::strlen(variable.name) + 1;
}

char* Append(char* to, const char* text, std::size_t bytes) {
  std::memcpy(to, text, bytes);
  return to + bytes;
}

void Remember(Variable& variable, const char* value) {
  if (std::strlen(variable.name) + 1 + std::strlen(value) < kMaxTextBytes) {
    char* end = Append(variable.text, variable.name, std::strlen(variable.name));
    *end++ = '=';
    std::memcpy(end, value, std::strlen(value) + 1);
  }
}

// --- LD_PRELOAD ---------------------------------------------------------------------------------

/// One library in LD_PRELOAD.
struct Library {
  const char* start;
  std::size_t bytes;

  bool IsNamed(const char* name) const {
    const char* last = start;
    for (const char* at = start; at != start + bytes; ++at) {
      last = *at == '/' ? at + 1 : last;
    }
    const auto left = static_cast<std::size_t>(start + bytes - last);
    return left >= std::strlen(name) && std::memcmp(last, name, std::strlen(name)) == 0;
  }
  bool IsOurs() const { return IsNamed(kOurLibrary) || IsNamed(kNextLibrary); }
};

/// @param at  moved behind the library
/// @return false when there is no further one
bool TakeLibrary(const char*& at, Library& library) {
  at += std::strspn(at, ": ");
  library = {at, std::strcspn(at, ": ")};
  at += library.bytes;
  return library.bytes > 0;
}

/// The libraries in LD_PRELOAD that are the instrument's, in their order, or all the others.
/// @param out  as long as `value`; without the zero at the end
/// @return the end of `out`
char* CopyLibraries(const char* value, bool ours, char* out) {
  char* end = out;
  Library library{};
  while (TakeLibrary(value, library)) {
    if (library.IsOurs() == ours) {
      if (end != out) {
        *end++ = ':';
      }
      end = Append(end, library.start, library.bytes);
    }
  }
  return end;
}

/// Whether an LD_PRELOAD has the instrument's libraries in their order already.
bool HasOurLibraries(const char* value) {
  const char* ours = ValueOf(variables[kPreload]);
  Library wanted{};
  bool goesOn = TakeLibrary(ours, wanted);
  Library library{};
  while (goesOn && TakeLibrary(value, library)) {
    if (!library.IsOurs()) {
      continue;
    }
    if (library.bytes != wanted.bytes ||
        std::memcmp(library.start, wanted.start, wanted.bytes) != 0) {
      return false;
    }
    goesOn = TakeLibrary(ours, wanted);
  }
  return !goesOn;
}

/// An LD_PRELOAD with other libraries, and the instrument's behind them as the host puts them there.
/// @param text  what is written, with the variable's name
void WritePreload(const char* others, char* text) {
  const Variable& preload = variables[kPreload];
  char* end = Append(text, preload.name, std::strlen(preload.name));
  *end++ = '=';
  char* const first = end;
  end = CopyLibraries(others, false, end);
  if (end != first) {
    *end++ = ':';
  }
  std::memcpy(end, ValueOf(preload), std::strlen(ValueOf(preload)) + 1);
}

// --- Merging ------------------------------------------------------------------------------------

/// @return the place of this NAME=VALUE among our variables, or kVariables
int PlaceOf(const char* entry) {
  int place = 0;
  while (place < kVariables) {
    const std::size_t bytes = std::strlen(variables[place].name);
    if (std::strncmp(entry, variables[place].name, bytes) == 0 && entry[bytes] == '=') {
      break;
    }
    ++place;
  }
  return place;
}

/// What takes the place of an entry for one of our variables.
char* Corrected(char* given, int place, char* text) {
  Variable& variable = variables[place];
  if (variable.text[0] == '\0' || variable.isOptional) {
    return given;
  }
  if (place != kPreload) {
    return variable.text;
  }
  const char* const value = given + std::strlen(variable.name) + 1;
  if (HasOurLibraries(value)) {
    return given;
  }
  WritePreload(value, text);
  return text;
}

}  // namespace

void RememberEnvironment() {
  if (isRemembered) {
    return;
  }
  isRemembered = true;
  for (Variable& variable : variables) {
    const char* const value = std::getenv(variable.name);
    if (value == nullptr) {
      continue;
    }
    if (&variable == &variables[kPreload]) {
      auto* const ours = static_cast<char*>(__builtin_alloca(std::strlen(value) + 1));
      *CopyLibraries(value, true, ours) = '\0';
      Remember(variable, ours);
    } else {
      Remember(variable, value);
    }
  }
}

const char* LinkAddress() { return ValueOf(variables[kLink]); }

const char* ClockStepText() { return ValueOf(variables[kClockStep]); }

const char* TimePagePath() { return ValueOf(variables[kTimePage]); }

bool LibrariesCanBeLoaded() {
  const char* ours = ValueOf(variables[kPreload]);
  Library library{};
  if (ours == nullptr || !TakeLibrary(ours, library) || library.bytes >= kMaxTextBytes) {
    return true;
  }
  char path[kMaxTextBytes];
  *Append(path, library.start, library.bytes) = '\0';
  const long descriptor = ::syscall(SYS_openat, AT_FDCWD, path, O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) {
    return errno == EMFILE || errno == ENFILE;
  }
  static_cast<void>(::syscall(SYS_close, descriptor));
  // A process that has changed its user can have capabilities left that the program will not have.
  struct stat status {};
  *std::strrchr(path, '/') = '\0';
  return ::geteuid() == 0 || (::syscall(SYS_newfstatat, AT_FDCWD, path, &status, 0) == 0 &&
                              status.st_uid == ::geteuid());
}

MergeSize SizeOfMerge(char* const* given) {
  MergeSize size{.variables = kVariables + 1, .bytes = kMaxTextBytes};
  for (; given != nullptr && *given != nullptr; ++given) {
    ++size.variables;
    if (PlaceOf(*given) == kPreload) {
      size.bytes += std::strlen(*given);
    }
  }
  return size;
}

void MergeEnvironment(char* const* given, char** merged, char* text) {
  bool isThere[kVariables + 1] = {};
  for (; given != nullptr && *given != nullptr; ++given) {
    const int place = PlaceOf(*given);
    if (place == kVariables) {
      *merged++ = *given;
    } else if (!isThere[place]) {  // the first of two with the same name counts
      isThere[place] = true;
      *merged++ = Corrected(*given, place, text);
    }
  }
  for (int place = 0; place < kVariables; ++place) {
    if (!isThere[place] && variables[place].text[0] != '\0') {
      *merged++ = variables[place].text;
    }
  }
  *merged = nullptr;
}

void RepairEnvironment() {
  const MergeSize size = SizeOfMerge(environ);
  auto** const merged = static_cast<char**>(__builtin_alloca(size.variables * sizeof(char*)));
  auto* const text = static_cast<char*>(__builtin_alloca(size.bytes));
  MergeEnvironment(environ, merged, text);
  for (char** entry = merged; *entry != nullptr; ++entry) {
    const int place = PlaceOf(*entry);
    if (place == kVariables) {
      continue;
    }
    const char* const name = variables[place].name;
    const char* const value = *entry + std::strlen(name) + 1;
    const char* const now = std::getenv(name);
    if (now == nullptr || std::strcmp(now, value) != 0) {
      ::setenv(name, value, 1);
    }
  }
}

}  // namespace orvane::shim
