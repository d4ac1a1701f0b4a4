#include "simulator/instrument/EventLog.h"

#include <cstddef>

#include "simulator/instrument/Escape.h"

namespace orvane {

void EventLog::Record(const Event& event, std::string_view result) {
  if (!IsOn()) {
    return;
  }
  FinishStandardError();
  *out_ << Word(event.kind);
  if (!event.text.empty()) {
    *out_ << ' ' << event.text;
  }
  if (!result.empty()) {
    *out_ << " = " << result;
  }
  *out_ << '\n';
}

void EventLog::StandardOutput(std::string_view bytes) {
  if (!IsOn()) {
    return;
  }
  FinishStandardError();
  *out_ << "stdout " << Quote(bytes) << '\n';
}

void EventLog::StandardError(std::string_view bytes) {
  if (!IsOn()) {
    return;
  }
  standardError_ += bytes;
  std::size_t start = 0;
  for (std::size_t newline = standardError_.find('\n'); newline != std::string::npos;
       newline = standardError_.find('\n', start)) {
    *out_ << "stderr " << Quote(std::string_view(standardError_).substr(start, newline + 1 - start))
          << '\n';
    start = newline + 1;
  }
  standardError_.erase(0, start);
}

void EventLog::End(std::string_view text) {
  if (!IsOn()) {
    return;
  }
  FinishStandardError();
  *out_ << text << '\n' << std::flush;
}

void EventLog::FinishStandardError() {
  if (!standardError_.empty()) {
    *out_ << "stderr " << Quote(standardError_) << '\n';
    standardError_.clear();
  }
}

}  // namespace orvane
