#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "proofs/swarm/Shrink.h"

namespace swarm {
namespace {

constexpr const char* kLarge =
    "pyx1 macronix a=gzip:3000 b=unstamped:900 flash=half:3000 registers=24:08 start=reset "
    "steps=t@3k,u@9[t,U]@7i,v end=here key=worn-page=0 stay=done=low fault=spi:PP#3:EIO "
    "fault=any#7:kill fault=i2c#9:lost";

bool Has(const World& world, const std::string& fault) {
  return std::find(world.faults.begin(), world.faults.end(), fault) != world.faults.end();
}

TEST(ShrinkTest, WhatIsNotNeededIsTakenAway) {
  const World smallest = Shrink(Parse(kLarge), [](const World& world) {
    return Has(world, "i2c#9:lost") && !world.steps.empty() && Contains(world.steps.front(), 'u');
  });
  EXPECT_EQ(
      Print(smallest),
      "pyx1 macronix a=plain:1000 b=plain:1000 flash=old:1000 registers=24:08 steps=u end=here "
      "fault=i2c#9:lost");
}

TEST(ShrinkTest, TwoFaultsThatAreNeededStay) {
  const World smallest = Shrink(Parse(kLarge), [](const World& world) {
    return Has(world, "i2c#9:lost") && Has(world, "spi:PP#3:EIO");
  });
  EXPECT_EQ(Print(smallest),
            "pyx1 macronix a=plain:1000 b=plain:1000 flash=old:1000 registers=24:08 end=here "
            "fault=spi:PP#3:EIO "
            "fault=i2c#9:lost");
}

TEST(ShrinkTest, StepInsideAnotherIsTakenAwayAlone) {
  const World smallest = Shrink(Parse("wend micron a=plain:1000 b=plain:1000 flash=old:1000 "
                                      "steps=u@9[t,U] end=power"),
                                [](const World& world) {
                                  return !world.steps.empty() && Contains(world.steps.front(), 't');
                                });
  EXPECT_EQ(Print(smallest),
            "wend micron a=plain:1000 b=plain:1000 flash=old:1000 registers=00:00 steps=u@9[t] "
            "end=power");
}

TEST(ShrinkTest, WorldThatNothingCanBeTakenFromStaysAsItIs) {
  const World world = Parse(kLarge);
  EXPECT_EQ(Shrink(world, [](const World&) { return false; }), world);
}

}  // namespace
}  // namespace swarm
