#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>

#include "devices/I2CDev.h"
#include "tests/doubles/KernelTest.h"

namespace {

constexpr const char* kNode = "/dev/i2c-1";
constexpr int kFd = 5;

/// An I2CDev never prints anything: the fixture checks that after each test.
class I2CDevTest : public KernelTest {
 protected:
  static KernelCall OpenNode(int fd = kFd) { return kernel::Open(kNode, O_RDWR).Returns(fd); }
};

TEST_F(I2CDevTest, ConstructionOpensNothingAndDestructionClosesMinusOne) {
  I2CDev device(kNode);
  EXPECT_FALSE(device.is_open());
  Expect({kernel::Close(-1)});
}

TEST_F(I2CDevTest, OpenOpensForReadingAndWritingAndNothingElse) {
  I2CDev device("/dev/i2c-13");
  Expect({kernel::Open("/dev/i2c-13", 2).Returns(5)});
  EXPECT_EQ(device.open(0x20), 5);
  EXPECT_TRUE(device.is_open());
  Expect({kernel::Close(5)});
}

TEST_F(I2CDevTest, DescriptorZeroIsOpen) {
  I2CDev device(kNode);
  Expect({OpenNode(0), kernel::I2cTransfer(0, {kernel::I2cTx(0x20, {0x06})})});
  EXPECT_EQ(device.open(0x20), 0);
  EXPECT_TRUE(device.is_open());
  std::uint8_t byte = 0x06;
  EXPECT_EQ(device.write(&byte, 1), 1);
  Expect({kernel::Close(0)});
}

TEST_F(I2CDevTest, NodeThatCannotBeOpenedStaysClosedAndCanBeTriedAgain) {
  I2CDev device(kNode);
  Expect({OpenNode().Fails(ENOENT),
          OpenNode(),
          kernel::I2cTransfer(kFd, {kernel::I2cTx(0x21, {0x00})})});
  EXPECT_EQ(device.open(0x20), -1);
  EXPECT_FALSE(device.is_open());
  EXPECT_EQ(device.open(0x21), kFd);
  std::uint8_t byte = 0x00;
  EXPECT_EQ(device.write(&byte, 1), 1);
  Expect({kernel::Close(kFd)});
}

TEST_F(I2CDevTest, AnyDescriptorButMinusOneCountsAsOpenButCarriesNoTransfer) {
  I2CDev device(kNode);
  Expect({OpenNode(-2)});
  EXPECT_EQ(device.open(0x20), -2);
  EXPECT_TRUE(device.is_open());
  EXPECT_EQ(device.open(0x21), -2);
  std::uint8_t byte = 0;
  EXPECT_EQ(device.read(&byte, 1, &byte, 1), 0);
  EXPECT_EQ(device.write(&byte, 1), 0);
  Expect({kernel::Close(-2)});
}

TEST_F(I2CDevTest, SecondOpenKeepsTheDescriptorAndTheAddressOfTheFirst) {
  I2CDev device(kNode);
  Expect({OpenNode(), kernel::I2cTransfer(kFd, {kernel::I2cTx(0x20, {0x02, 0xFF})})});
  EXPECT_EQ(device.open(0x20), kFd);
  EXPECT_EQ(device.open(0x21), kFd);
  std::uint8_t bytes[] = {0x02, 0xFF};
  EXPECT_EQ(device.write(bytes, 2), 2);
  Expect({kernel::Close(kFd)});
}

TEST_F(I2CDevTest, OpenAfterCloseTakesTheNewAddress) {
  I2CDev device(kNode);
  Expect({OpenNode(5),
          kernel::Close(5),
          OpenNode(6),
          kernel::I2cTransfer(6, {kernel::I2cTx(0x21, {0x02})})});
  EXPECT_EQ(device.open(0x20), 5);
  device.close();
  EXPECT_FALSE(device.is_open());
  EXPECT_EQ(device.open(0x21), 6);
  std::uint8_t byte = 0x02;
  EXPECT_EQ(device.write(&byte, 1), 1);
  Expect({kernel::Close(6)});
}

TEST_F(I2CDevTest, CloseWhileClosedStillMakesTheCall) {
  I2CDev device(kNode);
  Expect({kernel::Close(-1).Fails(EBADF)});
  device.close();
  EXPECT_FALSE(device.is_open());
  Expect({kernel::Close(-1)});
}

TEST_F(I2CDevTest, FailedCloseForgetsTheDescriptorToo) {
  I2CDev device(kNode);
  Expect({OpenNode(), kernel::Close(kFd).Fails(EIO)});
  device.open(0x20);
  device.close();
  EXPECT_FALSE(device.is_open());
  Expect({kernel::Close(-1)});
}

TEST_F(I2CDevTest, DestructionThroughTheInterfaceClosesTheDevice) {
  SerialDeviceInterface* const device = new I2CDev(kNode);
  Expect({OpenNode(), kernel::Close(kFd)});
  EXPECT_EQ(device->open(0x20), kFd);
  delete device;
}

TEST_F(I2CDevTest, TransfersOnAClosedDeviceReturnZeroWithoutTouchingTheBus) {
  I2CDev device(kNode);
  std::uint8_t byte = 0;
  EXPECT_EQ(device.read(&byte, 1, &byte, 1), 0);
  EXPECT_EQ(device.read(&byte, 1, nullptr, 0), 0);
  EXPECT_EQ(device.write(&byte, 1), 0);
  Expect({kernel::Close(-1)});
}

class I2CDevTransferTest : public I2CDevTest {
 protected:
  void SetUp() override {
    Expect({OpenNode()});
    ASSERT_EQ(device_->open(0x20), kFd);
  }

  void TearDown() override {
    Expect({kernel::Close(kFd)});
    device_.reset();
    I2CDevTest::TearDown();
  }

  std::unique_ptr<I2CDev> device_ = std::make_unique<I2CDev>(kNode);
};

TEST_F(I2CDevTransferTest, ReadWritesTheRegisterAndReadsUnderOneTransaction) {
  Expect({kernel::I2cTransfer(kFd, {kernel::I2cTx(0x20, {0x02}), kernel::I2cRx(0x20, 2)})
              .Receives({0x34, 0x12})});
  std::uint8_t reg[] = {0x02};
  std::uint8_t reply[3] = {0, 0, 0x77};
  EXPECT_EQ(device_->read(reply, 2, reg, 1), 2);
  EXPECT_EQ(kernel::Hex(reply), "34 12 77");
}

TEST_F(I2CDevTransferTest, ReadWithoutRegisterStillSendsAnEmptyMessageFirst) {
  Expect({kernel::I2cTransfer(kFd, {kernel::I2cNoBuffer(0x20), kernel::I2cRx(0x20, 2)})
              .Receives({0x34, 0x12})});
  std::uint8_t reply[2] = {};
  EXPECT_EQ(device_->read(reply, 2, nullptr, 0), 2);
  EXPECT_EQ(kernel::Hex(reply), "34 12");
}

TEST_F(I2CDevTransferTest, ReadWithRegisterOfLengthZeroSendsAnEmptyMessageFirst) {
  Expect({kernel::I2cTransfer(kFd, {kernel::I2cTx(0x20, {}), kernel::I2cRx(0x20, 1)})});
  std::uint8_t reg[] = {0x02};
  std::uint8_t reply[1] = {};
  EXPECT_EQ(device_->read(reply, 1, reg, 0), 1);
}

TEST_F(I2CDevTransferTest, WriteSendsOneMessage) {
  Expect({kernel::I2cTransfer(kFd, {kernel::I2cTx(0x20, {0x06, 0xFC, 0xFF})})});
  std::uint8_t bytes[] = {0x06, 0xFC, 0xFF};
  EXPECT_EQ(device_->write(bytes, 3), 3);
}

TEST_F(I2CDevTransferTest, ResultOfZeroIsSuccess) {
  Expect(
      {kernel::I2cTransfer(kFd, {kernel::I2cTx(0x20, {0x06}), kernel::I2cRx(0x20, 1)}).Returns(0),
       kernel::I2cTransfer(kFd, {kernel::I2cTx(0x20, {0x06})}).Returns(0)});
  std::uint8_t byte = 0x06;
  std::uint8_t reply = 0;
  EXPECT_EQ(device_->read(&reply, 1, &byte, 1), 1);
  EXPECT_EQ(device_->write(&byte, 1), 1);
}

TEST_F(I2CDevTransferTest, RefusedTransferReturnsZeroQuietlyAndLeavesTheDeviceOpen) {
  Expect(
      {kernel::I2cTransfer(kFd, {kernel::I2cTx(0x20, {0x02}), kernel::I2cRx(0x20, 1)}).Fails(ENXIO),
       kernel::I2cTransfer(kFd, {kernel::I2cTx(0x20, {0x02})}).Fails(EREMOTEIO)});
  std::uint8_t byte = 0x02;
  std::uint8_t reply = 0x77;
  EXPECT_EQ(device_->read(&reply, 1, &byte, 1), 0);
  EXPECT_EQ(device_->write(&byte, 1), 0);
  EXPECT_EQ(reply, 0x77);
  EXPECT_TRUE(device_->is_open());
}

/// Beyond 32 bits, unless std::size_t ends there too.
constexpr auto kOneBeyond32Bits = static_cast<std::size_t>(0x1'0000'0001);

TEST_F(I2CDevTransferTest, LengthsAreCutToSixteenBitsOnTheWireAndTo32InTheResult) {
  Expect({kernel::I2cTransfer(kFd, {kernel::I2cTx(0x20, {0xAA}), kernel::I2cRx(0x20, 2)}),
          kernel::I2cTransfer(kFd, {kernel::I2cTx(0x20, {0xAA})}),
          kernel::I2cTransfer(kFd, {kernel::I2cTx(0x20, {0xAA})})});
  std::uint8_t bytes[] = {0xAA};
  std::uint8_t reply[2] = {};
  EXPECT_EQ(device_->read(reply, 0x10002, bytes, 0x10001), 0x10002);
  EXPECT_EQ(device_->write(bytes, 0x10001), 0x10001);
  EXPECT_EQ(device_->write(bytes, kOneBeyond32Bits), 1);
}

TEST_F(I2CDevTransferTest, LongestLengthIsNotCut) {
  std::vector<std::uint8_t> reply(65535);
  Expect({kernel::I2cTransfer(kFd, {kernel::I2cNoBuffer(0x20), kernel::I2cRx(0x20, 65535)})});
  EXPECT_EQ(device_->read(reply.data(), 65535, nullptr, 0), 65535);
}

}  // namespace
