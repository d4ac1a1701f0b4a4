#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "devices/SPIDevOwner.h"
#include "flash/MT25QL128.h"
#include "simulator/chips/NorFlashModel.h"
#include "tests/doubles/ChipKernel.h"
#include "tests/doubles/Console.h"
#include "tests/doubles/FakeClock.h"
#include "tests/doubles/RedirectedFile.h"
#include "tests/doubles/TemporaryDirectory.h"

namespace {

using namespace std::chrono_literals;
using orvane::Chip;
using orvane::NorFlashModel;

/// A dump file, by its descriptor.
class Dump {
 public:
  Dump() : file_(std::tmpfile()) {}
  Dump(const Dump&) = delete;
  Dump& operator=(const Dump&) = delete;
  ~Dump() { static_cast<void>(std::fclose(file_)); }

  [[nodiscard]] int fd() const { return ::fileno(file_); }

  [[nodiscard]] std::string Contents() const {
    std::string text;
    std::rewind(file_);
    for (int byte = std::fgetc(file_); byte != EOF; byte = std::fgetc(file_)) {
      text += static_cast<char>(byte);
    }
    return text;
  }

 private:
  std::FILE* file_;
};

/// The driver on the model of the chip, which does not follow a script. The chip holds 0x55
/// everywhere at the start, so that each byte shows whether it was erased.
class MT25QL128OnChipTest : public testing::Test {
 protected:
  explicit MT25QL128OnChipTest(Chip chip = Chip::kMicron, std::size_t bufsiz = 4096)
      : chip_(chip),
        kernel_(std::make_unique<ChipKernel>(chip_, bufsiz)),
        bufsiz_("/sys/module/spidev/parameters/bufsiz", std::to_string(bufsiz) + "\n"),
        spi_("/dev/spidev1.0", 10'000'000, 0, 8),
        flash_(std::make_unique<MT25QL128>(spi_.Get())) {
    chip_.Load(std::vector<std::uint8_t>(16U << 20, 0x55));
  }

  void TearDown() override {
    flash_.reset();
    spi_.Reset();
    kernel_.reset();
    if (!HasFailure()) {
      ExpectConsole("", "");
    }
  }

  void Connect() {
    ASSERT_EQ(flash_->Connect(false), 0);
    console_.TakeOut();
  }

  /// The driver opens the device again to program, and leaves the first descriptor open.
  int Program(int addr, const std::string& file) {
    kernel_->LeaveOpen({100});
    return flash_->ProgramDevice(addr, file);
  }

  void ExpectConsole(const std::string& out, const std::string& err) {
    EXPECT_EQ(console_.TakeOut(), out);
    EXPECT_EQ(console_.TakeErr(), err);
  }

  [[nodiscard]] std::string Contents(std::size_t at, std::size_t length) const {
    const auto array = chip_.Contents().subspan(at, length);
    return {array.begin(), array.end()};
  }

  static std::string Image(std::size_t length) {
    std::string image(length, '\0');
    for (std::size_t at = 0; at < length; ++at) {
      image[at] = static_cast<char>(at * 7 + at / 256);
    }
    return image;
  }

  [[nodiscard]] std::string PlainFile(const std::string& contents) const {
    return directory_.File("image.bin", contents);
  }

  [[nodiscard]] std::string GzipFile(const std::string& contents) const {
    std::string path = directory_.Path() + "/image.gz";
    gzFile file = ::gzopen(path.c_str(), "wb");
    EXPECT_EQ(::gzwrite(file, contents.data(), static_cast<unsigned>(contents.size())),
              static_cast<int>(contents.size()));
    EXPECT_EQ(::gzclose(file), Z_OK);
    return path;
  }

  Console console_;
  FakeClock clock_;
  TemporaryDirectory directory_;
  NorFlashModel chip_;
  std::unique_ptr<ChipKernel> kernel_;
  RedirectedFile bufsiz_;
  SPIDevOwner spi_;
  std::unique_ptr<MT25QL128> flash_;
};

class MT25QL128OnMacronixTest : public MT25QL128OnChipTest {
 protected:
  MT25QL128OnMacronixTest() : MT25QL128OnChipTest(Chip::kMacronix) {}
};

// --- Whole runs ---------------------------------------------------------------------------------

struct FlowRow {
  const char* name;
  Chip chip;
  bool gzip;
  std::size_t size;
};

class MT25QL128FlowTest : public MT25QL128OnChipTest, public testing::WithParamInterface<FlowRow> {
 protected:
  MT25QL128FlowTest() : MT25QL128OnChipTest(GetParam().chip) {}
};

TEST_P(MT25QL128FlowTest, ImageEndsUpInTheFlashAndNothingElseChangesButTheRestOfItsLastSector) {
  const std::string image = Image(GetParam().size);
  const std::string file = GetParam().gzip ? GzipFile(image) : PlainFile(image);
  const std::size_t erased = (image.size() + 65535) / 65536 * 65536;
  const Dump before;
  const Dump after;

  ASSERT_EQ(flash_->Connect(false), 0);
  EXPECT_EQ(flash_->ReadDevice(0, 4096, before.fd()), 0);
  flash_->UnlockMemory();
  EXPECT_EQ(flash_->EraseDevice(0, file), 0);
  EXPECT_EQ(Program(0, file), 0);
  EXPECT_EQ(flash_->ReadDevice(0, static_cast<int>(image.size()), after.fd()), 0);
  flash_->Disconnect();

  EXPECT_EQ(before.Contents(), std::string(4096, '\x55'));
  EXPECT_EQ(after.Contents(), image);
  EXPECT_EQ(Contents(0, image.size()), image);
  EXPECT_EQ(Contents(image.size(), erased - image.size()),
            std::string(erased - image.size(), '\xFF'));
  EXPECT_EQ(Contents(erased, 65536), std::string(65536, '\x55'));
  ExpectConsole(GetParam().chip == Chip::kMacronix ? "Chip is matronix, enabling lock logic.\n"
                                                     "Locked 256 NOR flash sectors.\n"
                                                     "Locked 256 NOR flash sectors.\n"
                                                   : "",
                "");
}

INSTANTIATE_TEST_SUITE_P(Rows,
                         MT25QL128FlowTest,
                         testing::Values(FlowRow{"MicronPlain", Chip::kMicron, false, 200'001},
                                         FlowRow{"MicronGzip", Chip::kMicron, true, 200'001},
                                         FlowRow{"MacronixPlain", Chip::kMacronix, false, 200'001},
                                         FlowRow{"MacronixGzip", Chip::kMacronix, true, 200'001},
                                         FlowRow{"OneByte", Chip::kMicron, false, 1},
                                         FlowRow{"WholeSectors", Chip::kMacronix, false, 131072}),
                         [](const auto& row) { return row.param.name; });

TEST_F(MT25QL128OnChipTest, WholeArrayIsReadBack) {
  Connect();
  chip_.Load(std::vector<std::uint8_t>{1, 2, 3});
  const Dump dump;
  EXPECT_EQ(flash_->ReadDevice(0, 16 << 20, dump.fd()), 0);
  EXPECT_EQ(dump.Contents(), Contents(0, 16U << 20));
}

TEST_F(MT25QL128OnChipTest, AddressBeyondTheArrayWrapsInTheChip) {
  Connect();
  chip_.Load(std::vector<std::uint8_t>{1, 2, 3});
  const Dump dump;
  EXPECT_EQ(flash_->ReadDevice(0x1000000, 3, dump.fd()), 0);
  EXPECT_EQ(dump.Contents(), "\x01\x02\x03");
}

// --- What the chip makes of a driver that does not look ------------------------------------------

TEST_F(MT25QL128OnChipTest, ImageOverOldContentsOnlyClearsBits) {
  Connect();
  EXPECT_EQ(Program(0, PlainFile(std::string(256, '\x0F'))), 0);
  EXPECT_EQ(Contents(0, 257), std::string(256, '\x05') + "\x55");
}

TEST_F(MT25QL128OnChipTest, ProgrammingFromTheMiddleOfAPageWrapsInThePage) {
  Connect();
  ASSERT_EQ(flash_->EraseDevice(0, 65536), 0);
  std::string data = Image(256);
  EXPECT_TRUE(flash_->Write(0x80, 256, reinterpret_cast<std::uint8_t*>(data.data())));
  EXPECT_EQ(Contents(0, 256), data.substr(128) + data.substr(0, 128));
  EXPECT_EQ(Contents(256, 256), std::string(256, '\xFF'));
}

TEST_F(MT25QL128OnChipTest, TailOfALengthStaysUnerased) {
  Connect();
  EXPECT_EQ(flash_->EraseDevice(0, 65636), 0);
  EXPECT_EQ(Contents(0, 65536), std::string(65536, '\xFF'));
  EXPECT_EQ(Contents(65536, 100), std::string(100, '\x55'));
  EXPECT_EQ(kernel_->CountSent(0xD8), 1);
}

TEST_F(MT25QL128OnChipTest, LengthBelowASectorErasesSubsectors) {
  Connect();
  EXPECT_EQ(flash_->EraseDevice(0x3000, 65535), 0);
  EXPECT_EQ(Contents(0x2FFF, 1), "\x55");
  EXPECT_EQ(Contents(0x3000, 0xF000), std::string(0xF000, '\xFF'));
  EXPECT_EQ(Contents(0x12000, 1), "\x55");
  EXPECT_EQ(kernel_->CountSent(0x20), 15);
}

TEST_F(MT25QL128OnChipTest, EmptyPageProgramChangesNothing) {
  Connect();
  EXPECT_TRUE(flash_->Write(0, 0, nullptr));
  EXPECT_EQ(Contents(0, 256), std::string(256, '\x55'));
}

TEST_F(MT25QL128OnChipTest, CommandCutShortByANegativeLengthChangesNothing) {
  Connect();
  std::uint8_t byte = 0;
  EXPECT_TRUE(flash_->Write(0, -1, &byte));
  EXPECT_EQ(kernel_->Sent().at(kernel_->Sent().size() - 2), (kernel::Bytes{0x02, 0x00, 0x00}));
  EXPECT_EQ(Contents(0, 65536), std::string(65536, '\x55'));
}

/// Transfers of 300 bytes are no multiple of a page.
class MT25QL128OddTransferTest : public MT25QL128OnChipTest {
 protected:
  MT25QL128OddTransferTest() : MT25QL128OnChipTest(Chip::kMicron, 300) {}
};

TEST_F(MT25QL128OddTransferTest, ChunksThatAreNoWholePagesWrapInTheirPages) {
  Connect();
  ASSERT_EQ(flash_->EraseDevice(0, 65536), 0);
  const std::string image = Image(600);
  EXPECT_EQ(Program(0, PlainFile(image)), 0);
  // The second chunk starts at 300: what would be beyond 512 is programmed from 256 on.
  std::string page = image.substr(256, 256);
  for (std::size_t at = 0; at < 44; ++at) {
    page[at] = static_cast<char>(page[at] & image[512 + at]);
  }
  EXPECT_EQ(Contents(0, 256), image.substr(0, 256));
  EXPECT_EQ(Contents(256, 256), page);
  EXPECT_EQ(Contents(512, 44), std::string(44, '\xFF'));
  EXPECT_EQ(Contents(556, 44), image.substr(556));
}

/// A page program is 260 bytes long.
class MT25QL128SmallTransferTest : public MT25QL128OnChipTest {
 protected:
  MT25QL128SmallTransferTest() : MT25QL128OnChipTest(Chip::kMicron, 259) {}
};

TEST_F(MT25QL128SmallTransferTest, PagesThatTheKernelRefusesFailTheProgramming) {
  Connect();
  const std::string error =
      "SpiDev::Write() SPI_IOC_MESSAGE error, errno = Message too long file: /dev/spidev1.0\n";
  EXPECT_EQ(Program(0, PlainFile(Image(259 + 3))), 4);  // two chunks, of 259 and 3 bytes
  ExpectConsole("", error);
  EXPECT_EQ(Contents(0, 256), std::string(256, '\x55'));
  const std::string last = Image(262).substr(259);
  EXPECT_EQ(Contents(259, 1)[0], static_cast<char>(0x55 & last[0]));
}

TEST_F(MT25QL128SmallTransferTest, ReadsFitTheKernelsBufferBesideTheirCommand) {
  Connect();
  const Dump dump;
  EXPECT_EQ(flash_->ReadDevice(0, 1000, dump.fd()), 0);
  EXPECT_EQ(dump.Contents(), std::string(1000, '\x55'));
}

// --- Chips that fail ----------------------------------------------------------------------------

TEST_F(MT25QL128OnChipTest, ConnectFailsWithoutAChip) {
  chip_.SetPresent(false);
  EXPECT_EQ(flash_->Connect(true), 1);
  ExpectConsole(
      "Flash Manufacturer ID   : 0x00\n"
      "Flash Memory Type       : 0x00\n"
      "Flash Memory Capacity   : 0x00\n",
      "");
}

TEST_F(MT25QL128OnChipTest, SectorThatStaysBusyFailsTheEraseAfterFiveSeconds) {
  Connect();
  kernel_->SetMessageTime(10ms);
  chip_.StayBusyAfter(2);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(flash_->EraseDevice(0, 4 * 65536), 3);
  EXPECT_EQ(kernel_->CountSent(0xD8), 2);
  EXPECT_GT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(6));
}

TEST_F(MT25QL128OnChipTest, PageThatStaysBusyFailsTheProgrammingAndTheRestIsStillTried) {
  Connect();
  kernel_->SetMessageTime(100ms);
  chip_.StayBusyAfter(1);
  EXPECT_EQ(Program(0, PlainFile(Image(4096 + 1))), 4);
  EXPECT_EQ(kernel_->CountSent(0x02), 2);  // one page of each chunk
}

TEST_F(MT25QL128OnChipTest, PageThatWasNotProgrammedIsNotNoticed) {
  Connect();
  ASSERT_EQ(flash_->EraseDevice(0, 65536), 0);
  chip_.DropProgram(2);
  const std::string image = Image(768);
  EXPECT_EQ(Program(0, PlainFile(image)), 0);
  EXPECT_EQ(Contents(0, 768), image.substr(0, 256) + std::string(256, '\xFF') + image.substr(512));
}

// --- Block protection ---------------------------------------------------------------------------

TEST_F(MT25QL128OnMacronixTest, ConnectLocksTheWholeArrayFromTheBottom) {
  ASSERT_EQ(flash_->Connect(false), 0);
  ExpectConsole(
      "Chip is matronix, enabling lock logic.\n"
      "Locked 256 NOR flash sectors.\n",
      "");
  EXPECT_EQ(chip_.StatusRegister(), 0x24);
  EXPECT_EQ(chip_.ConfigurationRegister(), 0x0F);
  EXPECT_EQ(flash_->GetProtectLevel(), 9);
  EXPECT_EQ(flash_->GetProtectedSize(), 16777216);
}

TEST_F(MT25QL128OnMacronixTest, LockedChipIgnoresWhatTheGuardWouldHaveRefused) {
  Connect();
  std::uint8_t byte = 0x00;
  EXPECT_TRUE(flash_->Write(0, 1, &byte));
  EXPECT_TRUE(flash_->Erase(0, 65536));
  EXPECT_EQ(Contents(0, 65536), std::string(65536, '\x55'));
}

TEST_F(MT25QL128OnMacronixTest, GuardRefusesUntilUnlocked) {
  Connect();
  EXPECT_EQ(flash_->EraseDevice(0, 65536), 4);
  ExpectConsole("", "Addr: 0 is within protected size (16777216)\n");
  EXPECT_EQ(kernel_->CountSent(0xD8), 0);
  flash_->UnlockMemory();
  EXPECT_EQ(chip_.StatusRegister(), 0x00);
  EXPECT_EQ(flash_->EraseDevice(0, 65536), 0);
  EXPECT_EQ(Contents(0, 65536), std::string(65536, '\xFF'));
}

TEST_F(MT25QL128OnMacronixTest, DisconnectLocksAgain) {
  Connect();
  flash_->UnlockMemory();
  flash_->Disconnect();
  ExpectConsole("Locked 256 NOR flash sectors.\n", "");
  EXPECT_EQ(chip_.StatusRegister(), 0x24);
}

TEST_F(MT25QL128OnMacronixTest, LevelOneProtectsTheFirstSectorOnly) {
  Connect();
  flash_->LockMemorySectors(1);
  ExpectConsole("Locked 1 NOR flash sectors.\n", "");
  EXPECT_EQ(flash_->EraseDevice(0xFFFF, 65536), 4);
  ExpectConsole("", "Addr: 65535 is within protected size (65536)\n");
  EXPECT_EQ(flash_->EraseDevice(0x10000, 65536), 0);
  EXPECT_EQ(Contents(0, 65536), std::string(65536, '\x55'));
  EXPECT_EQ(Contents(65536, 65536), std::string(65536, '\xFF'));
}

TEST_F(MT25QL128OnMacronixTest, LevelTwentyIsCappedAndReadsBackAsFifteen) {
  Connect();
  flash_->LockMemorySectors(20);
  ExpectConsole("Locked 16384 NOR flash sectors.\n",
                "Too many sectors (20) to lock.  Capping to max.\n");
  EXPECT_EQ(chip_.StatusRegister(), 0x3C);
  EXPECT_EQ(flash_->GetProtectedSize(), 1073741824);
}

TEST_F(MT25QL128OnMacronixTest, UnlockThatTheChipDropsLeavesTheGuardUp) {
  Connect();
  chip_.DropRegisterWrite(1);
  flash_->UnlockMemory();
  EXPECT_EQ(flash_->EraseDevice(0, 65536), 4);
  ExpectConsole("", "Addr: 0 is within protected size (16777216)\n");
}

TEST_F(MT25QL128OnChipTest, ChipWithoutLockLogicIsNeverLocked) {
  Connect();
  flash_->UnlockMemory();
  flash_->Disconnect();
  EXPECT_EQ(kernel_->CountSent(0x01), 0);
  EXPECT_EQ(chip_.StatusRegister() & 0xFC, 0x00);
  ExpectConsole("", "");
}

}  // namespace
