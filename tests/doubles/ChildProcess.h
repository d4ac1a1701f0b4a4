#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// A program that a test starts. Its standard input is /dev/null; it inherits the standard
/// descriptors, and no others.
class ChildProcess {
 public:
  struct Start {
    std::vector<std::string> words;  // the path of the program, and its arguments
    std::string directory = ".";
    std::vector<std::pair<std::string, std::string>> environment;  // set in ours; the last counts
    std::vector<std::string> unset;                                // names that it does not have
    std::string out;  // a file for its standard output; empty: ours
    std::string err;
    int outEnd = -1;          // a descriptor for its standard output, instead of a file
    std::vector<int> closed;  // descriptors that it does not have
    std::vector<std::pair<int, std::string>> readers;  // descriptors that read these files
  };

  /// How a process ended.
  struct End {
    bool isSignal = false;
    int number = -1;  // its exit status, or the signal

    /// As a shell shows it: 128 + the signal.
    [[nodiscard]] int ExitCode() const { return isSignal ? 128 + number : number; }
  };

  /// @throw std::system_error
  explicit ChildProcess(const Start& start);
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  /// One that has not been waited for is killed.
  ~ChildProcess();

  [[nodiscard]] pid_t Id() const { return id_; }

  /// Waits for the end. May be called once.
  /// @param longestMilliseconds  after which it is sent SIGTERM; -1: never
  /// @throw std::system_error
  End Wait(int longestMilliseconds = -1);

 private:
  pid_t id_ = -1;
};

/// The words of a command: blanks part them, and what stands between two ' is kept, blanks
/// included.
/// @throw std::invalid_argument when the second ' is missing
std::vector<std::string> SplitWords(std::string_view command);

/// What exec takes: a pointer to each word, and a null after them.
/// @param words  borrowed by the result
std::vector<char*> ArgumentPointers(std::vector<std::string>& words);
