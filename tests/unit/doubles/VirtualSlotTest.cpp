#include <gtest/gtest.h>

#include "tests/doubles/VirtualSlot.h"

namespace {

class Example {
 public:
  virtual void First() {}
  virtual ~Example() = default;
  virtual int Last() { return 0; }
};

TEST(VirtualSlotTest, CountsFromTheFirstFunctionAndADestructorForTwo) {
  EXPECT_EQ(VirtualSlot(&Example::First), 0U);
  EXPECT_EQ(VirtualSlot(&Example::Last), 3U);
}

}  // namespace
