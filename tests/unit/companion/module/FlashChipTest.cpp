#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "companion/module/FlashChip.h"
#include "tests/unit/companion/module/FlashMessages.h"

namespace companion {
namespace {

using testing::ElementsAre;

class FlashChipTest : public FlashMessagesTest {
 protected:
  explicit FlashChipTest(orvane::Chip chip = orvane::Chip::kMicron) : FlashMessagesTest(chip) {
    flash_.emplace(*spi_, interruption_);
  }

  void TearDown() override {
    flash_.reset();
    FlashMessagesTest::TearDown();
  }

  /// What happens to the messages with this opcode whose numbers are in [first, last].
  void Spoil(std::uint8_t opcode, Fate fate, int first, int last = 1'000'000) {
    kernel_.decide = [=](std::uint8_t sent, int number) {
      return sent == opcode && number >= first && number <= last ? fate : Fate::kCarriedOut;
    };
  }

  std::optional<FlashChip> flash_;
};

TEST_F(FlashChipTest, ReadyTakesTwoStatusesInARow) {
  flash_->AwaitReady();
  EXPECT_THAT(kernel_.Messages(0x05), ElementsAre("05", "05"));
}

TEST_F(FlashChipTest, BusyChipIsAwaited) {
  std::vector<std::uint8_t> miso(4);
  chip_.Transfer(std::vector<std::uint8_t>{0x06}, std::span(miso).first(1));
  chip_.Transfer(std::vector<std::uint8_t>{0xD8, 0, 0, 0}, miso);
  flash_->AwaitReady();
  EXPECT_EQ(kernel_.CountSent(0x05), 5);  // three of them busy
  EXPECT_EQ(kernel_.Sent().size(), 5U);
}

TEST_F(FlashChipTest, ChipThatStaysBusyForTenSecondsIsAFailure) {
  Spoil(0x05, Fate::kInverted, 1);
  EXPECT_EQ(FailureOf([&] { flash_->AwaitReady(); }), "the flash chip stays busy");
  EXPECT_EQ(FakeClock::Passed(), std::chrono::seconds(10));
}

TEST_F(FlashChipTest, StatusThatCannotBeReadIsAFailure) {
  Spoil(0x05, Fate::kFails, 1);
  EXPECT_EQ(FailureOf([&] { flash_->AwaitReady(); }),
            "cannot read the status register of the flash chip");
}

TEST_F(FlashChipTest, MicronIsIdentifiedWithoutItsConfiguration) {
  const Chip chip = flash_->Identify();
  EXPECT_THAT(chip.id, ElementsAre(0x20, 0xba, 0x18));
  EXPECT_EQ(chip.status, 0);
  EXPECT_EQ(chip.config, std::nullopt);
  EXPECT_EQ(kernel_.Sent(), (std::vector<kernel::Bytes>{{0x9f}, {0x05}, {0x05}}));
}

TEST_F(FlashChipTest, LostIdentificationIsRepeated) {
  Spoil(0x9f, Fate::kLost, 1, 2);
  EXPECT_THAT(flash_->Identify().id, ElementsAre(0x20, 0xba, 0x18));
}

TEST_F(FlashChipTest, SilentChipIsAFailure) {
  Spoil(0x9f, Fate::kLost, 1);
  EXPECT_EQ(FailureOf([&] { flash_->Identify(); }),
            "no flash chip answers (identification 00 00 00)");
}

TEST_F(FlashChipTest, IdentificationOfOnesIsAFailure) {
  Spoil(0x9f, Fate::kOnes, 1);
  EXPECT_EQ(FailureOf([&] { flash_->Identify(); }),
            "no flash chip answers (identification ff ff ff)");
}

TEST_F(FlashChipTest, IdentificationThatCannotBeReadIsAFailure) {
  Spoil(0x9f, Fate::kFails, 1);
  EXPECT_EQ(FailureOf([&] { flash_->Identify(); }), "no flash chip answers (no answer)");
}

TEST_F(FlashChipTest, RegisterThatReadsWronglyOnceIsReadAgain) {
  Spoil(0x05, Fate::kInverted, 1, 1);
  EXPECT_EQ(flash_->Identify().status, 0x00);
}

TEST_F(FlashChipTest, RegisterThatReadsDifferentlyEachTimeIsAFailure) {
  kernel_.decide = [](std::uint8_t opcode, int number) {
    return opcode == 0x05 && number % 2 == 0 ? Fate::kInverted : Fate::kCarriedOut;
  };
  EXPECT_EQ(FailureOf([&] { flash_->Identify(); }),
            "the status register of the flash chip is unsteady");
}

TEST_F(FlashChipTest, ProtectingAChipThatIsNotLockableSendsNothingToIt) {
  flash_->Protect(true);
  flash_->Protect(false);
  EXPECT_EQ(kernel_.CountSent(0x01), 0);
  EXPECT_EQ(kernel_.CountSent(0x06), 0);
}

TEST_F(FlashChipTest, HeadIsErasedAndProgrammed) {
  chip_.Load(std::vector<std::uint8_t>(200'000, 0x55));
  const std::vector<std::uint8_t> page(256, 0xA5);
  flash_->RewriteHead(page);
  std::vector<std::uint8_t> expected(200'000, 0x55);
  std::fill(expected.begin(), expected.begin() + 65'536, std::uint8_t{0xFF});
  std::fill(expected.begin(), expected.begin() + 256, std::uint8_t{0xA5});
  EXPECT_TRUE(std::equal(expected.begin(), expected.end(), chip_.Contents().begin()));
}

TEST_F(FlashChipTest, EraseThatIsNotAnsweredIsAFailure) {
  Spoil(0xD8, Fate::kFails, 1);
  EXPECT_EQ(FailureOf([&] { flash_->RewriteHead(std::vector<std::uint8_t>(256, 0xA5)); }),
            "cannot erase the first 64 KiB of the flash");
}

TEST_F(FlashChipTest, ProgramThatIsNotAnsweredIsAFailure) {
  Spoil(0x02, Fate::kFails, 1);
  EXPECT_EQ(FailureOf([&] { flash_->RewriteHead(std::vector<std::uint8_t>(256, 0xA5)); }),
            "cannot program the first page of the flash");
}

TEST_F(FlashChipTest, StopBeforeTheEraseChangesNothing) {
  stop_ = true;
  EXPECT_EQ(FailureOf([&] { flash_->RewriteHead(std::vector<std::uint8_t>(256, 0xA5)); }),
            "stopped");
  EXPECT_TRUE(kernel_.Sent().empty());
}

class LockableFlashChipTest : public FlashChipTest {
 protected:
  LockableFlashChipTest() : FlashChipTest(orvane::Chip::kMacronix) {}
};

TEST_F(LockableFlashChipTest, ConfigurationIsReadToo) {
  const Chip chip = flash_->Identify();
  EXPECT_THAT(chip.id, ElementsAre(0xc2, 0x20, 0x18));
  EXPECT_EQ(chip.config, 0x07);
  EXPECT_EQ(kernel_.Sent(), (std::vector<kernel::Bytes>{{0x9f}, {0x05}, {0x05}, {0x15}, {0x15}}));
}

TEST_F(LockableFlashChipTest, IsProtectedWholeAndLookedAt) {
  flash_->Protect(true);
  const Chip chip = flash_->Identify();
  EXPECT_TRUE(chip.IsLockedWhole());
  EXPECT_EQ(chip.config, 0x0F);  // the bottom bit, 0x08, is set
  EXPECT_EQ(kernel_.CountSent(0x01), 1);
}

TEST_F(LockableFlashChipTest, IsNotProtectedAgainWhenItIs) {
  flash_->Protect(true);
  flash_->Protect(true);
  EXPECT_EQ(kernel_.CountSent(0x01), 1);
}

TEST_F(LockableFlashChipTest, ProtectionIsTakenAway) {
  flash_->Protect(true);
  flash_->Protect(false);
  EXPECT_FALSE(flash_->Identify().IsProtected());
}

TEST_F(LockableFlashChipTest, ProtectionThatIsLostIsRepeated) {
  Spoil(0x01, Fate::kLost, 1, 2);
  flash_->Protect(true);
  EXPECT_TRUE(flash_->Identify().IsLockedWhole());
}

TEST_F(LockableFlashChipTest, ProtectionThatIsNeverTakenIsAFailure) {
  Spoil(0x01, Fate::kLost, 1);
  EXPECT_EQ(FailureOf([&] { flash_->Protect(true); }),
            "the flash chip does not take its protection");
}

TEST_F(LockableFlashChipTest, ProtectionThatIsNeverGivenUpIsAFailure) {
  flash_->Protect(true);
  Spoil(0x01, Fate::kLost, 1);
  EXPECT_EQ(FailureOf([&] { flash_->Protect(false); }),
            "the flash chip does not give up its protection");
}

}  // namespace
}  // namespace companion
