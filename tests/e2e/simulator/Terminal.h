#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvane {

/// A program, such as a shell, with a terminal of its own that does not echo. It is the leader of a
/// session; what is left of the session is killed at the end.
class Terminal {
 public:
  /// @param words        the path of the program, and its arguments
  /// @param directory    its working directory
  /// @param environment  all that it has
  /// @throw std::system_error
  Terminal(std::vector<std::string> words,
           const std::string& directory,
           std::vector<std::string> environment);
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;
  ~Terminal();

  pid_t Id() const { return id_; }

  /// Keys: "\r" is Enter, "\x1a" Ctrl-Z, "\x03" Ctrl-C, "\x04" Ctrl-D.
  void Type(std::string_view keys) const;

  /// Reads until `text` has come, from where the last call ended.
  /// @return false when it does not come within a time far longer than any program takes
  bool Shows(std::string_view text);

  /// Everything that was read.
  const std::string& Seen() const { return seen_; }

 private:
  pid_t id_ = -1;
  int keyboard_ = -1;  // and screen
  std::string seen_;
  std::size_t read_ = 0;  // how much of it the calls have gone past
};

}  // namespace orvane
