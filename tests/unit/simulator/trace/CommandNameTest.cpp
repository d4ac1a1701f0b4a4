#include <gtest/gtest.h>

#include "simulator/trace/CommandName.h"

namespace orvane {
namespace {

TEST(CommandNameTest, IsTheFirstWord) {
  EXPECT_EQ(CommandName("PP 0x001000 +256"), "PP");
  EXPECT_EQ(CommandName("WREN"), "WREN");
  EXPECT_EQ(CommandName("ab 00"), "ab");
  EXPECT_EQ(CommandName("-"), "-");
}

}  // namespace
}  // namespace orvane
