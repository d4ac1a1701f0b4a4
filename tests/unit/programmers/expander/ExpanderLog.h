#pragma once

#include <string>
#include <vector>

/// What a piece of code does to its surroundings, in one order: calls into doubles and seams, and
/// between them the console text that had been flushed by then, as "out| text" and "err| text".
/// Records only while a recording runs; there is one log per test program.
class ExpanderLog {
 public:
  using Events = std::vector<std::string>;

  static ExpanderLog& Instance();

  /// Records until destroyed, and keeps the console's two descriptors to itself for that long. Text
  /// that was never flushed ends up as "unflushed| text".
  class Recording {
   public:
    Recording();
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;
    ~Recording();
  };

  [[nodiscard]] bool IsRecording() const { return recording_; }

  /// Drops the event unless a recording runs.
  void Add(const std::string& event);

  /// @return what has been recorded since the last call
  Events Take();

  /// Ends the recording; does nothing without one.
  void Stop();

 private:
  struct Console {
    int descriptor;
    const char* label;
    int original = -1;
    int file = -1;
    long taken = 0;
  };

  void Start();
  void TakeConsole(const char* label = nullptr);

  bool recording_ = false;
  Events events_;
  Console consoles_[2] = {{1, "out| "}, {2, "err| "}};
};
