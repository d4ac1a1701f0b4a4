#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {

/// Writes the form of logic analysers, "value change dump", of IEEE 1364: first the names of signals,
/// then their levels at time 0, then each change of a level. Times are whole nanoseconds.
class VcdFile {
 public:
  using Signal = std::size_t;

  /// @param out  borrowed; what cannot be written shows in its state
  explicit VcdFile(std::ostream& out);

  // --- Before Start()

  /// The signals that are added next belong to this scope. Scopes are not nested.
  /// @param name  letters, digits and underscores, as in the next one
  void AddScope(std::string_view name);
  /// @param high  its level at the start
  Signal AddSignal(std::string_view name, bool high);

  void Start();

  // --- After it

  /// A level that the signal has already is not written again.
  /// @param at  not before that of the call before it
  void Set(Signal signal, bool high, std::chrono::nanoseconds at);
  /// The last time stamp. It is 1 ns later if something changes at the end itself: decoders do not see
  /// levels that do not last.
  /// @param at  likewise
  void End(std::chrono::nanoseconds at);

 private:
  struct State {
    std::string code;
    bool high;
  };

  void Stamp(std::chrono::nanoseconds at);
  void WriteLevel(const State& signal);
  void EndScope();

  std::ostream& out_;
  std::vector<State> signals_;
  bool isInScope_ = false;
  std::optional<std::chrono::nanoseconds> stamp_;  // the last one that was written
};

}  // namespace orvane
