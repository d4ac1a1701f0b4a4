#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "simulator/boards/PcieSlotFiles.h"

namespace orvane {
namespace {

constexpr const char* kAddress = "/sys/bus/pci/slots/4/address";
constexpr const char* kRemove = "/sys/bus/pci/devices/0000:04:00.0/remove";
constexpr const char* kEnable = "/sys/bus/pci/devices/0000:04:00.0/enable";
constexpr const char* kRescan = "/sys/class/pci_bus/0000:04/rescan";

TEST(PcieSlotFilesTest, PathsFollowFromTheSlot) {
  EXPECT_THAT(PcieSlotFiles(4).AttributePaths(),
              testing::UnorderedElementsAre(kAddress, kRemove, kEnable, kRescan));
}

TEST(PcieSlotFilesTest, SlotsBeyondABusGoOnInTheNextDomain) {
  EXPECT_EQ(PcieSlotFiles(0x1FE).ReadAttribute("/sys/bus/pci/slots/510/address"), "0001:fe:00\n");
}

TEST(PcieSlotFilesTest, EndpointIsThereAndEnabledFromTheStart) {
  PcieSlotFiles files(4);
  EXPECT_EQ(files.ReadAttribute(kAddress), "0000:04:00\n");
  EXPECT_EQ(files.ReadAttribute(kEnable), "1\n");
  EXPECT_EQ(files.ReadAttribute(kRemove), "");
}

TEST(PcieSlotFilesTest, RemoveTakesTheEndpointsFilesAwayAndRescanBringsThemBack) {
  PcieSlotFiles files(4);
  EXPECT_EQ(files.WriteAttribute(kRemove, "1"), 0);
  EXPECT_EQ(files.ReadAttribute(kRemove), std::nullopt);
  EXPECT_EQ(files.ReadAttribute(kEnable), std::nullopt);
  EXPECT_EQ(files.ReadAttribute(kAddress), "0000:04:00\n");
  EXPECT_EQ(files.WriteAttribute(kEnable, "1"), ENODEV);

  EXPECT_EQ(files.WriteAttribute(kRescan, "1"), 0);
  EXPECT_EQ(files.ReadAttribute(kEnable), "0\n");
  EXPECT_EQ(files.WriteAttribute(kEnable, "1"), 0);
  EXPECT_EQ(files.ReadAttribute(kEnable), "1\n");
}

TEST(PcieSlotFilesTest, OtherTextsAreInvalidAndTheAddressIsReadOnly) {
  PcieSlotFiles files(4);
  EXPECT_EQ(files.WriteAttribute(kRemove, "x"), EINVAL);
  EXPECT_EQ(files.WriteAttribute(kAddress, "1"), EACCES);
}

}  // namespace
}  // namespace orvane
