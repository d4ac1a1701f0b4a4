#include "simulator/instrument/FaultRules.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <stdexcept>

#include "simulator/instrument/ErrnoName.h"
#include "simulator/instrument/Escape.h"
#include "simulator/instrument/EventText.h"
#include "simulator/instrument/FaultAnswer.h"

namespace orvane {

namespace {

constexpr std::string_view kAnyWord = "any";
constexpr std::string_view kDefaultDBusError = "org.freedesktop.DBus.Error.Failed";

constexpr std::string_view kActions =
    "an errno, lost, kill, kill-session, kill-all, data:TEXT or error[:NAME]";
constexpr std::string_view kKinds =
    "open, close, read, write, ioctl, spi, i2c, dbus, sleep, file or any";

[[noreturn]] void Refuse(const std::string& why) { throw std::invalid_argument(why); }

std::string Quoted(std::string_view word) { return std::string("'").append(word).append("'"); }
std::string OneOf(std::string_view words) { return std::string(" (").append(words).append(")"); }

bool CutPrefix(std::string_view& text, std::string_view prefix) {
  if (!text.starts_with(prefix)) {
    return false;
  }
  text.remove_prefix(prefix.size());
  return true;
}

std::string UnescapeAnswer(std::string_view answer) {
  try {
    return Unescape(answer);
  } catch (const std::invalid_argument& error) {
    Refuse(Quoted(answer) + ": " + error.what());
  }
}

/// @return nothing when `text` is no action
std::optional<Fault> ParseAction(std::string_view text) {
  if (text == "lost") {
    return Fault{.kind = Fault::Kind::kLose};
  }
  if (text == "kill") {
    return Fault{.kind = Fault::Kind::kKill};
  }
  if (text == "kill-session") {
    return Fault{.kind = Fault::Kind::kKillSession};
  }
  if (text == "kill-all") {
    return Fault{.kind = Fault::Kind::kKillAll};
  }
  if (text == "error") {
    return Fault{.kind = Fault::Kind::kFail, .text = std::string(kDefaultDBusError)};
  }
  if (std::string_view name = text; CutPrefix(name, "error:") && !name.empty()) {
    return Fault{.kind = Fault::Kind::kFail, .text = std::string(name)};
  }
  if (std::string_view answer = text; CutPrefix(answer, "data:")) {
    return Fault{.kind = Fault::Kind::kAnswer, .text = UnescapeAnswer(answer)};
  }
  if (const std::optional<int> error = ErrnoFromName(text)) {
    return Fault{.kind = Fault::Kind::kFail, .error = *error};
  }
  return std::nullopt;
}

/// Cuts "#N" or "#N+" off the end of a place.
void ParseCount(std::string_view& place, FaultRule& rule) {
  const std::size_t hash = place.rfind('#');
  if (hash == std::string_view::npos) {
    return;
  }
  std::string_view digits = place.substr(hash + 1);
  const bool onwards = digits.ends_with('+');
  if (onwards) {
    digits.remove_suffix(1);
  }
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (digits.empty() || error != std::errc() || end != digits.data() + digits.size()) {
    return;  // a '#' of the text
  }
  if (number == 0) {
    Refuse(Quoted(place.substr(hash)) + ": events are counted from 1");
  }
  rule.first = number;
  rule.onwards = onwards;
  place = place.substr(0, hash);
}

std::optional<EventKind> ParseKind(std::string_view word) {
  if (word == kAnyWord) {
    return std::nullopt;
  }
  const auto* const found = std::find(kEventWords.begin(), kEventWords.end(), word);
  if (found == kEventWords.end()) {
    Refuse(Quoted(word) + " is not a kind of event" + OneOf(kKinds));
  }
  return static_cast<EventKind>(found - kEventWords.begin());
}

/// @param typed  what follows "error:" or "data:" on the command line
void CheckAnswer(const FaultRule& rule, std::string_view typed) {
  if (rule.fault.kind == Fault::Kind::kFail && !rule.fault.text.empty() &&
      !IsDBusErrorName(rule.fault.text)) {
    Refuse(Quoted(typed) +
           " is not the name of a D-Bus error (elements of letters, digits and '_', " +
           "separated by '.', as in " + std::string(kDefaultDBusError) + ")");
  }
  if (rule.fault.kind != Fault::Kind::kAnswer || !rule.kind) {
    return;
  }
  if (const auto problem = ProblemWithAnswer(*rule.kind, rule.text, rule.fault.text)) {
    Refuse(Quoted(typed) + " " + *problem);
  }
}

bool Suits(const FaultRule& rule) {
  const bool isDBus = rule.kind == EventKind::kDBus;
  switch (rule.fault.kind) {
    case Fault::Kind::kNone:
    case Fault::Kind::kKill:
    case Fault::Kind::kKillSession:
    case Fault::Kind::kKillAll:
      return true;
    case Fault::Kind::kFail:
      return rule.kind.has_value() && isDBus == !rule.fault.text.empty();
    case Fault::Kind::kLose:
      return rule.kind == EventKind::kWrite || rule.kind == EventKind::kIoctl ||
             rule.kind == EventKind::kSpi || rule.kind == EventKind::kI2c;
    case Fault::Kind::kAnswer:
      return rule.kind == EventKind::kRead || rule.kind == EventKind::kIoctl ||
             rule.kind == EventKind::kSpi || rule.kind == EventKind::kI2c || isDBus;
  }
  return false;
}

}  // namespace

FaultRule FaultRule::Parse(std::string_view text) {
  // Texts contain colons too: the place ends at the first colon that an action follows.
  for (std::size_t colon = text.find(':'); colon != std::string_view::npos;
       colon = text.find(':', colon + 1)) {
    const std::string_view action = text.substr(colon + 1);
    const std::optional<Fault> fault = ParseAction(action);
    if (!fault) {
      continue;
    }
    FaultRule rule{.fault = *fault, .source = std::string(text)};
    std::string_view place = text.substr(0, colon);
    ParseCount(place, rule);
    const std::size_t wordEnd = place.find(':');
    const std::string_view kind = place.substr(0, wordEnd);
    rule.kind = ParseKind(kind);
    rule.text = wordEnd == std::string_view::npos ? "" : place.substr(wordEnd + 1);
    if (!Suits(rule)) {
      Refuse(Quoted(action) + " cannot happen to " + Quoted(kind) + " events");
    }
    CheckAnswer(rule, action.substr(action.find(':') + 1));
    return rule;
  }
  const std::size_t last = text.rfind(':');
  if (last == std::string_view::npos) {
    Refuse("no action follows " + Quoted(text) + OneOf(kActions));
  }
  Refuse(Quoted(text.substr(last + 1)) + " is not an action" + OneOf(kActions));
}

Fault FaultRules::Judge(EventKind kind, std::string_view text) {
  if (!active_) {
    return {};
  }
  std::optional<std::size_t> decides;
  for (std::size_t i = 0; i < rules_.size(); ++i) {
    CountedRule& counted = rules_[i];
    const FaultRule& rule = counted.rule;
    if (rule.kind.value_or(kind) != kind || !MatchesEvent(text, rule.text)) {
      continue;
    }
    ++counted.seen;
    const bool hits = counted.seen == rule.first || (rule.onwards && counted.seen > rule.first);
    if (hits && !decides) {
      decides = i;
    }
  }
  if (!decides) {
    return {};
  }
  CountedRule& deciding = rules_[*decides];
  Fault fault = deciding.rule.fault;
  fault.rule = *decides;
  deciding.hasHit = deciding.hasHit || fault.kind != Fault::Kind::kAnswer;
  return fault;
}

std::vector<std::string> FaultRules::Unhit() const {
  std::vector<std::string> sources;
  for (const CountedRule& counted : rules_) {
    if (!counted.hasHit) {
      sources.push_back(counted.rule.source);
    }
  }
  return sources;
}

}  // namespace orvane
