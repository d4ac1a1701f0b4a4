// A program for the instrument that starts another program, or tries a call, in the way that its
// first argument says. The words after it are the program and its arguments.
//
//   execve, execv, execvp, execvpe, execl, execlp, execle, fexecve, execveat
//                          with an empty environment where one is given, else with a cleared one
//   spawn, spawnp          posix_spawn, posix_spawnp with an empty environment
//   system, popen, wordexp WORD is a line for the shell; the environment is cleared before
//   vfork                  execve in a child of vfork, with an empty environment
//   vfork-close PATH       a child of vfork closes PATH, which its parent has open; then the parent
//                          reads its SPI mode
//   vfork-killed PATH      a child of vfork opens PATH; then the parent does
//   vfork-starved PATH     as vfork-killed, when no descriptor is left
//   forked PATH            a child of fork opens PATH with a cleared environment

#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <wordexp.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <string>

namespace {

/// Waits for a child.
/// @return its exit status; 128 + n when signal n ended it
int StatusOf(pid_t child) {
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/// The variants of exec. They return only if they fail.
void Execute(const std::string& how, char** words) {
  char* const empty[] = {nullptr};
  if (how == "execve") {
    ::execve(words[0], words, empty);
  } else if (how == "execvpe") {
    ::execvpe(words[0], words, empty);
  } else if (how == "execle") {
    ::execle(words[0], words[0], words[1], words[2], words[3], nullptr, empty);
  } else if (how == "fexecve") {
    ::fexecve(::open(words[0], O_PATH | O_CLOEXEC), words, empty);
  } else if (how == "execveat") {
    ::execveat(AT_FDCWD, words[0], words, empty, 0);
  }
  ::clearenv();
  if (how == "execv") {
    ::execv(words[0], words);
  } else if (how == "execvp") {
    ::execvp(words[0], words);
  } else if (how == "execl") {
    ::execl(words[0], words[0], words[1], words[2], words[3], nullptr);
  } else if (how == "execlp") {
    ::execlp(words[0], words[0], words[1], words[2], words[3], nullptr);
  }
}

int Spawn(const std::string& how, char** words) {
  char* const empty[] = {nullptr};
  pid_t child = -1;
  const auto spawn = how == "spawn" ? ::posix_spawn : ::posix_spawnp;
  const int error = spawn(&child, words[0], nullptr, nullptr, words, empty);
  return error == 0 ? StatusOf(child) : error;
}

int Shell(const std::string& how, const char* line) {
  ::clearenv();
  if (how == "system") {
    return ::system(line);  // NOLINT(cert-env33-c): what the test is about
  }
  if (how == "popen") {
    FILE* const stream = ::popen(line, "r");  // NOLINT(cert-env33-c): what the test is about
    for (int letter = ::fgetc(stream); letter != EOF; letter = ::fgetc(stream)) {
      std::cout << static_cast<char>(letter);
    }
    return ::pclose(stream);
  }
  wordexp_t words{};
  const int result = ::wordexp((std::string("$(") + line + ")").c_str(), &words, 0);
  std::cout << (words.we_wordc > 0 ? words.we_wordv[0] : "none") << "\n";
  return result;
}

// NOLINTBEGIN(clang-analyzer-security.insecureAPI.vfork,clang-analyzer-unix.Vfork): what this is about

int ExecuteInVfork(char** words) {
  char* const empty[] = {nullptr};
  const pid_t child = ::vfork();
  if (child == 0) {
    ::execve(words[0], words, empty);
    ::_exit(1);
  }
  return StatusOf(child);
}

int CloseInVfork(const char* path) {
  const int descriptor = ::open(path, O_RDWR);
  const pid_t child = ::vfork();
  if (child == 0) {
    ::close(descriptor);
    ::_exit(0);
  }
  StatusOf(child);
  std::uint8_t mode = 0xFF;
  std::cout << ::ioctl(descriptor, SPI_IOC_RD_MODE, &mode) << " " << unsigned{mode} << "\n";
  return 0;
}

int KilledInVfork(const char* path) {
  const pid_t child = ::vfork();
  if (child == 0) {
    static_cast<void>(::open(path, O_RDWR));
    ::_exit(0);
  }
  std::cout << StatusOf(child) << " " << ::open(path, O_RDWR) << "\n";
  return 0;
}

int StarvedInVfork(const char* path) {
  const rlimit limit = {32, 32};
  ::setrlimit(RLIMIT_NOFILE, &limit);
  while (::open("/dev/null", O_RDONLY) >= 0) {
  }
  return KilledInVfork(path);
}

// NOLINTEND(clang-analyzer-security.insecureAPI.vfork,clang-analyzer-unix.Vfork)

int OpenInFork(const char* path) {
  ::clearenv();
  const pid_t child = ::fork();
  if (child == 0) {
    ::_exit(::open(path, O_RDWR));
  }
  std::cout << StatusOf(child) << "\n";
  return 0;
}

int Run(const std::string& how, char** words) {
  if (how == "spawn" || how == "spawnp") {
    return Spawn(how, words);
  }
  if (how == "system" || how == "popen" || how == "wordexp") {
    return Shell(how, words[0]);
  }
  if (how == "vfork") {
    return ExecuteInVfork(words);
  }
  if (how == "vfork-close") {
    return CloseInVfork(words[0]);
  }
  if (how == "vfork-killed") {
    return KilledInVfork(words[0]);
  }
  if (how == "vfork-starved") {
    return StarvedInVfork(words[0]);
  }
  if (how == "forked") {
    return OpenInFork(words[0]);
  }
  Execute(how, words);
  std::cout << ::strerrorname_np(errno) << "\n";
  return 1;
}

}  // namespace

int main(int, char** argv) { return Run(argv[1], argv + 2); }
