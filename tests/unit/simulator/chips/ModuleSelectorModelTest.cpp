#include <gtest/gtest.h>

#include "simulator/chips/ModuleSelectorModel.h"

namespace {

using orvane::ModuleSelectorModel;
using Attribute = ModuleSelectorModel::Attribute;

TEST(ModuleSelectorModelTest, StartsOnSpilvds) {
  const ModuleSelectorModel selector;
  EXPECT_EQ(selector.Read(Attribute::kSlotA), "SPILVDS");
  EXPECT_EQ(selector.Read(Attribute::kSlotB), "SPILVDS");
  for (unsigned slot = 0; slot < 8; ++slot) {
    EXPECT_FALSE(selector.OnSpiMaster(slot)) << slot;
  }
}

TEST(ModuleSelectorModelTest, SlotASwitchesSlotFourAlone) {
  ModuleSelectorModel selector;
  selector.Write(Attribute::kSlotA, "SPIFIFO");
  EXPECT_EQ(selector.Read(Attribute::kSlotA), "SPIFIFO");
  EXPECT_EQ(selector.Read(Attribute::kSlotB), "SPILVDS");
  for (unsigned slot = 0; slot < 8; ++slot) {
    EXPECT_EQ(selector.OnSpiMaster(slot), slot == 4) << slot;
  }
}

TEST(ModuleSelectorModelTest, SlotBSwitchesEveryOtherSlot) {
  ModuleSelectorModel selector;
  selector.Write(Attribute::kSlotB, "SPIFIFO");
  for (unsigned slot = 0; slot < 8; ++slot) {
    EXPECT_EQ(selector.OnSpiMaster(slot), slot != 4) << slot;
  }
  EXPECT_TRUE(selector.OnSpiMaster(4294967295U));
}

TEST(ModuleSelectorModelTest, SpilvdsSwitchesBack) {
  ModuleSelectorModel selector;
  selector.Write(Attribute::kSlotA, "SPIFIFO");
  selector.Write(Attribute::kSlotA, "SPILVDS");
  EXPECT_FALSE(selector.OnSpiMaster(4));
}

TEST(ModuleSelectorModelTest, OtherTextsAreIgnored) {
  ModuleSelectorModel selector;
  for (const char* text : {"", "SPIFIF", "SPIFIFO\n", "spififo", "SPIFIFOSPIFIFO"}) {
    selector.Write(Attribute::kSlotA, text);
    EXPECT_EQ(selector.Read(Attribute::kSlotA), "SPILVDS") << text;
  }
  selector.Write(Attribute::kSlotA, "SPIFIFO");
  selector.Write(Attribute::kSlotA, "x");
  EXPECT_EQ(selector.Read(Attribute::kSlotA), "SPIFIFO");
}

}  // namespace
