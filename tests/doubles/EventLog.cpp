#include "tests/doubles/EventLog.h"

#include <algorithm>

std::string Quoted(std::string_view text) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  constexpr unsigned char kFirstPrintable = 0x20;
  std::string quoted = "\"";
  for (const char byte : text) {
    const auto code = static_cast<unsigned char>(byte);
    if (byte == '\n') {
      quoted += "\\n";
    } else if (byte == '\0') {
      quoted += "\\0";
    } else if (byte == '"' || byte == '\\') {
      quoted += {'\\', byte};
    } else if (code < kFirstPrintable) {
      quoted += {'\\', 'x', kDigits[code >> 4U], kDigits[code & 0x0FU]};
    } else {
      quoted += byte;
    }
  }
  return quoted + '"';
}

void EventLog::Add(const std::string& event) { events_.push_back({"", event}); }

void EventLog::AddText(const std::string& stream, std::string_view text) {
  if (!events_.empty() && events_.back().stream == stream && !events_.back().text.ends_with('\n')) {
    events_.back().text += text;
  } else {
    events_.push_back({stream, std::string(text)});
  }
}

std::string EventLog::Text() const {
  std::string text;
  for (const Event& event : events_) {
    text += Shown(event) + "\n";
  }
  return text;
}

int EventLog::Count(const std::string& event) const {
  return static_cast<int>(std::count_if(
      events_.begin(), events_.end(), [&](const Event& each) { return Shown(each) == event; }));
}

void EventLog::Clear() { events_.clear(); }

std::string EventLog::Shown(const Event& event) {
  return event.stream.empty() ? event.text : event.stream + " " + Quoted(event.text);
}
