// A program that differs from tarnwick in what DEVIATION names, and in nothing else.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

/// Runs tarnwick with its standard output on `out`.
int RunTarnwick(char** argv, int out) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(out, STDOUT_FILENO);
    ::execv(TARNWICK_BINARY_PATH, argv);
    ::_exit(127);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128;
}

}  // namespace

int main(int /*argc*/, char** argv) {
  const char* const named = std::getenv("DEVIATION");
  const std::string deviation = named == nullptr ? "" : named;
  if (deviation == "device traffic") {
    ::close(::open("/dev/spidev1.0", O_RDONLY));
  } else if (deviation == "stdout") {
    static_cast<void>(std::puts("This is not tarnwick."));
    static_cast<void>(std::fflush(stdout));
  } else if (deviation == "stderr") {
    static_cast<void>(std::fputs("This is not tarnwick.\n", stderr));
  } else if (deviation == "order") {
    int ends[2];
    if (::pipe(ends) != 0) {
      return 127;
    }
    const int exitCode = RunTarnwick(argv, ends[1]);
    ::close(ends[1]);
    char byte = 0;
    while (::read(ends[0], &byte, 1) == 1) {  // after everything else
      static_cast<void>(std::putchar(byte));
    }
    return exitCode;
  }
  const int exitCode = RunTarnwick(argv, STDOUT_FILENO);
  return deviation == "exit code" ? exitCode + 1 : exitCode;
}
