#include <fcntl.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "flash/MT25QL128.h"
#include "tests/doubles/OpenDescriptors.h"
#include "tests/doubles/TemporaryDirectory.h"
#include "tests/unit/flash/FlashTest.h"
#include "tests/unit/flash/ScriptedGzread.h"

namespace {

using namespace std::chrono_literals;

constexpr const char* kMicronLines =
    "Flash Manufacturer ID   : 0x20\n"
    "Flash Memory Type       : 0xba\n"
    "Flash Memory Capacity   : 0x18\n";
constexpr const char* kMacronixLines =
    "Flash Manufacturer ID   : 0xc2\n"
    "Flash Memory Type       : 0x20\n"
    "Flash Memory Capacity   : 0x18\n"
    "Chip is matronix, enabling lock logic.\n";
constexpr const char* kConfigError =
    "Failed to read configuration register.  Cannot lock memory.\n";
constexpr const char* kStatusError = "Failed to read status register.  Cannot lock memory.\n";
constexpr const char* kEnableError =
    "Failed to send WREN command to device.  Cannot lock memory.\n";
constexpr const char* kRegistersError =
    "Failed to send set control registers.  Cannot lock memory.\n";

/// Whole-device operations, raw bytes. The tests of a lockable chip call BecomeLockable().
class MT25QL128DeviceTest : public FlashTest {
 protected:
  /// Connects to a chip without lock logic.
  void Connect() {
    ExpectOpening();
    Expect({Send({0x06}), Ask({0x9F}, {0x20, 0xBA, 0x18})});
    ASSERT_EQ(Flash().Connect(false), 0);
  }

  /// Opens the device and turns the lock logic on, without a lock.
  void BecomeLockable() {
    OpenDevice();
    Expect({Ask({0x9F}, {0xC2, 0x20, 0x18})});
    ASSERT_TRUE(Flash().ReadManufIDReg(false));
    ExpectConsole("Chip is matronix, enabling lock logic.\n", "");
  }

  /// The two register reads of a protect level.
  void ExpectLevelRead(std::uint8_t status, int times = 1) {
    for (int time = 0; time < times; ++time) {
      Expect({Ask({0x15}, {0x08}), Ask({0x05}, {status})});
    }
  }

  void ExpectPageProgram(int addr, const std::string& page) {
    Bytes command = Header(0x02, addr);
    command.insert(command.end(), page.begin(), page.end());
    Expect({Send({0x06}), Send(command), Ask({0x05}, {0x00})});
  }

  /// One page program after the other, from `addr` on.
  void ExpectPagePrograms(int addr, const std::string& image) {
    for (std::size_t at = 0; at < image.size(); at += 256) {
      ExpectPageProgram(addr + static_cast<int>(at), image.substr(at, 256));
    }
  }

  void ExpectSectorErase(int addr) {
    Expect({Send({0x06}), Send(Header(0xD8, addr)), Ask({0x05}, {0x00})});
  }

  /// Bytes that differ from page to page and from place to place.
  static std::string Image(std::size_t length) {
    std::string image(length, '\0');
    for (std::size_t at = 0; at < length; ++at) {
      image[at] = static_cast<char>(at * 7 + at / 256);
    }
    return image;
  }

  std::string PlainFile(const std::string& contents) const {
    return directory_.File("image.bin", contents);
  }

  std::string GzipFile(const std::string& contents) const {
    std::string path = directory_.Path() + "/image.gz";
    gzFile file = ::gzopen(path.c_str(), "wb");
    EXPECT_EQ(contents.empty()
                  ? 0
                  : ::gzwrite(file, contents.data(), static_cast<unsigned>(contents.size())),
              static_cast<int>(contents.size()));
    EXPECT_EQ(::gzclose(file), Z_OK);
    return path;
  }

  /// A gzip file whose data zlib cannot decompress.
  std::string BrokenGzipFile() const {
    std::string bytes("\x1F\x8B\x08\x00\x00\x00\x00\x00\x00\x03", 10);
    return directory_.File("broken.gz", bytes + std::string(64, '\xFF'));
  }

  TemporaryDirectory directory_;

 private:
  static Bytes Header(std::uint8_t opcode, int addr) {
    return {opcode,
            static_cast<std::uint8_t>(addr >> 16),
            static_cast<std::uint8_t>(addr >> 8),
            static_cast<std::uint8_t>(addr)};
  }
};

// --- Connect ------------------------------------------------------------------------------------

TEST_F(MT25QL128DeviceTest, ConnectOpensEnablesWritingAndIdentifies) {
  ExpectOpening();
  Expect({Send({0x06}), Ask({0x9F}, {0x20, 0xBA, 0x18})});
  EXPECT_EQ(Flash().Connect(true), 0);
  ExpectConsole(kMicronLines, "");
}

TEST_F(MT25QL128DeviceTest, SilentConnectPrintsNothing) {
  ExpectOpening();
  Expect({Send({0x06}), Ask({0x9F}, {0x20, 0xBA, 0x18})});
  EXPECT_EQ(Flash().Connect(false), 0);
  ExpectConsole("", "");
}

TEST_F(MT25QL128DeviceTest, ConnectToALockableChipLocksItWhole) {
  ExpectOpening();
  Expect({Send({0x06}),
          Ask({0x9F}, {0xC2, 0x20, 0x18}),
          Ask({0x15}, {0x07}),
          Ask({0x05}, {0x00}),
          Send({0x06}),
          Send({0x01, 0x24, 0x0F}),
          kernel::Usleep(500'000)});
  EXPECT_EQ(Flash().Connect(true), 0);
  ExpectConsole(std::string(kMacronixLines) + "Locked 256 NOR flash sectors.\n", "");
}

TEST_F(MT25QL128DeviceTest, ConnectIgnoresAFailedWriteEnable) {
  ExpectOpening();
  Expect({Send({0x06}).Fails(EIO), Ask({0x9F}, {0x20, 0xBA, 0x18})});
  EXPECT_EQ(Flash().Connect(false), 0);
  ExpectConsole("", kWriteError);
}

TEST_F(MT25QL128DeviceTest, ConnectFailsWhenTheIdentificationCannotBeRead) {
  ExpectOpening();
  Expect({Send({0x06}), Ask({0x9F}, {0x20, 0xBA, 0x18}).Fails(EIO)});
  EXPECT_EQ(Flash().Connect(true), 1);
  EXPECT_NE(Device(), nullptr);
  ExpectConsole("", kReadError);
}

TEST_F(MT25QL128DeviceTest, ConnectFailsWhenNoChipAnswers) {
  ExpectOpening();
  Expect({Send({0x06}), Ask({0x9F}, {0x00, 0x00, 0x00})});
  EXPECT_EQ(Flash().Connect(true), 1);
  EXPECT_NE(Device(), nullptr);
  ExpectConsole(
      "Flash Manufacturer ID   : 0x00\n"
      "Flash Memory Type       : 0x00\n"
      "Flash Memory Capacity   : 0x00\n",
      "");
}

TEST_F(MT25QL128DeviceTest, ConnectSucceedsThoughTheLockFails) {
  ExpectOpening();
  Expect({Send({0x06}), Ask({0x9F}, {0xC2, 0x20, 0x18}), Ask({0x15}, {0x00}).Fails(EIO)});
  EXPECT_EQ(Flash().Connect(false), 0);
  ExpectConsole("Chip is matronix, enabling lock logic.\n", std::string(kReadError) + kConfigError);
}

TEST_F(MT25QL128DeviceTest, ConnectDestroysTheDeviceWhoseNodeCannotBeOpened) {
  Expect({kernel::Open("/dev/spidev1.0", O_RDWR).Fails(ENOENT), kernel::Close(-1)});
  EXPECT_EQ(Flash().Connect(true), 1);
  EXPECT_EQ(Device(), nullptr);
  ExpectConsole("", "");
}

TEST_F(MT25QL128DeviceTest, ConnectDestroysTheDeviceThatCannotBeSetUp) {
  Expect({kernel::Open("/dev/spidev1.0", O_RDWR).Returns(7),
          kernel::SpiWriteMode(7, 0).Fails(EINVAL),
          kernel::Close(7),
          kernel::Close(-1)});
  EXPECT_EQ(Flash().Connect(true), 1);
  EXPECT_EQ(Device(), nullptr);
  ExpectConsole("", "");
}

TEST_F(MT25QL128DeviceTest, ConnectTakesDescriptorZeroForASuccess) {
  ExpectOpening(0);
  Expect({kernel::SpiMessage(0, {kernel::Tx({0x06}, 10'000'000, 8)}),
          kernel::SpiMessage(0, {kernel::Tx({0x9F}, 10'000'000, 8), kernel::Rx(3, 10'000'000, 8)})
              .Receives({0x20, 0xBA, 0x18})});
  EXPECT_EQ(Flash().Connect(false), 0);
}

TEST_F(MT25QL128DeviceTest, EveryOperationReturnsItsCodeOnceTheDeviceIsGone) {
  Expect({kernel::Open("/dev/spidev1.0", O_RDWR).Fails(ENOENT), kernel::Close(-1)});
  ASSERT_EQ(Flash().Connect(true), 1);
  const std::string image = PlainFile("image");
  const std::vector<std::string> before = OpenDescriptors();
  EXPECT_EQ(Flash().Connect(true), 1);
  EXPECT_EQ(Flash().ProgramDevice(0, image), 1);
  EXPECT_EQ(Flash().ProgramDevice(0, directory_.Path() + "/none"), 1);
  EXPECT_EQ(Flash().EraseDevice(0, image), 2);
  EXPECT_EQ(Flash().EraseDevice(0, directory_.Path() + "/none"), 2);
  EXPECT_EQ(Flash().EraseDevice(0, 65536), 2);
  EXPECT_EQ(Flash().EraseDevice(0, 0), 2);
  EXPECT_EQ(Flash().ReadDevice(0, 4096, -1), 2);
  EXPECT_EQ(Flash().ReadDevice(-1, 0, -1), 2);
  Flash().UnlockMemory();
  Flash().Disconnect();
  EXPECT_EQ(Flash().GetProtectLevel(), 0);
  EXPECT_EQ(Flash().GetProtectedSize(), 0);
  EXPECT_EQ(OpenDescriptors(), before);
  ExpectConsole("", "");
}

TEST_F(MT25QL128DeviceTest, LockableChipWhoseDeviceIsGoneReportsItsRegistersUnreadable) {
  BecomeLockable();
  Expect({kernel::Open("/dev/spidev1.0", O_RDWR).Fails(ENOENT), kernel::Close(-1)});
  EXPECT_EQ(Flash().Connect(false), 1);
  EXPECT_EQ(Flash().ReadDevice(0, 4096, -1), 2);
  ExpectConsole("", "");
  EXPECT_EQ(Flash().EraseDevice(0, 65536), 2);
  ExpectConsole("", kConfigError);
  Flash().Disconnect();
  ExpectConsole("", kConfigError);
}

TEST_F(MT25QL128DeviceTest, DriverWithoutDeviceFromTheStartReturnsItsCodes) {
  MT25QL128 driver(nullptr);
  EXPECT_EQ(driver.Connect(true), 1);
  EXPECT_EQ(driver.ProgramDevice(0, PlainFile("image")), 1);
  EXPECT_EQ(driver.EraseDevice(0, PlainFile("image")), 2);
  EXPECT_EQ(driver.EraseDevice(0, 65536), 2);
  EXPECT_EQ(driver.ReadDevice(0, 512, -1), 2);
  driver.LockMemorySectors(9);
  ExpectConsole("", kConfigError);
}

// --- Lock logic ---------------------------------------------------------------------------------

TEST_F(MT25QL128DeviceTest, ChipWithoutLockLogicIsNeverAskedAboutProtection) {
  Connect();
  Flash().UnlockMemory();
  Flash().Disconnect();
  EXPECT_EQ(Flash().GetProtectLevel(), 0);
  EXPECT_EQ(Flash().GetProtectedSize(), 0);
  ExpectConsole("", "");
}

TEST_F(MT25QL128DeviceTest, DisconnectDoesNotCloseTheDevice) {
  Connect();
  Flash().Disconnect();
  EXPECT_TRUE(Device()->is_open());
}

TEST_F(MT25QL128DeviceTest, UnlockMemorySetsLevelZeroQuietly) {
  BecomeLockable();
  Expect({Ask({0x15}, {0x08}),
          Ask({0x05}, {0x24}),
          Send({0x06}),
          Send({0x01, 0x00, 0x08}),
          kernel::Usleep(500'000)});
  Flash().UnlockMemory();
  ExpectConsole("", "");
}

TEST_F(MT25QL128DeviceTest, DisconnectLocksTheChipWholeAndLeavesTheDeviceOpen) {
  BecomeLockable();
  Expect({Ask({0x15}, {0x08}),
          Ask({0x05}, {0x00}),
          Send({0x06}),
          Send({0x01, 0x24, 0x08}),
          kernel::Usleep(500'000)});
  Flash().Disconnect();
  EXPECT_TRUE(Device()->is_open());
  ExpectConsole("Locked 256 NOR flash sectors.\n", "");
}

struct LockRow {
  const char* name;
  unsigned sectors;
  std::uint8_t config;
  std::uint8_t status;
  kernel::Bytes registers;
  const char* out;
  const char* err;
};

class MT25QL128LockTest : public MT25QL128DeviceTest,
                          public testing::WithParamInterface<LockRow> {};

TEST_P(MT25QL128LockTest, RegistersAreReadChangedAndWritten) {
  const LockRow& row = GetParam();
  BecomeLockable();
  Expect({Ask({0x15}, {row.config}),
          Ask({0x05}, {row.status}),
          Send({0x06}),
          Send(row.registers),
          kernel::Usleep(500'000)});
  Flash().LockMemorySectors(row.sectors);
  ExpectConsole(row.out, row.err);
}

INSTANTIATE_TEST_SUITE_P(
    Rows,
    MT25QL128LockTest,
    testing::Values(
        LockRow{"Level0", 0, 0x00, 0x00, {0x01, 0x00, 0x08}, "", ""},
        LockRow{"Level1", 1, 0x00, 0x00, {0x01, 0x04, 0x08}, "Locked 1 NOR flash sectors.\n", ""},
        LockRow{"Level2", 2, 0x00, 0x00, {0x01, 0x08, 0x08}, "Locked 2 NOR flash sectors.\n", ""},
        LockRow{"Level9", 9, 0x00, 0x00, {0x01, 0x24, 0x08}, "Locked 256 NOR flash sectors.\n", ""},
        LockRow{
            "Level15", 15, 0x00, 0x00, {0x01, 0x3C, 0x08}, "Locked 16384 NOR flash sectors.\n", ""},
        LockRow{"Level16IsCapped",
                16,
                0x00,
                0x00,
                {0x01, 0x3C, 0x08},
                "Locked 16384 NOR flash sectors.\n",
                "Too many sectors (16) to lock.  Capping to max.\n"},
        LockRow{"Level20IsCapped",
                20,
                0x00,
                0x00,
                {0x01, 0x3C, 0x08},
                "Locked 16384 NOR flash sectors.\n",
                "Too many sectors (20) to lock.  Capping to max.\n"},
        LockRow{"LargestLevelIsCapped",
                4'294'967'295U,
                0x00,
                0x00,
                {0x01, 0x3C, 0x08},
                "Locked 16384 NOR flash sectors.\n",
                "Too many sectors (4294967295) to lock.  Capping to max.\n"},
        LockRow{"StatusBits0And1And6StayAndBit7Falls", 0, 0x00, 0xFF, {0x01, 0x43, 0x08}, "", ""},
        LockRow{"StatusBitsStayBesideTheLevel",
                9,
                0x00,
                0xC3,
                {0x01, 0x67, 0x08},
                "Locked 256 NOR flash sectors.\n",
                ""},
        LockRow{"OldLevelIsReplaced",
                1,
                0x00,
                0x3C,
                {0x01, 0x04, 0x08},
                "Locked 1 NOR flash sectors.\n",
                ""},
        LockRow{"ConfigurationBitsStay", 0, 0xF7, 0x00, {0x01, 0x00, 0xFF}, "", ""},
        LockRow{"BottomBitStays", 0, 0x08, 0x00, {0x01, 0x00, 0x08}, "", ""}),
    [](const auto& row) { return row.param.name; });

TEST_F(MT25QL128DeviceTest, LockNumbersStayDecimalThoughStandardOutputIsHexadecimal) {
  OpenDevice();
  Expect({Ask({0x9F}, {0xC2, 0x20, 0x18})});
  Flash().ReadManufIDReg(true);
  ExpectConsole(kMacronixLines, "");
  Expect({Ask({0x15}, {0x08}),
          Ask({0x05}, {0x00}),
          Send({0x06}),
          Send({0x01, 0x3C, 0x08}),
          kernel::Usleep(500'000)});
  Flash().LockMemorySectors(31);
  ExpectConsole("Locked 16384 NOR flash sectors.\n",
                "Too many sectors (31) to lock.  Capping to max.\n");
}

TEST_F(MT25QL128DeviceTest, LockedLineIsPrintedBeforeTheSleep) {
  BecomeLockable();
  Expect({Ask({0x15}, {0x08}),
          Ask({0x05}, {0x00}),
          Send({0x06}),
          Send({0x01, 0x24, 0x08}),
          kernel::Usleep(500'000).Then(
              [this] { ExpectConsole("Locked 256 NOR flash sectors.\n", ""); })});
  Flash().LockMemorySectors(9);
  ExpectConsole("", "");
}

TEST_F(MT25QL128DeviceTest, LockWithoutConfigurationRegisterStopsThere) {
  BecomeLockable();
  Expect({Ask({0x15}, {0x00}).Fails(EIO)});
  Flash().LockMemorySectors(9);
  ExpectConsole("", std::string(kReadError) + kConfigError);
}

TEST_F(MT25QL128DeviceTest, LockWithoutStatusRegisterStopsThere) {
  BecomeLockable();
  Expect({Ask({0x15}, {0x00}), Ask({0x05}, {0x00}).Fails(EIO)});
  Flash().LockMemorySectors(9);
  ExpectConsole("", std::string(kReadError) + kStatusError);
}

TEST_F(MT25QL128DeviceTest, LockWithoutWriteEnableStopsThere) {
  BecomeLockable();
  Expect({Ask({0x15}, {0x00}), Ask({0x05}, {0x00}), Send({0x06}).Fails(EIO)});
  Flash().LockMemorySectors(9);
  ExpectConsole("", std::string(kWriteError) + kEnableError);
}

TEST_F(MT25QL128DeviceTest, LockWhoseRegistersCannotBeWrittenNeitherSaysLockedNorSleeps) {
  BecomeLockable();
  Expect({Ask({0x15}, {0x00}),
          Ask({0x05}, {0x00}),
          Send({0x06}),
          Send({0x01, 0x24, 0x08}).Fails(EIO)});
  Flash().LockMemorySectors(9);
  ExpectConsole("", std::string(kWriteError) + kRegistersError);
}

TEST_F(MT25QL128DeviceTest, CappingIsReportedEvenWhenTheLockFails) {
  BecomeLockable();
  Expect({Ask({0x15}, {0x00}).Fails(EIO)});
  Flash().LockMemorySectors(20);
  ExpectConsole(
      "",
      std::string("Too many sectors (20) to lock.  Capping to max.\n") + kReadError + kConfigError);
}

TEST_F(MT25QL128DeviceTest, ProtectLevelIsBits2To5OfTheStatusRegister) {
  BecomeLockable();
  const std::vector<std::pair<std::uint8_t, int>> rows = {
      {0x00, 0}, {0x04, 1}, {0x24, 9}, {0x3C, 15}, {0xC3, 0}, {0xFF, 15}, {0xE7, 9}};
  for (const auto& [status, level] : rows) {
    Expect({Ask({0x15}, {0x00}), Ask({0x05}, {status})});
    EXPECT_EQ(Flash().GetProtectLevel(), level);
  }
}

TEST_F(MT25QL128DeviceTest, ProtectLevelIsZeroWhenARegisterCannotBeRead) {
  BecomeLockable();
  Expect({Ask({0x15}, {0x00}).Fails(EIO)});
  EXPECT_EQ(Flash().GetProtectLevel(), 0);
  ExpectConsole("", std::string(kReadError) + kConfigError);
  Expect({Ask({0x15}, {0x00}), Ask({0x05}, {0x24}).Fails(EIO)});
  EXPECT_EQ(Flash().GetProtectLevel(), 0);
  ExpectConsole("", std::string(kReadError) + kStatusError);
}

TEST_F(MT25QL128DeviceTest, ProtectedSizeFollowsTheLevel) {
  BecomeLockable();
  const std::vector<std::pair<std::uint8_t, int>> rows = {
      {0x04, 65536}, {0x08, 131072}, {0x20, 8388608}, {0x24, 16777216}, {0x3C, 1073741824}};
  for (const auto& [status, size] : rows) {
    ExpectLevelRead(status, 2);
    EXPECT_EQ(Flash().GetProtectedSize(), size);
  }
}

TEST_F(MT25QL128DeviceTest, ProtectedSizeOfLevelZeroIsZeroAfterOneRead) {
  BecomeLockable();
  ExpectLevelRead(0x00);
  EXPECT_EQ(Flash().GetProtectedSize(), 0);
}

TEST_F(MT25QL128DeviceTest, ProtectedSizeComesFromTheSecondRead) {
  BecomeLockable();
  ExpectLevelRead(0x04);
  ExpectLevelRead(0x24);
  EXPECT_EQ(Flash().GetProtectedSize(), 16777216);
}

TEST_F(MT25QL128DeviceTest, ProtectedSizeIsZeroWhenTheFirstReadFails) {
  BecomeLockable();
  Expect({Ask({0x15}, {0x00}).Fails(EIO)});
  EXPECT_EQ(Flash().GetProtectedSize(), 0);
  ExpectConsole("", std::string(kReadError) + kConfigError);
}

TEST_F(MT25QL128DeviceTest, ProtectedSizeIs32768WhenOnlyTheSecondReadFails) {
  BecomeLockable();
  ExpectLevelRead(0x24);
  Expect({Ask({0x15}, {0x00}).Fails(EIO)});
  EXPECT_EQ(Flash().GetProtectedSize(), 32768);
  ExpectConsole("", std::string(kReadError) + kConfigError);
  ExpectLevelRead(0x24);
  Expect({Ask({0x15}, {0x00}), Ask({0x05}, {0x24}).Fails(EIO)});
  EXPECT_EQ(Flash().GetProtectedSize(), 32768);
  ExpectConsole("", std::string(kReadError) + kStatusError);
}

// --- Guard --------------------------------------------------------------------------------------

TEST_F(MT25QL128DeviceTest, FreshlyConnectedLockableChipRefusesAddressZeroUntilUnlocked) {
  ExpectOpening();
  Expect({Send({0x06}),
          Ask({0x9F}, {0xC2, 0x20, 0x18}),
          Ask({0x15}, {0x00}),
          Ask({0x05}, {0x00}),
          Send({0x06}),
          Send({0x01, 0x24, 0x08}),
          kernel::Usleep(500'000)});
  ASSERT_EQ(Flash().Connect(true), 0);
  ExpectConsole(std::string(kMacronixLines) + "Locked 256 NOR flash sectors.\n", "");

  const std::string image = PlainFile("x");
  ExpectLevelRead(0x24, 4);
  EXPECT_EQ(Flash().ProgramDevice(0, image), 4);
  ExpectConsole("", "Addr: 0 is within protected size (16777216)\n");

  Expect({Ask({0x15}, {0x08}),
          Ask({0x05}, {0x24}),
          Send({0x06}),
          Send({0x01, 0x00, 0x08}),
          kernel::Usleep(500'000)});
  Flash().UnlockMemory();

  ExpectLevelRead(0x00);
  ExpectOpening();
  ExpectPageProgram(0, "x");
  EXPECT_EQ(Flash().ProgramDevice(0, image), 0);
  ExpectConsole("", "");
}

TEST_F(MT25QL128DeviceTest, BothErasesRefuseAProtectedAddress) {
  BecomeLockable();
  ExpectLevelRead(0x24, 4);
  EXPECT_EQ(Flash().EraseDevice(0x10000, PlainFile("x")), 4);
  ExpectConsole("", "Addr: 65536 is within protected size (16777216)\n");
  ExpectLevelRead(0x24, 4);
  EXPECT_EQ(Flash().EraseDevice(0x20000, 65536), 4);
  ExpectConsole("", "Addr: 131072 is within protected size (16777216)\n");
}

TEST_F(MT25QL128DeviceTest, GuardComesBeforeTheImageIsOpened) {
  BecomeLockable();
  ExpectLevelRead(0x24, 8);
  EXPECT_EQ(Flash().ProgramDevice(0, directory_.Path() + "/none"), 4);
  EXPECT_EQ(Flash().EraseDevice(0, directory_.Path() + "/none"), 4);
  ExpectConsole("",
                "Addr: 0 is within protected size (16777216)\n"
                "Addr: 0 is within protected size (16777216)\n");
}

TEST_F(MT25QL128DeviceTest, LastProtectedAddressIsRefusedAndTheNextIsNot) {
  BecomeLockable();
  ExpectLevelRead(0x04, 4);
  EXPECT_EQ(Flash().EraseDevice(65535, 0), 4);
  ExpectConsole("", "Addr: 65535 is within protected size (65536)\n");
  ExpectLevelRead(0x04, 2);
  EXPECT_EQ(Flash().EraseDevice(65536, 0), 0);
  ExpectConsole("", "");
}

TEST_F(MT25QL128DeviceTest, NegativeAddressIsRefusedOnAnyChip) {
  Connect();
  EXPECT_EQ(Flash().EraseDevice(-1, 65536), 4);
  ExpectConsole("", "Addr: -1 is within protected size (0)\n");
}

TEST_F(MT25QL128DeviceTest, GuardReadsTheNumberOfItsLineBeforeTheLineBegins) {
  BecomeLockable();
  ExpectLevelRead(0x24, 2);
  Expect({Ask({0x15}, {0x00}).Fails(EIO)});
  EXPECT_EQ(Flash().EraseDevice(0, 65536), 4);
  ExpectConsole("",
                std::string(kReadError) + kConfigError + "Addr: 0 is within protected size (0)\n");
  ExpectLevelRead(0x24, 3);
  Expect({Ask({0x15}, {0x00}).Fails(EIO)});
  EXPECT_EQ(Flash().EraseDevice(0, 65536), 4);
  ExpectConsole(
      "", std::string(kReadError) + kConfigError + "Addr: 0 is within protected size (32768)\n");
}

TEST_F(MT25QL128DeviceTest, ReadsAreNotGuarded) {
  BecomeLockable();
  Expect({Ask({0x03, 0x00, 0x00, 0x00}, {0xAA, 0x55}), kernel::Write(9, {0xAA, 0x55})});
  EXPECT_EQ(Flash().ReadDevice(0, 2, 9), 0);
}

// --- ProgramDevice ------------------------------------------------------------------------------

TEST_F(MT25QL128DeviceTest, ProgramOpensTheDeviceAgainAndWritesThePages) {
  Connect();
  ExpectOpening();
  ExpectPagePrograms(0x020000, Image(600));
  EXPECT_EQ(Flash().ProgramDevice(0x020000, PlainFile(Image(600))), 0);
  ExpectConsole("", "");
}

TEST_F(MT25QL128DeviceTest, ProgramLeavesTheFirstDescriptorOpenAndGoesOnWithTheSecond) {
  Connect();
  ExpectOpening(8);  // no close(7) before it, none afterwards
  const auto send = [](const Bytes& tx) {
    return kernel::SpiMessage(8, {kernel::Tx(tx, 10'000'000, 8)});
  };
  Expect({send({0x06}),
          send({0x02, 0x00, 0x00, 0x00, 'x'}),
          kernel::SpiMessage(8, {kernel::Tx({0x05}, 10'000'000, 8), kernel::Rx(1, 10'000'000, 8)})
              .Receives({0x00})});
  EXPECT_EQ(Flash().ProgramDevice(0, PlainFile("x")), 0);
}

TEST_F(MT25QL128DeviceTest, ProgramOfAMissingImageFailsBeforeTouchingTheDevice) {
  Connect();
  EXPECT_EQ(Flash().ProgramDevice(0, directory_.Path() + "/none"), 1);
  ExpectConsole("", "");
}

TEST_F(MT25QL128DeviceTest, ProgramFailsWhenTheDeviceOpensAsDescriptorZero) {
  Connect();
  const std::string image = PlainFile("x");
  const std::vector<std::string> before = OpenDescriptors();
  ExpectOpening(0);
  EXPECT_EQ(Flash().ProgramDevice(0, image), 2);
  EXPECT_EQ(OpenDescriptors(), before);
  ExpectConsole("", "");
}

TEST_F(MT25QL128DeviceTest, ProgramGoesOnWhenTheDeviceCannotBeOpenedAgainAndEachPageFails) {
  Connect();
  Expect({kernel::Open("/dev/spidev1.0", O_RDWR).Fails(EBUSY)});
  ExpectClosedInTheEnd();
  EXPECT_EQ(Flash().ProgramDevice(0, PlainFile(Image(10'000))), 4);
  ExpectConsole("", "");  // a closed device prints nothing
}

TEST_F(MT25QL128DeviceTest, ProgramOfAnEmptyImageSucceedsThoughTheDeviceCannotBeOpenedAgain) {
  Connect();
  Expect({kernel::Open("/dev/spidev1.0", O_RDWR).Fails(EBUSY)});
  ExpectClosedInTheEnd();
  EXPECT_EQ(Flash().ProgramDevice(0, PlainFile("")), 0);
}

TEST_F(MT25QL128DeviceTest, FailedPageEndsItsChunkButNotTheImageAndTheResultIsFour) {
  Rebuild("512\n");
  Connect();
  const std::string image = Image(1536);
  ExpectOpening();
  ExpectPageProgram(0x0000, image.substr(0, 256));
  ExpectPageProgram(0x0100, image.substr(256, 256));
  Bytes failing = {0x02, 0x00, 0x02, 0x00};
  failing.insert(failing.end(), image.begin() + 512, image.begin() + 768);
  Expect({Send({0x06}), Send(failing).Fails(EIO)});  // 0x0300 is of the same chunk: not tried
  ExpectPageProgram(0x0400, image.substr(1024, 256));
  ExpectPageProgram(0x0500, image.substr(1280, 256));
  EXPECT_EQ(Flash().ProgramDevice(0, PlainFile(image)), 4);
  ExpectConsole("", kWriteError);
}

TEST_F(MT25QL128DeviceTest, PageThatStaysBusyCountsAsFailed) {
  Connect();
  ExpectOpening();
  Expect({Send({0x06}),
          Send({0x02, 0x00, 0x00, 0x00, 'x'}),
          Ask({0x05}, {0x01}).Takes(6s),
          Ask({0x05}, {0x01})});
  EXPECT_EQ(Flash().ProgramDevice(0, PlainFile("x")), 4);
}

TEST_F(MT25QL128DeviceTest, ChunksOfTheTransferSizeAreCutIntoPagesOneByOne) {
  Rebuild("300\n");
  Connect();
  const std::string image = Image(610);
  ExpectOpening();
  ExpectPageProgram(0, image.substr(0, 256));
  ExpectPageProgram(256, image.substr(256, 44));
  ExpectPageProgram(300, image.substr(300, 256));
  ExpectPageProgram(556, image.substr(556, 44));
  ExpectPageProgram(600, image.substr(600, 10));
  EXPECT_EQ(Flash().ProgramDevice(0, PlainFile(image)), 0);
}

TEST_F(MT25QL128DeviceTest, TransferSizeOfZeroReadsNothingOfTheImage) {
  Rebuild("0\n");
  Connect();
  ExpectOpening();
  EXPECT_EQ(Flash().ProgramDevice(0, PlainFile("image")), 0);
}

TEST_F(MT25QL128DeviceTest, HugeTransferSizesProgramAndErase) {
  for (const char* bufsiz : {"-1\n", kBufsiz2To32, "4294967295\n", "2147483648\n", "16777217\n"}) {
    Rebuild(bufsiz);
    Connect();
    ExpectOpening();
    ExpectPagePrograms(0, Image(70'000));
    EXPECT_EQ(Flash().ProgramDevice(0, PlainFile(Image(70'000))), 0);
    ExpectSectorErase(0x000000);
    ExpectSectorErase(0x010000);
    EXPECT_EQ(Flash().EraseDevice(0, PlainFile(Image(70'000))), 0);
  }
}

TEST_F(MT25QL128DeviceTest, ProgramClosesTheImage) {
  Connect();
  const std::string image = PlainFile("x");
  const std::vector<std::string> before = OpenDescriptors();
  ExpectOpening();
  ExpectPageProgram(0, "x");
  EXPECT_EQ(Flash().ProgramDevice(0, image), 0);
  EXPECT_EQ(OpenDescriptors(), before);
}

struct ImageRow {
  const char* name;
  std::size_t size;
  int sectors;
};

class MT25QL128ImageTest : public MT25QL128DeviceTest,
                           public testing::WithParamInterface<ImageRow> {
 protected:
  void Program(const std::string& file) {
    Connect();
    ExpectOpening();
    ExpectPagePrograms(0, Image(GetParam().size));
    EXPECT_EQ(Flash().ProgramDevice(0, file), 0);
    ExpectConsole("", "");
  }

  void Erase(const std::string& file) {
    Connect();
    for (int sector = 0; sector < GetParam().sectors; ++sector) {
      ExpectSectorErase(0x030000 + sector * 0x010000);
    }
    EXPECT_EQ(Flash().EraseDevice(0x030000, file), 0);
    ExpectConsole("", "");
  }
};

TEST_P(MT25QL128ImageTest, PlainImageIsProgrammed) { Program(PlainFile(Image(GetParam().size))); }

TEST_P(MT25QL128ImageTest, GzipImageIsProgrammedDecompressed) {
  Program(GzipFile(Image(GetParam().size)));
}

TEST_P(MT25QL128ImageTest, SectorsOfAPlainImageAreErased) {
  Erase(PlainFile(Image(GetParam().size)));
}

TEST_P(MT25QL128ImageTest, SectorsOfTheDecompressedImageAreErased) {
  Erase(GzipFile(Image(GetParam().size)));
}

INSTANTIATE_TEST_SUITE_P(Sizes,
                         MT25QL128ImageTest,
                         testing::Values(ImageRow{"Empty", 0, 0},
                                         ImageRow{"OneByte", 1, 1},
                                         ImageRow{"OneLessThanAPage", 255, 1},
                                         ImageRow{"Page", 256, 1},
                                         ImageRow{"OneMoreThanAPage", 257, 1},
                                         ImageRow{"Transfer", 4096, 1},
                                         ImageRow{"OneMoreThanATransfer", 4097, 1},
                                         ImageRow{"OneLessThanASector", 65535, 1},
                                         ImageRow{"Sector", 65536, 1},
                                         ImageRow{"OneMoreThanASector", 65537, 2},
                                         ImageRow{"ThreeSectors", 196608, 3}),
                         [](const auto& row) { return row.param.name; });

// --- EraseDevice --------------------------------------------------------------------------------

TEST_F(MT25QL128DeviceTest, EraseOfAMissingImageFailsBeforeTouchingTheDevice) {
  Connect();
  EXPECT_EQ(Flash().EraseDevice(0, directory_.Path() + "/none"), 1);
  ExpectConsole("", "");
}

TEST_F(MT25QL128DeviceTest, EraseOfAnImageStopsAtTheFirstFailingSector) {
  Connect();
  ExpectSectorErase(0x000000);
  Expect({Send({0x06}), Send({0xD8, 0x01, 0x00, 0x00}).Fails(EIO)});
  EXPECT_EQ(Flash().EraseDevice(0, PlainFile(Image(196608))), 3);
  ExpectConsole("", kWriteError);
}

TEST_F(MT25QL128DeviceTest, EraseOfAnImageLeavesTheImageOpen) {
  Connect();
  const std::string image = PlainFile("x");
  std::vector<std::string> expected = OpenDescriptors();
  expected.push_back(image);
  std::sort(expected.begin(), expected.end());
  ExpectSectorErase(0);
  EXPECT_EQ(Flash().EraseDevice(0, image), 0);
  EXPECT_EQ(OpenDescriptors(), expected);
}

TEST_F(MT25QL128DeviceTest, EraseOfAnImageDoesNotOpenTheDeviceAgain) {
  Connect();
  ExpectSectorErase(0);
  EXPECT_EQ(Flash().EraseDevice(0, PlainFile("x")), 0);
}

TEST_F(MT25QL128DeviceTest, TransferSizeOfZeroErasesNothingForAnImage) {
  Rebuild("0\n");
  Connect();
  EXPECT_EQ(Flash().EraseDevice(0, PlainFile("image")), 0);
}

TEST_F(MT25QL128DeviceTest, EraseOfALengthRoundsDown) {
  Connect();
  EXPECT_EQ(Flash().EraseDevice(0x1000, 4095), 0);
  EXPECT_EQ(Flash().EraseDevice(0x1000, -65536), 0);
  Expect({Send({0x06}), Send({0x20, 0x00, 0x10, 0x00}), Ask({0x05}, {0x00})});
  EXPECT_EQ(Flash().EraseDevice(0x1000, 4096), 0);
  ExpectSectorErase(0x020000);
  EXPECT_EQ(Flash().EraseDevice(0x020000, 131071), 0);
}

TEST_F(MT25QL128DeviceTest, EraseOfALengthThatFailsReturnsThree) {
  Connect();
  Expect({Send({0x06}), Send({0x20, 0x00, 0x10, 0x00}), Ask({0x05}, {0x00}).Fails(EIO)});
  EXPECT_EQ(Flash().EraseDevice(0x1000, 8192), 3);
  ExpectConsole("", kReadError);
}

// --- Images that zlib cannot read ---------------------------------------------------------------

TEST_F(MT25QL128DeviceTest, GzreadErrorIsUsedAsALengthAgainAndAgain) {
  Connect();
  const std::string image = PlainFile("image");
  ScriptedGzread gzread({-1, -1, -1, 0});
  ExpectOpening();
  Expect({Send({0x06}),
          Send({0x02, 0x02, 0x00}),  // three bytes, cut in the address
          Ask({0x05}, {0x00}),
          Send({0x06}),
          Send({0x02, 0x01, 0xFF}),  // the address steps back by one
          Ask({0x05}, {0x00}),
          Send({0x06}),
          Send({0x02, 0x01, 0xFF}),
          Ask({0x05}, {0x00})});
  EXPECT_EQ(Flash().ProgramDevice(0x020000, image), 0);
  EXPECT_EQ(gzread.Lengths(), (std::vector<unsigned>{4096, 4096, 4096, 4096}));
}

TEST_F(MT25QL128DeviceTest, GzreadErrorStepsBackBelowAddressZero) {
  Connect();
  const std::string image = PlainFile("image");
  const ScriptedGzread gzread({-1, -1, 0});
  ExpectOpening();
  Expect({Send({0x06}),
          Send({0x02, 0x00, 0x00}),
          Ask({0x05}, {0x00}),
          Send({0x06}),
          Send({0x02, 0xFF, 0xFF}),
          Ask({0x05}, {0x00})});
  EXPECT_EQ(Flash().ProgramDevice(0, image), 0);
}

TEST_F(MT25QL128DeviceTest, GzreadErrorIsAddedToTheSizeWhichWraps) {
  Connect();
  const std::string image = PlainFile("image");
  {
    ScriptedGzread gzread({-1, -1, -1, 0});
    EXPECT_EQ(Flash().EraseDevice(0, image), 0);  // 4294967293 bytes round up to none
    EXPECT_EQ(gzread.Lengths(), (std::vector<unsigned>{4096, 4096, 4096, 4096}));
  }
  {
    const ScriptedGzread gzread({4096, 2, -1, -1, -1, 0});  // 4095 bytes
    ExpectSectorErase(0);
    EXPECT_EQ(Flash().EraseDevice(0, image), 0);
  }
  {
    const ScriptedGzread gzread({65537, -1, 0});
    ExpectSectorErase(0);
    EXPECT_EQ(Flash().EraseDevice(0, image), 0);
  }
}

TEST_F(MT25QL128DeviceTest, BrokenGzipImageKeepsProgrammingForEver) {
  Connect();
  const std::string image = BrokenGzipFile();
  const EndAfterGzreadErrors gzread(1000);
  Expect({kernel::Open("/dev/spidev1.0", O_RDWR).Fails(EBUSY)});  // the pages need no script then
  ExpectClosedInTheEnd();
  EXPECT_EQ(Flash().ProgramDevice(0, image), 4);
  EXPECT_EQ(EndAfterGzreadErrors::Errors(), 1000);
}

TEST_F(MT25QL128DeviceTest, BrokenGzipImageKeepsBeingMeasuredForEver) {
  Connect();
  const std::string image = BrokenGzipFile();
  const EndAfterGzreadErrors gzread(1000);
  EXPECT_EQ(Flash().EraseDevice(0, image), 0);  // -1000 bytes round up to none
  EXPECT_EQ(EndAfterGzreadErrors::Errors(), 1000);
}

// --- ReadDevice ---------------------------------------------------------------------------------

TEST_F(MT25QL128DeviceTest, ReadAppendsTheFlashToTheDescriptor) {
  Rebuild("2\n");
  Connect();
  Expect({Ask({0x03, 0x01, 0x00, 0x00}, {1, 2}),
          kernel::Write(9, {1, 2}),
          Ask({0x03, 0x01, 0x00, 0x02}, {3}),
          kernel::Write(9, {3})});
  EXPECT_EQ(Flash().ReadDevice(0x010000, 3, 9), 0);
}

TEST_F(MT25QL128DeviceTest, ReadToDescriptorMinusOneDiscardsAndSucceeds) {
  Connect();
  Expect({Ask({0x03, 0x00, 0x00, 0x00}, {1, 2})});
  EXPECT_EQ(Flash().ReadDevice(0, 2, -1), 0);
}

TEST_F(MT25QL128DeviceTest, ReadThatFailsReturnsFive) {
  Connect();
  Expect({Ask({0x03, 0x00, 0x00, 0x00}, {1}).Fails(EIO)});
  EXPECT_EQ(Flash().ReadDevice(0, 1, 9), 5);
  ExpectConsole("", kReadError);
}

TEST_F(MT25QL128DeviceTest, ReadWhoseBytesCannotBeStoredReturnsFive) {
  Connect();
  Expect({Ask({0x03, 0x00, 0x00, 0x00}, {1, 2}), kernel::Write(9, {1, 2}).Returns(1)});
  EXPECT_EQ(Flash().ReadDevice(0, 2, 9), 5);
  Expect({Ask({0x03, 0x00, 0x00, 0x00}, {1, 2}), kernel::Write(9, {1, 2}).Fails(ENOSPC)});
  EXPECT_EQ(Flash().ReadDevice(0, 2, 9), 5);
}

TEST_F(MT25QL128DeviceTest, ReadWithTransferSizeZeroReturnsFive) {
  Rebuild("0\n");
  Connect();
  EXPECT_EQ(Flash().ReadDevice(0, 4096, 9), 5);
}

}  // namespace
