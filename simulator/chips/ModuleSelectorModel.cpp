#include "simulator/chips/ModuleSelectorModel.h"

namespace orvane {
namespace {

constexpr unsigned kSlotOfSlotA = 4;
constexpr std::string_view kSpiMaster = "SPIFIFO";
constexpr std::string_view kOtdr = "SPILVDS";

}  // namespace

void ModuleSelectorModel::Write(Attribute attribute, std::string_view text) {
  if (text == kSpiMaster || text == kOtdr) {
    (attribute == Attribute::kSlotA ? slotAOnSpiMaster_ : slotBOnSpiMaster_) = text == kSpiMaster;
  }
}

std::string_view ModuleSelectorModel::Read(Attribute attribute) const {
  return (attribute == Attribute::kSlotA ? slotAOnSpiMaster_ : slotBOnSpiMaster_) ? kSpiMaster
                                                                                  : kOtdr;
}

bool ModuleSelectorModel::OnSpiMaster(unsigned slot) const {
  return slot == kSlotOfSlotA ? slotAOnSpiMaster_ : slotBOnSpiMaster_;
}

}  // namespace orvane
