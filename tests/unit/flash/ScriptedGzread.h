#pragma once

#include <deque>
#include <optional>
#include <vector>

/// Decides what gzread() returns to our objects while it lives. It touches no buffer then. While
/// none lives, zlib answers. One at a time.
class ScriptedGzread {
 public:
  /// @param results  one per call; after the last one every call fails the test and returns 0
  explicit ScriptedGzread(std::vector<int> results);
  ScriptedGzread(const ScriptedGzread&) = delete;
  ScriptedGzread& operator=(const ScriptedGzread&) = delete;
  /// Fails the test when results are left.
  ~ScriptedGzread();

  /// @return the lengths asked for
  [[nodiscard]] const std::vector<unsigned>& Lengths() const { return lengths_; }

  int Next(unsigned length);

 private:
  std::deque<int> results_;
  std::vector<unsigned> lengths_;
};

/// Lets zlib answer, but ends the stream for our objects after a number of calls that failed.
class EndAfterGzreadErrors {
 public:
  explicit EndAfterGzreadErrors(int errors);
  EndAfterGzreadErrors(const EndAfterGzreadErrors&) = delete;
  EndAfterGzreadErrors& operator=(const EndAfterGzreadErrors&) = delete;
  ~EndAfterGzreadErrors();

  /// @return how many calls have failed
  static int Errors();
};
