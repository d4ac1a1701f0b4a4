#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "simulator/chips/ExpanderFpgaModel.h"
#include "simulator/chips/NorFlashModel.h"
#include "simulator/images/Bitstream.h"
#include "simulator/images/BootImage.h"

namespace {

using namespace std::chrono_literals;

using orvane::Chip;
using orvane::DonePolicy;
using orvane::ExpanderFpgaModel;
using orvane::ExpanderModule;
using orvane::Loaded;
using orvane::NorFlashModel;
using Bytes = std::vector<std::uint8_t>;

class ExpanderFpgaModelTest : public testing::Test {
 protected:
  explicit ExpanderFpgaModelTest(ExpanderModule module) : module_(module) {}

  void PowerOn(DonePolicy policy = {}) {
    fpga_ = std::make_unique<ExpanderFpgaModel>(module_, 1, flash_, policy);
  }
  void LoadGoodImage() {
    flash_.Load(module_ == ExpanderModule::kPyx2 ? orvane::MakeZynqImage({.bytes = 4096})
                                                 : orvane::MakeBitstream({.bytes = 4096}));
  }
  void LoadImageOfTheOtherKind() {
    flash_.Load(module_ == ExpanderModule::kPyx2 ? orvane::MakeBitstream({.bytes = 4096})
                                                 : orvane::MakeZynqImage({.bytes = 4096}));
  }

  void Write(const Bytes& bytes) { fpga_->WriteExpander(bytes); }
  void Outputs(std::uint16_t word) { WritePair(0x02, word); }
  void Directions(std::uint16_t word) { WritePair(0x06, word); }
  void WritePair(std::uint8_t command, std::uint16_t word) {
    Write({command, static_cast<std::uint8_t>(word & 0xFF), static_cast<std::uint8_t>(word >> 8)});
  }
  /// The lines as a driver reads them.
  unsigned Inputs() {
    Write({0x00});
    Bytes bytes(2);
    fpga_->ReadExpander(bytes);
    return bytes[0] | static_cast<unsigned>(bytes[1]) << 8;
  }

  Loaded LoadedNow() const { return fpga_->Configuration().State(); }

  ExpanderModule module_;
  NorFlashModel flash_{Chip::kMicron};
  std::unique_ptr<ExpanderFpgaModel> fpga_;
};

// dax and pyx1: line 6 INIT_B, line 7 PROGRAM_B, line 8 DONE; 0xEDDF are the lines that may be
// driven, all but 0x0140 of them outputs, which leaves directions 0x1360.

class BitstreamModuleTest : public ExpanderFpgaModelTest,
                            public testing::WithParamInterface<ExpanderModule> {
 protected:
  BitstreamModuleTest() : ExpanderFpgaModelTest(GetParam()) {}

  /// Takes the lines over without a change of level.
  void TakeOver() {
    Outputs(0x3EA0);
    Directions(0x1360);
  }
  void ExpectRoute(std::uint16_t outputs, bool answers) {
    Outputs(outputs);
    EXPECT_EQ(fpga_->FlashAnswersController(), answers) << std::hex << outputs;
  }
};

INSTANTIATE_TEST_SUITE_P(Modules,
                         BitstreamModuleTest,
                         testing::Values(ExpanderModule::kDax, ExpanderModule::kPyx1),
                         [](const auto& row) {
                           return std::string(row.param == ExpanderModule::kDax ? "Dax" : "Pyx1");
                         });

TEST_P(BitstreamModuleTest, PoweredWithAGoodBitstreamItRuns) {
  LoadGoodImage();
  PowerOn();
  EXPECT_TRUE(fpga_->Done());
  EXPECT_FALSE(fpga_->FlashAnswersController());
  EXPECT_EQ(fpga_->DrivenLines(), 0x0000);
  EXPECT_EQ(Inputs(), 0x2DC0U);  // pulls 0x2C80, INIT_B 0x0040, DONE 0x0100
}

TEST_P(BitstreamModuleTest, PoweredWithABlankFlashDoneIsLow) {
  PowerOn();
  EXPECT_FALSE(fpga_->Done());
  EXPECT_EQ(Inputs(), 0x2CC0U);
}

TEST_P(BitstreamModuleTest, PoweredWithABootHeaderInsteadOfABitstreamDoneIsLow) {
  LoadImageOfTheOtherKind();
  PowerOn();
  EXPECT_FALSE(fpga_->Done());
}

TEST_P(BitstreamModuleTest, PoweredWithoutAFlashDoneIsLow) {
  LoadGoodImage();
  flash_.SetPresent(false);
  PowerOn();
  EXPECT_FALSE(fpga_->Done());
}

TEST_P(BitstreamModuleTest, FlashAnswersUnderTheTwoControllerPatternsOnly) {
  PowerOn();
  TakeOver();
  ExpectRoute(0x2C9D, true);   // controller to flash
  ExpectRoute(0xEC9D, true);   // controller to FPGA
  ExpectRoute(0x2C80, false);  // flash to FPGA, FPGA runs
  ExpectRoute(0x2C00, false);  // flash to FPGA, FPGA in reset
  ExpectRoute(0xEC1D, false);  // controller, FPGA in reset
  ExpectRoute(0x0000, false);
  ExpectRoute(0xFFFF, false);
}

TEST_P(BitstreamModuleTest, EveryRoutingLineCounts) {
  PowerOn();
  TakeOver();
  // From one controller pattern to the other two lines change; one alone leads nowhere.
  for (unsigned line = 0; line < 16; ++line) {
    const unsigned bit = 1U << line;
    const bool routes = (0xEC9FU & bit) != 0;
    ExpectRoute(static_cast<std::uint16_t>(0x2C9D ^ bit), !routes);
  }
}

TEST_P(BitstreamModuleTest, UndrivenLinesStayAtTheirPulls) {
  PowerOn();
  Outputs(0x2C9D);
  EXPECT_FALSE(fpga_->FlashAnswersController());
  Directions(0xFFE2);  // only the lines 0, 2, 3 and 4 differ from the pulls
  EXPECT_TRUE(fpga_->FlashAnswersController());
}

TEST_P(BitstreamModuleTest, TakingTheFlashKeepsTheFpgaRunning) {
  LoadGoodImage();
  PowerOn();
  TakeOver();
  Outputs(0x2C9D);
  fpga_->AdvanceTime(10000ms);
  EXPECT_TRUE(fpga_->Done());
  EXPECT_EQ(Inputs() & 0x0140U, 0x0140U);
}

TEST_P(BitstreamModuleTest, ProgramBLowIsReset) {
  LoadGoodImage();
  PowerOn();
  TakeOver();
  Outputs(0x2C00);
  EXPECT_FALSE(fpga_->Done());
  EXPECT_EQ(Inputs() & 0x01C0U, 0x0000U);  // PROGRAM_B, INIT_B and DONE
}

TEST_P(BitstreamModuleTest, ReleasedUnderTheRunPatternItBootsInExactlyTwentyMilliseconds) {
  LoadGoodImage();
  PowerOn();
  TakeOver();
  Outputs(0x2C00);
  fpga_->AdvanceTime(10ms);
  Outputs(0x2C80);
  EXPECT_EQ(Inputs() & 0x01C0U, 0x0080U);
  fpga_->AdvanceTime(5ms);
  EXPECT_EQ(Inputs() & 0x01C0U, 0x00C0U);
  fpga_->AdvanceTime(14999999ns);
  EXPECT_FALSE(fpga_->Done());
  fpga_->AdvanceTime(1ns);
  EXPECT_TRUE(fpga_->Done());
  EXPECT_EQ(Inputs() & 0x01C0U, 0x01C0U);
}

TEST_P(BitstreamModuleTest, InitBRisesExactlyFiveMillisecondsAfterRelease) {
  PowerOn();
  TakeOver();
  Outputs(0x2C00);
  Outputs(0x2C80);
  fpga_->AdvanceTime(4999999ns);
  EXPECT_EQ(Inputs() & 0x0040U, 0x0000U);
  fpga_->AdvanceTime(1ns);
  EXPECT_EQ(Inputs() & 0x0040U, 0x0040U);
}

TEST_P(BitstreamModuleTest, LettingGoOfTheLinesReleasesAndBootsIt) {
  LoadGoodImage();
  PowerOn();
  TakeOver();
  Outputs(0x0000);  // as a connect with outputs 0 does while the lines are still driven
  EXPECT_EQ(Inputs() & 0x0080U, 0x0000U);
  Directions(0xFFFF);
  EXPECT_EQ(Inputs() & 0x0080U, 0x0080U);
  EXPECT_FALSE(fpga_->Done());
  fpga_->AdvanceTime(20ms);
  EXPECT_TRUE(fpga_->Done());
  EXPECT_EQ(Inputs(), 0x2DC0U);
}

TEST_P(BitstreamModuleTest, ReleasedUnderAControllerPatternItDoesNotBootBeforeTheNextReset) {
  LoadGoodImage();
  PowerOn();
  TakeOver();
  Outputs(0xEC1D);
  fpga_->AdvanceTime(1000ms);
  Outputs(0xEC9D);
  fpga_->AdvanceTime(1000ms);
  EXPECT_FALSE(fpga_->Done());
  Outputs(0x2C80);
  fpga_->AdvanceTime(1000ms);
  EXPECT_FALSE(fpga_->Done());
  Outputs(0x2C00);
  Outputs(0x2C80);
  fpga_->AdvanceTime(20ms);
  EXPECT_TRUE(fpga_->Done());
}

TEST_P(BitstreamModuleTest, LosingItsRouteWhileLoadingFailsTheBoot) {
  LoadGoodImage();
  PowerOn();
  TakeOver();
  Outputs(0x2C00);
  Outputs(0x2C80);
  fpga_->AdvanceTime(10ms);
  Outputs(0x2C9D);
  Outputs(0x2C80);
  fpga_->AdvanceTime(1000ms);
  EXPECT_FALSE(fpga_->Done());
}

TEST_P(BitstreamModuleTest, ReleasedWithABlankFlashItDoesNotBoot) {
  LoadGoodImage();
  PowerOn();
  flash_.Load({});
  TakeOver();
  Outputs(0x2C00);
  Outputs(0x2C80);
  fpga_->AdvanceTime(20000ms);
  EXPECT_FALSE(fpga_->Done());
}

TEST_P(BitstreamModuleTest, PulseWithinOneWriteIsAReset) {
  LoadGoodImage();
  PowerOn();
  TakeOver();
  Write({0x02, 0x00, 0x2C, 0x80, 0x2C});
  EXPECT_EQ(Inputs() & 0x0080U, 0x0080U);
  EXPECT_FALSE(fpga_->Done());
}

TEST_P(BitstreamModuleTest, LongWriteStartingAtPortOneReachesBothPorts) {
  PowerOn();
  Write({0x03, 0x2C, 0x9D});
  Write({0x07, 0x13, 0x60});
  EXPECT_TRUE(fpga_->FlashAnswersController());
}

TEST_P(BitstreamModuleTest, ReadsStartAtTheCommandOfALongWrite) {
  PowerOn();
  Write({0x02, 0x11, 0x22});
  Bytes bytes(2);
  fpga_->ReadExpander(bytes);
  EXPECT_EQ(bytes, Bytes({0x11, 0x22}));
}

TEST_P(BitstreamModuleTest, EmptyWriteChangesNothing) {
  PowerOn();
  Write({0x02});
  Write({});
  Bytes bytes(2);
  fpga_->ReadExpander(bytes);
  EXPECT_EQ(bytes, Bytes({0xFF, 0xFF}));
}

TEST_P(BitstreamModuleTest, PolicyDecidesAboutTheDoneLine) {
  PowerOn({.kind = DonePolicy::Kind::kHigh});
  EXPECT_EQ(Inputs() & 0x0100U, 0x0100U);
  LoadGoodImage();
  PowerOn({.kind = DonePolicy::Kind::kLow});
  EXPECT_EQ(Inputs() & 0x0100U, 0x0000U);
  PowerOn({.kind = DonePolicy::Kind::kAfter, .delay = 9998ms});
  EXPECT_EQ(Inputs() & 0x0100U, 0x0100U);
  TakeOver();
  Outputs(0xEC1D);
  Outputs(0xEC9D);
  fpga_->AdvanceTime(9997999999ns);
  EXPECT_EQ(Inputs() & 0x0100U, 0x0000U);
  fpga_->AdvanceTime(1ns);
  EXPECT_EQ(Inputs() & 0x0100U, 0x0100U);
}

TEST_P(BitstreamModuleTest, HeldDoneLineHidesTheFpga) {
  LoadGoodImage();
  PowerOn();
  fpga_->HoldLines(0x0100, 0x0000);
  EXPECT_TRUE(fpga_->Done());
  EXPECT_EQ(Inputs() & 0x0100U, 0x0000U);
  fpga_->HoldLines(0x0000, 0x0000);
  EXPECT_EQ(Inputs() & 0x0100U, 0x0100U);
}

TEST_P(BitstreamModuleTest, HeldResetLineResetsTheFpga) {
  LoadGoodImage();
  PowerOn();
  fpga_->HoldLines(0x0080, 0x0000);
  EXPECT_EQ(Inputs() & 0x01C0U, 0x0000U);
}

TEST_P(BitstreamModuleTest, PoweredWithAGoodBitstreamThatIsLoaded) {
  LoadGoodImage();
  PowerOn();
  EXPECT_EQ(LoadedNow(), Loaded::kCurrent);
}

TEST_P(BitstreamModuleTest, PoweredWithABlankFlashNothingIsLoaded) {
  for (const DonePolicy policy : {DonePolicy{},
                                  DonePolicy{.kind = DonePolicy::Kind::kHigh},
                                  DonePolicy{.kind = DonePolicy::Kind::kLow},
                                  DonePolicy{.kind = DonePolicy::Kind::kAfter}}) {
    PowerOn(policy);
    EXPECT_EQ(LoadedNow(), Loaded::kNone);
    EXPECT_EQ(fpga_->Configuration().Contents(), std::nullopt);
  }
}

TEST_P(BitstreamModuleTest, ChangeOfTheFlashLeavesWhatIsLoaded) {
  LoadGoodImage();
  PowerOn();
  const Bytes loaded(flash_.Contents().begin(), flash_.Contents().end());
  flash_.Load({});
  EXPECT_EQ(LoadedNow(), Loaded::kOther);
  EXPECT_EQ(fpga_->Configuration().Contents(), loaded);
  LoadGoodImage();
  EXPECT_EQ(LoadedNow(), Loaded::kCurrent);
}

TEST_P(BitstreamModuleTest, ResetClearsWhatIsLoadedUntilDoneRises) {
  LoadGoodImage();
  for (const auto kind :
       {DonePolicy::Kind::kAuto, DonePolicy::Kind::kHigh, DonePolicy::Kind::kLow}) {
    PowerOn({.kind = kind});
    TakeOver();
    Outputs(0x2C00);
    EXPECT_EQ(LoadedNow(), Loaded::kNone);
    Outputs(0x2C80);
    fpga_->AdvanceTime(19999999ns);
    EXPECT_EQ(LoadedNow(), Loaded::kNone);
    fpga_->AdvanceTime(1ns);
    EXPECT_EQ(LoadedNow(), Loaded::kCurrent);
  }
}

TEST_P(BitstreamModuleTest, DoneAfterADelayLoadsNotBeforeIt) {
  LoadGoodImage();
  PowerOn({.kind = DonePolicy::Kind::kAfter, .delay = 1000ms});
  TakeOver();
  Outputs(0x2C00);
  Outputs(0x2C80);
  fpga_->AdvanceTime(999999999ns);
  EXPECT_EQ(LoadedNow(), Loaded::kNone);
  fpga_->AdvanceTime(1ns);
  EXPECT_EQ(LoadedNow(), Loaded::kCurrent);
}

TEST_P(BitstreamModuleTest, PulseWithinOneWriteClearsWhatIsLoaded) {
  LoadGoodImage();
  PowerOn();
  TakeOver();
  Write({0x02, 0x00, 0x2C, 0x80, 0x2C});
  EXPECT_EQ(LoadedNow(), Loaded::kNone);
}

TEST_P(BitstreamModuleTest, BootThatFailsLeavesNothingLoadedWhateverDoneShows) {
  LoadGoodImage();
  for (const auto kind :
       {DonePolicy::Kind::kAuto, DonePolicy::Kind::kHigh, DonePolicy::Kind::kAfter}) {
    PowerOn({.kind = kind});
    TakeOver();
    Outputs(0xEC1D);
    Outputs(0xEC9D);  // released while the controller has the flash
    fpga_->AdvanceTime(1000ms);
    Outputs(0x2C80);
    fpga_->AdvanceTime(1000ms);
    EXPECT_EQ(LoadedNow(), Loaded::kNone);
  }
}

TEST_P(BitstreamModuleTest, HeldResetLineClearsWhatIsLoaded) {
  LoadGoodImage();
  PowerOn();
  fpga_->HoldLines(0x0080, 0x0000);
  EXPECT_EQ(LoadedNow(), Loaded::kNone);
}

TEST_P(BitstreamModuleTest, HeldDoneLineLeavesWhatIsLoaded) {
  LoadGoodImage();
  PowerOn();
  fpga_->HoldLines(0x0100, 0x0000);
  EXPECT_EQ(LoadedNow(), Loaded::kCurrent);
}

// pyx2: lines 0 DONE, 1 INIT_B, 4 PROGRAM_B (sense), 9 reset; 0x0A17 are the lines that may be
// driven, all but 0x0813 of them outputs, which leaves directions 0xFDFB.

class Pyx2ModelTest : public ExpanderFpgaModelTest {
 protected:
  Pyx2ModelTest() : ExpanderFpgaModelTest(ExpanderModule::kPyx2) {}

  void TakeOver() {
    Outputs(0xF7E8);
    Directions(0xFDFB);
  }
};

TEST_F(Pyx2ModelTest, PoweredWithAGoodBootHeaderItRuns) {
  LoadGoodImage();
  PowerOn();
  EXPECT_TRUE(fpga_->Done());
  EXPECT_FALSE(fpga_->FlashAnswersController());
  EXPECT_EQ(Inputs(), 0x0213U);
}

TEST_F(Pyx2ModelTest, PoweredWithABlankFlashDoneIsLow) {
  PowerOn();
  EXPECT_FALSE(fpga_->Done());
  EXPECT_EQ(Inputs(), 0x0212U);
}

TEST_F(Pyx2ModelTest, PoweredWithABitstreamInsteadOfABootHeaderDoneIsLow) {
  LoadImageOfTheOtherKind();
  PowerOn();
  EXPECT_FALSE(fpga_->Done());
}

TEST_F(Pyx2ModelTest, FlashAnswersUnderTheOneControllerPatternOnly) {
  PowerOn();
  TakeOver();
  Outputs(0x0604);
  EXPECT_TRUE(fpga_->FlashAnswersController());
  for (const std::uint16_t outputs : std::initializer_list<std::uint16_t>{0x0200, 0x0000, 0x0004}) {
    Outputs(outputs);
    EXPECT_FALSE(fpga_->FlashAnswersController()) << outputs;
  }
}

TEST_F(Pyx2ModelTest, LineTenDoesNotRouteWhetherDrivenOrNot) {
  PowerOn();
  TakeOver();
  for (const std::uint16_t outputs : std::initializer_list<std::uint16_t>{0x0204, 0x0604}) {
    Outputs(outputs);
    Directions(0xFDFB);
    EXPECT_TRUE(fpga_->FlashAnswersController()) << outputs;
    Directions(0xF9FB);
    EXPECT_TRUE(fpga_->FlashAnswersController()) << outputs;
  }
}

TEST_F(Pyx2ModelTest, TakingTheFlashKeepsTheFpgaRunning) {
  LoadGoodImage();
  PowerOn();
  TakeOver();
  Outputs(0x0604);
  fpga_->AdvanceTime(10000ms);
  EXPECT_TRUE(fpga_->Done());
}

TEST_F(Pyx2ModelTest, LineNineLowIsResetAndShowsOnProgramB) {
  LoadGoodImage();
  PowerOn();
  TakeOver();
  Outputs(0x0000);
  EXPECT_EQ(Inputs() & 0x0013U, 0x0000U);
}

TEST_F(Pyx2ModelTest, DrivenProgramBIsNotTheResetLine) {
  LoadGoodImage();
  PowerOn();
  Outputs(0x0000);
  Directions(0xFFEF);
  EXPECT_EQ(Inputs() & 0x0013U, 0x0003U);
  EXPECT_TRUE(fpga_->Done());
}

TEST_F(Pyx2ModelTest, LettingGoOfTheLinesAloneEndsTheResetAndBoots) {
  LoadGoodImage();
  PowerOn();
  TakeOver();
  Outputs(0x0604);
  Outputs(0x0000);
  fpga_->AdvanceTime(5000ms);
  EXPECT_FALSE(fpga_->Done());
  Outputs(0x0000);
  Directions(0xFFFF);
  EXPECT_EQ(Inputs() & 0x0010U, 0x0010U);
  fpga_->AdvanceTime(19999999ns);
  EXPECT_FALSE(fpga_->Done());
  fpga_->AdvanceTime(1ns);
  EXPECT_TRUE(fpga_->Done());
  EXPECT_EQ(Inputs(), 0x0213U);
}

TEST_F(Pyx2ModelTest, ReleasedWhileTheControllerHasTheFlashItDoesNotBoot) {
  LoadGoodImage();
  PowerOn();
  TakeOver();
  Outputs(0x0000);
  Outputs(0x0604);
  fpga_->AdvanceTime(1000ms);
  EXPECT_FALSE(fpga_->Done());
  Directions(0xFFFF);
  fpga_->AdvanceTime(1000ms);
  EXPECT_FALSE(fpga_->Done());
}

TEST_F(Pyx2ModelTest, ResetClearsWhatIsLoadedUntilDoneRises) {
  LoadGoodImage();
  PowerOn();
  EXPECT_EQ(LoadedNow(), Loaded::kCurrent);
  TakeOver();
  Outputs(0x0000);
  EXPECT_EQ(LoadedNow(), Loaded::kNone);
  Directions(0xFFFF);
  fpga_->AdvanceTime(19999999ns);
  EXPECT_EQ(LoadedNow(), Loaded::kNone);
  fpga_->AdvanceTime(1ns);
  EXPECT_EQ(LoadedNow(), Loaded::kCurrent);
}

TEST_F(Pyx2ModelTest, NewImageIsLoadedByTheNextReset) {
  LoadGoodImage();
  PowerOn();
  flash_.Load(orvane::MakeZynqImage({.bytes = 4096, .seed = 2}));
  EXPECT_EQ(LoadedNow(), Loaded::kOther);
  TakeOver();
  Outputs(0x0000);
  Directions(0xFFFF);
  fpga_->AdvanceTime(20ms);
  EXPECT_EQ(LoadedNow(), Loaded::kCurrent);
}

// Addresses.

TEST(ExpanderAddressTest, SlotFiveIsOneAddressUp) {
  NorFlashModel flash(Chip::kMicron);
  const auto address = [&flash](ExpanderModule module, unsigned slot) {
    return unsigned{ExpanderFpgaModel(module, slot, flash, {}).ExpanderAddress()};
  };
  for (const unsigned slot : {0U, 1U, 2U, 3U, 4U, 6U, 15U}) {
    EXPECT_EQ(address(ExpanderModule::kDax, slot), 0x21U) << slot;
    EXPECT_EQ(address(ExpanderModule::kPyx1, slot), 0x20U) << slot;
    EXPECT_EQ(address(ExpanderModule::kPyx2, slot), 0x20U) << slot;
  }
  EXPECT_EQ(address(ExpanderModule::kDax, 5), 0x22U);
  EXPECT_EQ(address(ExpanderModule::kPyx1, 5), 0x21U);
  EXPECT_EQ(address(ExpanderModule::kPyx2, 5), 0x21U);
}

}  // namespace
