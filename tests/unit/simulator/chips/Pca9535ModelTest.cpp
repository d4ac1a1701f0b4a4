#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "simulator/chips/Pca9535Model.h"

namespace {

using orvane::Pca9535Model;
using Bytes = std::vector<std::uint8_t>;

class Pca9535ModelTest : public testing::Test {
 protected:
  void Write(const Bytes& bytes) { expander_.Write(bytes); }
  /// A write of the command, then a read.
  Bytes Ask(std::uint8_t command, std::size_t count) {
    Write({command});
    return ReadOn(count);
  }
  Bytes ReadOn(std::size_t count) const {
    Bytes bytes(count, 0xA5);
    expander_.Read(bytes);
    return bytes;
  }

  Pca9535Model expander_{0x2C80};
};

TEST_F(Pca9535ModelTest, PowerOnRegistersAreThoseOfTheDataSheet) {
  EXPECT_EQ(Ask(0x02, 2), Bytes({0xFF, 0xFF}));
  EXPECT_EQ(Ask(0x04, 2), Bytes({0x00, 0x00}));
  EXPECT_EQ(Ask(0x06, 2), Bytes({0xFF, 0xFF}));
  EXPECT_EQ(expander_.Driven(), 0x0000);
}

TEST_F(Pca9535ModelTest, ReadBeforeAnyCommandGivesTheInputs) {
  EXPECT_EQ(ReadOn(2), Bytes({0x80, 0x2C}));
}

TEST_F(Pca9535ModelTest, InputsShowTheUndrivenLevelsPortZeroFirst) {
  EXPECT_EQ(Ask(0x00, 2), Bytes({0x80, 0x2C}));
  EXPECT_EQ(Ask(0x01, 1), Bytes({0x2C}));
}

TEST_F(Pca9535ModelTest, WritesTakePortZeroFirst) {
  Write({0x02, 0x34, 0x12});
  EXPECT_EQ(Ask(0x02, 2), Bytes({0x34, 0x12}));
}

TEST_F(Pca9535ModelTest, WriteOfOneByteChangesOnePort) {
  Write({0x02, 0x34});
  EXPECT_EQ(Ask(0x02, 2), Bytes({0x34, 0xFF}));
  Write({0x03, 0x12});
  EXPECT_EQ(Ask(0x02, 2), Bytes({0x34, 0x12}));
}

TEST_F(Pca9535ModelTest, WriteStartingAtPortOneGoesOnWithPortZero) {
  Write({0x03, 0x12, 0x34});
  EXPECT_EQ(Ask(0x02, 2), Bytes({0x34, 0x12}));
}

TEST_F(Pca9535ModelTest, LongWriteTogglesInsideThePair) {
  Write({0x02, 0x01, 0x02, 0x03, 0x04, 0x05});
  EXPECT_EQ(Ask(0x02, 2), Bytes({0x05, 0x04}));
  EXPECT_EQ(Ask(0x04, 2), Bytes({0x00, 0x00}));
}

TEST_F(Pca9535ModelTest, LongReadTogglesInsideThePair) {
  Write({0x02, 0x34, 0x12});
  EXPECT_EQ(Ask(0x02, 5), Bytes({0x34, 0x12, 0x34, 0x12, 0x34}));
  EXPECT_EQ(Ask(0x03, 3), Bytes({0x12, 0x34, 0x12}));
}

TEST_F(Pca9535ModelTest, EveryReadStartsAtTheLastCommand) {
  Write({0x02, 0x34, 0x12});
  EXPECT_EQ(ReadOn(1), Bytes({0x34}));
  EXPECT_EQ(ReadOn(1), Bytes({0x34}));
}

TEST_F(Pca9535ModelTest, EmptyWriteKeepsTheCommand) {
  Write({0x06});
  Write({});
  EXPECT_EQ(ReadOn(2), Bytes({0xFF, 0xFF}));
}

TEST_F(Pca9535ModelTest, LowThreeBitsOfTheCommandCount) {
  Write({0xFA, 0x34, 0x12});
  EXPECT_EQ(Ask(0x02, 2), Bytes({0x34, 0x12}));
  EXPECT_EQ(Ask(0x0A, 2), Bytes({0x34, 0x12}));
}

TEST_F(Pca9535ModelTest, InputRegistersCannotBeWritten) {
  Write({0x00, 0x11, 0x22});
  EXPECT_EQ(Ask(0x00, 2), Bytes({0x80, 0x2C}));
}

TEST_F(Pca9535ModelTest, PolarityInvertsWhatIsReadAndNothingElse) {
  Write({0x04, 0xFF, 0x0F});
  EXPECT_EQ(Ask(0x04, 2), Bytes({0xFF, 0x0F}));
  EXPECT_EQ(Ask(0x00, 2), Bytes({0x7F, 0x23}));
  EXPECT_EQ(expander_.Lines(), 0x2C80);
}

TEST_F(Pca9535ModelTest, OutputsDriveTheirLinesOnlyWhereConfigured) {
  Write({0x02, 0x0F, 0xF0});
  EXPECT_EQ(expander_.Lines(), 0x2C80);
  Write({0x06, 0xF0, 0xFF});
  EXPECT_EQ(expander_.Driven(), 0x000F);
  EXPECT_EQ(expander_.Lines(), 0x2C8F);
  EXPECT_EQ(Ask(0x00, 2), Bytes({0x8F, 0x2C}));
  Write({0x06, 0x00, 0x00});
  EXPECT_EQ(expander_.Lines(), 0xF00F);
}

TEST_F(Pca9535ModelTest, OutsideDriversAreSeenOnInputsOnly) {
  Write({0x02, 0x00, 0x00});
  Write({0x06, 0x00, 0xFF});
  expander_.SetOutside(0xFFFF);
  EXPECT_EQ(expander_.Lines(), 0xFF00);
  expander_.SetOutside(0x0100);
  EXPECT_EQ(expander_.Lines(), 0x0100);
}

TEST_F(Pca9535ModelTest, HeldLinesStayWhoeverDrivesThem) {
  expander_.HoldLines(0x0003, 0xFFFD);
  Write({0x02, 0x02, 0x00});
  Write({0x06, 0x00, 0xFF});
  EXPECT_EQ(expander_.Lines(), 0x2C01);
  expander_.HoldLines(0x0000, 0xFFFF);
  EXPECT_EQ(expander_.Lines(), 0x2C02);
}

}  // namespace
