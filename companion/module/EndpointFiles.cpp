#include "companion/module/EndpointFiles.h"

#include <algorithm>
#include <cerrno>
#include <optional>

#include "companion/module/Step.h"
#include "companion/module/SysfsText.h"
#include "devices/PciSlot.h"
#include "platform/PEX8606BA.h"

namespace companion {

namespace {

bool IsCount(const std::string& text) {
  return !text.empty() &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

Endpoint EndpointFiles::Look() const {
  const std::optional<std::string> address = ReadPciSlotAddress(slot_);
  if (!address) {
    return ReadSysfsText(PciSlotAddressPath(slot_)).error == ENOENT ? Endpoint::kNotListed
                                                                    : Endpoint::kUnknown;
  }
  const SysfsText enable = ReadSysfsText(PciEndpointPath(*address) + "/enable");
  if (enable.error == ENOENT) {
    return Endpoint::kAbsent;
  }
  if (enable.error != 0 || !IsCount(enable.text)) {
    return Endpoint::kUnknown;
  }
  const bool enabled = enable.text.find_first_not_of('0') != std::string::npos;
  return enabled ? Endpoint::kEnabled : Endpoint::kDisabled;
}

Endpoint EndpointFiles::State() const {
  Endpoint before = Look();
  for (int look = 1; look < 2 * kTries; ++look) {
    const Endpoint now = Look();
    const bool seen = now != Endpoint::kUnknown && now != Endpoint::kNotListed;
    if (now == before && (seen || look >= kTries - 1)) {
      return now;
    }
    before = now;
  }
  return Endpoint::kUnknown;
}

template <typename Step, typename Wanted>
bool EndpointFiles::Reach(Step step, Wanted isWanted) const {
  for (int attempt = 0; attempt < kTries; ++attempt) {
    static_cast<void>(step());  // what is seen afterwards decides
    if (isWanted(State())) {
      return true;
    }
  }
  return false;
}

std::string EndpointFiles::EnumerateAgain() const {
  const Endpoint before = State();
  if (before == Endpoint::kNotListed) {
    return EnumerateUnseen();
  }
  if (before == Endpoint::kUnknown) {
    return "the PCIe endpoint cannot be looked at";
  }
  PEX8606BA pcieSwitch;
  if (before != Endpoint::kAbsent &&
      !Reach([&] { return pcieSwitch.RemoveDevice(slot_); },
             [](Endpoint state) { return state == Endpoint::kAbsent; })) {
    return "the PCIe endpoint is not removed";
  }
  if (!Reach([&] { return pcieSwitch.RescanPciBus(slot_); },
             [](Endpoint state) {
               return state == Endpoint::kDisabled || state == Endpoint::kEnabled;
             })) {
    return "the PCIe endpoint is not found when its bus is scanned";
  }
  if (!Reach([&] { return pcieSwitch.EnableDevice(slot_); },
             [](Endpoint state) { return state == Endpoint::kEnabled; })) {
    return "the PCIe endpoint is not enabled";
  }
  return "";
}

// Removing fails where there is no endpoint; then it is brought back first, so that removing can be
// seen to succeed.
std::string EndpointFiles::EnumerateUnseen() const {
  PEX8606BA pcieSwitch;
  std::string problem;
  for (int attempt = 0; attempt < kTries; ++attempt) {
    const bool removed = pcieSwitch.RemoveDevice(slot_);
    const bool rescanned = pcieSwitch.RescanPciBus(slot_);
    const bool enabled = pcieSwitch.EnableDevice(slot_);
    if (removed && rescanned && enabled) {
      return "";
    }
    problem = !rescanned ? "the PCIe bus cannot be scanned again"
              : !enabled ? "the PCIe endpoint cannot be enabled"
                         : "the PCIe endpoint cannot be removed";
  }
  return problem;
}

}  // namespace companion
