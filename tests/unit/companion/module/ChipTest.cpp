#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>

#include "companion/module/ModuleInterface.h"

namespace companion {
namespace {

struct Row {
  const char* name;
  std::uint8_t maker;
  std::uint8_t status;
  std::optional<std::uint8_t> config;
  bool lockable;
  bool whole;
  bool isProtected;
};

class ChipTest : public testing::TestWithParam<Row> {};

TEST_P(ChipTest, ProtectionIsTakenFromTheRegisters) {
  const Row& row = GetParam();
  const Chip chip = {.id = {row.maker, 0x20, 0x18}, .status = row.status, .config = row.config};
  EXPECT_EQ(chip.IsLockable(), row.lockable);
  EXPECT_EQ(chip.IsLockedWhole(), row.whole);
  EXPECT_EQ(chip.IsProtected(), row.isProtected);
}

INSTANTIATE_TEST_SUITE_P(
    Registers,
    ChipTest,
    testing::Values(Row{"MacronixUnlocked", 0xC2, 0x00, 0x08, true, false, false},
                    Row{"MacronixLevel1", 0xC2, 0x04, 0x08, true, false, true},
                    Row{"MacronixLevel8", 0xC2, 0x20, 0x08, true, false, true},
                    Row{"MacronixLevel9", 0xC2, 0x24, 0x08, true, true, true},
                    Row{"MacronixLevel15", 0xC2, 0x3C, 0x08, true, true, true},
                    Row{"MacronixLevel9FromTheTop", 0xC2, 0x24, 0x00, true, false, true},
                    Row{"MacronixWithoutItsConfiguration", 0xC2, 0x24, {}, true, false, true},
                    Row{"MacronixQuadEnableProtectsNothing", 0xC2, 0x40, 0x08, true, false, false},
                    Row{"MacronixLatchProtectsNothing", 0xC2, 0x03, 0x08, true, false, false},
                    Row{"MicronUnlocked", 0x20, 0x02, {}, false, false, false},
                    Row{"MicronBit2", 0x20, 0x04, {}, false, false, true},
                    Row{"MicronBit6", 0x20, 0x40, {}, false, false, true},
                    Row{"MicronBottomBitProtectsNothing", 0x20, 0x20, {}, false, false, false},
                    Row{"OtherMakerBit4", 0xEF, 0x10, {}, false, false, true},
                    Row{"OtherMakerBit6ProtectsNothing", 0xEF, 0x40, {}, false, false, false}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace companion
