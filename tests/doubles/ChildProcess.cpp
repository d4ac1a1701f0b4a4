#include "tests/doubles/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <stdexcept>
#include <system_error>

namespace {

std::vector<std::string> EnvironmentOf(const ChildProcess::Start& start) {
  std::map<std::string, std::string> variables;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    const std::string text = *variable;
    const std::size_t equals = text.find('=');
    variables[text.substr(0, equals)] = text.substr(equals + 1);
  }
  for (const std::string& name : start.unset) {
    variables.erase(name);
  }
  for (const auto& [name, value] : start.environment) {
    variables[name] = value;
  }
  std::vector<std::string> texts;
  texts.reserve(variables.size());
  for (const auto& [name, value] : variables) {
    texts.push_back(std::string(name).append("=").append(value));
  }
  return texts;
}

/// The descriptors and the directory that a child starts with.
class Actions {
 public:
  explicit Actions(const ChildProcess::Start& start) {
    ::posix_spawn_file_actions_init(&actions_);
    Open(STDIN_FILENO, "/dev/null", O_RDONLY);
    if (start.outEnd >= 0) {
      ::posix_spawn_file_actions_adddup2(&actions_, start.outEnd, STDOUT_FILENO);
    }
    Write(STDOUT_FILENO, start.out);
    Write(STDERR_FILENO, start.err);
    // The process that started the tests may have left descriptors open.
    ::posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
    for (const int descriptor : start.closed) {
      ::posix_spawn_file_actions_addclose(&actions_, descriptor);
    }
    for (const auto& [descriptor, path] : start.readers) {
      Open(descriptor, path, O_RDONLY);
    }
    ::posix_spawn_file_actions_addchdir_np(&actions_, start.directory.c_str());
  }
  Actions(const Actions&) = delete;
  Actions& operator=(const Actions&) = delete;
  ~Actions() { ::posix_spawn_file_actions_destroy(&actions_); }

  const posix_spawn_file_actions_t* Get() const { return &actions_; }

 private:
  void Open(int descriptor, const std::string& path, int flags) {
    ::posix_spawn_file_actions_addopen(&actions_, descriptor, path.c_str(), flags, 0600);
  }
  void Write(int descriptor, const std::string& path) {
    if (!path.empty()) {
      Open(descriptor, path, O_WRONLY | O_CREAT | O_TRUNC);
    }
  }

  posix_spawn_file_actions_t actions_{};
};

}  // namespace

std::vector<char*> ArgumentPointers(std::vector<std::string>& words) {
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (std::string& word : words) {
    pointers.push_back(word.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

ChildProcess::ChildProcess(const Start& start) {
  std::vector<std::string> words = start.words;
  std::vector<std::string> variables = EnvironmentOf(start);
  const Actions actions(start);
  const int error = ::posix_spawn(&id_,
                                  words.at(0).c_str(),
                                  actions.Get(),
                                  nullptr,
                                  ArgumentPointers(words).data(),
                                  ArgumentPointers(variables).data());
  if (error != 0) {
    id_ = -1;
    throw std::system_error(error, std::generic_category(), words[0]);
  }
}

ChildProcess::~ChildProcess() {
  if (id_ > 0) {
    ::kill(id_, SIGKILL);
    ::waitpid(id_, nullptr, 0);
  }
}

ChildProcess::End ChildProcess::Wait(int longestMilliseconds) {
  const long descriptor = ::syscall(SYS_pidfd_open, id_, 0);  // glibc's has no C++ linkage yet
  pollfd end = {.fd = static_cast<int>(descriptor), .events = POLLIN, .revents = 0};
  if (::poll(&end, 1, longestMilliseconds) == 0) {
    ::kill(id_, SIGTERM);
  }
  ::close(end.fd);
  int status = 0;
  if (::waitpid(std::exchange(id_, -1), &status, 0) < 0) {
    throw std::system_error(errno, std::generic_category(), "waitpid");
  }
  return WIFEXITED(status) ? End{.number = WEXITSTATUS(status)}
                           : End{.isSignal = true, .number = WTERMSIG(status)};
}

std::vector<std::string> SplitWords(std::string_view command) {
  std::vector<std::string> words;
  bool isInWord = false;
  bool isQuoted = false;
  for (const char letter : command) {
    if (letter == ' ' && !isQuoted) {
      isInWord = false;
      continue;
    }
    if (!isInWord) {
      words.emplace_back();
      isInWord = true;
    }
    if (letter == '\'') {
      isQuoted = !isQuoted;
    } else {
      words.back() += letter;
    }
  }
  if (isQuoted) {
    throw std::invalid_argument("a quote is missing: " + std::string(command));
  }
  return words;
}
