#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "simulator/boards/ModuleSelectorFiles.h"

namespace orvane {
namespace {

constexpr const char* kSlotA = "/sys/platform/module_selector/slotA";
constexpr const char* kSlotB = "/sys/platform/module_selector/slotB";

TEST(ModuleSelectorFilesTest, BothSlotsStartOnTheOtdrPath) {
  ModuleSelectorFiles files(true);
  EXPECT_THAT(files.AttributePaths(), testing::ElementsAre(kSlotA, kSlotB));
  EXPECT_EQ(files.ReadAttribute(kSlotA), "SPILVDS\n");
  EXPECT_EQ(files.ReadAttribute(kSlotB), "SPILVDS\n");
}

TEST(ModuleSelectorFilesTest, EachFileSwitchesItsSlots) {
  ModuleSelectorFiles files(true);
  EXPECT_EQ(files.WriteAttribute(kSlotA, "SPIFIFO"), 0);
  EXPECT_TRUE(files.Selector().OnSpiMaster(4));
  EXPECT_FALSE(files.Selector().OnSpiMaster(5));
  EXPECT_EQ(files.WriteAttribute(kSlotB, "SPIFIFO\n"), 0);
  EXPECT_TRUE(files.Selector().OnSpiMaster(5));
  EXPECT_EQ(files.WriteAttribute(kSlotA, "SPILVDS"), 0);
  EXPECT_FALSE(files.Selector().OnSpiMaster(4));
}

TEST(ModuleSelectorFilesTest, AbsentSelectorHasNoFiles) {
  EXPECT_TRUE(ModuleSelectorFiles(false).AttributePaths().empty());
}

}  // namespace
}  // namespace orvane
