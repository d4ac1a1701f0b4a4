#include <gtest/gtest.h>

#include "simulator/chips/PcieSlotModel.h"

namespace {

using orvane::PcieSlotModel;
using Result = PcieSlotModel::Result;
using Step = PcieSlotModel::Step;

TEST(PcieSlotModelTest, EndpointIsThereAndEnabledFromTheStart) {
  const PcieSlotModel slot;
  EXPECT_TRUE(slot.Present());
  EXPECT_TRUE(slot.Enabled());
}

TEST(PcieSlotModelTest, RemoveMakesItVanish) {
  PcieSlotModel slot;
  EXPECT_EQ(slot.Write(Step::kRemove, "1"), Result::kDone);
  EXPECT_FALSE(slot.Present());
  EXPECT_FALSE(slot.Enabled());
}

TEST(PcieSlotModelTest, RescanBringsItBackNotEnabled) {
  PcieSlotModel slot;
  slot.Write(Step::kRemove, "1");
  EXPECT_EQ(slot.Write(Step::kRescan, "1"), Result::kDone);
  EXPECT_TRUE(slot.Present());
  EXPECT_FALSE(slot.Enabled());
}

TEST(PcieSlotModelTest, EnableEnablesAfterRescan) {
  PcieSlotModel slot;
  slot.Write(Step::kRemove, "1");
  slot.Write(Step::kRescan, "1");
  EXPECT_EQ(slot.Write(Step::kEnable, "1"), Result::kDone);
  EXPECT_TRUE(slot.Enabled());
}

TEST(PcieSlotModelTest, VanishedEndpointCannotBeRemovedOrEnabled) {
  PcieSlotModel slot;
  slot.Write(Step::kRemove, "1");
  EXPECT_EQ(slot.Write(Step::kRemove, "1"), Result::kAbsent);
  EXPECT_EQ(slot.Write(Step::kEnable, "1"), Result::kAbsent);
  EXPECT_FALSE(slot.Enabled());
}

TEST(PcieSlotModelTest, RescanOfAPresentEndpointChangesNothing) {
  PcieSlotModel slot;
  EXPECT_EQ(slot.Write(Step::kRescan, "1"), Result::kDone);
  EXPECT_TRUE(slot.Present());
  EXPECT_TRUE(slot.Enabled());
}

TEST(PcieSlotModelTest, ZeroDisablesAndDoesNothingElse) {
  PcieSlotModel slot;
  EXPECT_EQ(slot.Write(Step::kRemove, "0"), Result::kDone);
  EXPECT_TRUE(slot.Present());
  EXPECT_TRUE(slot.Enabled());
  EXPECT_EQ(slot.Write(Step::kEnable, "0"), Result::kDone);
  EXPECT_FALSE(slot.Enabled());
  slot.Write(Step::kRemove, "1");
  EXPECT_EQ(slot.Write(Step::kRescan, "0"), Result::kDone);
  EXPECT_FALSE(slot.Present());
}

TEST(PcieSlotModelTest, NewlineMayFollow) {
  PcieSlotModel slot;
  EXPECT_EQ(slot.Write(Step::kRemove, "1\n"), Result::kDone);
  EXPECT_FALSE(slot.Present());
}

TEST(PcieSlotModelTest, OtherTextsAreInvalid) {
  PcieSlotModel slot;
  for (const char* text : {"", "\n", "x", "11", "1\n\n"}) {
    EXPECT_EQ(slot.Write(Step::kRemove, text), Result::kInvalid) << text;
  }
  EXPECT_TRUE(slot.Present());
}

}  // namespace
