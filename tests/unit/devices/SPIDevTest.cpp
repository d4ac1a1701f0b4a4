#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <iostream>
#include <limits>
#include <streambuf>

#include "devices/SPIDev.h"
#include "tests/doubles/KernelTest.h"
#include "tests/doubles/RedirectedFile.h"

namespace {

constexpr const char* kBufsizPath = "/sys/module/spidev/parameters/bufsiz";
constexpr const char* kNode = "/dev/spidev1.0";
constexpr int kFd = 7;
constexpr std::uint32_t kHz = 19'000'000;

class SPIDevTest : public KernelTest {
 protected:
  static KernelCall OpenNode(int fd = kFd) { return kernel::Open(kNode, O_RDWR).Returns(fd); }

  /// The calls of an open that succeeds, in mode 0.
  void ExpectOpening(int fd = kFd) {
    Expect({OpenNode(fd),
            kernel::SpiWriteMode(fd, 0),
            kernel::SpiReadMaxSpeed(fd, 50'000'000),
            kernel::SpiWriteMaxSpeed(fd, 50'000'000)});
  }

  /// What the destructor of an open device calls.
  void ExpectDestruction(int fd = kFd) { Expect({kernel::Close(fd)}); }

  RedirectedFile bufsiz_{kBufsizPath, "4096\n"};
};

// --- Construction and values --------------------------------------------------------------------

TEST_F(SPIDevTest, ConstructionOpensNothingAndDestructionClosesMinusOne) {
  {
    SPIDev device(kNode, kHz, 0, 8);
    EXPECT_FALSE(device.is_open());
    Expect({kernel::Close(-1)});
  }
}

TEST_F(SPIDevTest, ValuesAreThoseGivenToTheConstructor) {
  Expect({kernel::Close(-1)});
  const SPIDev device("/dev/spidev2.1", 4'294'967'295U, 0, 8);
  EXPECT_EQ(device.GetSpeed(), 4'294'967'295U);
  EXPECT_EQ(device.getName(), "/dev/spidev2.1");
  EXPECT_EQ(device.GetMaxTransferSize(), 4096U);
}

TEST_F(SPIDevTest, BufferSizeIsReadOncePerObject) {
  Expect({kernel::Close(-1)});
  const SPIDev device(kNode, kHz, 0, 8);
  bufsiz_.Remove();
  EXPECT_EQ(device.GetMaxTransferSize(), 4096U);
  EXPECT_EQ(device.GetMaxTransferSize(), 4096U);
  EXPECT_EQ(bufsiz_.Openings(), 1);
}

// --- Opening and closing ------------------------------------------------------------------------

TEST_F(SPIDevTest, OpenSetsTheModeAndLeavesTheDriversSpeedAsItWas) {
  SPIDev device(kNode, kHz, 0, 8);
  Expect({kernel::Open("/dev/spidev1.0", 2).Returns(7),  // O_RDWR and nothing else
          kernel::SpiWriteMode(7, 0),
          kernel::SpiReadMaxSpeed(7, 33'000'000),
          kernel::SpiWriteMaxSpeed(7, 33'000'000)});
  EXPECT_EQ(device.open(0), 7);
  EXPECT_TRUE(device.is_open());
  ExpectDestruction();
}

TEST_F(SPIDevTest, ModeByteIsWrittenAsGiven) {
  SPIDev device(kNode, kHz, 0xC3, 8);
  Expect({OpenNode(),
          kernel::SpiWriteMode(kFd, 0xC3),
          kernel::SpiReadMaxSpeed(kFd, 1),
          kernel::SpiWriteMaxSpeed(kFd, 1)});
  EXPECT_EQ(device.open(0), kFd);
  ExpectDestruction();
}

TEST_F(SPIDevTest, AddressGivenToOpenIsIgnored) {
  SPIDev device(kNode, kHz, 0, 8);
  ExpectOpening();
  EXPECT_EQ(device.open(0xFF), kFd);
  ExpectDestruction();
}

TEST_F(SPIDevTest, SpeedThatTheDriverDoesNotFillInIsWrittenBackAs64MHz) {
  SPIDev device(kNode, kHz, 0, 8);
  Expect({OpenNode(),
          kernel::SpiWriteMode(kFd, 0),
          kernel::SpiReadMaxSpeed(kFd, 64'000'000),
          kernel::SpiWriteMaxSpeed(kFd, 64'000'000)});
  EXPECT_EQ(device.open(0), kFd);
  ExpectDestruction();
}

TEST_F(SPIDevTest, DescriptorZeroIsOpen) {
  SPIDev device(kNode, kHz, 0, 8);
  ExpectOpening(0);
  EXPECT_EQ(device.open(0), 0);
  EXPECT_TRUE(device.is_open());
  ExpectDestruction(0);
}

TEST_F(SPIDevTest, IoctlResultAboveZeroIsSuccess) {
  SPIDev device(kNode, kHz, 0, 8);
  Expect({OpenNode(),
          kernel::SpiWriteMode(kFd, 0).Returns(1),
          kernel::SpiReadMaxSpeed(kFd, 9).Returns(1),
          kernel::SpiWriteMaxSpeed(kFd, 9).Returns(1)});
  EXPECT_EQ(device.open(0), kFd);
  ExpectDestruction();
}

TEST_F(SPIDevTest, NodeThatCannotBeOpenedPrintsNothingAndStaysClosed) {
  SPIDev device(kNode, kHz, 0, 8);
  Expect({OpenNode().Fails(ENOENT)});
  EXPECT_EQ(device.open(0), -1);
  EXPECT_FALSE(device.is_open());
  ExpectDestruction(-1);
}

TEST_F(SPIDevTest, AnyDescriptorButMinusOneCountsAsOpenButCarriesNoTransfer) {
  SPIDev device(kNode, kHz, 0, 8);
  Expect({OpenNode(-2)});
  EXPECT_EQ(device.open(0), -2);
  EXPECT_TRUE(device.is_open());
  std::uint8_t byte = 0;
  EXPECT_EQ(device.read(&byte, 1, &byte, 1), 0);
  EXPECT_EQ(device.write(&byte, 1), 0);
  ExpectDestruction(-2);
}

TEST_F(SPIDevTest, FailedModeClosesTheNode) {
  SPIDev device(kNode, kHz, 0, 8);
  Expect({OpenNode(), kernel::SpiWriteMode(kFd, 0).Fails(EINVAL), kernel::Close(kFd)});
  EXPECT_EQ(device.open(0), -1);
  EXPECT_FALSE(device.is_open());
  ExpectDestruction(-1);
}

TEST_F(SPIDevTest, FailedReadingOfTheSpeedClosesTheNode) {
  SPIDev device(kNode, kHz, 0, 8);
  Expect({OpenNode(),
          kernel::SpiWriteMode(kFd, 0),
          kernel::SpiReadMaxSpeed(kFd, 0).Fails(EIO),
          kernel::Close(kFd)});
  EXPECT_EQ(device.open(0), -1);
  EXPECT_FALSE(device.is_open());
  ExpectDestruction(-1);
}

TEST_F(SPIDevTest, FailedWritingOfTheSpeedClosesTheNode) {
  SPIDev device(kNode, kHz, 0, 8);
  Expect({OpenNode(),
          kernel::SpiWriteMode(kFd, 0),
          kernel::SpiReadMaxSpeed(kFd, 50'000'000),
          kernel::SpiWriteMaxSpeed(kFd, 50'000'000).Fails(EINVAL),
          kernel::Close(kFd)});
  EXPECT_EQ(device.open(0), -1);
  EXPECT_FALSE(device.is_open());
  ExpectDestruction(-1);
}

TEST_F(SPIDevTest, FailedIoctlClosesThroughTheVirtualInterface) {
  class Counting : public SPIDev {
   public:
    using SPIDev::SPIDev;
    void close() override {
      ++closings;
      SPIDev::close();
    }
    int closings = 0;
  };
  Counting device(kNode, kHz, 0, 8);
  Expect({OpenNode(), kernel::SpiWriteMode(kFd, 0).Fails(EINVAL), kernel::Close(kFd)});
  EXPECT_EQ(device.open(0), -1);
  EXPECT_EQ(device.closings, 1);
  ExpectDestruction(-1);
}

TEST_F(SPIDevTest, SecondOpenOverwritesTheDescriptorWithoutClosingTheFirst) {
  SPIDev device(kNode, kHz, 0, 8);
  ExpectOpening(7);
  ExpectOpening(8);
  EXPECT_EQ(device.open(0), 7);
  EXPECT_EQ(device.open(0), 8);
  ExpectDestruction(8);
}

TEST_F(SPIDevTest, SecondOpenThatFailsLeavesTheDeviceClosed) {
  SPIDev device(kNode, kHz, 0, 8);
  ExpectOpening();
  Expect({OpenNode().Fails(EBUSY)});
  EXPECT_EQ(device.open(0), kFd);
  EXPECT_EQ(device.open(0), -1);
  EXPECT_FALSE(device.is_open());
  ExpectDestruction(-1);
}

TEST_F(SPIDevTest, CloseClosesTheDescriptorAndForgetsIt) {
  SPIDev device(kNode, kHz, 0, 8);
  ExpectOpening();
  Expect({kernel::Close(kFd)});
  device.open(0);
  device.close();
  EXPECT_FALSE(device.is_open());
  ExpectDestruction(-1);
}

TEST_F(SPIDevTest, CloseWhileClosedStillMakesTheCall) {
  SPIDev device(kNode, kHz, 0, 8);
  Expect({kernel::Close(-1).Fails(EBADF), kernel::Close(-1).Fails(EBADF)});
  device.close();
  device.close();
  EXPECT_FALSE(device.is_open());
  ExpectDestruction(-1);
}

TEST_F(SPIDevTest, FailedCloseForgetsTheDescriptorToo) {
  SPIDev device(kNode, kHz, 0, 8);
  ExpectOpening();
  Expect({kernel::Close(kFd).Fails(EIO)});
  device.open(0);
  device.close();
  EXPECT_FALSE(device.is_open());
  ExpectDestruction(-1);
}

TEST_F(SPIDevTest, DeviceCanBeOpenedAgainAfterClose) {
  SPIDev device(kNode, kHz, 0, 8);
  ExpectOpening(7);
  Expect({kernel::Close(7)});
  ExpectOpening(9);
  EXPECT_EQ(device.open(0), 7);
  device.close();
  EXPECT_EQ(device.open(0), 9);
  EXPECT_TRUE(device.is_open());
  ExpectDestruction(9);
}

TEST_F(SPIDevTest, DestructionThroughTheInterfaceClosesTheDevice) {
  SerialDeviceInterface* const device = new SPIDev(kNode, kHz, 0, 8);
  ExpectOpening();
  ExpectDestruction();
  EXPECT_EQ(device->open(0), kFd);
  delete device;
}

// --- Transfers ----------------------------------------------------------------------------------

class SPIDevTransferTest : public SPIDevTest {
 protected:
  /// An open device; the test adds the rest of the script.
  SPIDev& Device(std::uint8_t bits = 8) {
    ExpectOpening();
    device_ = std::make_unique<SPIDev>(kNode, kHz, std::uint8_t{0}, bits);
    EXPECT_EQ(device_->open(0), kFd);
    return *device_;
  }

  void TearDown() override {
    ExpectDestruction();
    device_.reset();
    SPIDevTest::TearDown();
  }

 private:
  std::unique_ptr<SPIDev> device_;
};

TEST_F(SPIDevTransferTest, ReadSendsTheCommandThenReceivesInOneMessage) {
  SPIDev& device = Device();
  Expect({kernel::SpiMessage(kFd, {kernel::Tx({0x9F}, 19'000'000, 8), kernel::Rx(3, 19'000'000, 8)})
              .Receives({0x20, 0xBA, 0x18})});
  std::uint8_t command[] = {0x9F};
  std::uint8_t reply[4] = {0, 0, 0, 0x77};
  EXPECT_EQ(device.read(reply, 3, command, 1), 3);
  EXPECT_EQ(kernel::Hex(reply), "20 ba 18 77");
}

TEST_F(SPIDevTransferTest, TransfersPointIntoTheCallersBuffers) {
  SPIDev& device = Device();
  Expect({kernel::SpiMessage(kFd, {kernel::Tx({0x05}, kHz, 8), kernel::Rx(1, kHz, 8)}),
          kernel::SpiMessage(kFd, {kernel::Tx({0x05}, kHz, 8)})});
  std::uint8_t command = 0x05;
  std::uint8_t reply = 0;
  device.read(&reply, 1, &command, 1);
  EXPECT_EQ(kernel_.LastSpiMessage()[0].tx_buf, reinterpret_cast<std::uintptr_t>(&command));
  EXPECT_EQ(kernel_.LastSpiMessage()[1].rx_buf, reinterpret_cast<std::uintptr_t>(&reply));
  device.write(&command, 1);
  EXPECT_EQ(kernel_.LastSpiMessage()[0].tx_buf, reinterpret_cast<std::uintptr_t>(&command));
}

TEST_F(SPIDevTransferTest, ReadWithoutCommandOnlyReceives) {
  SPIDev& device = Device();
  Expect({kernel::SpiMessage(kFd, {kernel::Rx(2, kHz, 8)}).Receives({0x12, 0x34})});
  std::uint8_t reply[2] = {};
  EXPECT_EQ(device.read(reply, 2, nullptr, 0), 2);
  EXPECT_EQ(kernel::Hex(reply), "12 34");
}

TEST_F(SPIDevTransferTest, ReadOf16BytesWithNullOrEmptyCommandIsOneTransfer) {
  SPIDev& device = Device();
  Expect({kernel::SpiMessage(kFd, {kernel::Rx(16, kHz, 8)}),
          kernel::SpiMessage(kFd, {kernel::Rx(16, kHz, 8)}),
          kernel::SpiMessage(kFd, {kernel::Rx(16, kHz, 8)})});
  std::uint8_t reply[16] = {};
  std::uint8_t command[] = {0x9F};
  EXPECT_EQ(device.read(reply, 16, nullptr, 0), 16);
  EXPECT_EQ(device.read(reply, 16, command, 0), 16);
  EXPECT_EQ(device.read(reply, 16, nullptr, 1), 16);
}

TEST_F(SPIDevTransferTest, ReadOfNothingIsAMessageAndReturnsZero) {
  SPIDev& device = Device();
  Expect({kernel::SpiMessage(kFd, {kernel::Tx({0x06}, kHz, 8), kernel::NoBuffer(kHz, 8)})});
  std::uint8_t command = 0x06;
  EXPECT_EQ(device.read(nullptr, 0, &command, 1), 0);
}

TEST_F(SPIDevTransferTest, MessageResultOfZeroIsSuccess) {
  SPIDev& device = Device();
  Expect({kernel::SpiMessage(kFd, {kernel::Rx(2, kHz, 8)}).Returns(0),
          kernel::SpiMessage(kFd, {kernel::Tx({1, 2}, kHz, 8)}).Returns(0)});
  std::uint8_t bytes[] = {1, 2};
  std::uint8_t reply[2] = {};
  EXPECT_EQ(device.read(reply, 2, nullptr, 0), 2);
  EXPECT_EQ(device.write(bytes, 2), 2);
}

TEST_F(SPIDevTransferTest, ReadTakesTheWordWidthAsItIs) {
  SPIDev& device = Device(16);
  Expect({kernel::SpiMessage(kFd, {kernel::Tx({0x9F}, kHz, 16), kernel::Rx(3, kHz, 16)}),
          kernel::SpiMessage(kFd, {kernel::Rx(3, kHz, 16)})});
  std::uint8_t command[] = {0x9F};
  std::uint8_t reply[3] = {};
  EXPECT_EQ(device.read(reply, 3, command, 1), 3);
  EXPECT_EQ(device.read(reply, 3, nullptr, 0), 3);
}

/// Beyond 32 bits, unless std::size_t ends there too.
constexpr auto kTwoBeyond32Bits = static_cast<std::size_t>(0x1'0000'0002);

TEST_F(SPIDevTransferTest, ReadLengthIsCutTo32Bits) {
  SPIDev& device = Device();
  Expect({kernel::SpiMessage(kFd, {kernel::Tx({0x03, 0x00}, kHz, 8), kernel::Rx(2, kHz, 8)}),
          kernel::SpiMessage(kFd, {kernel::Rx(2, kHz, 8)}),
          kernel::SpiMessage(kFd, {kernel::Rx(0xFFFFFFFF, kHz, 8)}).Returns(0)});
  std::uint8_t command[] = {0x03, 0x00};
  std::uint8_t reply[2] = {};
  EXPECT_EQ(device.read(reply, kTwoBeyond32Bits, command, kTwoBeyond32Bits), 2);
  EXPECT_EQ(device.read(reply, kTwoBeyond32Bits, nullptr, 0), 2);
  EXPECT_EQ(device.read(reply, 0xFFFFFFFF, nullptr, 0), -1);
}

TEST_F(SPIDevTransferTest, ReadErrorIsReportedByNumberAloneAndLeavesTheDeviceOpen) {
  SPIDev& device = Device();
  Expect({kernel::SpiMessage(kFd, {kernel::Tx({0x03}, kHz, 8), kernel::Rx(1, kHz, 8)})
              .Fails(EMSGSIZE)});
  std::uint8_t command[] = {0x03};
  std::uint8_t reply[] = {0x77};
  EXPECT_EQ(device.read(reply, 1, command, 1), 0);
  ExpectConsole("", "SpiDev::Read() SPI_IOC_MESSAGE error, errno = 90\n");
  EXPECT_TRUE(device.is_open());
  EXPECT_EQ(reply[0], 0x77);
}

TEST_F(SPIDevTransferTest, ReadErrorWithoutCommandIsReportedTheSame) {
  SPIDev& device = Device();
  Expect({kernel::SpiMessage(kFd, {kernel::Rx(1, kHz, 8)}).Fails(EIO)});
  std::uint8_t reply[] = {0x77};
  EXPECT_EQ(device.read(reply, 1, nullptr, 0), 0);
  ExpectConsole("", "SpiDev::Read() SPI_IOC_MESSAGE error, errno = 5\n");
}

TEST_F(SPIDevTransferTest, WriteErrorIsReportedByTextAndNode) {
  SPIDev& device = Device();
  Expect({kernel::SpiMessage(kFd, {kernel::Tx({0x06}, kHz, 8)}).Fails(EMSGSIZE)});
  std::uint8_t command[] = {0x06};
  EXPECT_EQ(device.write(command, 1), 0);
  ExpectConsole("",
                "SpiDev::Write() SPI_IOC_MESSAGE error, errno = Message too long"
                " file: /dev/spidev1.0\n");
  EXPECT_TRUE(device.is_open());
}

TEST_F(SPIDevTransferTest, TransferAfterAFailedOneGoesOn) {
  SPIDev& device = Device();
  Expect({kernel::SpiMessage(kFd, {kernel::Tx({0x06}, kHz, 8)}).Fails(EIO),
          kernel::SpiMessage(kFd, {kernel::Tx({0x06}, kHz, 8)})});
  std::uint8_t command[] = {0x06};
  EXPECT_EQ(device.write(command, 1), 0);
  EXPECT_EQ(device.write(command, 1), 1);
  ExpectConsole("",
                "SpiDev::Write() SPI_IOC_MESSAGE error, errno = Input/output error"
                " file: /dev/spidev1.0\n");
}

/// A console that cannot be written, which sets errno.
class BrokenConsole : public std::streambuf {
 public:
  BrokenConsole() : saved_(std::cerr.rdbuf(this)) {}
  BrokenConsole(const BrokenConsole&) = delete;
  BrokenConsole& operator=(const BrokenConsole&) = delete;
  ~BrokenConsole() override { std::cerr.rdbuf(saved_); }

  std::string text;

 protected:
  int_type overflow(int_type character) override {
    text += traits_type::to_char_type(character);
    errno = ENOSPC;
    return character;
  }
  std::streamsize xsputn(const char* characters, std::streamsize count) override {
    text.append(characters, static_cast<std::size_t>(count));
    errno = ENOSPC;
    return count;
  }

 private:
  std::streambuf* saved_;
};

TEST_F(SPIDevTransferTest, ErrorReportedIsThatOfTheTransferNotOfTheConsole) {
  SPIDev& device = Device();
  Expect({kernel::SpiMessage(kFd, {kernel::Rx(1, kHz, 8)}).Fails(EIO),
          kernel::SpiMessage(kFd, {kernel::Tx({0x06}, kHz, 8)}).Fails(EIO)});
  std::uint8_t byte = 0x06;
  std::string text;
  {
    BrokenConsole console;
    EXPECT_EQ(device.read(&byte, 1, nullptr, 0), 0);
    EXPECT_EQ(device.write(&byte, 1), 0);
    text = console.text;
  }
  EXPECT_EQ(text,
            "SpiDev::Read() SPI_IOC_MESSAGE error, errno = 5\n"
            "SpiDev::Write() SPI_IOC_MESSAGE error, errno = Input/output error"
            " file: /dev/spidev1.0\n");
}

TEST_F(SPIDevTest, TransfersBeforeOpenReturnZeroQuietly) {
  SPIDev device(kNode, kHz, 0, 8);
  std::uint8_t byte = 0;
  EXPECT_EQ(device.read(&byte, 1, &byte, 1), 0);
  EXPECT_EQ(device.read(&byte, 1, nullptr, 0), 0);
  EXPECT_EQ(device.write(&byte, 1), 0);
  ExpectConsole("", "");
  ExpectDestruction(-1);
}

TEST_F(SPIDevTest, TransfersAfterCloseReturnZeroQuietly) {
  SPIDev device(kNode, kHz, 0, 8);
  ExpectOpening();
  Expect({kernel::Close(kFd)});
  device.open(0);
  device.close();
  std::uint8_t byte = 0;
  EXPECT_EQ(device.read(&byte, 1, &byte, 1), 0);
  EXPECT_EQ(device.write(&byte, 1), 0);
  ExpectConsole("", "");
  ExpectDestruction(-1);
}

struct WordWidthRow {
  const char* name;
  std::uint8_t bits;
  std::size_t length;  // of the write
  int width;           // on the bus
};

class SPIDevWordWidthTest : public SPIDevTransferTest,
                            public testing::WithParamInterface<WordWidthRow> {};

TEST_P(SPIDevWordWidthTest, WriteUsesTheWidthOnlyForWholeWords) {
  const auto [name, bits, length, width] = GetParam();
  SPIDev& device = Device(bits);
  std::vector<std::uint8_t> bytes(length, 0xA5);
  bytes.reserve(1);  // an empty write gets a buffer as well
  Expect({kernel::SpiMessage(kFd, {kernel::Tx(bytes, kHz, width)})});
  EXPECT_EQ(device.write(bytes.data(), length), static_cast<int>(length));
}

INSTANTIATE_TEST_SUITE_P(Rows,
                         SPIDevWordWidthTest,
                         testing::Values(WordWidthRow{"BytesFitAnyLength", 8, 3, 8},
                                         WordWidthRow{"BytesFitNothing", 8, 0, 8},
                                         WordWidthRow{"TwoHalfwords", 16, 4, 16},
                                         WordWidthRow{"OddLengthInHalfwords", 16, 3, 8},
                                         WordWidthRow{"NothingInHalfwords", 16, 0, 16},
                                         WordWidthRow{"ThreeBytesOf24Bits", 24, 3, 24},
                                         WordWidthRow{"FourBytesOf24Bits", 24, 4, 8},
                                         WordWidthRow{"TwelveBitsCountAsOneByte", 12, 3, 12},
                                         WordWidthRow{"FifteenBitsCountAsOneByte", 15, 1, 15},
                                         WordWidthRow{"FourBytesOf32Bits", 32, 4, 32},
                                         WordWidthRow{"SixBytesOf32Bits", 32, 6, 8},
                                         WordWidthRow{"ZeroBitsNeverFit", 0, 4, 8},
                                         WordWidthRow{"FourBitsNeverFit", 4, 4, 8},
                                         WordWidthRow{"SevenBitsNeverFit", 7, 1, 8},
                                         WordWidthRow{"FourBitsFitNothing", 4, 0, 4},
                                         WordWidthRow{"ZeroBitsFitNothing", 0, 0, 0},
                                         WordWidthRow{"OneByteOf255Bits", 255, 1, 8},
                                         WordWidthRow{"ThirtyOneBytesOf255Bits", 255, 31, 255}),
                         [](const auto& row) { return row.param.name; });

TEST_F(SPIDevTransferTest, WriteLengthIsCutTo32BitsButWordsAreCountedInFull) {
  SPIDev& device = Device(24);
  if (sizeof(std::size_t) == sizeof(std::uint32_t)) {
    GTEST_SKIP() << "no length has more than 32 bits";
  }
  // 0x1'0000'0002 bytes are whole words of three; the two bytes that remain would not be.
  Expect({kernel::SpiMessage(kFd, {kernel::Tx({0xAA, 0x55}, kHz, 24)})});
  std::uint8_t bytes[] = {0xAA, 0x55};
  EXPECT_EQ(device.write(bytes, kTwoBeyond32Bits), 2);
}

// --- Buffer size --------------------------------------------------------------------------------

struct BufsizRow {
  const char* name;
  const char* contents;
  std::size_t size;
  const char* err;
};

class SPIDevBufsizTest : public KernelTest, public testing::WithParamInterface<BufsizRow> {};

TEST_P(SPIDevBufsizTest, FirstLineIsConverted) {
  const RedirectedFile bufsiz(kBufsizPath, GetParam().contents);
  EXPECT_EQ(SPIDev::GetBufsiz(), GetParam().size);
  ExpectConsole("", GetParam().err);
}

constexpr std::size_t kMax = std::numeric_limits<std::size_t>::max();

// The C library converts to unsigned long. What is out of its range depends on the machine.
constexpr bool kLongHas64Bits = sizeof(unsigned long) == sizeof(std::uint64_t);
constexpr const char* kLargest = kLongHas64Bits ? "18446744073709551615\n" : "4294967295\n";
constexpr const char* kTooLarge = kLongHas64Bits ? "18446744073709551616\n" : "4294967296\n";
constexpr const char* kTooLargeError = kLongHas64Bits
                                           ? "Can't convert bufsiz: 18446744073709551616\n"
                                           : "Can't convert bufsiz: 4294967296\n";

INSTANTIATE_TEST_SUITE_P(
    Rows,
    SPIDevBufsizTest,
    testing::Values(
        BufsizRow{"Plain", "4096\n", 4096, ""},
        BufsizRow{"NoNewline", "65536", 65536, ""},
        BufsizRow{"BlanksAndUnit", "  8192 kB\n", 8192, ""},
        BufsizRow{"Tab", "\t8192\n", 8192, ""},
        BufsizRow{"Zero", "0\n", 0, ""},
        BufsizRow{"One", "1\n", 1, ""},
        BufsizRow{"PlusSign", "+512\n", 512, ""},
        BufsizRow{"DecimalInSpiteOfLeadingZero", "0100\n", 100, ""},
        BufsizRow{"NoHexadecimal", "0x1000\n", 0, ""},
        BufsizRow{"MinusOneWraps", "-1\n", kMax, ""},
        BufsizRow{"Largest", kLargest, kMax, ""},
        BufsizRow{"OneTooLarge", kTooLarge, 4096, kTooLargeError},
        BufsizRow{"Letters", "abc\n", 4096, "Can't convert bufsiz: abc\n"},
        BufsizRow{"Blank", "  \n", 4096, "Can't convert bufsiz:   \n"},
        BufsizRow{"Empty", "", 4096, ""},
        BufsizRow{"EmptyFirstLine", "\n8192\n", 4096, ""},
        BufsizRow{"FirstLineOnly", "512\n8192\n", 512, ""},
        BufsizRow{"FirstLineOnlyInTheMessage", "x\n8192\n", 4096, "Can't convert bufsiz: x\n"}),
    [](const auto& row) { return row.param.name; });

TEST_F(SPIDevTest, MissingBufsizIsReportedAnd4096Used) {
  bufsiz_.Remove();
  Expect({kernel::Close(-1)});
  const SPIDev device(kNode, kHz, 0, 8);
  EXPECT_EQ(device.GetMaxTransferSize(), 4096U);
  ExpectConsole("", "Can't open: /sys/module/spidev/parameters/bufsiz\n");
}

}  // namespace
