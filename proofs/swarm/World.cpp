#include "proofs/swarm/World.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <sstream>
#include <stdexcept>

namespace swarm {

namespace {

constexpr std::string_view kKindsOfStep = "urvtURVT";
constexpr std::string_view kActions = "ksith";

[[noreturn]] void Refuse(const std::string& why) { throw std::invalid_argument(why); }

std::string Quoted(std::string_view word) { return "'" + std::string(word) + "'"; }

/// Takes a number off the front.
std::size_t TakeNumber(std::string_view& text) {
  std::size_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc()) {
    Refuse("a number is missing before " + Quoted(text));
  }
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

bool TakeCharacter(std::string_view& text, char character) {
  if (text.empty() || text.front() != character) {
    return false;
  }
  text.remove_prefix(1);
  return true;
}

std::vector<Step> TakeSteps(std::string_view& text);  // NOLINT(misc-no-recursion): steps nest

Hold TakeHold(std::string_view& text) {  // NOLINT(misc-no-recursion)
  Hold hold{.call = TakeNumber(text)};
  if (TakeCharacter(text, '[')) {
    hold.action = '[';
    hold.inside = TakeSteps(text);
    if (!TakeCharacter(text, ']')) {
      Refuse("']' is missing before " + Quoted(text));
    }
    return hold;
  }
  if (text.empty() || kActions.find(text.front()) == std::string_view::npos || hold.call == 0) {
    Refuse("not an action: " + Quoted(text));
  }
  hold.action = text.front();
  text.remove_prefix(1);
  return hold;
}

std::vector<Step> TakeSteps(std::string_view& text) {  // NOLINT(misc-no-recursion)
  std::vector<Step> steps;
  do {
    if (text.empty() || kKindsOfStep.find(text.front()) == std::string_view::npos) {
      Refuse("not a step: " + Quoted(text));
    }
    Step step{.what = text.front()};
    text.remove_prefix(1);
    while (TakeCharacter(text, '@')) {
      step.holds.push_back(TakeHold(text));
    }
    steps.push_back(std::move(step));
  } while (TakeCharacter(text, ','));
  return steps;
}

std::vector<Step> ParseSteps(std::string_view text) {
  std::vector<Step> steps = TakeSteps(text);
  if (!text.empty()) {
    Refuse("not part of a step: " + Quoted(text));
  }
  return steps;
}

Contents ParseContents(std::string_view text) {
  const std::size_t colon = text.find(':');
  if (colon == std::string_view::npos) {
    Refuse("not KIND:BYTES: " + Quoted(text));
  }
  std::string_view number = text.substr(colon + 1);
  Contents contents{.kind = std::string(text.substr(0, colon)), .bytes = TakeNumber(number)};
  if (!number.empty()) {
    Refuse("not KIND:BYTES: " + Quoted(text));
  }
  return contents;
}

std::string PrintSteps(const std::vector<Step>& steps) {  // NOLINT(misc-no-recursion)
  std::string text;
  for (const Step& step : steps) {
    text += (text.empty() ? "" : ",") + std::string(1, step.what);
    for (const Hold& hold : step.holds) {
      text += "@" + std::to_string(hold.call);
      text +=
          hold.action == '[' ? "[" + PrintSteps(hold.inside) + "]" : std::string(1, hold.action);
    }
  }
  return text;
}

std::string PrintContents(const Contents& contents) {
  return contents.kind + ":" + std::to_string(contents.bytes);
}

/// "a=..." and the like.
void TakeSetting(World& world, const std::string& name, const std::string& value) {
  if (name == "a") {
    world.a = ParseContents(value);
  } else if (name == "b") {
    world.b = ParseContents(value);
  } else if (name == "flash") {
    world.flash = ParseContents(value);
  } else if (name == "registers") {
    world.registers = value;
  } else if (name == "start") {
    world.starts.push_back(value);
  } else if (name == "steps") {
    world.steps = ParseSteps(value);
  } else if (name == "end" && (value == "here" || value == "power")) {
    world.endsHere = value == "here";
  } else if (name == "key") {
    world.keys.push_back(value);
  } else if (name == "stay") {
    world.stays.push_back(value);
  } else if (name == "fault") {
    world.faults.push_back(value);
  } else {
    Refuse("not a setting of a world: " + Quoted(name + "=" + value));
  }
}

}  // namespace

unsigned SlotOf(const World& world) {
  constexpr std::array<std::pair<std::string_view, unsigned>, 4> kSlots = {
      {{"wend", 1}, {"dax", 2}, {"pyx1", 4}, {"pyx2", 5}}};
  const auto* const found = std::find_if(
      kSlots.begin(), kSlots.end(), [&](const auto& slot) { return slot.first == world.type; });
  if (found == kSlots.end()) {
    Refuse("not a type of module: " + Quoted(world.type));
  }
  return found->second;
}

bool HasBootHeader(const World& world) { return world.type == "wend" || world.type == "pyx2"; }

bool IsPyx(const World& world) { return world.type.starts_with("pyx"); }

bool IsFit(const Contents& image) {
  return image.kind == "plain" || image.kind == "gzip" || image.kind == "unstamped" ||
         image.kind == "namesake";
}

bool Contains(const Step& step, char kind) {  // NOLINT(misc-no-recursion)
  const auto isOrContains = [&](const Step& inner) { return Contains(inner, kind); };
  return std::tolower(step.what) == kind ||
         std::any_of(step.holds.begin(), step.holds.end(), [&](const Hold& hold) {
           return std::any_of(hold.inside.begin(), hold.inside.end(), isOrContains);
         });
}

char LastUpdate(const World& world) {
  const bool hasBareRun = std::any_of(
      world.steps.begin(), world.steps.end(), [](const Step& step) { return Contains(step, 't'); });
  if (IsFit(world.a)) {
    return hasBareRun ? 'r' : 'u';
  }
  return hasBareRun ? 'R' : 'U';
}

std::string Print(const World& world) {
  std::string text = world.type + " " + world.chip + " a=" + PrintContents(world.a) +
                     " b=" + PrintContents(world.b) + " flash=" + PrintContents(world.flash) +
                     " registers=" + world.registers;
  for (const std::string& start : world.starts) {
    text += " start=" + start;
  }
  text += (world.steps.empty() ? "" : " steps=" + PrintSteps(world.steps)) +
          std::string(world.endsHere ? " end=here" : " end=power");
  for (const std::string& key : world.keys) {
    text += " key=" + key;
  }
  for (const std::string& stay : world.stays) {
    text += " stay=" + stay;
  }
  for (const std::string& fault : world.faults) {
    text += " fault=" + fault;
  }
  return text;
}

World Parse(std::string_view text) {
  std::istringstream words{std::string(text)};
  World world;
  if (!(words >> world.type >> world.chip)) {
    Refuse("a world begins with a type of module and a chip");
  }
  static_cast<void>(SlotOf(world));
  for (std::string word; words >> word;) {
    const std::size_t equals = word.find('=');
    if (equals == std::string::npos) {
      Refuse("not a setting of a world: " + Quoted(word));
    }
    TakeSetting(world, word.substr(0, equals), word.substr(equals + 1));
  }
  return world;
}

}  // namespace swarm
