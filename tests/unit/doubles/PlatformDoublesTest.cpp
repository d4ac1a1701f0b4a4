#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "platform/GDBusModuleResourcesClient.h"
#include "platform/GDBusSystemInventoryClient.h"
#include "platform/PCA9535.h"
#include "platform/PEX8606BA.h"
#include "tests/doubles/PlatformDoubles.h"
#include "tests/doubles/ScriptedSerialDevice.h"

namespace {

using testing::ElementsAre;

class PlatformDoublesTest : public testing::Test {
 protected:
  EventLog log_;
  PlatformDoubles platform_{log_};
};

TEST_F(PlatformDoublesTest, ServicesAnswerAsTheyAreTold) {
  platform_.locations = {1, 4};
  platform_.i2cBus = "i2c-1";
  platform_.spiDev = "spidev1.0";
  EXPECT_THAT(GDBusSystemInventoryClient().GetModuleLocations(), ElementsAre(1, 4));
  {
    GDBusModuleResourcesClient resources;
    resources.SetupDeviceAddress(4);
    EXPECT_EQ(resources.GetI2CBus(), "i2c-1");
    EXPECT_EQ(resources.GetSPIDev(), "spidev1.0");
  }
  EXPECT_THAT(log_.Take(),
              ElementsAre("inventory: construct",
                          "inventory: GetModuleLocations",
                          "inventory: destroy",
                          "resources: construct",
                          "resources: SetupDeviceAddress 4",
                          "resources: GetI2CBus",
                          "resources: GetSPIDev",
                          "resources: destroy"));
}

TEST_F(PlatformDoublesTest, SwitchAnswersAsItIsTold) {
  platform_.rescanned = false;
  {
    PEX8606BA pcieSwitch;
    EXPECT_TRUE(pcieSwitch.RemoveDevice(4));
    EXPECT_FALSE(pcieSwitch.RescanPciBus(4));
    EXPECT_TRUE(pcieSwitch.EnableDevice(4));
  }
  EXPECT_THAT(log_.Take(),
              ElementsAre("switch: construct",
                          "switch: RemoveDevice 4",
                          "switch: RescanPciBus 4",
                          "switch: EnableDevice 4",
                          "switch: destroy"));
}

TEST_F(PlatformDoublesTest, ExpanderAnswersAsItIsToldAndLeavesItsBusAlone) {
  ScriptedSerialDevice bus;
  platform_.expanderAnswers = false;
  platform_.port = [](unsigned short bits) { return bits; };
  {
    PCA9535 expander(&bus, 1);
    EXPECT_EQ(platform_.expanderBus, &bus);
    EXPECT_FALSE(expander.connect(0x21, 0x0140, 0x2C80, 0xEDDF, 0));
    expander.setPortActually(0x0001, 0x00FF);
    EXPECT_EQ(expander.getPort(0x0100), 0x0100);
    expander.disconnect(0xEDDF);
  }
  EXPECT_THAT(log_.Take(),
              ElementsAre("expander: construct with 1",
                          "expander: connect 0x21 0x0140 0x2C80 0xEDDF 0",
                          "expander: setPortActually 0x0001 0x00FF",
                          "expander: getPort 0x0100",
                          "expander: disconnect 0xEDDF",
                          "expander: destroy"));
}

TEST_F(PlatformDoublesTest, OneEventThrows) {
  platform_.throwAt = "switch: RemoveDevice 4";
  PEX8606BA pcieSwitch;
  EXPECT_TRUE(pcieSwitch.RemoveDevice(3));
  EXPECT_THROW(pcieSwitch.RemoveDevice(4), std::runtime_error);
}

}  // namespace
