#include <gtest/gtest.h>

#include <type_traits>

#include "flash/MT25QL128.h"
#include "flash/SPIFlashInterface.h"
#include "tests/doubles/VirtualSlot.h"

namespace {

TEST(SPIFlashInterfaceTest, SlotsAreInTheirFixedOrder) {
  EXPECT_EQ(VirtualSlot(&SPIFlashInterface::Connect), 0U);
  EXPECT_EQ(VirtualSlot(&SPIFlashInterface::ProgramDevice), 1U);
  EXPECT_EQ(VirtualSlot(&SPIFlashInterface::EraseDevice), 2U);
  EXPECT_EQ(VirtualSlot(&SPIFlashInterface::ReadDevice), 3U);
  EXPECT_EQ(VirtualSlot(&SPIFlashInterface::Disconnect), 4U);
  EXPECT_EQ(VirtualSlot(&SPIFlashInterface::UnlockMemory), 5U);
  EXPECT_TRUE(std::has_virtual_destructor_v<SPIFlashInterface>);
}

TEST(SPIFlashInterfaceTest, DriverIsAFlash) {
  EXPECT_TRUE((std::is_convertible_v<MT25QL128*, SPIFlashInterface*>));
}

}  // namespace
