#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/instrument/EventKind.h"

namespace orvane {

/// What happens to one event.
struct Fault {
  enum class Kind {
    kNone,         // it is carried out
    kFail,         // it has no effect and fails with `error` (D-Bus: with the error named `text`)
    kLose,         // it has no effect and succeeds
    kAnswer,       // it is carried out, but the program gets `text` as the answer
    kKill,         // it has no effect: the process is killed
    kKillSession,  // likewise, with every other process of its session
    kKillAll,      // likewise, with every other process of the command
  };
  Kind kind = Kind::kNone;
  int error = 0;
  std::string text;
  std::size_t rule = 0;  // its number among FaultRules; without meaning for kNone
};

/// One rule, KIND[:TEXT][#N[+]]:ACTION. For TEXT see MatchesEvent().
struct FaultRule {
  std::optional<EventKind> kind;  // none: any
  std::string text;               // a part of the event's text; empty: any
  std::uint64_t first = 1;        // the first of the matching events that is hit
  bool onwards = true;            // and those after it
  Fault fault;
  std::string source;  // as its user typed it

  /// @throw std::invalid_argument, with a text for the user
  static FaultRule Parse(std::string_view text);
};

/// The rules of a run. Each counts every event that matches it, also those that an earlier rule
/// hits.
class FaultRules {
 public:
  void Add(FaultRule rule) { rules_.push_back({std::move(rule)}); }
  bool Empty() const { return rules_.empty(); }

  /// While rules are not active they neither count nor hit events. They are at the start.
  void SetActive(bool active) { active_ = active; }

  /// To be called exactly once for each event.
  /// @param text  the event as the log shows it, without its result
  /// @return the fault of the first rule that hits it
  Fault Judge(EventKind kind, std::string_view text);

  /// To be called when the answer of a fault is what the program gets. Until then its rule has hit
  /// nothing, because events can match that have no answer.
  void CountAnswer(const Fault& fault) { rules_[fault.rule].hasHit = true; }

  /// The sources of the rules that have decided about no event so far, in their order.
  std::vector<std::string> Unhit() const;

 private:
  struct CountedRule {
    FaultRule rule;
    std::uint64_t seen = 0;
    bool hasHit = false;
  };

  std::vector<CountedRule> rules_;
  bool active_ = true;
};

}  // namespace orvane
