#include "companion/report/Summary.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace companion {

std::string_view VerdictWord(std::string_view command, ExitCode exit) {
  switch (exit) {
    case ExitCode::kDone:
      return command == "update" ? "proven" : command == "verify" ? "equal" : "read";
    case ExitCode::kNot:
      return command == "update" ? "not-proven" : "differs";
    case ExitCode::kRefused:
      break;
    case ExitCode::kPowerCycle:
      return "power-cycle";
    case ExitCode::kLocked:
      return "locked";
    case ExitCode::kStopped:
      return "stopped";
    case ExitCode::kUnreachable:
      return "unreachable";
  }
  return "refused";
}

std::optional<Chip> ChipOf(const ModuleResult& result) {
  const auto isIdentified = [](const ReadingFacts& reading) {
    return reading.found.chip.id != decltype(Chip::id){};
  };
  const auto found = std::find_if(result.readings.rbegin(), result.readings.rend(), isIdentified);
  return found == result.readings.rend() ? std::nullopt : std::optional(found->found.chip);
}

DoneLine DoneBefore(const ModuleResult& result) {
  return result.readings.empty() ? DoneLine::kUnknown : result.readings.front().found.done;
}

DoneLine DoneAfter(const ModuleResult& result) {
  return result.readings.empty() ? DoneLine::kUnknown : result.readings.back().found.doneAfter;
}

DoneLine DoneAfter(const UpdateResult& result) {
  return result.intoUse.empty() ? DoneAfter(static_cast<const ModuleResult&>(result))
                                : result.intoUse.back().found.done;
}

Endpoint EndpointAfter(const ModuleResult& result) {
  return result.readings.empty() ? Endpoint::kUnknown : result.readings.back().found.endpoint;
}

Endpoint EndpointAfter(const UpdateResult& result) {
  return result.intoUse.empty() ? EndpointAfter(static_cast<const ModuleResult&>(result))
                                : result.intoUse.back().found.endpoint;
}

std::string_view NameOf(DoneLine done) {
  switch (done) {
    case DoneLine::kUnknown:
      break;
    case DoneLine::kLow:
      return "low";
    case DoneLine::kHigh:
      return "high";
  }
  return "unknown";
}

std::string_view NameOf(Endpoint endpoint) {
  switch (endpoint) {
    case Endpoint::kNone:
      return "none";
    case Endpoint::kNotListed:
      return "not-listed";
    case Endpoint::kUnknown:
      break;
    case Endpoint::kAbsent:
      return "absent";
    case Endpoint::kDisabled:
      return "disabled";
    case Endpoint::kEnabled:
      return "enabled";
  }
  return "unknown";
}

std::string_view NameOf(FlashHolds holds) {
  switch (holds) {
    case FlashHolds::kNotRead:
      break;
    case FlashHolds::kOther:
      return "other";
    case FlashHolds::kImage:
      return "image";
    case FlashHolds::kNotTheImage:
      return "not-the-image";
    case FlashHolds::kNotKnown:
      return "not-known";
  }
  return "not-read";
}

std::string_view NameOf(InUse inUse) {
  switch (inUse) {
    case InUse::kNo:
      break;
    case InUse::kFoundSo:
      return "found";
    case InUse::kTaken:
      return "taken";
    case InUse::kAtPowerOn:
      return "at-power-on";
  }
  return "no";
}

std::string IdOf(const Chip& chip) {
  std::array<char, 8> text{};
  static_cast<void>(
      std::snprintf(text.data(), text.size(), "%02x%02x%02x", chip.id[0], chip.id[1], chip.id[2]));
  return text.data();
}

}  // namespace companion
