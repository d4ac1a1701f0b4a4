#include <gtest/gtest.h>

#include "programmers/ExpanderAddress.h"
#include "programmers/lines/DaxGpioProgramming.h"
#include "programmers/lines/Pyx1GpioProgramming.h"
#include "programmers/lines/Pyx2GpioProgramming.h"

namespace {

TEST(ExpanderAddressTest, IsThatOfTheMapInEverySlotBut5) {
  DaxGpioProgramming dax;
  Pyx1GpioProgramming pyx1;
  Pyx2GpioProgramming pyx2;
  for (const unsigned module : {0U, 1U, 4U, 6U, 42U, 4294967295U}) {
    EXPECT_EQ(ExpanderAddress(dax, module), 0x21) << module;
    EXPECT_EQ(ExpanderAddress(pyx1, module), 0x20) << module;
    EXPECT_EQ(ExpanderAddress(pyx2, module), 0x20) << module;
  }
}

TEST(ExpanderAddressTest, IsTheNextOneInSlot5) {
  DaxGpioProgramming dax;
  Pyx1GpioProgramming pyx1;
  EXPECT_EQ(ExpanderAddress(dax, 5), 0x22);
  EXPECT_EQ(ExpanderAddress(pyx1, 5), 0x21);
}

}  // namespace
