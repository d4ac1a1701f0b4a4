// Runs under umockdev-wrapper: the paths below /sys lead into a testbed of each test's own.

#include <gtest/gtest.h>
#include <umockdev.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "platform/PEX8606BA.h"

namespace {

struct ReleaseObject {
  void operator()(gpointer object) const { g_object_unref(object); }
};
struct ReleaseText {
  void operator()(gpointer text) const { g_free(text); }
};

class PEX8606BATestbedTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(umockdev_in_mock_environment()) << "start this program with umockdev-wrapper";
    const std::unique_ptr<char, ReleaseText> root(umockdev_testbed_get_root_dir(testbed_.get()));
    root_ = root.get();
    Make("sys/bus/pci/slots/4/address", "0000:03:00\n");
    Make("sys/bus/pci/devices/0000:03:00.0/remove", "");
    Make("sys/bus/pci/devices/0000:03:00.0/enable", "");
    Make("sys/class/pci_bus/0000:03/rescan", "");
  }

  void Make(const std::string& path, const std::string& contents) const {
    const std::filesystem::path file = root_ / path;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file) << contents;
  }

  [[nodiscard]] std::string Contents(const std::string& path) const {
    std::ifstream file(root_ / path);
    EXPECT_TRUE(file.is_open()) << path;
    return {std::istreambuf_iterator<char>(file), {}};
  }

  std::unique_ptr<UMockdevTestbed, ReleaseObject> testbed_{umockdev_testbed_new()};
  std::filesystem::path root_;
  PEX8606BA switch_;
};

TEST_F(PEX8606BATestbedTest, EachOperationWritesItsOwnAttributeAlone) {
  EXPECT_TRUE(switch_.RemoveDevice(4));
  EXPECT_EQ(Contents("sys/bus/pci/devices/0000:03:00.0/remove"), "1");
  EXPECT_EQ(Contents("sys/class/pci_bus/0000:03/rescan"), "");
  EXPECT_EQ(Contents("sys/bus/pci/devices/0000:03:00.0/enable"), "");

  EXPECT_TRUE(switch_.RescanPciBus(4));
  EXPECT_EQ(Contents("sys/class/pci_bus/0000:03/rescan"), "1");
  EXPECT_EQ(Contents("sys/bus/pci/devices/0000:03:00.0/enable"), "");

  EXPECT_TRUE(switch_.EnableDevice(4));
  EXPECT_EQ(Contents("sys/bus/pci/devices/0000:03:00.0/enable"), "1");
  EXPECT_EQ(Contents("sys/bus/pci/slots/4/address"), "0000:03:00\n");
}

TEST_F(PEX8606BATestbedTest, SlotThatDoesNotExistFails) {
  EXPECT_FALSE(switch_.RemoveDevice(5));
  EXPECT_FALSE(switch_.RescanPciBus(5));
  EXPECT_FALSE(switch_.EnableDevice(5));
}

TEST_F(PEX8606BATestbedTest, MissingAttributeFailsAndIsNotCreated) {
  for (const char* path : {"sys/bus/pci/devices/0000:03:00.0/remove",
                           "sys/class/pci_bus/0000:03/rescan",
                           "sys/bus/pci/devices/0000:03:00.0/enable"}) {
    ASSERT_TRUE(std::filesystem::remove(root_ / path));
  }
  EXPECT_FALSE(switch_.RemoveDevice(4));
  EXPECT_FALSE(switch_.RescanPciBus(4));
  EXPECT_FALSE(switch_.EnableDevice(4));
  EXPECT_TRUE(std::filesystem::is_empty(root_ / "sys/bus/pci/devices/0000:03:00.0"));
  EXPECT_TRUE(std::filesystem::is_empty(root_ / "sys/class/pci_bus/0000:03"));
}

TEST_F(PEX8606BATestbedTest, DeviceThatIsGoneCannotBeEnabled) {
  EXPECT_TRUE(switch_.RemoveDevice(4));
  std::filesystem::remove_all(root_ / "sys/bus/pci/devices/0000:03:00.0");
  EXPECT_TRUE(switch_.RescanPciBus(4));
  EXPECT_FALSE(switch_.EnableDevice(4));
}

TEST_F(PEX8606BATestbedTest, AttributeThatRefusesTheWriteFails) {
  const std::filesystem::path remove = root_ / "sys/bus/pci/devices/0000:03:00.0/remove";
  std::filesystem::remove(remove);
  std::filesystem::create_symlink("/dev/full", remove);
  EXPECT_FALSE(switch_.RemoveDevice(4));
}

}  // namespace
