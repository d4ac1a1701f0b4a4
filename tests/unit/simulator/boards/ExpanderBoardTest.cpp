#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "simulator/boards/ExpanderBoard.h"
#include "simulator/images/Bitstream.h"

namespace orvane {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes Identification(ExpanderBoard& board) {
  const std::array<std::uint8_t, 4> mosi = {0x9F, 0, 0, 0};
  std::array<std::uint8_t, 4> miso{};
  board.Transfer(mosi, miso, ByteClock::Still());
  return {miso.begin() + 1, miso.end()};
}

/// One message on the SPI bus, whose answer does not matter.
void Send(ExpanderBoard& board, const Bytes& mosi) {
  Bytes miso(mosi.size());
  board.Transfer(mosi, miso, ByteClock::Still());
}

/// Drives the dax and pyx1 lines to a pattern.
void Drive(I2cDevice& expander, std::uint8_t low, std::uint8_t high) {
  expander.Write(Bytes{0x02, low, high});
  expander.Write(Bytes{0x06, 0x60, 0x13});
}

class ExpanderBoardTest : public testing::Test {
 protected:
  ExpanderBoard Board(ModuleType type, unsigned slot, bool expander = true) {
    return {{.type = type, .slot = slot, .expander = expander}, flash_, selector_};
  }

  Bytes flash_ = MakeBitstream({.bytes = 4096});
  ModuleSelectorModel selector_;
};

TEST_F(ExpanderBoardTest, DaxExpanderAnswersBehindChannel0Alone) {
  ExpanderBoard board = Board(ModuleType::kDax, 2);
  EXPECT_TRUE(board.HasMux());
  EXPECT_NE(board.FindI2c(0U, 0x21), nullptr);
  EXPECT_EQ(board.FindI2c(1U, 0x21), nullptr);
  EXPECT_EQ(board.FindI2c(std::nullopt, 0x21), nullptr);
  EXPECT_EQ(board.FindI2c(0U, 0x20), nullptr);
}

TEST_F(ExpanderBoardTest, PyxExpanderAnswersOnTheModulesBus) {
  ExpanderBoard board = Board(ModuleType::kPyx1, 4);
  EXPECT_FALSE(board.HasMux());
  EXPECT_NE(board.FindI2c(std::nullopt, 0x20), nullptr);
  EXPECT_EQ(board.FindI2c(std::nullopt, 0x21), nullptr);
}

TEST_F(ExpanderBoardTest, ExpanderInSlotFiveIsOneAddressUp) {
  EXPECT_NE(Board(ModuleType::kPyx2, 5).FindI2c(std::nullopt, 0x21), nullptr);
  EXPECT_EQ(Board(ModuleType::kPyx2, 5).FindI2c(std::nullopt, 0x20), nullptr);
}

TEST_F(ExpanderBoardTest, AbsentExpanderAcknowledgesNothing) {
  EXPECT_EQ(Board(ModuleType::kDax, 2, false).FindI2c(0U, 0x21), nullptr);
}

TEST_F(ExpanderBoardTest, DaxFlashAnswersOnceItIsRoutedToTheController) {
  ExpanderBoard board = Board(ModuleType::kDax, 2);
  EXPECT_EQ(Identification(board), (Bytes{0, 0, 0}));
  Drive(*board.FindI2c(0U, 0x21), 0xBD, 0x3E);
  EXPECT_EQ(Identification(board), (Bytes{0x20, 0xBA, 0x18}));
}

TEST_F(ExpanderBoardTest, HeldLineStaysWhereItIs) {
  ExpanderBoard board(
      {.type = ModuleType::kDax, .slot = 2, .heldLines = 1, .heldLevels = 0}, flash_, selector_);
  Drive(*board.FindI2c(0U, 0x21), 0xBD, 0x3E);
  EXPECT_EQ(Identification(board), (Bytes{0, 0, 0}));  // one of the lines that route the SPI
}

TEST_F(ExpanderBoardTest, PyxFlashAnswersOnlyWhileItsSlotIsOnTheSpiMaster) {
  ExpanderBoard board = Board(ModuleType::kPyx1, 4);
  Drive(*board.FindI2c(std::nullopt, 0x20), 0xBD, 0x3E);
  EXPECT_EQ(Identification(board), (Bytes{0, 0, 0}));
  selector_.Write(ModuleSelectorModel::Attribute::kSlotA, "SPIFIFO");
  EXPECT_EQ(Identification(board), (Bytes{0x20, 0xBA, 0x18}));
  selector_.Write(ModuleSelectorModel::Attribute::kSlotA, "SPILVDS");
  EXPECT_EQ(Identification(board), (Bytes{0, 0, 0}));
}

TEST_F(ExpanderBoardTest, OnlyAPyxHasAPcieEndpoint) {
  EXPECT_TRUE(Board(ModuleType::kDax, 2).AttributePaths().empty());
  EXPECT_EQ(Board(ModuleType::kPyx2, 5).AttributePaths().size(), 4U);
}

TEST_F(ExpanderBoardTest, StateTellsDoneLinesEndpointSelectorAndWhatIsLoaded) {
  EXPECT_EQ(Board(ModuleType::kDax, 2).DescribeState(), "done=1 driven=0x0000 loaded=current");
  ExpanderBoard board = Board(ModuleType::kPyx1, 4);
  EXPECT_EQ(board.DescribeState(),
            "done=1 driven=0x0000 pcie=enabled selector=SPILVDS loaded=current");
  EXPECT_EQ(board.WriteAttribute("/sys/bus/pci/devices/0000:04:00.0/remove", "1"), 0);
  selector_.Write(ModuleSelectorModel::Attribute::kSlotA, "SPIFIFO");
  Drive(*board.FindI2c(std::nullopt, 0x20), 0x20, 0x3E);  // in reset
  EXPECT_EQ(board.DescribeState(), "done=0 driven=0xec9f pcie=absent selector=SPIFIFO loaded=none");
}

TEST_F(ExpanderBoardTest, LoadedIsOtherOnceAPageIsProgrammed) {
  ExpanderBoard board = Board(ModuleType::kDax, 2);
  const Bytes loaded(board.Flash().Contents().begin(), board.Flash().Contents().end());
  Drive(*board.FindI2c(0U, 0x21), 0xBD, 0x3E);
  Send(board, {0x06});
  Send(board, {0x02, 0xFF, 0x00, 0x00, 0x5A});
  EXPECT_EQ(board.DescribeState(), "done=1 driven=0xec9f loaded=other");
  EXPECT_EQ(board.LoadedContents(), loaded);
}

/// As words NAME=LEVEL.
std::string LinesOf(const Module& module) {
  std::string text;
  for (const LineLevel& level : module.Lines()) {
    text +=
        (text.empty() ? "" : " ") + std::string(LineName(level.line)) + (level.high ? "=1" : "=0");
  }
  return text;
}

TEST_F(ExpanderBoardTest, DaxHasTheLinesOfItsFpga) {
  ExpanderBoard board = Board(ModuleType::kDax, 2);
  EXPECT_EQ(LinesOf(board), "DONE=1 RESET=1");
  Drive(*board.FindI2c(0U, 0x21), 0x3D, 0x3E);
  EXPECT_EQ(LinesOf(board), "DONE=0 RESET=0");
}

TEST_F(ExpanderBoardTest, PyxHasItsSelectorAndItsEndpointToo) {
  ExpanderBoard board = Board(ModuleType::kPyx1, 4);
  EXPECT_EQ(LinesOf(board), "DONE=1 RESET=1 SELECTOR=0 ENDPOINT_PRESENT=1 ENDPOINT_ENABLED=1");
  selector_.Write(ModuleSelectorModel::Attribute::kSlotA, "SPIFIFO");
  EXPECT_EQ(board.WriteAttribute("/sys/bus/pci/devices/0000:04:00.0/enable", "0"), 0);
  EXPECT_EQ(LinesOf(board), "DONE=1 RESET=1 SELECTOR=1 ENDPOINT_PRESENT=1 ENDPOINT_ENABLED=0");
}

TEST_F(ExpanderBoardTest, NextChangeIsThatOfTheFpgaOrOfTheFlash) {
  ExpanderBoard board(
      {.type = ModuleType::kDax, .slot = 2, .timing = Timing::kTypical}, flash_, selector_);
  EXPECT_EQ(board.NextChange(), kNever);
  Drive(*board.FindI2c(0U, 0x21), 0xBD, 0x3E);  // the controller has the flash
  Send(board, {0x06});
  Send(board, {0x02, 0x00, 0x00, 0x00, 0x00});
  EXPECT_TRUE(board.ChipBusy());
  EXPECT_EQ(board.NextChange(), std::chrono::microseconds(120));
  board.AdvanceTime(std::chrono::microseconds(120));
  EXPECT_FALSE(board.ChipBusy());
  EXPECT_TRUE(board.AwaitsPoll());
}

}  // namespace
}  // namespace orvane
