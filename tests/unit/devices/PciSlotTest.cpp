// The address of a slot. What else a slot may hold is shown by PEX8606BATest, which reads it too.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <optional>
#include <string>

#include "devices/PciSlot.h"
#include "tests/doubles/KernelTest.h"

namespace {

constexpr std::size_t kAsked = 12;  // bytes: an address, its newline, one more

class PciSlotTest : public KernelTest {
 protected:
  /// The attribute of slot 4 is read to the end, and closed.
  void ExpectSlot4(const std::string& contents) {
    kernel::Bytes bytes(contents.begin(), contents.end());
    bytes.resize(kAsked);
    Expect({kernel::Open("/sys/bus/pci/slots/4/address", O_RDONLY).Returns(5),
            kernel::Read(5, bytes).Returns(static_cast<long>(contents.size())),
            kernel::Close(5)});
  }
};

TEST_F(PciSlotTest, AddressIsReadWithoutItsNewline) {
  ExpectSlot4("0001:0a:1f\n");
  EXPECT_EQ(ReadPciSlotAddress(4), "0001:0a:1f");
}

TEST_F(PciSlotTest, SlotWithoutADeviceHasNoAddress) {
  ExpectSlot4("0001:0a\n");
  EXPECT_EQ(ReadPciSlotAddress(4), std::nullopt);
}

TEST_F(PciSlotTest, LongerTextIsNoAddress) {
  ExpectSlot4("0001:0a:1f.0");
  EXPECT_EQ(ReadPciSlotAddress(4), std::nullopt);
}

TEST_F(PciSlotTest, SlotThatCannotBeOpenedOrReadHasNoAddress) {
  Expect({kernel::Open("/sys/bus/pci/slots/4294967295/address", O_RDONLY).Fails(ENOENT),
          kernel::Open("/sys/bus/pci/slots/0/address", O_RDONLY).Returns(5),
          kernel::Read(5, kernel::Bytes(kAsked)).Fails(EIO),
          kernel::Close(5)});
  EXPECT_EQ(ReadPciSlotAddress(4294967295U), std::nullopt);
  EXPECT_EQ(ReadPciSlotAddress(0), std::nullopt);
}

TEST_F(PciSlotTest, EndpointIsFunctionZeroOfTheDevice) {
  EXPECT_EQ(PciEndpointPath("0001:0a:1f"), "/sys/bus/pci/devices/0001:0a:1f.0");
}

}  // namespace
