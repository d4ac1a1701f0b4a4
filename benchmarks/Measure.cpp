// measure FILE COMMAND...
// Runs COMMAND, with what it prints passed on, and ends with its exit code. Writes to FILE, in one line:
// nanoseconds until its first output (0: none), nanoseconds until it had ended, microseconds of
// processor time in user mode and in the kernel, peak memory in KiB. The last three are about all
// processes that it has waited for, too. This process is small: what the parent of a process has in
// memory counts for its peak.
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr int kFailed = 125;
constexpr int kSignalled = 128;
constexpr std::size_t kPieceBytes = 4096;

/// The machine's clock; on the virtual instrument the monotonic one may show another time.
std::int64_t Now() {
  timespec now{};
  ::clock_gettime(CLOCK_BOOTTIME, &now);
  return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

long long Microseconds(const timeval& time) {
  return static_cast<long long>(time.tv_sec) * 1'000'000 + time.tv_usec;
}

/// Starts the command with its output in the pipe.
bool Start(char** command, const std::array<int, 2>& pipe, pid_t& process) {
  posix_spawn_file_actions_t actions;
  if (::posix_spawn_file_actions_init(&actions) != 0) {
    return false;
  }
  const bool started =
      ::posix_spawn_file_actions_adddup2(&actions, pipe[1], STDOUT_FILENO) == 0 &&
      ::posix_spawnp(&process, command[0], &actions, nullptr, command, environ) == 0;
  ::posix_spawn_file_actions_destroy(&actions);
  return started;
}

/// Passes the output on until its end.
/// @return when it began; 0 when there is none, or it cannot be passed on
std::int64_t PassOn(int output) {
  std::int64_t first = 0;
  std::array<char, kPieceBytes> piece;
  ssize_t count = 0;
  while ((count = ::read(output, piece.data(), piece.size())) > 0) {
    first = first == 0 ? Now() : first;
    if (::write(STDOUT_FILENO, piece.data(), static_cast<std::size_t>(count)) != count) {
      return 0;
    }
  }
  return first;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    static_cast<void>(std::fputs("measure FILE COMMAND...\n", stderr));
    return kFailed;
  }
  std::array<int, 2> pipe{};
  pid_t process = 0;
  const std::int64_t start = Now();
  if (::pipe2(pipe.data(), O_CLOEXEC) != 0 || !Start(argv + 2, pipe, process)) {
    std::perror("measure");
    return kFailed;
  }
  ::close(pipe[1]);
  const std::int64_t first = PassOn(pipe[0]);
  int status = 0;
  rusage usage{};
  if (::wait4(process, &status, 0, &usage) != process) {
    return kFailed;
  }
  const std::int64_t end = Now();

  std::FILE* const file = std::fopen(argv[1], "w");
  if (file == nullptr) {
    std::perror("measure");
    return kFailed;
  }
  const bool written = std::fprintf(file,
                                    "%lld %lld %lld %lld %ld\n",
                                    static_cast<long long>(first == 0 ? 0 : first - start),
                                    static_cast<long long>(end - start),
                                    Microseconds(usage.ru_utime),
                                    Microseconds(usage.ru_stime),
                                    usage.ru_maxrss) > 0;
  if (std::fclose(file) != 0 || !written) {
    return kFailed;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : kSignalled + WTERMSIG(status);
}
