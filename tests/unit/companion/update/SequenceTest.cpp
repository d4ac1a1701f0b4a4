#include <gtest/gtest.h>
#include <signal.h>

#include <string>

#include "companion/update/Sequence.h"

namespace companion {
namespace {

TEST(SequenceTest, NamesOfDevicesAreTaken) {
  for (const std::string& name :
       {std::string("i2c-4"), std::string("..x"), std::string(255, 'x')}) {
    EXPECT_EQ(WhyNotAName(name), "");
  }
}

TEST(SequenceTest, HostileNamesAreRefused) {
  EXPECT_EQ(WhyNotAName(""), "is empty");
  EXPECT_EQ(WhyNotAName(std::string(256, 'x')), "is longer than 255 bytes");
  EXPECT_EQ(WhyNotAName("../mem"), "contains '/'");
  EXPECT_EQ(WhyNotAName("/"), "contains '/'");
  EXPECT_EQ(WhyNotAName("."), "is the name of a folder");
  EXPECT_EQ(WhyNotAName(".."), "is the name of a folder");
  EXPECT_EQ(WhyNotAName("i2c\n4"), "contains a control character");
  EXPECT_EQ(WhyNotAName("i2c\x7f"), "contains a control character");
  EXPECT_EQ(WhyNotAName(std::string("i2c\0", 4)), "contains a control character");
}

TEST(SequenceTest, SignalsHaveTheirNames) {
  EXPECT_EQ(NameOfSignal(SIGHUP), "SIGHUP");
  EXPECT_EQ(NameOfSignal(9999), "signal 9999");
}

TEST(SequenceTest, DifferenceIsOneLine) {
  EXPECT_EQ(TextOf({.firstAddress = 0xFF0003, .expected = 0x0A, .found = 0xFF, .pages = 1}),
            "differs from address 0xff0003 on (0xff instead of 0x0a), in 1 page of 256 bytes");
  EXPECT_EQ(TextOf({.firstAddress = 0, .expected = 1, .found = 2, .pages = 65536}),
            "differs from address 0x000000 on (0x02 instead of 0x01), in 65536 pages of 256 bytes");
}

}  // namespace
}  // namespace companion
