#include <gtest/gtest.h>

#include <optional>

#include "companion/module/ExpanderRegisters.h"
#include "tests/doubles/ScriptedSerialDevice.h"

namespace companion {
namespace {

class ExpanderRegistersTest : public testing::Test {
 protected:
  ScriptedSerialDevice bus_;
  ExpanderRegisters registers_{bus_};
};

TEST_F(ExpanderRegistersTest, PairsAreReadWithPort0InTheLowByte) {
  bus_.Expect({Ask({0x00}, {0x34, 0x12}), Ask({0x02}, {0x78, 0x56}), Ask({0x06}, {0xbc, 0x9a})});
  EXPECT_EQ(registers_.Input(), 0x1234);
  EXPECT_EQ(registers_.Output(), 0x5678);
  EXPECT_EQ(registers_.Configuration(), 0x9abc);
}

TEST_F(ExpanderRegistersTest, ReadingThatFailsHasNoValue) {
  bus_.Expect({AskReturns({0x00}, {0x00, 0x00}, 0)});
  EXPECT_EQ(registers_.Input(), std::nullopt);
}

TEST_F(ExpanderRegistersTest, LevelsOfTheOtherLinesAreKept) {
  bus_.Expect({Ask({0x02}, {0x34, 0x12}),
               Ask({0x02}, {0x34, 0x12}),
               Send({0x02, 0x3f, 0xa2}),
               Ask({0x02}, {0x3f, 0xa2})});
  EXPECT_TRUE(registers_.SetOutput(0xaaff, 0xf00f));
}

TEST_F(ExpanderRegistersTest, LevelsThatDoNotReadBackAreNotSet) {
  bus_.Expect({Ask({0x02}, {0x34, 0x12}),
               Ask({0x02}, {0x34, 0x12}),
               Send({0x02, 0xff, 0xff}),
               Ask({0x02}, {0x34, 0x12})});
  EXPECT_FALSE(registers_.SetOutput(0xffff, 0xffff));
}

TEST_F(ExpanderRegistersTest, LevelsAreNotWrittenWhenTheFormerOnesAreNotKnown) {
  bus_.Expect({AskReturns({0x02}, {0x00, 0x00}, 0)});
  EXPECT_FALSE(registers_.SetOutput(0xffff, 0xffff));
}

TEST_F(ExpanderRegistersTest, LevelsThatCannotBeWrittenAreNotSet) {
  bus_.Expect(
      {Ask({0x02}, {0x34, 0x12}), Ask({0x02}, {0x34, 0x12}), SendReturns({0x02, 0xff, 0xff}, 0)});
  EXPECT_FALSE(registers_.SetOutput(0xffff, 0xffff));
}

TEST_F(ExpanderRegistersTest, LevelsAreNotWrittenWhenTwoReadingsOfTheFormerOnesDiffer) {
  bus_.Expect({Ask({0x02}, {0x00, 0x00}), Ask({0x02}, {0x34, 0x12})});
  EXPECT_FALSE(registers_.SetOutput(0xaaff, 0xf00f));
}

TEST_F(ExpanderRegistersTest, DirectionsAreWrittenWithoutAReading) {
  bus_.Expect({Send({0x06, 0xdf, 0xed})});
  registers_.SetConfiguration(0xeddf);
}

}  // namespace
}  // namespace companion
