// Which modules are found, and by which calls, is shown by the whole-program tables.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <stdexcept>
#include <string>

#include "app/ModuleResources.h"
#include "tests/doubles/EventLog.h"
#include "tests/doubles/PlatformDoubles.h"

namespace {

using testing::ElementsAre;

class ModuleResourcesTest : public testing::Test {
 protected:
  ModuleResourcesTest() {
    platform_.locations = {1, 2, 4};
    platform_.i2cBus = " i2c 1/..\n";
    platform_.spiDev = "/dev/spidev1.0 ";
  }

  EventLog log_;
  PlatformDoubles platform_{log_};
};

TEST_F(ModuleResourcesTest, EachNameIsAskedForByClientsOfItsOwnAndPassedBackUnchanged) {
  EXPECT_EQ(getSolutionI2C(4), " i2c 1/..\n");
  EXPECT_EQ(getSolutionSpiDev(4), "/dev/spidev1.0 ");
  EXPECT_THAT(log_.Take(),
              ElementsAre("inventory: construct",
                          "inventory: GetModuleLocations",
                          "inventory: destroy",
                          "resources: construct",
                          "resources: SetupDeviceAddress 4",
                          "resources: GetI2CBus",
                          "resources: destroy",
                          "inventory: construct",
                          "inventory: GetModuleLocations",
                          "inventory: destroy",
                          "resources: construct",
                          "resources: SetupDeviceAddress 4",
                          "resources: GetSPIDev",
                          "resources: destroy"));
}

TEST_F(ModuleResourcesTest, UnpopulatedModuleHasNoNamesAndTheServiceIsNotAsked) {
  EXPECT_EQ(getSolutionI2C(3) + getSolutionSpiDev(3), "");
  EXPECT_EQ(log_.Count("resources: construct"), 0);
}

TEST_F(ModuleResourcesTest, LargestModuleNumberIsComparedByItsBits) {
  EXPECT_FALSE(checkAddress(-1));
  platform_.locations = {-1};
  EXPECT_TRUE(checkAddress(-1));
  EXPECT_EQ(getSolutionI2C(4294967295U), " i2c 1/..\n");
  EXPECT_EQ(log_.Count("resources: SetupDeviceAddress 4294967295"), 1);
}

// --- Exceptions ---------------------------------------------------------------------------------

class ModuleResourcesExceptionTest : public ModuleResourcesTest,
                                     public testing::WithParamInterface<const char*> {};

TEST_P(ModuleResourcesExceptionTest, PassesOn) {
  platform_.throwAt = GetParam();
  const auto askForBoth = [] { return getSolutionI2C(4) + getSolutionSpiDev(4); };
  EXPECT_THROW(askForBoth(), std::runtime_error);
}

INSTANTIATE_TEST_SUITE_P(Operations,
                         ModuleResourcesExceptionTest,
                         testing::Values("inventory: construct",
                                         "inventory: GetModuleLocations",
                                         "resources: construct",
                                         "resources: SetupDeviceAddress 4",
                                         "resources: GetI2CBus",
                                         "resources: GetSPIDev"));

class ClientDestructionTest : public ModuleResourcesTest,
                              public testing::WithParamInterface<const char*> {};

TEST_P(ClientDestructionTest, EndsTheProcessWhenItThrows) {
  platform_.throwAt = GetParam();
  EXPECT_EXIT(getSolutionI2C(4), testing::KilledBySignal(SIGABRT), "");
}

INSTANTIATE_TEST_SUITE_P(Clients,
                         ClientDestructionTest,
                         testing::Values("inventory: destroy", "resources: destroy"));

}  // namespace
