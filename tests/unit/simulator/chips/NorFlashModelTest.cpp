#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <numeric>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/chips/NorFlashModel.h"
#include "simulator/timing/ByteClock.h"
#include "simulator/timing/ClockedPart.h"

namespace {

using namespace std::chrono_literals;

using orvane::Chip;
using orvane::NorFlashModel;
using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kMiB = 1048576;

class NorFlashModelTest : public testing::Test {
 protected:
  NorFlashModelTest() : NorFlashModelTest(Chip::kMicron) {}
  explicit NorFlashModelTest(Chip chip) : flash_(std::make_unique<NorFlashModel>(chip)) {}

  /// One chip select: sends the command, then clocks `reply` more bytes.
  /// @return those bytes; what the chip drives during the command must be zero
  Bytes Ask(const Bytes& command, std::size_t reply) {
    Bytes mosi = command;
    mosi.resize(command.size() + reply, 0x00);
    Bytes miso(mosi.size(), 0xA5);
    flash_->Transfer(mosi, miso);
    const auto answer = miso.begin() + static_cast<std::ptrdiff_t>(command.size());
    EXPECT_EQ(Bytes(miso.begin(), answer), Bytes(command.size(), 0x00));
    return {answer, miso.end()};
  }
  void Send(const Bytes& command) { Ask(command, 0); }

  std::uint8_t Status() { return Ask({0x05}, 1).at(0); }
  void Settle() {
    while ((Status() & 0x01) != 0) {
    }
  }
  /// Write enable, the command, and as many status reads as it takes.
  void Do(const Bytes& command) {
    Send({0x06});
    Send(command);
    Settle();
  }
  void WriteRegisters(const Bytes& values) {
    Bytes command = {0x01};
    command.insert(command.end(), values.begin(), values.end());
    Send({0x06});
    Send(command);
    flash_->AdvanceTime(40ms);
  }

  std::uint8_t At(std::size_t address) const { return flash_->Contents()[address]; }
  bool Blank() const {
    return std::all_of(flash_->Contents().begin(), flash_->Contents().end(), [](std::uint8_t byte) {
      return byte == 0xFF;
    });
  }
  void FillWithZeros() { flash_->Load(Bytes(16 * kMiB, 0x00)); }

  std::unique_ptr<NorFlashModel> flash_;
};

class MacronixFlashModelTest : public NorFlashModelTest {
 protected:
  MacronixFlashModelTest() : NorFlashModelTest(Chip::kMacronix) {}
};

Bytes Command(std::uint8_t opcode, std::size_t address) {
  return {opcode,
          static_cast<std::uint8_t>(address >> 16),
          static_cast<std::uint8_t>(address >> 8),
          static_cast<std::uint8_t>(address)};
}

Bytes Command(std::uint8_t opcode, std::size_t address, const Bytes& data) {
  Bytes command = Command(opcode, address);
  command.insert(command.end(), data.begin(), data.end());
  return command;
}

Bytes Rising(std::size_t count) {
  Bytes bytes(count);
  std::iota(bytes.begin(), bytes.end(), std::uint8_t{0});
  return bytes;
}

// Contents.

TEST_F(NorFlashModelTest, NewChipIsBlank) {
  EXPECT_EQ(flash_->Contents().size(), 16777216U);
  EXPECT_TRUE(Blank());
}

TEST_F(NorFlashModelTest, LoadStartsAtAddressZeroAndBlanksTheRest) {
  FillWithZeros();
  flash_->Load(Bytes{1, 2, 3});
  EXPECT_EQ(At(0), 1);
  EXPECT_EQ(At(2), 3);
  EXPECT_EQ(At(3), 0xFF);
  EXPECT_EQ(At(16777215), 0xFF);
}

TEST_F(NorFlashModelTest, LoadTakesTheWholeArray) {
  FillWithZeros();
  EXPECT_EQ(At(0), 0x00);
  EXPECT_EQ(At(16777215), 0x00);
}

TEST_F(NorFlashModelTest, LoadRefusesOneByteTooManyAndKeepsTheContents) {
  flash_->Load(Bytes{1});
  EXPECT_THROW(flash_->Load(Bytes(16777217, 0x00)), std::length_error);
  EXPECT_EQ(At(0), 1);
}

TEST_F(NorFlashModelTest, TransferRefusesDifferentLengths) {
  const Bytes mosi(2);
  Bytes miso(3);
  EXPECT_THROW(flash_->Transfer(mosi, miso), std::invalid_argument);
}

TEST_F(NorFlashModelTest, EmptyTransferDoesNothing) {
  flash_->Transfer({}, {});
  EXPECT_EQ(Status(), 0x00);
}

TEST_F(NorFlashModelTest, UnknownCommandDrivesNothing) {
  EXPECT_EQ(Ask({0xB7}, 3), Bytes({0, 0, 0}));
  EXPECT_EQ(Ask({0x00, 0x01, 0x02}, 3), Bytes({0, 0, 0}));
}

// Identification.

TEST_F(NorFlashModelTest, MicronIdentifiesItselfThenDrivesZeros) {
  EXPECT_EQ(Ask({0x9F}, 5), Bytes({0x20, 0xBA, 0x18, 0x00, 0x00}));
}

TEST_F(MacronixFlashModelTest, MacronixIdentifiesItselfThenDrivesZeros) {
  EXPECT_EQ(Ask({0x9F}, 5), Bytes({0xC2, 0x20, 0x18, 0x00, 0x00}));
}

TEST_F(NorFlashModelTest, IdentificationMayBeCutShort) {
  EXPECT_EQ(Ask({0x9F}, 0), Bytes());
  EXPECT_EQ(Ask({0x9F}, 1), Bytes({0x20}));
}

// Write enable latch.

TEST_F(NorFlashModelTest, WriteEnableSetsTheLatchAndWriteDisableClearsIt) {
  EXPECT_EQ(Status(), 0x00);
  Send({0x06});
  EXPECT_EQ(Status(), 0x02);
  Send({0x04});
  EXPECT_EQ(Status(), 0x00);
}

TEST_F(NorFlashModelTest, WriteEnableOfTwoBytesIsIgnored) {
  Send({0x06, 0x00});
  EXPECT_EQ(Status(), 0x00);
}

TEST_F(NorFlashModelTest, WriteDisableOfTwoBytesIsIgnored) {
  Send({0x06});
  Send({0x04, 0x00});
  EXPECT_EQ(Status(), 0x02);
}

TEST_F(NorFlashModelTest, ProgramWithoutTheLatchIsIgnored) {
  Send({0x02, 0, 0, 0, 0x11});
  EXPECT_EQ(Status(), 0x00);
  EXPECT_TRUE(Blank());
}

TEST_F(NorFlashModelTest, ErasesWithoutTheLatchAreIgnored) {
  FillWithZeros();
  for (const Bytes& command :
       {Bytes{0x20, 0, 0, 0}, Bytes{0xD8, 0, 0, 0}, Bytes{0x60}, Bytes{0xC7}}) {
    Send(command);
    EXPECT_EQ(Status(), 0x00);
    EXPECT_EQ(At(0), 0x00);
  }
}

TEST_F(MacronixFlashModelTest, RegisterWriteWithoutTheLatchIsIgnored) {
  Send({0x01, 0x3C, 0x08});
  EXPECT_EQ(Status(), 0x00);
  flash_->AdvanceTime(40ms);
  EXPECT_EQ(Status(), 0x00);
  EXPECT_EQ(Ask({0x15}, 1), Bytes({0x07}));
}

TEST_F(NorFlashModelTest, LatchFallsWhenTheProgramIsDone) {
  Send({0x06});
  Send({0x02, 0, 0, 0, 0x11});
  EXPECT_EQ(Ask({0x05}, 3), Bytes({0x03, 0x03, 0x00}));
  Send({0x02, 0, 0, 1, 0x22});
  EXPECT_EQ(At(1), 0xFF);
}

TEST_F(NorFlashModelTest, LatchSurvivesReads) {
  Send({0x06});
  Ask({0x03, 0, 0, 0}, 4);
  Ask({0x9F}, 3);
  EXPECT_EQ(Status(), 0x02);
}

TEST_F(NorFlashModelTest, LatchSurvivesAnIncompleteProgram) {
  Send({0x06});
  Send({0x02, 0, 0, 0});
  EXPECT_EQ(Status(), 0x02);
  Send({0x02, 0, 0, 0, 0x11});
  EXPECT_EQ(At(0), 0x11);
}

// Status polls.

TEST_F(NorFlashModelTest, ProgramIsBusyForTwoStatusReads) {
  Send({0x06});
  Send({0x02, 0, 0, 0, 0x11});
  EXPECT_EQ(Status(), 0x03);
  EXPECT_EQ(Status(), 0x03);
  EXPECT_EQ(Status(), 0x00);
}

TEST_F(NorFlashModelTest, SectorEraseIsBusyForThreeStatusReads) {
  Send({0x06});
  Send({0xD8, 0, 0, 0});
  EXPECT_EQ(Status(), 0x03);
  EXPECT_EQ(Status(), 0x03);
  EXPECT_EQ(Status(), 0x03);
  EXPECT_EQ(Status(), 0x00);
}

TEST_F(NorFlashModelTest, EveryStatusByteClockedCounts) {
  Send({0x06});
  Send({0x20, 0, 0, 0});
  EXPECT_EQ(Ask({0x05}, 6), Bytes({0x03, 0x03, 0x03, 0x00, 0x00, 0x00}));
}

TEST_F(NorFlashModelTest, StatusCommandWithoutAByteClockedDoesNotCount) {
  Send({0x06});
  Send({0x02, 0, 0, 0, 0x11});
  for (int i = 0; i < 5; ++i) {
    Send({0x05});
  }
  EXPECT_EQ(Ask({0x05}, 3), Bytes({0x03, 0x03, 0x00}));
}

TEST_F(NorFlashModelTest, ProgramThatNobodyAsksAboutEndsInItsTime) {
  Send({0x06});
  Send({0x02, 0, 0, 0, 0x11});
  flash_->AdvanceTime(4999999ns);
  EXPECT_TRUE(flash_->Busy());
  flash_->AdvanceTime(1ns);
  EXPECT_EQ(Ask({0x05}, 2), Bytes({0x00, 0x00}));
}

TEST_F(NorFlashModelTest, EraseThatNobodyAsksAboutEndsInItsTime) {
  Send({0x06});
  Send({0xD8, 0, 0, 0});
  flash_->AdvanceTime(999999999ns);
  EXPECT_TRUE(flash_->Busy());
  flash_->AdvanceTime(1ns);
  EXPECT_EQ(Ask({0x05}, 2), Bytes({0x00, 0x00}));
}

TEST_F(NorFlashModelTest, ChipEraseTakesASecondForEachSector) {
  Send({0x06});
  Send({0x60});
  flash_->AdvanceTime(std::chrono::seconds(255));
  EXPECT_TRUE(flash_->Busy());
  flash_->AdvanceTime(std::chrono::seconds(1));
  EXPECT_FALSE(flash_->Busy());
}

TEST_F(NorFlashModelTest, TimeDoesNotFreeAChipThatIsStuck) {
  flash_->StayBusyAfter(1);
  Send({0x06});
  Send({0x02, 0, 0, 0, 0x11});
  flash_->AdvanceTime(std::chrono::hours(1));
  EXPECT_EQ(Ask({0x05}, 3), Bytes({0x03, 0x03, 0x03}));
}

TEST_F(NorFlashModelTest, TimeBeforeAProgramDoesNotCount) {
  flash_->AdvanceTime(std::chrono::hours(1));
  Send({0x06});
  Send({0x02, 0, 0, 0, 0x11});
  EXPECT_EQ(Ask({0x05}, 3), Bytes({0x03, 0x03, 0x00}));
}

TEST_F(MacronixFlashModelTest, ConfigurationReadsDoNotEndAProgram) {
  Send({0x06});
  Send({0x02, 0, 0, 0, 0x11});
  Ask({0x15}, 5);
  EXPECT_EQ(Ask({0x05}, 3), Bytes({0x03, 0x03, 0x00}));
}

// Commands that are ignored while the chip is busy.

TEST_F(NorFlashModelTest, BusyChipHearsNoRead) {
  Send({0x06});
  Send({0x02, 0, 0, 0, 0x11});
  EXPECT_EQ(Ask({0x03, 0, 0, 0}, 2), Bytes({0x00, 0x00}));
  Settle();
  EXPECT_EQ(Ask({0x03, 0, 0, 0}, 2), Bytes({0x11, 0xFF}));
}

TEST_F(NorFlashModelTest, BusyChipHearsNoIdentification) {
  Send({0x06});
  Send({0x20, 0, 0, 0});
  EXPECT_EQ(Ask({0x9F}, 3), Bytes({0x00, 0x00, 0x00}));
}

TEST_F(NorFlashModelTest, BusyChipHearsNoWriteEnableAndNoWriteDisable) {
  Send({0x06});
  Send({0x02, 0, 0, 0, 0x11});
  Send({0x04});
  EXPECT_EQ(Status(), 0x03);
  Send({0x06});
  Settle();
  EXPECT_EQ(Status(), 0x00);
}

TEST_F(NorFlashModelTest, BusyChipHearsNoProgramAndNoErase) {
  Send({0x06});
  Send({0x02, 0, 0, 0, 0x11});
  Send({0x02, 0, 0, 1, 0x22});
  Send({0x20, 0, 0, 0});
  Send({0xC7});
  Settle();
  EXPECT_EQ(At(0), 0x11);
  EXPECT_EQ(At(1), 0xFF);
}

TEST_F(MacronixFlashModelTest, BusyChipHearsNoRegisterWrite) {
  Send({0x06});
  Send({0x02, 0, 0, 0, 0x11});
  Send({0x01, 0x3C, 0x08});
  flash_->AdvanceTime(40ms);
  Settle();
  EXPECT_EQ(Status(), 0x00);
}

TEST_F(MacronixFlashModelTest, BusyChipAnswersConfigurationReads) {
  Send({0x06});
  Send({0x02, 0, 0, 0, 0x11});
  EXPECT_EQ(Ask({0x15}, 2), Bytes({0x07, 0x07}));
}

// Read.

TEST_F(NorFlashModelTest, ReadStartsAtTheAddress) {
  flash_->Load(Rising(256));
  EXPECT_EQ(Ask({0x03, 0x00, 0x00, 0x10}, 3), Bytes({0x10, 0x11, 0x12}));
}

TEST_F(NorFlashModelTest, ReadTakesAddressBytesMostSignificantFirst) {
  Bytes contents(0x012346);
  contents[0x012345] = 0x77;
  flash_->Load(contents);
  EXPECT_EQ(Ask({0x03, 0x01, 0x23, 0x45}, 1), Bytes({0x77}));
}

TEST_F(NorFlashModelTest, ReadRunsOverTheEndOfTheArrayToItsStart) {
  Bytes contents(16 * kMiB, 0x00);
  contents[16777214] = 0x0E;
  contents[16777215] = 0x0F;
  contents[0] = 0x01;
  contents[1] = 0x02;
  flash_->Load(contents);
  EXPECT_EQ(Ask({0x03, 0xFF, 0xFF, 0xFE}, 4), Bytes({0x0E, 0x0F, 0x01, 0x02}));
}

TEST_F(NorFlashModelTest, ReadLongerThanTheArrayGoesRoundTwice) {
  flash_->Load(Bytes{0x01});
  const Bytes data = Ask({0x03, 0, 0, 0}, 32 * kMiB + 1);
  EXPECT_EQ(data.at(0), 0x01);
  EXPECT_EQ(data.at(1), 0xFF);
  EXPECT_EQ(data.at(16 * kMiB), 0x01);
  EXPECT_EQ(data.at(32 * kMiB), 0x01);
}

TEST_F(NorFlashModelTest, ReadOfAnIncompleteAddressDrivesNothing) {
  flash_->Load(Bytes(256, 0x55));
  EXPECT_EQ(Ask({0x03}, 3), Bytes({0x00, 0x00, 0x00}));
  EXPECT_EQ(Ask({0x03, 0, 0, 0}, 0), Bytes());
}

// Page program.

TEST_F(NorFlashModelTest, ProgramOnlyClearsBits) {
  Do({0x02, 0, 0, 0, 0xF0});
  EXPECT_EQ(At(0), 0xF0);
  Do({0x02, 0, 0, 0, 0x3C});
  EXPECT_EQ(At(0), 0x30);
  Do({0x02, 0, 0, 0, 0xFF});
  EXPECT_EQ(At(0), 0x30);
}

TEST_F(NorFlashModelTest, ProgramTouchesNothingBesideItsData) {
  Do({0x02, 0x01, 0x23, 0x45, 0x00, 0x00});
  EXPECT_EQ(At(0x012344), 0xFF);
  EXPECT_EQ(At(0x012345), 0x00);
  EXPECT_EQ(At(0x012346), 0x00);
  EXPECT_EQ(At(0x012347), 0xFF);
}

TEST_F(NorFlashModelTest, ProgramWrapsInItsPage) {
  Do({0x02, 0x00, 0x12, 0xFE, 0x01, 0x02, 0x03, 0x04});
  EXPECT_EQ(At(0x12FE), 0x01);
  EXPECT_EQ(At(0x12FF), 0x02);
  EXPECT_EQ(At(0x1200), 0x03);
  EXPECT_EQ(At(0x1201), 0x04);
  EXPECT_EQ(At(0x1300), 0xFF);
}

TEST_F(NorFlashModelTest, ProgramOfTheLastPageWrapsInIt) {
  Do({0x02, 0xFF, 0xFF, 0xFF, 0x01, 0x02});
  EXPECT_EQ(At(16777215), 0x01);
  EXPECT_EQ(At(16776960), 0x02);
  EXPECT_EQ(At(0), 0xFF);
}

TEST_F(NorFlashModelTest, ProgramOf256BytesFillsThePage) {
  Do(Command(0x02, 0x0300, Rising(256)));
  EXPECT_EQ(At(0x02FF), 0xFF);
  EXPECT_EQ(At(0x0300), 0x00);
  EXPECT_EQ(At(0x03FE), 0xFE);
  EXPECT_EQ(At(0x03FF), 0xFF);
  EXPECT_EQ(At(0x0400), 0xFF);
}

TEST_F(NorFlashModelTest, ProgramOf257BytesKeepsTheLast256) {
  Bytes data(257, 0x33);
  data.front() = 0x00;  // would leave 0x00 if both bytes for this address counted
  data.back() = 0x44;
  Do(Command(0x02, 0x0300, data));
  EXPECT_EQ(At(0x0300), 0x44);
  EXPECT_EQ(At(0x0301), 0x33);
  EXPECT_EQ(At(0x03FF), 0x33);
}

TEST_F(NorFlashModelTest, ProgramOf600BytesFromTheMiddleKeepsTheLast256) {
  Bytes data(600);
  for (std::size_t i = 0; i < data.size(); ++i) {
    data[i] = static_cast<std::uint8_t>(i / 3);
  }
  Do(Command(0x02, 0x0380, data));
  // The byte i lands at 0x80 + i, round a page of 0x100; from i = 344 on they stand.
  EXPECT_EQ(At(0x0300 + (0x80 + 344) % 256), 344 / 3);
  EXPECT_EQ(At(0x0300 + (0x80 + 343 + 256) % 256), 599 / 3);
  EXPECT_EQ(At(0x0300 + (0x80 + 500) % 256), 500 / 3);
}

TEST_F(NorFlashModelTest, ProgramWithoutDataIsIgnored) {
  Send({0x06});
  Send({0x02, 0, 0, 0});
  EXPECT_EQ(Status(), 0x02);
  EXPECT_TRUE(Blank());
}

TEST_F(NorFlashModelTest, ProgramWithTwoAddressBytesIsIgnored) {
  Send({0x06});
  Send({0x02, 0, 0});
  EXPECT_EQ(Status(), 0x02);
  EXPECT_TRUE(Blank());
}

TEST_F(NorFlashModelTest, SixteenMebibytesOfPageProgramsArriveWhole) {
  Bytes data(256);
  for (std::size_t page = 0; page < 65536; ++page) {
    std::fill(data.begin(), data.end(), static_cast<std::uint8_t>(page % 251));
    Do(Command(0x02, page * 256, data));
  }
  for (std::size_t page = 0; page < 65536; ++page) {
    ASSERT_EQ(At(page * 256), page % 251) << page;
    ASSERT_EQ(At(page * 256 + 255), page % 251) << page;
  }
}

// Erase.

TEST_F(NorFlashModelTest, SubsectorEraseErasesTheFourKibibytesAroundItsAddress) {
  FillWithZeros();
  Do({0x20, 0x01, 0x23, 0x45});
  EXPECT_EQ(At(0x011FFF), 0x00);
  EXPECT_EQ(At(0x012000), 0xFF);
  EXPECT_EQ(At(0x012FFF), 0xFF);
  EXPECT_EQ(At(0x013000), 0x00);
}

TEST_F(NorFlashModelTest, SectorEraseErasesThe64KibibytesAroundItsAddress) {
  FillWithZeros();
  Do({0xD8, 0x01, 0x23, 0x45});
  EXPECT_EQ(At(0x00FFFF), 0x00);
  EXPECT_EQ(At(0x010000), 0xFF);
  EXPECT_EQ(At(0x01FFFF), 0xFF);
  EXPECT_EQ(At(0x020000), 0x00);
}

TEST_F(NorFlashModelTest, SectorEraseOfTheLastSectorEndsWithTheArray) {
  FillWithZeros();
  Do({0xD8, 0xFF, 0xFF, 0xFF});
  EXPECT_EQ(At(0xFEFFFF), 0x00);
  EXPECT_EQ(At(0xFF0000), 0xFF);
  EXPECT_EQ(At(0xFFFFFF), 0xFF);
  EXPECT_EQ(At(0), 0x00);
}

TEST_F(NorFlashModelTest, EraseIsIgnoredUnlessItIsExactlyFourBytes) {
  FillWithZeros();
  for (const Bytes& command : {Bytes{0xD8, 0, 0},
                               Bytes{0xD8, 0, 0, 0, 0},
                               Bytes{0x20, 0, 0},
                               Bytes{0x20, 0, 0, 0, 0},
                               Bytes{0x20}}) {
    Send({0x06});
    Send(command);
    EXPECT_EQ(Status(), 0x02);
    EXPECT_EQ(At(0), 0x00);
  }
}

TEST_F(NorFlashModelTest, ChipEraseErasesEverything) {
  for (const std::uint8_t opcode : {std::uint8_t{0x60}, std::uint8_t{0xC7}}) {
    FillWithZeros();
    Send({0x06});
    Send({opcode});
    EXPECT_EQ(Ask({0x05}, 4), Bytes({0x03, 0x03, 0x03, 0x00}));
    EXPECT_TRUE(Blank());
  }
}

TEST_F(NorFlashModelTest, ChipEraseOfTwoBytesIsIgnored) {
  FillWithZeros();
  Send({0x06});
  Send({0xC7, 0x00});
  EXPECT_EQ(Status(), 0x02);
  EXPECT_EQ(At(0), 0x00);
}

// Registers.

TEST_F(MacronixFlashModelTest, RegisterWriteIsBusyFor40MillisecondsOfInstrumentTime) {
  Send({0x06});
  Send({0x01, 0x04, 0x07});
  EXPECT_EQ(Status(), 0x03);
  flash_->AdvanceTime(39999999ns);
  EXPECT_EQ(Status(), 0x03);
  flash_->AdvanceTime(1ns);
  EXPECT_EQ(Status(), 0x04);
}

TEST_F(MacronixFlashModelTest, RegisterWriteIsNotEndedByStatusReads) {
  Send({0x06});
  Send({0x01, 0x04, 0x07});
  EXPECT_EQ(Ask({0x05}, 100), Bytes(100, 0x03));
}

TEST_F(MacronixFlashModelTest, RegisterWriteKeepsTheChipDeafUntilItsEnd) {
  flash_->Load(Bytes{0x55});
  Send({0x06});
  Send({0x01, 0x00, 0x07});
  flash_->AdvanceTime(39999999ns);
  EXPECT_EQ(Ask({0x03, 0, 0, 0}, 1), Bytes({0x00}));
  flash_->AdvanceTime(1ns);
  EXPECT_EQ(Ask({0x03, 0, 0, 0}, 1), Bytes({0x55}));
}

TEST_F(MacronixFlashModelTest, TimeBeforeARegisterWriteDoesNotCount) {
  flash_->AdvanceTime(40ms);
  Send({0x06});
  Send({0x01, 0x04});
  EXPECT_EQ(Status(), 0x03);
}

TEST_F(MacronixFlashModelTest, RegisterWriteOfOneByteKeepsTheConfiguration) {
  WriteRegisters({0xC0});
  EXPECT_EQ(Status(), 0xC0);
  EXPECT_EQ(Ask({0x15}, 1), Bytes({0x07}));
}

TEST_F(MacronixFlashModelTest, RegisterWriteOfTwoBytesSetsBoth) {
  WriteRegisters({0x7C, 0xC5});
  EXPECT_EQ(Status(), 0x7C);
  EXPECT_EQ(Ask({0x15}, 1), Bytes({0xC5}));
}

TEST_F(MacronixFlashModelTest, RegisterWriteOfNoneOrThreeBytesIsIgnored) {
  for (const Bytes& command : {Bytes{0x01}, Bytes{0x01, 0x3C, 0x00, 0x00}}) {
    Send({0x06});
    Send(command);
    EXPECT_EQ(Status(), 0x02);
  }
}

TEST_F(MacronixFlashModelTest, BusyAndLatchBitsCannotBeWritten) {
  WriteRegisters({0x03});
  EXPECT_EQ(Status(), 0x00);
}

TEST_F(MacronixFlashModelTest, ReservedConfigurationBitsStayZero) {
  WriteRegisters({0x00, 0x30});
  EXPECT_EQ(Ask({0x15}, 1), Bytes({0x00}));
}

TEST_F(MacronixFlashModelTest, BottomBitNeverReturnsToZero) {
  WriteRegisters({0x00, 0x0F});
  EXPECT_EQ(Ask({0x15}, 1), Bytes({0x0F}));
  WriteRegisters({0x00, 0x07});
  EXPECT_EQ(Ask({0x15}, 1), Bytes({0x0F}));
  WriteRegisters({0x00});
  EXPECT_EQ(Ask({0x15}, 1), Bytes({0x0F}));
}

TEST_F(MacronixFlashModelTest, NewProtectionStandsFromTheEndOfTheWriteOn) {
  Send({0x06});
  Send({0x01, 0x24, 0x0F});
  EXPECT_EQ(flash_->StatusRegister(), 0x03);
  EXPECT_EQ(flash_->ConfigurationRegister(), 0x07);
  flash_->AdvanceTime(40ms);
  EXPECT_EQ(flash_->StatusRegister(), 0x24);
  EXPECT_EQ(flash_->ConfigurationRegister(), 0x0F);
}

TEST_F(MacronixFlashModelTest, LoadedRegistersKeepTheirStoredBitsOnly) {
  flash_->LoadRegisters(0xFF, 0xFF);
  EXPECT_EQ(Status(), 0xFC);
  EXPECT_EQ(Ask({0x15}, 1), Bytes({0xCF}));
  flash_->LoadRegisters(0x00, 0x00);
  EXPECT_EQ(Status(), 0x00);
  EXPECT_EQ(Ask({0x15}, 1), Bytes({0x00}));
}

TEST_F(NorFlashModelTest, MicronKnowsNoConfigurationRead) {
  flash_->LoadRegisters(0x00, 0xFF);
  EXPECT_EQ(Ask({0x15}, 3), Bytes({0x00, 0x00, 0x00}));
}

TEST_F(NorFlashModelTest, MicronTakesOneRegisterByteOnly) {
  Send({0x06});
  Send({0x01, 0x40, 0x08});
  EXPECT_EQ(Status(), 0x02);
  Send({0x01, 0xFF});
  EXPECT_EQ(Status(), 0x03);
  flash_->AdvanceTime(40ms);
  EXPECT_EQ(Status(), 0xFC);
}

// Block protection. Each row: the level, and how many bytes it protects.

struct Protection {
  unsigned level;
  std::size_t bytes;
};

constexpr Protection kProtection[] = {{0, 0},
                                      {1, 0x10000},
                                      {2, 0x20000},
                                      {3, 0x40000},
                                      {4, 0x80000},
                                      {5, 0x100000},
                                      {6, 0x200000},
                                      {7, 0x400000},
                                      {8, 0x800000},
                                      {9, 0x1000000},
                                      {10, 0x1000000},
                                      {11, 0x1000000},
                                      {12, 0x1000000},
                                      {13, 0x1000000},
                                      {14, 0x1000000},
                                      {15, 0x1000000}};

std::string LevelName(const testing::TestParamInfo<Protection>& row) {
  return "Level" + std::to_string(row.param.level);
}

class ProtectionTest : public NorFlashModelTest, public testing::WithParamInterface<Protection> {
 protected:
  explicit ProtectionTest(Chip chip) : NorFlashModelTest(chip) { FillWithZeros(); }

  /// Whether a 4 KiB erase at `address` is carried out; the latch falls either way on kMacronix.
  bool Erases(std::size_t address) {
    Do(Command(0x20, address));
    const bool erased = At(address) == 0xFF;
    Send({0x04});
    return erased;
  }
  void ExpectProtectedFromBottom(std::size_t bytes) {
    if (bytes > 0) {
      EXPECT_FALSE(Erases(0));
      EXPECT_FALSE(Erases(bytes - 1));
    }
    if (bytes < 0x1000000) {
      EXPECT_TRUE(Erases(bytes));
      EXPECT_TRUE(Erases(0xFFFFFF));
    }
  }
  void ExpectProtectedFromTop(std::size_t bytes) {
    if (bytes > 0) {
      EXPECT_FALSE(Erases(0xFFFFFF));
      EXPECT_FALSE(Erases(0x1000000 - bytes));
    }
    if (bytes < 0x1000000) {
      EXPECT_TRUE(Erases(0x1000000 - bytes - 1));
      EXPECT_TRUE(Erases(0));
    }
  }
};

class MacronixProtectionTest : public ProtectionTest {
 protected:
  MacronixProtectionTest() : ProtectionTest(Chip::kMacronix) {}
};

TEST_P(MacronixProtectionTest, CountsFromAddressZeroWithTheBottomBit) {
  WriteRegisters({static_cast<std::uint8_t>(GetParam().level << 2), 0x0F});
  ExpectProtectedFromBottom(GetParam().bytes);
}

TEST_P(MacronixProtectionTest, CountsFromTheEndWithoutTheBottomBit) {
  WriteRegisters({static_cast<std::uint8_t>(GetParam().level << 2), 0x07});
  ExpectProtectedFromTop(GetParam().bytes);
}

INSTANTIATE_TEST_SUITE_P(Levels, MacronixProtectionTest, testing::ValuesIn(kProtection), LevelName);

class MicronProtectionTest : public ProtectionTest {
 protected:
  MicronProtectionTest() : ProtectionTest(Chip::kMicron) {}

  /// Level bits 0..2 are status bits 2..4, level bit 3 is status bit 6.
  static std::uint8_t Level(unsigned level) {
    return static_cast<std::uint8_t>((level & 7) << 2 | (level & 8) << 3);
  }
};

TEST_P(MicronProtectionTest, CountsFromAddressZeroWithTheBottomBit) {
  WriteRegisters({static_cast<std::uint8_t>(Level(GetParam().level) | 0x20)});
  ExpectProtectedFromBottom(GetParam().bytes);
}

TEST_P(MicronProtectionTest, CountsFromTheEndWithoutTheBottomBit) {
  WriteRegisters({Level(GetParam().level)});
  ExpectProtectedFromTop(GetParam().bytes);
}

INSTANTIATE_TEST_SUITE_P(Levels, MicronProtectionTest, testing::ValuesIn(kProtection), LevelName);

TEST_F(MacronixFlashModelTest, ProtectedProgramIsIgnoredAndTheLatchFalls) {
  flash_->LoadRegisters(0x04, 0x08);  // level 1 from address 0
  Send({0x06});
  Send({0x02, 0x00, 0xFF, 0xFF, 0x00});
  EXPECT_EQ(Status(), 0x04);
  EXPECT_TRUE(Blank());
}

TEST_F(MacronixFlashModelTest, ProgramBehindTheProtectedAreaIsCarriedOut) {
  flash_->LoadRegisters(0x04, 0x08);
  Do({0x02, 0x01, 0x00, 0x00, 0x12});
  EXPECT_EQ(At(0x010000), 0x12);
}

TEST_F(MacronixFlashModelTest, ProtectedEraseIsIgnoredAndTheLatchFalls) {
  FillWithZeros();
  flash_->LoadRegisters(0x04, 0x08);
  Send({0x06});
  Send({0xD8, 0x00, 0x00, 0x00});
  EXPECT_EQ(Status(), 0x04);
  EXPECT_EQ(At(0), 0x00);
}

TEST_F(MacronixFlashModelTest, ChipEraseIsIgnoredWhileAnythingIsProtected) {
  FillWithZeros();
  flash_->LoadRegisters(0x04, 0x08);
  Do({0xC7});
  EXPECT_EQ(At(0xFFFFFF), 0x00);
  flash_->LoadRegisters(0x00, 0x08);
  Do({0xC7});
  EXPECT_TRUE(Blank());
}

TEST_F(NorFlashModelTest, MicronKeepsTheLatchAfterAProtectedProgram) {
  flash_->LoadRegisters(0x24, 0x00);  // level 1 from address 0
  Send({0x06});
  Send({0x02, 0x00, 0x00, 0x00, 0x00});
  EXPECT_EQ(Status(), 0x26);
  EXPECT_TRUE(Blank());
}

TEST_F(MacronixFlashModelTest, ProtectionDoesNotHinderReads) {
  flash_->Load(Bytes{0x42});
  flash_->LoadRegisters(0x24, 0x08);
  EXPECT_EQ(Ask({0x03, 0, 0, 0}, 1), Bytes({0x42}));
}

// Faults.

TEST_F(NorFlashModelTest, AbsentChipDrivesZerosAndHearsNothing) {
  flash_->Load(Bytes{0x42});
  flash_->SetPresent(false);
  EXPECT_EQ(Ask({0x9F}, 3), Bytes({0, 0, 0}));
  EXPECT_EQ(Ask({0x03, 0, 0, 0}, 1), Bytes({0}));
  Send({0x06});
  Send({0x02, 0, 0, 0, 0x00});
  EXPECT_EQ(Status(), 0x00);
  flash_->SetPresent(true);
  EXPECT_EQ(Status(), 0x00);
  EXPECT_EQ(At(0), 0x42);
}

TEST_F(NorFlashModelTest, DroppedProgramLooksAsUsual) {
  flash_->DropProgram(2);
  Do({0x02, 0, 0, 0, 0x01});
  Send({0x06});
  Send({0x02, 0, 0, 1, 0x02});
  EXPECT_EQ(Ask({0x05}, 3), Bytes({0x03, 0x03, 0x00}));
  Do({0x02, 0, 0, 2, 0x03});
  EXPECT_EQ(At(0), 0x01);
  EXPECT_EQ(At(1), 0xFF);
  EXPECT_EQ(At(2), 0x03);
}

TEST_F(NorFlashModelTest, DroppedProgramCountsFromTheCallOn) {
  Do({0x02, 0, 0, 0, 0x01});
  flash_->DropProgram(1);
  Do({0x02, 0, 0, 1, 0x02});
  EXPECT_EQ(At(1), 0xFF);
}

TEST_F(NorFlashModelTest, IgnoredProgramsAreNotCounted) {
  flash_->DropProgram(1);
  Send({0x02, 0, 0, 0, 0x01});
  Do({0x02, 0, 0, 1, 0x02});
  EXPECT_EQ(At(1), 0xFF);
}

TEST_F(NorFlashModelTest, DroppedProgramCanBeTakenBack) {
  flash_->DropProgram(1);
  flash_->DropProgram(0);
  Do({0x02, 0, 0, 0, 0x01});
  EXPECT_EQ(At(0), 0x01);
}

TEST_F(NorFlashModelTest, DroppedEraseLooksAsUsual) {
  FillWithZeros();
  flash_->DropErase(2);
  Do({0xD8, 0x00, 0, 0});
  Send({0x06});
  Send({0xD8, 0x01, 0, 0});
  EXPECT_EQ(Ask({0x05}, 4), Bytes({0x03, 0x03, 0x03, 0x00}));
  Do({0xD8, 0x02, 0, 0});
  EXPECT_EQ(At(0x00000), 0xFF);
  EXPECT_EQ(At(0x10000), 0x00);
  EXPECT_EQ(At(0x20000), 0xFF);
}

TEST_F(MacronixFlashModelTest, DroppedRegisterWriteTakesItsTimeAndChangesNothing) {
  flash_->DropRegisterWrite(1);
  Send({0x06});
  Send({0x01, 0x24, 0x0F});
  EXPECT_EQ(Status(), 0x03);
  flash_->AdvanceTime(40ms);
  EXPECT_EQ(Status(), 0x00);
  EXPECT_EQ(Ask({0x15}, 1), Bytes({0x07}));
  WriteRegisters({0x24, 0x0F});
  EXPECT_EQ(Status(), 0x24);
}

TEST_F(NorFlashModelTest, StuckChipStaysBusyForEverAfterTheNthProgramOrErase) {
  flash_->StayBusyAfter(2);
  Do({0xD8, 0, 0, 0});
  Send({0x06});
  Send({0x02, 0, 0, 0, 0x01});
  EXPECT_EQ(Ask({0x05}, 1000), Bytes(1000, 0x03));
  flash_->AdvanceTime(std::chrono::hours(24));
  EXPECT_EQ(Status(), 0x03);
  EXPECT_EQ(Ask({0x9F}, 3), Bytes({0, 0, 0}));
  EXPECT_EQ(At(0), 0x01);
}

TEST_F(NorFlashModelTest, BootableUnlessAbsentOrStuck) {
  EXPECT_TRUE(flash_->Bootable());
  flash_->SetPresent(false);
  EXPECT_FALSE(flash_->Bootable());
  flash_->SetPresent(true);
  flash_->StayBusyAfter(1);
  Send({0x06});
  Send({0x02, 0, 0, 0, 0x01});
  EXPECT_FALSE(flash_->Bootable());
}

TEST_F(NorFlashModelTest, WornPageNeverPrograms) {
  flash_->WearOutPage(0x1234);
  for (int i = 0; i < 2; ++i) {
    Send({0x06});
    Send({0x02, 0x00, 0x12, 0x00, 0x00});
    EXPECT_EQ(Ask({0x05}, 3), Bytes({0x03, 0x03, 0x00}));
  }
  Do({0x02, 0x00, 0x11, 0x00, 0x00});
  Do({0x02, 0x00, 0x13, 0x00, 0x00});
  EXPECT_EQ(At(0x1100), 0x00);
  EXPECT_EQ(At(0x1200), 0xFF);
  EXPECT_EQ(At(0x1300), 0x00);
}

TEST_F(NorFlashModelTest, WornSectorNeverErases) {
  FillWithZeros();
  flash_->WearOutSector(0x12345);
  Do({0xD8, 0x01, 0, 0});
  Do({0x20, 0x01, 0x10, 0x00});
  EXPECT_EQ(At(0x10000), 0x00);
  EXPECT_EQ(At(0x11000), 0x00);
  Do({0xC7});
  EXPECT_EQ(At(0x0FFFF), 0xFF);
  EXPECT_EQ(At(0x10000), 0x00);
  EXPECT_EQ(At(0x1FFFF), 0x00);
  EXPECT_EQ(At(0x20000), 0xFF);
}

TEST_F(NorFlashModelTest, NothingIsRememberedAtFirstNorOnceForgotten) {
  EXPECT_FALSE(flash_->IsAsRemembered());
  EXPECT_EQ(flash_->Remembered(), std::nullopt);
  flash_->Remember();
  flash_->Forget();
  Do({0x02, 0, 0, 0, 0x5A});
  EXPECT_FALSE(flash_->IsAsRemembered());
  EXPECT_EQ(flash_->Remembered(), std::nullopt);
}

TEST_F(NorFlashModelTest, RememberedContentsOutliveEveryKindOfChange) {
  Bytes contents(16 * kMiB);
  for (std::size_t at = 0; at < contents.size(); ++at) {
    contents[at] = static_cast<std::uint8_t>(at >> 12U | 1U);
  }
  flash_->Load(contents);
  flash_->Remember();
  EXPECT_TRUE(flash_->IsAsRemembered());
  EXPECT_EQ(flash_->Remembered(), contents);
  Do({0x02, 0x12, 0x34, 0x00, 0x00});  // a page
  EXPECT_FALSE(flash_->IsAsRemembered());
  EXPECT_EQ(flash_->Remembered(), contents);
  Do({0x20, 0x12, 0x10, 0x00});  // 4 KiB
  Do({0xD8, 0xFF, 0x00, 0x00});  // 64 KiB
  EXPECT_EQ(flash_->Remembered(), contents);
  Do({0xC7});
  EXPECT_EQ(flash_->Remembered(), contents);
  flash_->Load({});
  EXPECT_EQ(flash_->Remembered(), contents);
  EXPECT_FALSE(flash_->IsAsRemembered());
}

TEST_F(NorFlashModelTest, ArrayThatIsChangedBackIsAsRemembered) {
  Do({0x02, 0, 0, 0, 0x5A});
  flash_->Remember();
  Do({0xD8, 0, 0, 0});
  EXPECT_FALSE(flash_->IsAsRemembered());
  Do({0x02, 0, 0, 0, 0x5A});
  EXPECT_TRUE(flash_->IsAsRemembered());
}

TEST_F(NorFlashModelTest, ProgramThatIsLostLeavesTheArrayAsRemembered) {
  flash_->DropProgram(1);
  flash_->Remember();
  Do({0x02, 0, 0, 0, 0x5A});
  EXPECT_TRUE(flash_->IsAsRemembered());
}

TEST_F(NorFlashModelTest, LaterMomentReplacesTheOneThatWasRemembered) {
  flash_->Remember();
  Do({0x02, 0, 0, 0, 0x5A});
  flash_->Remember();
  EXPECT_TRUE(flash_->IsAsRemembered());
  Do({0xD8, 0, 0, 0});
  EXPECT_EQ(flash_->Remembered()->at(0), 0x5A);
}

// --- Data sheet times -----------------------------------------------------------------------------

/// A bus on which each byte takes 1 us.
class SteadyBus : public orvane::ByteClock {
 public:
  explicit SteadyBus(NorFlashModel& flash) : flash_(flash) {}

  void Pass(std::size_t bytes) override {
    passed_ += bytes;
    flash_.AdvanceTime(std::chrono::microseconds(bytes));
  }
  std::size_t Passed() const { return passed_; }

 private:
  NorFlashModel& flash_;
  std::size_t passed_ = 0;
};

class TimedFlashTest : public testing::Test {
 protected:
  Bytes Ask(Bytes mosi, std::size_t reply) {
    const std::size_t sent = mosi.size();
    mosi.resize(sent + reply);
    Bytes miso(mosi.size());
    flash_.Transfer(mosi, miso, bus_);
    return {miso.begin() + static_cast<std::ptrdiff_t>(sent), miso.end()};
  }
  void Send(const Bytes& mosi) { Ask(mosi, 0); }
  /// Programs one byte.
  void Program() {
    Send({0x06});
    Send({0x02, 0x00, 0x01, 0x02, 0x5A});
  }

  NorFlashModel flash_{Chip::kMicron, orvane::Timing::kTypical};
  SteadyBus bus_{flash_};
};

TEST_F(TimedFlashTest, ProgramKeepsTheChipBusyFor120MicrosecondsFromTheEndOfTheCommand) {
  Program();
  EXPECT_TRUE(flash_.Busy());
  EXPECT_EQ(flash_.NextChange(), std::chrono::microseconds(120));
  flash_.AdvanceTime(119'999ns);
  EXPECT_TRUE(flash_.Busy());
  flash_.AdvanceTime(1ns);
  EXPECT_FALSE(flash_.Busy());
  EXPECT_EQ(flash_.NextChange(), orvane::kNever);
}

TEST_F(TimedFlashTest, StatusReadsDoNotEndTheWork) {
  Program();
  EXPECT_EQ(Ask({0x05}, 100), Bytes(100, 0x03));
  EXPECT_TRUE(flash_.Busy());
}

TEST_F(TimedFlashTest, StatusIsSampledAsEachOfItsBytesBegins) {
  Program();
  flash_.AdvanceTime(117us);  // 3 us are left, of which the opcode takes one
  EXPECT_EQ(Ask({0x05}, 4), (Bytes{0x03, 0x03, 0x00, 0x00}));
}

TEST_F(TimedFlashTest, CommandThatBeginsWhileBusyIsIgnoredEvenIfItEndsLater) {
  Program();
  flash_.AdvanceTime(119us);
  Send({0x03, 0x00, 0x01, 0x02});
  EXPECT_FALSE(flash_.Busy());
  EXPECT_EQ(Ask({0x03, 0x00, 0x01, 0x02}, 1), (Bytes{0x5A}));
  Program();
  flash_.AdvanceTime(119us);
  Send({0x9F, 0x00, 0x00});
  EXPECT_EQ(Ask({0x9F}, 3), (Bytes{0x20, 0xBA, 0x18}));
}

TEST_F(TimedFlashTest, BusReceivesEveryByte) {
  Send({0x06});
  EXPECT_EQ(bus_.Passed(), 1U);
  Ask({0x05}, 3);
  EXPECT_EQ(bus_.Passed(), 5U);
  Ask({0x15}, 2);
  EXPECT_EQ(bus_.Passed(), 8U);
  Ask({0x03, 0x00, 0x00, 0x00}, 10);
  EXPECT_EQ(bus_.Passed(), 22U);
  flash_.SetPresent(false);
  Ask({0x05}, 1);
  EXPECT_EQ(bus_.Passed(), 24U);
}

TEST_F(TimedFlashTest, WaitsToBeAskedFromItsReadinessUntilTheStatusByteThatShowsIt) {
  EXPECT_FALSE(flash_.AwaitsPoll());
  Program();
  EXPECT_FALSE(flash_.AwaitsPoll());
  flash_.AdvanceTime(120us);
  EXPECT_TRUE(flash_.AwaitsPoll());
  Ask({0x05}, 1);
  EXPECT_FALSE(flash_.AwaitsPoll());
}

TEST_F(TimedFlashTest, WaitsToBeAskedUntilTheNextCommandIfNobodyAsks) {
  Program();
  flash_.AdvanceTime(1s);
  EXPECT_TRUE(flash_.AwaitsPoll());
  Send({0x06});
  EXPECT_FALSE(flash_.AwaitsPoll());
}

TEST_F(TimedFlashTest, EachWorkIsKnownWithItsPlaceAndTakesItsTime) {
  Program();
  EXPECT_EQ(flash_.Work(), orvane::ChipWork::kPageProgram);
  EXPECT_EQ(flash_.WorkAddress(), 0x000100U);
  flash_.AdvanceTime(120us);
  EXPECT_EQ(flash_.Work(), orvane::ChipWork::kNone);
  Send({0x06});
  Send({0x20, 0x01, 0x23, 0x45});
  EXPECT_EQ(flash_.Work(), orvane::ChipWork::kSubsectorErase);
  EXPECT_EQ(flash_.WorkAddress(), 0x012000U);
  EXPECT_EQ(flash_.NextChange(), std::chrono::milliseconds(50));
  flash_.AdvanceTime(50ms);
  Send({0x06});
  Send({0xD8, 0x01, 0x23, 0x45});
  EXPECT_EQ(flash_.Work(), orvane::ChipWork::kSectorErase);
  EXPECT_EQ(flash_.WorkAddress(), 0x010000U);
  EXPECT_EQ(flash_.NextChange(), std::chrono::milliseconds(150));
  flash_.AdvanceTime(150ms);
  Send({0x06});
  Send({0x60});
  EXPECT_EQ(flash_.Work(), orvane::ChipWork::kChipErase);
  EXPECT_EQ(flash_.NextChange(), std::chrono::seconds(38));
  flash_.AdvanceTime(38s);
  EXPECT_EQ(flash_.TimeOfWork(),
            std::chrono::microseconds(120) + std::chrono::milliseconds(50) +
                std::chrono::milliseconds(150) + std::chrono::seconds(38));
}

TEST_F(TimedFlashTest, NewRegisterValuesAreInForceAtTheEndOfTheirWrite) {
  Send({0x06});
  Send({0x01, 0x24});
  EXPECT_EQ(flash_.Work(), orvane::ChipWork::kRegisterWrite);
  EXPECT_EQ(flash_.NextChange(), std::chrono::microseconds(1'300));
  flash_.AdvanceTime(1'299us);
  EXPECT_EQ(Ask({0x05}, 2), (Bytes{0x24, 0x24}));  // the opcode takes the last microsecond
  EXPECT_FALSE(flash_.Busy());
}

TEST_F(TimedFlashTest, ChipThatIsStuckStaysBusyAndAwaitsNobody) {
  flash_.StayBusyAfter(1);
  Program();
  flash_.AdvanceTime(1h);
  EXPECT_TRUE(flash_.Busy());
  EXPECT_FALSE(flash_.AwaitsPoll());
  EXPECT_EQ(flash_.NextChange(), orvane::kNever);
  EXPECT_EQ(flash_.Work(), orvane::ChipWork::kPageProgram);
}

TEST(TimedMacronixTest, TimesAreThoseOfItsOwnDataSheet) {
  NorFlashModel flash(Chip::kMacronix, orvane::Timing::kLongest);
  Bytes miso(4);
  flash.Transfer(Bytes{0x06}, std::span(miso).first(1));
  flash.Transfer(Bytes{0xD8, 0x00, 0x00, 0x00}, miso);
  EXPECT_EQ(flash.NextChange(), std::chrono::seconds(2));
}

TEST_F(NorFlashModelTest, WithPollsTimeOfWorkIsTheTypicalOne) {
  Do({0x02, 0x00, 0x00, 0x00, 0x00});
  Do({0xD8, 0x00, 0x00, 0x00});
  EXPECT_EQ(flash_->TimeOfWork(), std::chrono::microseconds(120) + std::chrono::milliseconds(150));
}

TEST_F(NorFlashModelTest, WithPollsReadyChipAwaitsNobody) {
  Send({0x06});
  Send({0x02, 0x00, 0x00, 0x00, 0x00});
  flash_->AdvanceTime(5ms);
  EXPECT_FALSE(flash_->Busy());
  EXPECT_FALSE(flash_->AwaitsPoll());
}

}  // namespace
