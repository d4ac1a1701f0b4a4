#pragma once

#include <string>
#include <string_view>
#include <vector>

/// What happened in a test, in true order: calls of doubles and link seams, and the text that
/// reached the console.
class EventLog {
 public:
  using Events = std::vector<std::string>;

  void Add(const std::string& event);

  /// Adds console text, as "out| text". Text is added to the last event if that is an unfinished
  /// line of the same stream.
  void AddText(const std::string& stream, std::string_view text);

  /// @return how many events are exactly this one
  [[nodiscard]] int Count(const std::string& event) const;

  /// @return the events since the last call
  Events Take();

 private:
  Events events_;
};
