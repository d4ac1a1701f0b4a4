#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>

#include "devices/SPIDevOwner.h"
#include "flash/MT25QL128.h"
#include "tests/doubles/KernelTest.h"
#include "tests/doubles/RedirectedFile.h"

namespace {

/// The script shows when the device is destroyed: its destructor calls close(-1). That it is
/// destroyed only once is checked by the address sanitizer.
class SPIDevOwnerTest : public KernelTest {
 protected:
  static std::unique_ptr<SPIDevOwner> Owner() {
    return std::make_unique<SPIDevOwner>(
        "/dev/spidev1.0", 10'000'000U, std::uint8_t{3}, std::uint8_t{16});
  }

  RedirectedFile bufsiz_{"/sys/module/spidev/parameters/bufsiz", "512\n"};
};

TEST_F(SPIDevOwnerTest, DeviceIsMadeFromTheParameters) {
  auto owner = Owner();
  ASSERT_NE(owner->Get(), nullptr);
  EXPECT_EQ(owner->Get()->getName(), "/dev/spidev1.0");
  EXPECT_EQ(owner->Get()->GetSpeed(), 10'000'000U);
  EXPECT_EQ(owner->Get()->GetMaxTransferSize(), 512U);
  Expect({kernel::Open("/dev/spidev1.0", O_RDWR).Returns(7),
          kernel::SpiWriteMode(7, 3),
          kernel::SpiReadMaxSpeed(7, 1'000'000),
          kernel::SpiWriteMaxSpeed(7, 1'000'000),
          kernel::SpiMessage(7, {kernel::Rx(1, 10'000'000, 16)}),
          kernel::Close(7)});
  EXPECT_EQ(owner->Get()->open(0), 7);
  std::uint8_t byte = 0;
  EXPECT_EQ(owner->Get()->read(&byte, 1, nullptr, 0), 1);
}

TEST_F(SPIDevOwnerTest, OwnerDestroysTheDeviceOnce) {
  auto owner = Owner();
  Expect({kernel::Close(-1)});
  owner.reset();
}

TEST_F(SPIDevOwnerTest, ResetDestroysTheDeviceNowAndNotAgain) {
  auto owner = Owner();
  Expect({kernel::Close(-1)});
  owner->Reset();
  EXPECT_EQ(owner->Get(), nullptr);
  kernel_.Verify();
  owner->Reset();
  owner.reset();
}

TEST_F(SPIDevOwnerTest, DeviceDestroyedByABorrowerIsKnownToTheOwner) {
  auto owner = Owner();
  Expect({kernel::Close(-1)});
  delete owner->Get();
  EXPECT_EQ(owner->Get(), nullptr);
  owner->Reset();
  owner.reset();
}

TEST_F(SPIDevOwnerTest, DeviceThatTheFlashDriverDestroysIsDestroyedOnce) {
  auto owner = Owner();
  auto flash = std::make_unique<MT25QL128>(owner->Get());
  Expect({kernel::Open("/dev/spidev1.0", O_RDWR).Fails(ENOENT), kernel::Close(-1)});
  EXPECT_EQ(flash->Connect(true), 1);
  EXPECT_EQ(owner->Get(), nullptr);
  kernel_.Verify();
  flash.reset();
  owner.reset();
}

}  // namespace
