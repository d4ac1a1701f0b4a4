#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "simulator/chips/NorFlashModel.h"
#include "simulator/chips/ZynqModel.h"
#include "simulator/images/BootImage.h"

namespace {

using namespace std::chrono_literals;

using orvane::Chip;
using orvane::DonePolicy;
using orvane::Loaded;
using orvane::MakeZynqImage;
using orvane::NorFlashModel;
using orvane::ZynqModel;

class ZynqModelTest : public testing::Test {
 protected:
  void LoadGoodImage() { flash_.Load(MakeZynqImage({.bytes = 4096})); }
  static void PulseReset(ZynqModel& zynq) {
    zynq.WriteHwReset("0");
    zynq.AdvanceTime(5000ms);
    zynq.WriteHwReset("1");
  }
  static Loaded LoadedBy(const ZynqModel& zynq) { return zynq.Configuration().State(); }

  NorFlashModel flash_{Chip::kMicron};
};

TEST_F(ZynqModelTest, ZynqOwnsItsFlashAtPowerOnAndIsNotInReset) {
  const ZynqModel zynq(flash_, {});
  EXPECT_FALSE(zynq.ControllerOwnsFlash());
  EXPECT_FALSE(zynq.InReset());
}

TEST_F(ZynqModelTest, DoneIsHighAtPowerOnWithAGoodImage) {
  LoadGoodImage();
  EXPECT_TRUE(ZynqModel(flash_, {}).Done());
}

TEST_F(ZynqModelTest, DoneIsLowAtPowerOnWithABlankFlash) {
  EXPECT_FALSE(ZynqModel(flash_, {}).Done());
}

TEST_F(ZynqModelTest, DoneIsLowAtPowerOnWithoutAFlash) {
  LoadGoodImage();
  flash_.SetPresent(false);
  EXPECT_FALSE(ZynqModel(flash_, {}).Done());
}

TEST_F(ZynqModelTest, QspiPrgMovesTheFlash) {
  ZynqModel zynq(flash_, {});
  zynq.WriteQspiPrg("1");
  EXPECT_TRUE(zynq.ControllerOwnsFlash());
  zynq.WriteQspiPrg("0");
  EXPECT_FALSE(zynq.ControllerOwnsFlash());
}

TEST_F(ZynqModelTest, OtherQspiPrgValuesAreIgnored) {
  ZynqModel zynq(flash_, {});
  for (const char* value : {"", "x", "11", "1\n", " 1"}) {
    zynq.WriteQspiPrg(value);
    EXPECT_FALSE(zynq.ControllerOwnsFlash()) << value;
  }
  zynq.WriteQspiPrg("1");
  zynq.WriteQspiPrg("00");
  EXPECT_TRUE(zynq.ControllerOwnsFlash());
}

TEST_F(ZynqModelTest, OtherResetValuesAreIgnored) {
  LoadGoodImage();
  ZynqModel zynq(flash_, {});
  for (const char* value : {"", "x", "00", "0\n"}) {
    zynq.WriteHwReset(value);
    EXPECT_FALSE(zynq.InReset()) << value;
  }
  zynq.WriteHwReset("0");
  zynq.WriteHwReset("high");
  EXPECT_TRUE(zynq.InReset());
}

TEST_F(ZynqModelTest, DoneFallsInResetAndRisesExactlyTwentyMillisecondsAfterRelease) {
  LoadGoodImage();
  ZynqModel zynq(flash_, {});
  PulseReset(zynq);
  EXPECT_FALSE(zynq.Done());
  zynq.AdvanceTime(19999999ns);
  EXPECT_FALSE(zynq.Done());
  zynq.AdvanceTime(1ns);
  EXPECT_TRUE(zynq.Done());
}

TEST_F(ZynqModelTest, TakingTheFlashLeavesAConfiguredZynqRunning) {
  LoadGoodImage();
  ZynqModel zynq(flash_, {});
  zynq.WriteQspiPrg("1");
  zynq.AdvanceTime(1000ms);
  EXPECT_TRUE(zynq.Done());
}

TEST_F(ZynqModelTest, NewImageBootsAfterReset) {
  ZynqModel zynq(flash_, {});
  zynq.WriteQspiPrg("1");
  LoadGoodImage();
  zynq.WriteQspiPrg("0");
  zynq.AdvanceTime(1000ms);
  EXPECT_FALSE(zynq.Done());
  PulseReset(zynq);
  zynq.AdvanceTime(20ms);
  EXPECT_TRUE(zynq.Done());
}

TEST_F(ZynqModelTest, ReleaseWithoutAGoodImageLeavesDoneLow) {
  LoadGoodImage();
  ZynqModel zynq(flash_, {});
  flash_.Load({});
  PulseReset(zynq);
  zynq.AdvanceTime(20000ms);
  EXPECT_FALSE(zynq.Done());
}

TEST_F(ZynqModelTest, ReleaseWhileTheControllerOwnsTheFlashLeavesDoneLow) {
  LoadGoodImage();
  ZynqModel zynq(flash_, {});
  zynq.WriteQspiPrg("1");
  PulseReset(zynq);
  zynq.WriteQspiPrg("0");
  zynq.AdvanceTime(20000ms);
  EXPECT_FALSE(zynq.Done());
}

TEST_F(ZynqModelTest, TakingTheFlashWhileBootingLeavesDoneLow) {
  LoadGoodImage();
  ZynqModel zynq(flash_, {});
  PulseReset(zynq);
  zynq.AdvanceTime(10ms);
  zynq.WriteQspiPrg("1");
  zynq.WriteQspiPrg("0");
  zynq.AdvanceTime(20000ms);
  EXPECT_FALSE(zynq.Done());
}

TEST_F(ZynqModelTest, FlashStuckBusyCannotBeBooted) {
  LoadGoodImage();
  ZynqModel zynq(flash_, {});
  flash_.StayBusyAfter(1);
  std::vector<std::uint8_t> miso(1);
  flash_.Transfer(std::vector<std::uint8_t>{0x06}, miso);
  miso.resize(5);
  flash_.Transfer(std::vector<std::uint8_t>{0x02, 0xFF, 0x00, 0x00, 0x00}, miso);
  PulseReset(zynq);
  zynq.AdvanceTime(20000ms);
  EXPECT_FALSE(zynq.Done());
}

TEST_F(ZynqModelTest, PolicyReplacesTheBoot) {
  ZynqModel zynq(flash_, {.kind = DonePolicy::Kind::kAfter, .delay = 7ms});
  PulseReset(zynq);
  zynq.AdvanceTime(6999999ns);
  EXPECT_FALSE(zynq.Done());
  zynq.AdvanceTime(1ns);
  EXPECT_TRUE(zynq.Done());
}

TEST_F(ZynqModelTest, GoodImageIsLoadedAtPowerOn) {
  LoadGoodImage();
  EXPECT_EQ(LoadedBy(ZynqModel(flash_, {})), Loaded::kCurrent);
}

TEST_F(ZynqModelTest, NothingIsLoadedFromABlankFlashAtPowerOn) {
  const ZynqModel zynq(flash_, {});
  EXPECT_EQ(LoadedBy(zynq), Loaded::kNone);
  EXPECT_EQ(zynq.Configuration().Contents(), std::nullopt);
}

TEST_F(ZynqModelTest, LoadedIsOtherOnceTheFlashChangesAndCurrentOnceItIsChangedBack) {
  LoadGoodImage();
  const ZynqModel zynq(flash_, {});
  const std::vector<std::uint8_t> loaded(flash_.Contents().begin(), flash_.Contents().end());
  flash_.Load({});
  EXPECT_EQ(LoadedBy(zynq), Loaded::kOther);
  EXPECT_EQ(zynq.Configuration().Contents(), loaded);
  LoadGoodImage();
  EXPECT_EQ(LoadedBy(zynq), Loaded::kCurrent);
}

TEST_F(ZynqModelTest, ResetClearsWhatIsLoadedUntilDoneRises) {
  LoadGoodImage();
  ZynqModel zynq(flash_, {});
  zynq.WriteHwReset("0");
  EXPECT_EQ(LoadedBy(zynq), Loaded::kNone);
  zynq.WriteHwReset("1");
  zynq.AdvanceTime(19999999ns);
  EXPECT_EQ(LoadedBy(zynq), Loaded::kNone);
  EXPECT_EQ(zynq.Configuration().Contents(), std::nullopt);
  zynq.AdvanceTime(1ns);
  EXPECT_EQ(LoadedBy(zynq), Loaded::kCurrent);
}

TEST_F(ZynqModelTest, NewImageIsLoadedByTheNextReset) {
  LoadGoodImage();
  ZynqModel zynq(flash_, {});
  flash_.Load(MakeZynqImage({.bytes = 4096, .seed = 2}));
  EXPECT_EQ(LoadedBy(zynq), Loaded::kOther);
  PulseReset(zynq);
  zynq.AdvanceTime(20ms);
  EXPECT_EQ(LoadedBy(zynq), Loaded::kCurrent);
}

TEST_F(ZynqModelTest, BootThatFailsLeavesNothingLoaded) {
  LoadGoodImage();
  ZynqModel zynq(flash_, {});
  zynq.WriteQspiPrg("1");
  PulseReset(zynq);
  zynq.WriteQspiPrg("0");
  zynq.AdvanceTime(20000ms);
  EXPECT_EQ(LoadedBy(zynq), Loaded::kNone);
}

TEST_F(ZynqModelTest, ForcedDoneLineDoesNotTellWhatIsLoaded) {
  for (const auto kind : {DonePolicy::Kind::kHigh, DonePolicy::Kind::kLow}) {
    flash_.Load({});
    ZynqModel zynq(flash_, {.kind = kind});
    EXPECT_EQ(LoadedBy(zynq), Loaded::kNone);
    PulseReset(zynq);
    zynq.AdvanceTime(20ms);
    EXPECT_EQ(LoadedBy(zynq), Loaded::kNone);
    LoadGoodImage();
    PulseReset(zynq);
    zynq.AdvanceTime(20ms);
    EXPECT_EQ(LoadedBy(zynq), Loaded::kCurrent);
  }
}

TEST_F(ZynqModelTest, DoneAfterADelayLoadsAGoodImageAlone) {
  const DonePolicy policy = {.kind = DonePolicy::Kind::kAfter, .delay = 1000ms};
  ZynqModel zynq(flash_, policy);
  EXPECT_TRUE(zynq.Done());
  EXPECT_EQ(LoadedBy(zynq), Loaded::kNone);
  PulseReset(zynq);
  zynq.AdvanceTime(1000ms);
  EXPECT_TRUE(zynq.Done());
  EXPECT_EQ(LoadedBy(zynq), Loaded::kNone);
  LoadGoodImage();
  PulseReset(zynq);
  zynq.AdvanceTime(999999999ns);
  EXPECT_EQ(LoadedBy(zynq), Loaded::kNone);
  zynq.AdvanceTime(1ns);
  EXPECT_EQ(LoadedBy(zynq), Loaded::kCurrent);
}

}  // namespace
