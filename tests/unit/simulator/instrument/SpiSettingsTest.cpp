#include <gtest/gtest.h>

#include <cerrno>

#include "simulator/instrument/SpiSettings.h"

namespace orvane {
namespace {

TEST(SpiSettingsTest, ValuesAtPowerOn) {
  const SpiSettings settings;
  EXPECT_EQ(settings.Get(SpiSetting::kMode), 0U);
  EXPECT_EQ(settings.Get(SpiSetting::kLsbFirst), 0U);
  EXPECT_EQ(settings.Get(SpiSetting::kBitsPerWord), 8U);
  EXPECT_EQ(settings.Get(SpiSetting::kMaxSpeedHz), 50000000U);
  EXPECT_EQ(settings.Get(SpiSetting::kMode32), 0U);
}

TEST(SpiSettingsTest, EachSettingKeepsItsOwnValue) {
  SpiSettings settings;
  EXPECT_EQ(settings.Set(SpiSetting::kMode, 3), 0);
  EXPECT_EQ(settings.Set(SpiSetting::kLsbFirst, 1), 0);
  EXPECT_EQ(settings.Set(SpiSetting::kBitsPerWord, 16), 0);
  EXPECT_EQ(settings.Set(SpiSetting::kMaxSpeedHz, 1), 0);
  EXPECT_EQ(settings.Get(SpiSetting::kMode), 3U);
  EXPECT_EQ(settings.Get(SpiSetting::kLsbFirst), 1U);
  EXPECT_EQ(settings.Get(SpiSetting::kBitsPerWord), 16U);
  EXPECT_EQ(settings.Get(SpiSetting::kMaxSpeedHz), 1U);
}

TEST(SpiSettingsTest, BothRequestsOfTheModeShowTheSameBits) {
  SpiSettings settings;
  EXPECT_EQ(settings.Set(SpiSetting::kMode32, 0x301), 0);
  EXPECT_EQ(settings.Get(SpiSetting::kMode), 0x301U);
  EXPECT_EQ(settings.Get(SpiSetting::kMode32), 0x301U);
}

TEST(SpiSettingsTest, SpeedZeroIsInvalidAndChangesNothing) {
  SpiSettings settings;
  EXPECT_EQ(settings.Set(SpiSetting::kMaxSpeedHz, 0), EINVAL);
  EXPECT_EQ(settings.Get(SpiSetting::kMaxSpeedHz), 50000000U);
}

TEST(SpiSettingsTest, NamesAreThoseOfTheRequests) {
  EXPECT_EQ(SettingName(SpiSetting::kMode), "MODE");
  EXPECT_EQ(SettingName(SpiSetting::kLsbFirst), "LSB_FIRST");
  EXPECT_EQ(SettingName(SpiSetting::kBitsPerWord), "BITS_PER_WORD");
  EXPECT_EQ(SettingName(SpiSetting::kMaxSpeedHz), "MAX_SPEED_HZ");
  EXPECT_EQ(SettingName(SpiSetting::kMode32), "MODE32");
}

}  // namespace
}  // namespace orvane
