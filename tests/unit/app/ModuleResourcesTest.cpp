#include <gtest/gtest.h>

#include <csignal>
#include <stdexcept>
#include <string>

#include "app/ModuleResources.h"
#include "tests/doubles/EventLog.h"
#include "tests/doubles/LoggedConsole.h"
#include "tests/unit/app/PlatformDoubles.h"

namespace {

class ModuleResourcesTest : public testing::Test {
 protected:
  ModuleResourcesTest() {
    platform_.locations = {1, 2, 4};
    platform_.i2cBus = "i2c-1";
    platform_.spiDev = "spidev1.0";
  }

  EventLog log_;
  LoggedConsole console_{log_};
  PlatformDoubles platform_{log_};
};

// --- Inventory ----------------------------------------------------------------------------------

TEST_F(ModuleResourcesTest, PopulatedLocationsAreValid) {
  EXPECT_TRUE(checkAddress(1));
  EXPECT_TRUE(checkAddress(2));
  EXPECT_TRUE(checkAddress(4));
}

TEST_F(ModuleResourcesTest, OtherLocationsAreNotValid) {
  EXPECT_FALSE(checkAddress(0));
  EXPECT_FALSE(checkAddress(3));
  EXPECT_FALSE(checkAddress(5));
  EXPECT_FALSE(checkAddress(-1));
}

TEST_F(ModuleResourcesTest, NoLocationIsValidInAnEmptyInventory) {
  platform_.locations = {};
  EXPECT_FALSE(checkAddress(0));
  EXPECT_FALSE(checkAddress(1));
}

TEST_F(ModuleResourcesTest, InventoryIsAskedByAClientOfItsOwn) {
  checkAddress(4);
  EXPECT_EQ(log_.Text(), R"(inventory: construct
inventory: GetModuleLocations
inventory: destroy
)");
}

TEST_F(ModuleResourcesTest, EveryCheckAsksAnew) {
  EXPECT_FALSE(checkAddress(3));
  platform_.locations = {3};
  EXPECT_TRUE(checkAddress(3));
}

// --- Names --------------------------------------------------------------------------------------

TEST_F(ModuleResourcesTest, I2CBusIsThatOfTheSelectedModule) {
  EXPECT_EQ(getSolutionI2C(4), "i2c-1");
  EXPECT_EQ(log_.Text(), R"(inventory: construct
inventory: GetModuleLocations
inventory: destroy
resources: construct
resources: SetupDeviceAddress 4
resources: GetI2CBus
resources: destroy
)");
}

TEST_F(ModuleResourcesTest, SpiDevIsThatOfTheSelectedModule) {
  EXPECT_EQ(getSolutionSpiDev(4), "spidev1.0");
  EXPECT_EQ(log_.Text(), R"(inventory: construct
inventory: GetModuleLocations
inventory: destroy
resources: construct
resources: SetupDeviceAddress 4
resources: GetSPIDev
resources: destroy
)");
}

TEST_F(ModuleResourcesTest, UnpopulatedModuleHasNoI2CBusAndTheServiceIsNotAsked) {
  EXPECT_EQ(getSolutionI2C(3), "");
  EXPECT_EQ(log_.Text(), R"(inventory: construct
inventory: GetModuleLocations
inventory: destroy
)");
}

TEST_F(ModuleResourcesTest, UnpopulatedModuleHasNoSpiDevAndTheServiceIsNotAsked) {
  EXPECT_EQ(getSolutionSpiDev(3), "");
  EXPECT_EQ(log_.Text(), R"(inventory: construct
inventory: GetModuleLocations
inventory: destroy
)");
}

TEST_F(ModuleResourcesTest, EmptyNamesArePassedBack) {
  platform_.i2cBus = "";
  platform_.spiDev = "";
  EXPECT_EQ(getSolutionI2C(4), "");
  EXPECT_EQ(getSolutionSpiDev(4), "");
}

TEST_F(ModuleResourcesTest, NamesArePassedBackUnchanged) {
  platform_.i2cBus = " i2c 1/..\n";
  platform_.spiDev = "/dev/spidev1.0 ";
  EXPECT_EQ(getSolutionI2C(4), " i2c 1/..\n");
  EXPECT_EQ(getSolutionSpiDev(4), "/dev/spidev1.0 ");
}

TEST_F(ModuleResourcesTest, LargestModuleNumberIsComparedByItsBits) {
  platform_.locations = {-1};
  EXPECT_EQ(getSolutionI2C(4294967295U), "i2c-1");
  EXPECT_EQ(log_.Count("resources: SetupDeviceAddress 4294967295"), 1);
}

TEST_F(ModuleResourcesTest, EachNameAsksTheInventoryAndTheServiceAgain) {
  getSolutionI2C(4);
  getSolutionSpiDev(4);
  EXPECT_EQ(log_.Count("inventory: GetModuleLocations"), 2);
  EXPECT_EQ(log_.Count("resources: construct"), 2);
}

// --- Exceptions ---------------------------------------------------------------------------------

class ModuleResourcesExceptionTest : public ModuleResourcesTest,
                                     public testing::WithParamInterface<const char*> {};

TEST_P(ModuleResourcesExceptionTest, PassesOn) {
  platform_.throwAt = GetParam();
  const auto askForBoth = [] { return getSolutionI2C(4) + getSolutionSpiDev(4); };
  EXPECT_THROW(askForBoth(), std::runtime_error);
  EXPECT_EQ(console_.Out() + console_.Err(), "");
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
