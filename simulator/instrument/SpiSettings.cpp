#include "simulator/instrument/SpiSettings.h"

#include <cerrno>
#include <iterator>

namespace orvane {

namespace {

struct SettingRow {
  std::string_view name;
  std::uint32_t atPowerOn;
  std::uint32_t maximum;
};
constexpr SettingRow kSettings[] = {
    // In the order of SpiSetting.
    {"MODE", 0, UINT8_MAX},
    {"LSB_FIRST", 0, UINT8_MAX},
    {"BITS_PER_WORD", 8, UINT8_MAX},
    {"MAX_SPEED_HZ", 50'000'000, UINT32_MAX},
    {"MODE32", 0, UINT32_MAX},
};

}  // namespace

std::string_view SettingName(SpiSetting setting) {
  return kSettings[static_cast<std::size_t>(setting)].name;
}

std::uint32_t SettingMaximum(SpiSetting setting) {
  return kSettings[static_cast<std::size_t>(setting)].maximum;
}

SpiSettings::SpiSettings() {
  static_assert(std::size(kSettings) == kCount);
  for (std::size_t i = 0; i < values_.size(); ++i) {
    values_[i] = kSettings[i].atPowerOn;
  }
}

int SpiSettings::Set(SpiSetting setting, std::uint32_t value) {
  if (setting == SpiSetting::kMaxSpeedHz && value == 0) {
    return EINVAL;
  }
  values_[IndexOf(setting)] = value;
  return 0;
}

}  // namespace orvane
