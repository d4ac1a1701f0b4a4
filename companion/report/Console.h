#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>
#include <string_view>

namespace companion {

/// What `tarnwickctl` shows while it runs, and at its end. What cannot be written is lost, and changes
/// nothing else.
class Console {
 public:
  /// @param out,err     borrowed
  /// @param json        standard output is for the report alone
  /// @param isTerminal  standard error is one: progress is shown
  Console(std::ostream& out, std::ostream& err, bool json, bool isTerminal)
      : out_(out), err_(err), json_(json), isTerminal_(isTerminal) {}
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;

  /// One line of diagnostics.
  void Say(std::string_view line);

  /// How much of the flash has been read, in bytes.
  void ShowProgress(std::size_t done, std::size_t total);

  /// Passes on what `tarnwick` has printed, as it came.
  void PassOn(std::string_view bytes, bool isError);

  /// @param text  whole lines
  void Report(std::string_view text);

 private:
  void EndProgress();

  std::ostream& out_;
  std::ostream& err_;
  bool json_;
  bool isTerminal_;
  std::size_t shownPercent_ = 0;
  bool isProgressShown_ = false;
};

/// @return the text without what a terminal would obey: control characters become '?'
std::string AsOneLine(std::string_view text);

}  // namespace companion
