#include "tests/doubles/EventLog.h"

#include <algorithm>
#include <utility>

void EventLog::Add(const std::string& event) { events_.push_back(event); }

void EventLog::AddText(const std::string& stream, std::string_view text) {
  const std::string label = stream + "| ";
  if (events_.empty() || !events_.back().starts_with(label) || events_.back().ends_with('\n')) {
    events_.push_back(label);
  }
  events_.back() += text;
}

int EventLog::Count(const std::string& event) const {
  return static_cast<int>(std::count(events_.begin(), events_.end(), event));
}

EventLog::Events EventLog::Take() { return std::exchange(events_, {}); }
