#pragma once

#include <ostream>
#include <string>
#include <string_view>

#include "simulator/instrument/Event.h"

namespace orvane {

/// Writes one line for each event, in the order of the calls.
class EventLog {
 public:
  /// @param out  borrowed; null: nothing is written
  explicit EventLog(std::ostream* out) : out_(out) {}

  /// Whether anything is written. If not, callers need not compose texts.
  bool IsOn() const { return out_ != nullptr; }

  /// "spi /dev/spidev1.0 RDSR = 03"; without a result, nothing follows the event's text.
  void Record(const Event& event, std::string_view result = {});

  /// One write to standard output, one line.
  void StandardOutput(std::string_view bytes);

  /// A write to standard error. Programs write to it in pieces, so the pieces are joined: the log
  /// gets one line for each line of text, and one for an unfinished line before the next event.
  void StandardError(std::string_view bytes);

  /// The end of the run: "exit 0", "killed SIGSEGV".
  void End(std::string_view text);

 private:
  void FinishStandardError();

  std::ostream* out_;
  std::string standardError_;
};

}  // namespace orvane
