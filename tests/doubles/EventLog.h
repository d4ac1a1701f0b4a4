#pragma once

#include <string>
#include <string_view>
#include <vector>

/// What happened in a test, in true order: one line per event, from doubles, link seams and the
/// console.
class EventLog {
 public:
  void Add(const std::string& event);

  /// Adds console text, shown as: stream "text", with quotes and control bytes escaped. Text that
  /// goes on in a line which the same stream left unfinished in the last event joins that event.
  void AddText(const std::string& stream, std::string_view text);

  /// @return every event followed by a newline
  [[nodiscard]] std::string Text() const;

  /// @return how many events are exactly this one
  [[nodiscard]] int Count(const std::string& event) const;

  void Clear();

 private:
  struct Event {
    std::string stream;  // empty when this is no console text
    std::string text;
  };

  static std::string Shown(const Event& event);

  std::vector<Event> events_;
};

/// @return the text in quotes, as a C++ string would be written
std::string Quoted(std::string_view text);
