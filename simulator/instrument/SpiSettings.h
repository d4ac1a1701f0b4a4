#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace orvane {

/// The settings of an SPI device that have requests of their own.
enum class SpiSetting { kMode, kLsbFirst, kBitsPerWord, kMaxSpeedHz, kMode32 };

inline constexpr std::array kSpiSettings = {SpiSetting::kMode,
                                            SpiSetting::kLsbFirst,
                                            SpiSetting::kBitsPerWord,
                                            SpiSetting::kMaxSpeedHz,
                                            SpiSetting::kMode32};

/// The end of the names of its requests: "MAX_SPEED_HZ".
std::string_view SettingName(SpiSetting setting);
/// The largest value that its requests carry: of 8 or 32 bits.
std::uint32_t SettingMaximum(SpiSetting setting);

/// The settings of an SPI device; at first those at power-on.
class SpiSettings {
 public:
  SpiSettings();

  std::uint32_t Get(SpiSetting setting) const { return values_[IndexOf(setting)]; }
  /// @return 0, or the errno that the request fails with, which changes nothing
  int Set(SpiSetting setting, std::uint32_t value);

 private:
  static constexpr std::size_t kCount = 5;

  /// Both requests of the mode access the same bits.
  static std::size_t IndexOf(SpiSetting setting) {
    return static_cast<std::size_t>(setting == SpiSetting::kMode32 ? SpiSetting::kMode : setting);
  }

  std::array<std::uint32_t, kCount> values_{};
};

}  // namespace orvane
