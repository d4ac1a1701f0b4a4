#include <gtest/gtest.h>

#include <type_traits>

#include "devices/I2CDev.h"
#include "devices/SPIDev.h"
#include "devices/SerialDeviceInterface.h"
#include "tests/doubles/VirtualSlot.h"

namespace {

TEST(SerialDeviceInterfaceTest, SlotsAreInTheOrderThatTheExpanderClassWasBuiltWith) {
  EXPECT_EQ(VirtualSlot(&SerialDeviceInterface::is_open), 0U);
  EXPECT_EQ(VirtualSlot(&SerialDeviceInterface::open), 1U);
  EXPECT_EQ(VirtualSlot(&SerialDeviceInterface::close), 2U);
  EXPECT_EQ(VirtualSlot(&SerialDeviceInterface::read), 3U);
  EXPECT_EQ(VirtualSlot(&SerialDeviceInterface::write), 4U);
  EXPECT_TRUE(std::has_virtual_destructor_v<SerialDeviceInterface>);
}

TEST(SerialDeviceInterfaceTest, ImplementationsKeepTheSlots) {
  EXPECT_EQ(VirtualSlot(&SPIDev::is_open), 0U);
  EXPECT_EQ(VirtualSlot(&SPIDev::write), 4U);
  EXPECT_EQ(VirtualSlot(&I2CDev::is_open), 0U);
  EXPECT_EQ(VirtualSlot(&I2CDev::write), 4U);
}

TEST(SerialDeviceInterfaceTest, DevicesCannotBeCopiedOrMoved) {
  EXPECT_FALSE(std::is_copy_constructible_v<SPIDev>);
  EXPECT_FALSE(std::is_move_constructible_v<SPIDev>);
  EXPECT_FALSE(std::is_copy_assignable_v<SPIDev>);
  EXPECT_FALSE(std::is_copy_constructible_v<I2CDev>);
  EXPECT_FALSE(std::is_move_constructible_v<I2CDev>);
  EXPECT_FALSE(std::is_copy_assignable_v<I2CDev>);
}

}  // namespace
