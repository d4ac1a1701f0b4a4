// exec, posix_spawn and their variants: every program that is started is part of the instrument.

#include <fcntl.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/types.h>
#include <unistd.h>
#include <wordexp.h>

#include <cerrno>
#include <cstdarg>
#include <cstddef>

#include "simulator/shim/ExecutableCheck.h"
#include "simulator/shim/Interpose.h"
#include "simulator/shim/LinkEnvironment.h"
#include "simulator/shim/LinkProtocol.h"
#include "simulator/shim/ShimLink.h"

namespace {

using namespace orvane;
using executable::Verdict;

/// The functions of the C library, looked up in advance: dlsym is not for a child of vfork.
struct Real {
  decltype(&::execve) execve;
  decltype(&::execvpe) execvpe;
  decltype(&::fexecve) fexecve;
  decltype(&::execveat) execveat;
  decltype(&::posix_spawn) posixSpawn;
  decltype(&::posix_spawnp) posixSpawnp;
};

Real real = {};
executable::Machine machine;

const Real& TheReal() {
  if (real.execve == nullptr) {
    real.execvpe = NEXT(execvpe);
    real.fexecve = NEXT(fexecve);
    real.execveat = NEXT(execveat);
    real.posixSpawn = NEXT(posix_spawn);
    real.posixSpawnp = NEXT(posix_spawnp);
    machine = executable::OwnMachine();
    real.execve = NEXT(execve);  // the last: the others are there too
  }
  return real;
}

__attribute__((constructor)) void LookUp() {
  const int savedErrno = errno;
  static_cast<void>(TheReal());
  errno = savedErrno;
}

constexpr int kRefused = 125;

/// Ends the run.
void Refuse(executable::RefusalText refusal) {
  if (!shim::IsLinked()) {
    ::_exit(kRefused);  // in a signal handler that interrupted a question: nothing can be asked
  }
  iovec send[2] = {{}, {refusal.text, refusal.length}};
  iovec receive[1] = {};
  link::Answer answer{};
  static_cast<void>(shim::Ask({.op = link::Op::kRefused}, {send, 2, receive, 1}, answer));
}

/// Ends the run if a program cannot be entered. Does not return then.
void Check(const Verdict& verdict) {
  if (executable::IsRefused(verdict)) {
    Refuse(executable::TextOf(verdict));
  } else if (verdict.kind == executable::Kind::kFine && !shim::LibrariesCanBeLoaded()) {
    constexpr executable::RefusalText kChanged = {
        "a process has changed its user or root directory: its programs cannot run on the instrument",
        sizeof "a process has changed its user or root directory: its programs cannot run on the "
               "instrument" -
            1};
    Refuse(kChanged);
  }
}

/// @param call  takes the environment that makes the program part of the instrument
template <typename Call>
int WithEnvironment(char* const* given, Call call) {
  const shim::MergeSize size = shim::SizeOfMerge(given);
  auto** const merged = static_cast<char**>(__builtin_alloca(size.variables * sizeof(char*)));
  auto* const text = static_cast<char*>(__builtin_alloca(size.bytes));
  shim::MergeEnvironment(given, merged, text);
  return call(merged);
}

int Execute(const char* path, char* const* arguments, char* const* environment) {
  const Real& next = TheReal();
  if (path == nullptr || !shim::IsOnInstrument()) {
    return next.execve(path, arguments, environment);
  }
  Check(executable::Judge(AT_FDCWD, path, arguments, machine));
  return WithEnvironment(environment,
                         [&](char* const* merged) { return next.execve(path, arguments, merged); });
}

int ExecuteSearched(const char* name, char* const* arguments, char* const* environment) {
  const Real& next = TheReal();
  if (name == nullptr || !shim::IsOnInstrument()) {
    return next.execvpe(name, arguments, environment);
  }
  Check(executable::JudgeSearched(name, ::getenv("PATH"), arguments, machine));
  return WithEnvironment(
      environment, [&](char* const* merged) { return next.execvpe(name, arguments, merged); });
}

/// Judges a file that is given by a descriptor.
Verdict JudgeDescriptor(int descriptor, char* const* arguments) {
  char path[sizeof "/dev/fd/" + 10] = {};
  static_cast<void>(::snprintf(path, sizeof path, "/dev/fd/%d", descriptor));
  const Verdict verdict = executable::Judge(AT_FDCWD, path, arguments, machine);
  const bool hasNoPath = verdict.kind == executable::Kind::kFails && verdict.error == ENOENT;
  return hasNoPath ? executable::detail::Refuse(executable::Kind::kUnreadable, path) : verdict;
}

int ExecuteAt(
    int directory, const char* path, char* const* arguments, char* const* environment, int flags) {
  const Real& next = TheReal();
  if (path == nullptr || !shim::IsOnInstrument()) {
    return next.execveat(directory, path, arguments, environment, flags);
  }
  const bool isDescriptor = path[0] == '\0' && (flags & AT_EMPTY_PATH) != 0;
  Check(isDescriptor ? JudgeDescriptor(directory, arguments)
                     : executable::Judge(directory, path, arguments, machine));
  return WithEnvironment(environment, [&](char* const* merged) {
    return next.execveat(directory, path, arguments, merged, flags);
  });
}

/// Before the C library starts a shell with the environment of this process.
void PrepareShell() {
  if (shim::IsOnInstrument()) {
    static_cast<void>(TheReal());
    Check(executable::Judge(AT_FDCWD, "/bin/sh", nullptr, machine));
    shim::RepairEnvironment();
  }
}

/// The words of execl and its variants, as an array. `count` words, then null, are in the list.
void CopyWords(const char* first, va_list rest, char** words, std::size_t count) {
  words[0] = const_cast<char*>(first);
  for (std::size_t i = 1; i <= count; ++i) {
    words[i] = va_arg(rest, char*);
  }
}

std::size_t CountWords(const char* first, va_list rest) {
  std::size_t count = 0;
  for (const char* word = first; word != nullptr; word = va_arg(rest, const char*)) {
    ++count;
  }
  return count;
}

// The words of a call with a variable number of arguments, the last of them null.
#define WORDS(first, words)                                                                \
  va_list list;                                                                            \
  va_start(list, first);                                                                   \
  const std::size_t count = CountWords(first, list);                                       \
  va_end(list);                                                                            \
  auto** const words = static_cast<char**>(__builtin_alloca((count + 1) * sizeof(char*))); \
  va_start(list, first);                                                                   \
  CopyWords(first, list, words, count)

}  // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the system's names are reserved
extern "C" {

#pragma GCC visibility push(default)

int execve(const char* path, char* const* arguments, char* const* environment) noexcept {
  return Execute(path, arguments, environment);
}

int execv(const char* path, char* const* arguments) noexcept {
  return Execute(path, arguments, environ);
}

int execvp(const char* name, char* const* arguments) noexcept {
  return ExecuteSearched(name, arguments, environ);
}

int execvpe(const char* name, char* const* arguments, char* const* environment) noexcept {
  return ExecuteSearched(name, arguments, environment);
}

int execl(const char* path, const char* first, ...) noexcept {
  WORDS(first, words);
  va_end(list);
  return Execute(path, words, environ);
}

int execlp(const char* name, const char* first, ...) noexcept {
  WORDS(first, words);
  va_end(list);
  return ExecuteSearched(name, words, environ);
}

int execle(const char* path, const char* first, ...) noexcept {
  WORDS(first, words);
  char* const* const environment = va_arg(list, char* const*);
  va_end(list);
  return Execute(path, words, environment);
}

int fexecve(int descriptor, char* const* arguments, char* const* environment) noexcept {
  const Real& next = TheReal();
  if (!shim::IsOnInstrument()) {
    return next.fexecve(descriptor, arguments, environment);
  }
  Check(JudgeDescriptor(descriptor, arguments));
  return WithEnvironment(environment, [&](char* const* merged) {
    return next.fexecve(descriptor, arguments, merged);
  });
}

int execveat(int directory,
             const char* path,
             char* const* arguments,
             char* const* environment,
             int flags) noexcept {
  return ExecuteAt(directory, path, arguments, environment, flags);
}

int posix_spawn(pid_t* process,
                const char* path,
                const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes,
                char* const* arguments,
                char* const* environment) {
  const Real& next = TheReal();
  if (!shim::IsOnInstrument()) {
    return next.posixSpawn(process, path, actions, attributes, arguments, environment);
  }
  Check(executable::Judge(AT_FDCWD, path, arguments, machine));
  return WithEnvironment(environment, [&](char* const* merged) {
    return next.posixSpawn(process, path, actions, attributes, arguments, merged);
  });
}

int posix_spawnp(pid_t* process,
                 const char* name,
                 const posix_spawn_file_actions_t* actions,
                 const posix_spawnattr_t* attributes,
                 char* const* arguments,
                 char* const* environment) {
  const Real& next = TheReal();
  if (!shim::IsOnInstrument()) {
    return next.posixSpawnp(process, name, actions, attributes, arguments, environment);
  }
  Check(executable::JudgeSearched(name, ::getenv("PATH"), arguments, machine));
  return WithEnvironment(environment, [&](char* const* merged) {
    return next.posixSpawnp(process, name, actions, attributes, arguments, merged);
  });
}

int system(const char* command) {
  PrepareShell();
  return NEXT(system)(command);
}

FILE* popen(const char* command, const char* mode) {
  PrepareShell();
  return NEXT(popen)(command, mode);
}

int wordexp(const char* words, wordexp_t* expanded, int flags) {
  PrepareShell();
  return NEXT(wordexp)(words, expanded, flags);
}

#pragma GCC visibility pop

}  // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
