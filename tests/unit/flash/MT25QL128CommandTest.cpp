#include <array>
#include <cerrno>
#include <chrono>
#include <iomanip>
#include <iostream>
#include <numeric>
#include <vector>

#include "flash/MT25QL128.h"
#include "tests/unit/flash/FlashTest.h"

namespace {

using namespace std::chrono_literals;

/// An open device; each test is a transaction with the chip.
class MT25QL128CommandTest : public FlashTest {
 protected:
  void SetUp() override { OpenDevice(); }

  /// Starts over with another largest transfer, open.
  void Reopen(const std::string& bufsiz) {
    Rebuild(bufsiz);
    OpenDevice();
  }
};

// --- Construction and destruction ---------------------------------------------------------------

class MT25QL128ConstructionTest : public KernelTest {
 protected:
  void Construct(unsigned speed) {
    SPIDev device("/dev/spidev1.0", speed, 0, 8);
    const MT25QL128 flash(&device);
    Expect({kernel::Close(-1), kernel::Close(-1)});
  }

  RedirectedFile bufsiz_{"/sys/module/spidev/parameters/bufsiz", "4096\n"};
};

constexpr const char* kSpeedWarning =
    "Warning: SPI speed >= 20MHz may prevent writing to the first 16Mebibytes on RQV-3000 "
    "platforms.\n";

TEST_F(MT25QL128ConstructionTest, SpeedOf19999999IsQuiet) {
  Construct(19'999'999);
  ExpectConsole("", "");
}

TEST_F(MT25QL128ConstructionTest, SpeedOf20000000Warns) {
  Construct(20'000'000);
  ExpectConsole("", kSpeedWarning);
}

TEST_F(MT25QL128ConstructionTest, HighestSpeedWarns) {
  Construct(4'294'967'295U);
  ExpectConsole("", kSpeedWarning);
}

TEST_F(MT25QL128ConstructionTest, NullDeviceIsQuietAndNeedsNoDestruction) {
  { const MT25QL128 flash(nullptr); }
  ExpectConsole("", "");
}

TEST_F(MT25QL128ConstructionTest, DestructorClosesTheDeviceButDoesNotDestroyIt) {
  SPIDev device("/dev/spidev1.0", 1'000'000, 0, 8);
  {
    const MT25QL128 flash(&device);
    Expect({kernel::Close(-1)});
  }
  kernel_.Verify();
  EXPECT_EQ(device.GetSpeed(), 1'000'000U);
  Expect({kernel::Close(-1)});
}

// --- One-byte commands --------------------------------------------------------------------------

TEST_F(MT25QL128CommandTest, SendCommandSendsTheByte) {
  Expect({Send({0x66})});
  EXPECT_TRUE(Flash().SendCommand(0x66));
}

TEST_F(MT25QL128CommandTest, SendCommandThatFailsReturnsFalse) {
  Expect({Send({0x66}).Fails(EIO)});
  EXPECT_FALSE(Flash().SendCommand(0x66));
  ExpectConsole("", kWriteError);
}

TEST_F(MT25QL128CommandTest, SetWriteEnableSends06) {
  Expect({Send({0x06}), Send({0x06}).Fails(EIO)});
  EXPECT_TRUE(Flash().SetWriteEnable());
  EXPECT_FALSE(Flash().SetWriteEnable());
  ExpectConsole("", kWriteError);
}

TEST_F(MT25QL128CommandTest, GetStatusAsksForOneByte) {
  Expect({Ask({0x15}, {0x08})});
  std::uint8_t value = 0x77;
  EXPECT_TRUE(Flash().GetStatus(0x15, value));
  EXPECT_EQ(value, 0x08);
}

TEST_F(MT25QL128CommandTest, GetStatusThatFailsLeavesTheValueUnchanged) {
  Expect({Ask({0x15}, {0x08}).Fails(EIO)});
  std::uint8_t value = 0x77;
  EXPECT_FALSE(Flash().GetStatus(0x15, value));
  EXPECT_EQ(value, 0x77);
  ExpectConsole("", kReadError);
}

TEST_F(MT25QL128CommandTest, ReadStatusRegAsks05) {
  Expect({Ask({0x05}, {0x83}), Ask({0x05}, {0x83}).Fails(EIO)});
  std::uint8_t value = 0x77;
  EXPECT_TRUE(Flash().ReadStatusReg(value));
  EXPECT_EQ(value, 0x83);
  value = 0x77;
  EXPECT_FALSE(Flash().ReadStatusReg(value));
  EXPECT_EQ(value, 0x77);
  ExpectConsole("", kReadError);
}

// --- Identification -----------------------------------------------------------------------------

TEST_F(MT25QL128CommandTest, VerboseIdentificationPrintsThreeLinesInHexadecimal) {
  Expect({Ask({0x9F}, {0x20, 0xBA, 0x18})});
  EXPECT_TRUE(Flash().ReadManufIDReg(true));
  ExpectConsole(
      "Flash Manufacturer ID   : 0x20\n"
      "Flash Memory Type       : 0xba\n"
      "Flash Memory Capacity   : 0x18\n",
      "");
}

TEST_F(MT25QL128CommandTest, IdentificationBytesArePaddedToTwoDigits) {
  Expect({Ask({0x9F}, {0x01, 0x00, 0x0F})});
  EXPECT_TRUE(Flash().ReadManufIDReg(true));
  ExpectConsole(
      "Flash Manufacturer ID   : 0x01\n"
      "Flash Memory Type       : 0x00\n"
      "Flash Memory Capacity   : 0x0f\n",
      "");
}

TEST_F(MT25QL128CommandTest, SilentIdentificationPrintsNothing) {
  Expect({Ask({0x9F}, {0x20, 0xBA, 0x18})});
  EXPECT_TRUE(Flash().ReadManufIDReg(false));
  ExpectConsole("", "");
}

TEST_F(MT25QL128CommandTest, HexModeAndFillStaySetOnStandardOutputAndTheWidthLapses) {
  Expect({Ask({0x9F}, {0x20, 0xBA, 0x18})});
  Flash().ReadManufIDReg(true);
  console_.TakeOut();
  std::cout << 255 << " " << 10 << " " << std::setw(4) << 1 << std::endl;
  std::cerr << 255 << std::endl;
  ExpectConsole("ff a 0001\n", "255\n");
}

TEST_F(MT25QL128CommandTest, SilentIdentificationLeavesStandardOutputAsItIs) {
  Expect({Ask({0x9F}, {0xC2, 0x20, 0x18})});
  Flash().ReadManufIDReg(false);
  console_.TakeOut();
  std::cout << 255 << " " << std::setw(4) << 1 << std::endl;
  ExpectConsole("255    1\n", "");
}

TEST_F(MT25QL128CommandTest, ManufacturerZeroFailsAfterPrinting) {
  Expect({Ask({0x9F}, {0x00, 0xBA, 0x18}), Ask({0x9F}, {0x00, 0x00, 0x00})});
  EXPECT_FALSE(Flash().ReadManufIDReg(true));
  ExpectConsole(
      "Flash Manufacturer ID   : 0x00\n"
      "Flash Memory Type       : 0xba\n"
      "Flash Memory Capacity   : 0x18\n",
      "");
  EXPECT_FALSE(Flash().ReadManufIDReg(false));
}

TEST_F(MT25QL128CommandTest, AnyOtherManufacturerIsAccepted) {
  Expect({Ask({0x9F}, {0xFF, 0xFF, 0xFF}), Ask({0x9F}, {0x01, 0x00, 0x00})});
  EXPECT_TRUE(Flash().ReadManufIDReg(false));
  EXPECT_TRUE(Flash().ReadManufIDReg(false));
}

TEST_F(MT25QL128CommandTest, ManufacturerC2AnnouncesLockLogicEvenWhenSilent) {
  Expect({Ask({0x9F}, {0xC2, 0x20, 0x18})});
  EXPECT_TRUE(Flash().ReadManufIDReg(false));
  ExpectConsole("Chip is matronix, enabling lock logic.\n", "");
}

TEST_F(MT25QL128CommandTest, ManufacturerC2IsCalledMatronixAfterTheThreeLines) {
  Expect({Ask({0x9F}, {0xC2, 0x20, 0x18})});
  EXPECT_TRUE(Flash().ReadManufIDReg(true));
  ExpectConsole(
      "Flash Manufacturer ID   : 0xc2\n"
      "Flash Memory Type       : 0x20\n"
      "Flash Memory Capacity   : 0x18\n"
      "Chip is matronix, enabling lock logic.\n",
      "");
}

TEST_F(MT25QL128CommandTest, LockLogicIsOffUntilManufacturerC2IsSeenAndThenStaysOn) {
  EXPECT_EQ(Flash().GetProtectLevel(), 0);  // no traffic
  Expect({Ask({0x9F}, {0x20, 0xBA, 0x18})});
  EXPECT_TRUE(Flash().ReadManufIDReg(false));
  EXPECT_EQ(Flash().GetProtectLevel(), 0);  // no traffic

  Expect({Ask({0x9F}, {0xC2, 0x20, 0x18}), Ask({0x15}, {0x00}), Ask({0x05}, {0x24})});
  EXPECT_TRUE(Flash().ReadManufIDReg(false));
  EXPECT_EQ(Flash().GetProtectLevel(), 9);

  Expect({Ask({0x9F}, {0x20, 0xBA, 0x18}), Ask({0x15}, {0x00}), Ask({0x05}, {0x24})});
  EXPECT_TRUE(Flash().ReadManufIDReg(false));
  EXPECT_EQ(Flash().GetProtectLevel(), 9);
  ExpectConsole("Chip is matronix, enabling lock logic.\n", "");
}

TEST_F(MT25QL128CommandTest, IdentificationThatCannotBeReadFailsAndPrintsNothingOfItsOwn) {
  Expect({Ask({0x9F}, {0xC2, 0x20, 0x18}).Fails(EIO)});
  EXPECT_FALSE(Flash().ReadManufIDReg(true));
  ExpectConsole("", kReadError);
}

TEST_F(MT25QL128CommandTest, IdentificationBytesAreReadWithoutALineAndWithoutLockLogic) {
  Expect({Ask({0x9F}, {0xC2, 0x20, 0x18})});
  std::array<std::uint8_t, 3> id = {0x11, 0x22, 0x33};
  EXPECT_TRUE(Flash().ReadId(id));
  EXPECT_EQ(id, (std::array<std::uint8_t, 3>{0xC2, 0x20, 0x18}));
  ExpectConsole("", "");
  EXPECT_EQ(Flash().GetProtectLevel(), 0);  // no traffic
}

TEST_F(MT25QL128CommandTest, IdentificationBytesOfAnAbsentChipAreReadAsTheyAre) {
  Expect({Ask({0x9F}, {0x00, 0x00, 0x00})});
  std::array<std::uint8_t, 3> id = {0x11, 0x22, 0x33};
  EXPECT_TRUE(Flash().ReadId(id));
  EXPECT_EQ(id, (std::array<std::uint8_t, 3>{0x00, 0x00, 0x00}));
}

TEST_F(MT25QL128CommandTest, IdentificationBytesThatCannotBeReadStayUnchanged) {
  Expect({Ask({0x9F}, {0xC2, 0x20, 0x18}).Fails(EIO)});
  std::array<std::uint8_t, 3> id = {0x11, 0x22, 0x33};
  EXPECT_FALSE(Flash().ReadId(id));
  EXPECT_EQ(id, (std::array<std::uint8_t, 3>{0x11, 0x22, 0x33}));
  ExpectConsole("", kReadError);
}

// --- Write-type commands ------------------------------------------------------------------------

TEST_F(MT25QL128CommandTest, WriteCommandEnablesWritingSendsAndPollsUntilReady) {
  Expect({Send({0x06}),
          Send({0x02, 0x01, 0x23, 0x45, 0xAA, 0x55}),
          Ask({0x05}, {0x03}),
          Ask({0x05}, {0x01}),
          Ask({0x05}, {0x00})});
  std::uint8_t data[] = {0xAA, 0x55};
  EXPECT_TRUE(Flash().WriteCommand(0x02, 0x012345, 2, data));
}

TEST_F(MT25QL128CommandTest, WriteCommandOfLengthZeroSendsFourBytesWhateverTheData) {
  Expect({Send({0x06}),
          Send({0xD8, 0x12, 0x00, 0x00}),
          Ask({0x05}, {0x00}),
          Send({0x06}),
          Send({0xD8, 0x12, 0x00, 0x00}),
          Ask({0x05}, {0x00})});
  std::uint8_t data[] = {0xAA};
  EXPECT_TRUE(Flash().WriteCommand(0xD8, 0x120000, 0, nullptr));
  EXPECT_TRUE(Flash().WriteCommand(0xD8, 0x120000, 0, data));
}

TEST_F(MT25QL128CommandTest, AddressIsThreeBytesMostSignificantFirst) {
  const std::vector<std::pair<int, Bytes>> rows = {{0x000000, {0x20, 0x00, 0x00, 0x00}},
                                                   {0xABCDEF, {0x20, 0xAB, 0xCD, 0xEF}},
                                                   {0x7FABCDEF, {0x20, 0xAB, 0xCD, 0xEF}},
                                                   {0x01000000, {0x20, 0x00, 0x00, 0x00}},
                                                   {-1, {0x20, 0xFF, 0xFF, 0xFF}},
                                                   {-0x1000000, {0x20, 0x00, 0x00, 0x00}}};
  for (const auto& [addr, bytes] : rows) {
    Expect({Send({0x06}), Send(bytes), Ask({0x05}, {0x00})});
    EXPECT_TRUE(Flash().WriteCommand(0x20, addr, 0, nullptr));
  }
}

TEST_F(MT25QL128CommandTest, FailedWriteEnableIsIgnored) {
  Expect({Send({0x06}).Fails(EIO), Send({0x20, 0x00, 0x10, 0x00}), Ask({0x05}, {0x00})});
  EXPECT_TRUE(Flash().WriteCommand(0x20, 0x1000, 0, nullptr));
  ExpectConsole("", kWriteError);
}

TEST_F(MT25QL128CommandTest, CommandThatCannotBeSentFailsWithoutPolling) {
  Expect({Send({0x06}), Send({0x20, 0x00, 0x10, 0x00}).Fails(EIO)});
  EXPECT_FALSE(Flash().WriteCommand(0x20, 0x1000, 0, nullptr));
  ExpectConsole("", kWriteError);
}

TEST_F(MT25QL128CommandTest, StatusThatCannotBeReadFails) {
  Expect({Send({0x06}), Send({0x20, 0x00, 0x10, 0x00}), Ask({0x05}, {0x00}).Fails(EIO)});
  EXPECT_FALSE(Flash().WriteCommand(0x20, 0x1000, 0, nullptr));
  ExpectConsole("", kReadError);
}

TEST_F(MT25QL128CommandTest, StatusThatCannotBeReadWhileBusyFails) {
  Expect({Send({0x06}),
          Send({0x20, 0x00, 0x10, 0x00}),
          Ask({0x05}, {0x01}),
          Ask({0x05}, {0x00}).Fails(EIO)});
  EXPECT_FALSE(Flash().WriteCommand(0x20, 0x1000, 0, nullptr));
  ExpectConsole("", kReadError);
}

TEST_F(MT25QL128CommandTest, OnlyBitZeroOfTheStatusMeansBusy) {
  Expect({Send({0x06}), Send({0x20, 0x00, 0x10, 0x00}), Ask({0x05}, {0xFE})});
  EXPECT_TRUE(Flash().WriteCommand(0x20, 0x1000, 0, nullptr));
}

TEST_F(MT25QL128CommandTest, StatusIsPolledBackToBackWithoutSleep) {
  Expect({Send({0x06}), Send({0x20, 0x00, 0x10, 0x00})});
  for (int poll = 0; poll < 100; ++poll) {
    Expect({Ask({0x05}, {0x01})});  // a sleep in between would fail the test
  }
  Expect({Ask({0x05}, {0x00})});
  EXPECT_TRUE(Flash().WriteCommand(0x20, 0x1000, 0, nullptr));
}

TEST_F(MT25QL128CommandTest, ElapsedTimeOfExactlyFiveSecondsIsNotTooLong) {
  Expect({Send({0x06}),
          Send({0x20, 0x00, 0x10, 0x00}),
          Ask({0x05}, {0x01}).Takes(5s),
          Ask({0x05}, {0x01}),
          Ask({0x05}, {0x00})});
  EXPECT_TRUE(Flash().WriteCommand(0x20, 0x1000, 0, nullptr));
}

TEST_F(MT25QL128CommandTest, ElapsedTimeAboveFiveSecondsFailsAfterOneMoreStatusReadThoughReady) {
  Expect({Send({0x06}),
          Send({0x20, 0x00, 0x10, 0x00}),
          Ask({0x05}, {0x01}).Takes(5s + 1ns),
          Ask({0x05}, {0x00})});
  EXPECT_FALSE(Flash().WriteCommand(0x20, 0x1000, 0, nullptr));
  ExpectConsole("", "");
}

TEST_F(MT25QL128CommandTest, ElapsedTimeAddsUpOverTheStatusReads) {
  Expect({Send({0x06}),
          Send({0x20, 0x00, 0x10, 0x00}),
          Ask({0x05}, {0x01}).Takes(2s),
          Ask({0x05}, {0x01}).Takes(2s),
          Ask({0x05}, {0x01}).Takes(2s),
          Ask({0x05}, {0x01})});
  EXPECT_FALSE(Flash().WriteCommand(0x20, 0x1000, 0, nullptr));
}

TEST_F(MT25QL128CommandTest, FirstStatusReadCountsAsNoTimeAtAll) {
  Expect({Send({0x06}), Send({0x20, 0x00, 0x10, 0x00}), Ask({0x05}, {0x00}).Takes(60s)});
  EXPECT_TRUE(Flash().WriteCommand(0x20, 0x1000, 0, nullptr));
}

TEST_F(MT25QL128CommandTest, ReadyInTimeIsSuccessThoughThatReadTookLong) {
  Expect({Send({0x06}),
          Send({0x20, 0x00, 0x10, 0x00}),
          Ask({0x05}, {0x01}).Takes(4s),
          Ask({0x05}, {0x00}).Takes(60s)});
  EXPECT_TRUE(Flash().WriteCommand(0x20, 0x1000, 0, nullptr));
}

TEST_F(MT25QL128CommandTest, TimeBeforeTheFirstStatusReadDoesNotCount) {
  Expect({Send({0x06}).Takes(60s),
          Send({0x20, 0x00, 0x10, 0x00}).Takes(60s),
          Ask({0x05}, {0x01}),
          Ask({0x05}, {0x00})});
  EXPECT_TRUE(Flash().WriteCommand(0x20, 0x1000, 0, nullptr));
}

TEST_F(MT25QL128CommandTest, EachCommandHasItsOwnFiveSeconds) {
  for (int command = 0; command < 2; ++command) {
    Expect({Send({0x06}),
            Send({0x20, 0x00, 0x10, 0x00}),
            Ask({0x05}, {0x01}).Takes(4s),
            Ask({0x05}, {0x00})});
    EXPECT_TRUE(Flash().WriteCommand(0x20, 0x1000, 0, nullptr));
  }
}

TEST_F(MT25QL128CommandTest, WritePageIsAPageProgram) {
  Expect({Send({0x06}), Send({0x02, 0x01, 0x23, 0x00, 0xAA}), Ask({0x05}, {0x00})});
  std::uint8_t data[] = {0xAA};
  EXPECT_TRUE(Flash().WritePage(0x012300, 1, data));
  Expect({Send({0x06}), Send({0x02, 0x01, 0x23, 0x00, 0xAA}).Fails(EIO)});
  EXPECT_FALSE(Flash().WritePage(0x012300, 1, data));
  ExpectConsole("", kWriteError);
}

// --- Writing in pages ---------------------------------------------------------------------------

class MT25QL128WriteTest : public MT25QL128CommandTest {
 protected:
  /// Bytes 00, 01, .. ff, 00, ..
  static std::vector<std::uint8_t> Data(std::size_t length) {
    std::vector<std::uint8_t> data(length);
    std::iota(data.begin(), data.end(), std::uint8_t{0});
    return data;
  }

  void ExpectPage(Bytes header, const std::vector<std::uint8_t>& data) {
    header.insert(header.end(), data.begin(), data.end());
    Expect({Send({0x06}), Send(header), Ask({0x05}, {0x00})});
  }
};

TEST_F(MT25QL128WriteTest, LengthZeroSendsOneEmptyPageProgram) {
  ExpectPage({0x02, 0x01, 0x00, 0x00}, {});
  EXPECT_TRUE(Flash().Write(0x010000, 0, nullptr));
}

TEST_F(MT25QL128WriteTest, LengthUpTo256IsOnePageProgram) {
  for (const std::size_t length : {1U, 255U, 256U}) {
    auto data = Data(length);
    ExpectPage({0x02, 0x01, 0x00, 0x00}, data);
    EXPECT_TRUE(Flash().Write(0x010000, static_cast<int>(length), data.data()));
  }
}

TEST_F(MT25QL128WriteTest, Length257IsAFullPageAndOneByteAtTheNext) {
  auto data = Data(257);
  ExpectPage({0x02, 0x01, 0x00, 0x00}, Data(256));
  ExpectPage({0x02, 0x01, 0x01, 0x00}, {0x00});
  EXPECT_TRUE(Flash().Write(0x010000, 257, data.data()));
}

TEST_F(MT25QL128WriteTest, Length512IsTwoFullPages) {
  auto data = Data(512);
  ExpectPage({0x02, 0x00, 0x00, 0x00}, Data(256));
  ExpectPage({0x02, 0x00, 0x01, 0x00}, Data(256));
  EXPECT_TRUE(Flash().Write(0, 512, data.data()));
}

TEST_F(MT25QL128WriteTest, ChunksStartWhereTheAddressPointsAndAreNotAligned) {
  auto data = Data(300);
  ExpectPage({0x02, 0x00, 0x00, 0x80}, Data(256));
  ExpectPage({0x02, 0x00, 0x01, 0x80}, Data(44));
  EXPECT_TRUE(Flash().Write(0x80, 300, data.data()));
}

TEST_F(MT25QL128WriteTest, FirstFailingChunkEndsTheWrite) {
  auto data = Data(600);
  ExpectPage({0x02, 0x00, 0x00, 0x00}, Data(256));
  Bytes second = {0x02, 0x00, 0x01, 0x00};
  second.insert(second.end(), data.begin(), data.begin() + 256);
  Expect({Send({0x06}), Send(second).Fails(EIO)});
  EXPECT_FALSE(Flash().Write(0, 600, data.data()));
  ExpectConsole("", kWriteError);
}

TEST_F(MT25QL128WriteTest, NegativeLengthsCutTheCommandShort) {
  std::uint8_t data[] = {0xAA};
  Expect({Send({0x06}), Send({0x02, 0x01, 0x23}), Ask({0x05}, {0x00})});
  EXPECT_TRUE(Flash().Write(0x012345, -1, data));
  Expect({Send({0x06}), Send({0x02, 0x01}), Ask({0x05}, {0x00})});
  EXPECT_TRUE(Flash().Write(0x012345, -2, data));
  Expect({Send({0x06}), Send({0x02}), Ask({0x05}, {0x00})});
  EXPECT_TRUE(Flash().Write(0x012345, -3, data));
}

TEST_F(MT25QL128WriteTest, LengthsWithoutRoomForTheOpcodeFailWithoutTraffic) {
  EXPECT_FALSE(Flash().Write(0, -5, nullptr));
  EXPECT_FALSE(Flash().Write(0, -254, nullptr));
}

TEST_F(MT25QL128WriteTest, LengthsBelowMinus254SendNothingAndSucceed) {
  EXPECT_TRUE(Flash().Write(0, -255, nullptr));
  EXPECT_TRUE(Flash().Write(0, -256, nullptr));
  EXPECT_TRUE(Flash().Write(0, -2147483647 - 1, nullptr));
}

// --- Erasing ------------------------------------------------------------------------------------

class MT25QL128EraseTest : public MT25QL128CommandTest {
 protected:
  void ExpectErase(const Bytes& command) {
    Expect({Send({0x06}), Send(command), Ask({0x05}, {0x01}), Ask({0x05}, {0x00})});
  }
};

TEST_F(MT25QL128EraseTest, LengthsBelow4096EraseNothingAndSucceed) {
  for (const int length : {4095, 1, 0, -1, -4096, -65536, -2147483647 - 1}) {
    EXPECT_TRUE(Flash().Erase(0, length)) << length;
  }
}

TEST_F(MT25QL128EraseTest, Length4096ErasesOneSubsector) {
  ExpectErase({0x20, 0x01, 0x20, 0x00});
  EXPECT_TRUE(Flash().Erase(0x012000, 4096));
}

TEST_F(MT25QL128EraseTest, Length8191ErasesOneSubsectorAndLeavesTheTail) {
  ExpectErase({0x20, 0x00, 0x00, 0x00});
  EXPECT_TRUE(Flash().Erase(0, 8191));
}

TEST_F(MT25QL128EraseTest, Length65535ErasesFifteenSubsectors) {
  for (std::uint8_t high = 0x00; high <= 0xE0; high += 0x10) {
    ExpectErase({0x20, 0x01, high, 0x00});
  }
  EXPECT_TRUE(Flash().Erase(0x010000, 65535));
}

TEST_F(MT25QL128EraseTest, Length65536ErasesOneSector) {
  ExpectErase({0xD8, 0x12, 0x00, 0x00});
  EXPECT_TRUE(Flash().Erase(0x120000, 65536));
}

TEST_F(MT25QL128EraseTest, TailBeyondTheLastWholeSectorStays) {
  ExpectErase({0xD8, 0x00, 0x00, 0x00});
  EXPECT_TRUE(Flash().Erase(0, 65636));
  ExpectErase({0xD8, 0x00, 0x00, 0x00});
  EXPECT_TRUE(Flash().Erase(0, 131071));
}

TEST_F(MT25QL128EraseTest, Length196608ErasesThreeSectors) {
  ExpectErase({0xD8, 0xFE, 0x00, 0x00});
  ExpectErase({0xD8, 0xFF, 0x00, 0x00});
  ExpectErase({0xD8, 0x00, 0x00, 0x00});  // the address wraps in the chip
  EXPECT_TRUE(Flash().Erase(0xFE0000, 196608));
}

TEST_F(MT25QL128EraseTest, AddressIsNotAligned) {
  ExpectErase({0x20, 0x00, 0x00, 0x01});
  ExpectErase({0x20, 0x00, 0x10, 0x01});
  EXPECT_TRUE(Flash().Erase(1, 8192));
}

TEST_F(MT25QL128EraseTest, FirstFailingUnitEndsTheErase) {
  ExpectErase({0xD8, 0x00, 0x00, 0x00});
  Expect({Send({0x06}), Send({0xD8, 0x01, 0x00, 0x00}).Fails(EIO)});
  EXPECT_FALSE(Flash().Erase(0, 4 * 65536));
  ExpectConsole("", kWriteError);
}

TEST_F(MT25QL128EraseTest, UnitThatStaysBusyEndsTheErase) {
  Expect({Send({0x06}),
          Send({0x20, 0x00, 0x00, 0x00}),
          Ask({0x05}, {0x01}).Takes(6s),
          Ask({0x05}, {0x01})});
  EXPECT_FALSE(Flash().Erase(0, 8192));
}

// --- Reading ------------------------------------------------------------------------------------

TEST_F(MT25QL128CommandTest, ReadBlockAppendsTheBytesToTheDescriptor) {
  Expect({Ask({0x03, 0x01, 0x23, 0x45}, {0xDE, 0xAD, 0xBE}), kernel::Write(9, {0xDE, 0xAD, 0xBE})});
  EXPECT_TRUE(Flash().ReadBlock(9, 0x012345, 3));
}

TEST_F(MT25QL128CommandTest, ReadBlockDiscardsForDescriptorMinusOne) {
  Expect({Ask({0x03, 0x00, 0x00, 0x00}, {0xDE, 0xAD})});
  EXPECT_TRUE(Flash().ReadBlock(-1, 0, 2));
}

TEST_F(MT25QL128CommandTest, ReadBlockDoesNotDiscardForOtherNegativeDescriptors) {
  Expect({Ask({0x03, 0x00, 0x00, 0x00}, {0xDE}), kernel::Write(-2, {0xDE}).Fails(EBADF)});
  EXPECT_FALSE(Flash().ReadBlock(-2, 0, 1));
}

TEST_F(MT25QL128CommandTest, ReadBlockWritesToDescriptorZeroToo) {
  Expect({Ask({0x03, 0x00, 0x00, 0x00}, {0xDE}), kernel::Write(0, {0xDE})});
  EXPECT_TRUE(Flash().ReadBlock(0, 0, 1));
}

TEST_F(MT25QL128CommandTest, ReadBlockThatCannotReadFailsAndWritesNothing) {
  Expect({Ask({0x03, 0x00, 0x00, 0x00}, {0xDE, 0xAD}).Fails(EIO)});
  EXPECT_FALSE(Flash().ReadBlock(9, 0, 2));
  Expect({Ask({0x03, 0x00, 0x00, 0x00}, {0xDE, 0xAD}).Fails(EIO)});
  EXPECT_FALSE(Flash().ReadBlock(-1, 0, 2));
  ExpectConsole("", std::string(kReadError) + kReadError);
}

TEST_F(MT25QL128CommandTest, ReadBlockThatCannotWriteEverythingFailsWithoutAnotherTry) {
  Expect({Ask({0x03, 0x00, 0x00, 0x00}, {0xDE, 0xAD, 0xBE}),
          kernel::Write(9, {0xDE, 0xAD, 0xBE}).Returns(2)});
  EXPECT_FALSE(Flash().ReadBlock(9, 0, 3));
  Expect({Ask({0x03, 0x00, 0x00, 0x00}, {0xDE, 0xAD, 0xBE}),
          kernel::Write(9, {0xDE, 0xAD, 0xBE}).Fails(ENOSPC)});
  EXPECT_FALSE(Flash().ReadBlock(9, 0, 3));
  ExpectConsole("", "");
}

TEST_F(MT25QL128CommandTest, ReadBlockTakesAnyLengthInOneTransfer) {
  Bytes data(100'000);
  std::iota(data.begin(), data.end(), std::uint8_t{0});
  Expect({Ask({0x03, 0x00, 0x00, 0x00}, data), kernel::Write(9, data)});
  EXPECT_TRUE(Flash().ReadBlock(9, 0, 100'000));
}

TEST_F(MT25QL128CommandTest, ReadBlocksCutsIntoTransfersOfTheLargestSize) {
  Reopen("4\n");
  Expect({Ask({0x03, 0x00, 0x01, 0x00}, {1, 2, 3, 4}),
          kernel::Write(9, {1, 2, 3, 4}),
          Ask({0x03, 0x00, 0x01, 0x04}, {5, 6, 7, 8}),
          kernel::Write(9, {5, 6, 7, 8}),
          Ask({0x03, 0x00, 0x01, 0x08}, {9}),
          kernel::Write(9, {9})});
  EXPECT_TRUE(Flash().ReadBlocks(9, 0x0100, 9));
}

struct BlocksRow {
  const char* name;
  const char* bufsiz;
  int length;
  std::vector<std::size_t> transfers;
};

class MT25QL128ReadBlocksTest : public MT25QL128CommandTest,
                                public testing::WithParamInterface<BlocksRow> {};

TEST_P(MT25QL128ReadBlocksTest, TransfersAddUpToTheLength) {
  Reopen(GetParam().bufsiz);
  std::size_t addr = 0x010000;
  for (const std::size_t transfer : GetParam().transfers) {
    Expect({AskZeros({0x03,
                      static_cast<std::uint8_t>(addr >> 16),
                      static_cast<std::uint8_t>(addr >> 8),
                      static_cast<std::uint8_t>(addr)},
                     transfer)});
    addr += transfer;
  }
  EXPECT_TRUE(Flash().ReadBlocks(-1, 0x010000, GetParam().length));
}

INSTANTIATE_TEST_SUITE_P(
    Rows,
    MT25QL128ReadBlocksTest,
    testing::Values(BlocksRow{"Nothing", "4096\n", 0, {}},
                    BlocksRow{"NothingByOneByte", "1\n", 0, {}},
                    BlocksRow{"MinusOne", "4096\n", -1, {}},
                    BlocksRow{"MinusTwoTransfers", "4096\n", -8192, {}},
                    BlocksRow{"MostNegative", "4096\n", -2147483647 - 1, {}},
                    BlocksRow{"OneByte", "4096\n", 1, {1}},
                    BlocksRow{"OneLess", "4096\n", 4095, {4095}},
                    BlocksRow{"OneTransfer", "4096\n", 4096, {4096}},
                    BlocksRow{"OneMore", "4096\n", 4097, {4096, 1}},
                    BlocksRow{"TwoTransfers", "4096\n", 8192, {4096, 4096}},
                    BlocksRow{"NoPowerOfTwo", "1000\n", 4096, {1000, 1000, 1000, 1000, 96}},
                    BlocksRow{"SingleBytes", "1\n", 3, {1, 1, 1}},
                    BlocksRow{"LargestBufsiz", "-1\n", 4096, {4096}},
                    BlocksRow{"Bufsiz2To31", "2147483648\n", 4096, {4096}},
                    BlocksRow{"Bufsiz2To32", kBufsiz2To32, 4096, {4096}}),
    [](const auto& row) { return row.param.name; });

TEST_F(MT25QL128CommandTest, LargestTransferOfZeroMakesReadsFailWithoutTraffic) {
  Reopen("0\n");
  EXPECT_FALSE(Flash().ReadBlocks(-1, 0, 4096));
  EXPECT_FALSE(Flash().Read(-1, 0, 4096));
  EXPECT_FALSE(Flash().Read(-1, 0x6000000, 4096));
}

TEST_F(MT25QL128CommandTest, FailingMiddleTransferEndsReadBlocks) {
  Reopen("2\n");
  Expect({Ask({0x03, 0x00, 0x00, 0x00}, {1, 2}),
          kernel::Write(9, {1, 2}),
          Ask({0x03, 0x00, 0x00, 0x02}, {3, 4}).Fails(EIO)});
  EXPECT_FALSE(Flash().ReadBlocks(9, 0, 6));
  ExpectConsole("", kReadError);
}

TEST_F(MT25QL128CommandTest, ShortMiddleWriteEndsReadBlocks) {
  Reopen("2\n");
  Expect({Ask({0x03, 0x00, 0x00, 0x00}, {1, 2}), kernel::Write(9, {1, 2}).Returns(1)});
  EXPECT_FALSE(Flash().ReadBlocks(9, 0, 6));
}

TEST_F(MT25QL128CommandTest, FailingLastTransferFailsReadBlocks) {
  Reopen("2\n");
  Expect({Ask({0x03, 0x00, 0x00, 0x00}, {1, 2}), Ask({0x03, 0x00, 0x00, 0x02}, {3}).Fails(EIO)});
  EXPECT_FALSE(Flash().ReadBlocks(-1, 0, 3));
  ExpectConsole("", kReadError);
}

struct ReadCommand {
  kernel::Bytes bytes;
  std::uint32_t length;
};

struct RegionsRow {
  const char* name;
  int addr;
  int length;
  std::vector<ReadCommand> reads;
};

class MT25QL128ReadRegionsTest : public MT25QL128CommandTest,
                                 public testing::WithParamInterface<RegionsRow> {};

TEST_P(MT25QL128ReadRegionsTest, RangeIsSplitAtTheRegionEnds) {
  Reopen("67108864\n");  // no split but those at the regions
  for (const ReadCommand& read : GetParam().reads) {
    Expect({kernel::SpiMessage(
        7, {kernel::Tx(read.bytes, 10'000'000, 8), kernel::Rx(read.length, 10'000'000, 8)})});
  }
  EXPECT_TRUE(Flash().Read(-1, GetParam().addr, GetParam().length));
}

// Addresses are sent with three bytes: the regions show only in the split.
INSTANTIATE_TEST_SUITE_P(
    Rows,
    MT25QL128ReadRegionsTest,
    testing::Values(
        RegionsRow{"Start", 0, 4096, {{{0x03, 0x00, 0x00, 0x00}, 4096}}},
        RegionsRow{"Nothing", 0, 0, {}},
        RegionsRow{"NothingInTheLastRegion", 0x6000000, 0, {}},
        RegionsRow{"NegativeLength", 0x100, -1, {}},
        RegionsRow{"EndsOneBeforeTheFirstEnd", 0x1FFFFFE, 1, {{{0x03, 0xFF, 0xFF, 0xFE}, 1}}},
        RegionsRow{"EndsAtTheFirstEnd", 0x1FFFFFE, 2, {{{0x03, 0xFF, 0xFF, 0xFE}, 2}}},
        RegionsRow{"CrossesTheFirstEnd",
                   0x1FFFFFE,
                   5,
                   {{{0x03, 0xFF, 0xFF, 0xFE}, 2}, {{0x03, 0x00, 0x00, 0x00}, 3}}},
        RegionsRow{"StartsAtTheFirstEnd", 0x2000000, 3, {{{0x03, 0x00, 0x00, 0x00}, 3}}},
        RegionsRow{"CrossesTheSecondEnd",
                   0x3FFFFFF,
                   3,
                   {{{0x03, 0xFF, 0xFF, 0xFF}, 1}, {{0x03, 0x00, 0x00, 0x00}, 2}}},
        RegionsRow{"CrossesTheThirdEnd",
                   0x5FFFFFF,
                   3,
                   {{{0x03, 0xFF, 0xFF, 0xFF}, 1}, {{0x03, 0x00, 0x00, 0x00}, 2}}},
        RegionsRow{"EndsAtTheThirdEnd", 0x5FFFFFF, 1, {{{0x03, 0xFF, 0xFF, 0xFF}, 1}}},
        RegionsRow{"CrossesTwoEnds",
                   0x1FFFFFF,
                   0x2000002,
                   {{{0x03, 0xFF, 0xFF, 0xFF}, 1},
                    {{0x03, 0x00, 0x00, 0x00}, 0x2000000},
                    {{0x03, 0x00, 0x00, 0x00}, 1}}},
        RegionsRow{"EndsWhereTheLastRegionEnds", 0x7FFFFFD, 2, {{{0x03, 0xFF, 0xFF, 0xFD}, 2}}},
        RegionsRow{"LastRegionEndsOneByteShort", 0x7FFFFFE, 2, {}},
        RegionsRow{"EndsAt0x8000000StopsAt0x6000000",
                   0x5FFFFFE,
                   0x2000002,
                   {{{0x03, 0xFF, 0xFF, 0xFE}, 2}}},
        RegionsRow{"BeyondTheLastRegion", 0x8000000, 16, {}},
        RegionsRow{"NegativeStart", -1, 1, {}},
        RegionsRow{"NegativeStartReachingIntoTheFirstRegion", -16, 4096, {}}),
    [](const auto& row) { return row.param.name; });

TEST_F(MT25QL128CommandTest, FailureInOneRegionEndsTheRead) {
  Expect({Ask({0x03, 0xFF, 0xFF, 0xFF}, {1}).Fails(EIO)});
  EXPECT_FALSE(Flash().Read(-1, 0x1FFFFFF, 2));
  Expect({Ask({0x03, 0xFF, 0xFF, 0xFF}, {1}), Ask({0x03, 0x00, 0x00, 0x00}, {2}).Fails(EIO)});
  EXPECT_FALSE(Flash().Read(-1, 0x3FFFFFF, 2));
  Expect({Ask({0x03, 0xFF, 0xFF, 0xFF}, {1}), Ask({0x03, 0x00, 0x00, 0x00}, {2}).Fails(EIO)});
  EXPECT_FALSE(Flash().Read(-1, 0x5FFFFFF, 2));
  ExpectConsole("", std::string(kReadError) + kReadError + kReadError);
}

TEST_F(MT25QL128CommandTest, ReadAppendsTheRegionsInOrder) {
  Expect({Ask({0x03, 0xFF, 0xFF, 0xFF}, {1}),
          kernel::Write(9, {1}),
          Ask({0x03, 0x00, 0x00, 0x00}, {2, 3}),
          kernel::Write(9, {2, 3})});
  EXPECT_TRUE(Flash().Read(9, 0x1FFFFFF, 3));
}

// --- No device ----------------------------------------------------------------------------------

TEST_F(MT25QL128ConstructionTest, EveryCommandFailsWithoutADevice) {
  MT25QL128 flash(nullptr);
  std::uint8_t byte = 0x77;
  EXPECT_FALSE(flash.SendCommand(0x06));
  EXPECT_FALSE(flash.SetWriteEnable());
  EXPECT_FALSE(flash.GetStatus(0x15, byte));
  EXPECT_FALSE(flash.ReadStatusReg(byte));
  EXPECT_EQ(byte, 0x77);
  EXPECT_FALSE(flash.ReadManufIDReg(true));
  EXPECT_FALSE(flash.WriteCommand(0x02, 0, 1, &byte));
  EXPECT_FALSE(flash.WritePage(0, 1, &byte));
  EXPECT_FALSE(flash.Write(0, 1, &byte));
  EXPECT_FALSE(flash.Write(0, -255, &byte));
  EXPECT_FALSE(flash.Erase(0, 4096));
  EXPECT_FALSE(flash.Erase(0, 65536));
  EXPECT_FALSE(flash.ReadBlock(-1, 0, 1));
  EXPECT_FALSE(flash.ReadBlocks(-1, 0, 1));
  EXPECT_FALSE(flash.Read(-1, 0, 1));
  EXPECT_FALSE(flash.Read(-1, 0x6000000, 1));
}

// Operations without traffic need no device.
TEST_F(MT25QL128ConstructionTest, EmptyEraseAndRangesOutsideTheRegionsSucceedWithoutADevice) {
  MT25QL128 flash(nullptr);
  EXPECT_TRUE(flash.Erase(0, 4095));
  EXPECT_TRUE(flash.Read(-1, -1, 1));
  EXPECT_TRUE(flash.Read(-1, 0x8000000, 1));
}

}  // namespace
