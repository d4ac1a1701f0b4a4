#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "platform/PCA9535.h"
#include "tests/doubles/ScriptedSerialDevice.h"

namespace {

class PCA9535Test : public testing::Test {
 protected:
  ScriptedSerialDevice bus_;
  PCA9535 expander_{&bus_, 1};
};

TEST_F(PCA9535Test, ConstructionAndDestructionMakeNoTraffic) {
  ScriptedSerialDevice quiet;
  const PCA9535 expander(&quiet, 1);
}

TEST_F(PCA9535Test, DestructionAfterConnectNeitherReleasesLinesNorClosesTheBus) {
  ScriptedSerialDevice bus;
  bus.Expect({Opens(0x20, 3),
              Ask({0x02}, {0xFF, 0xFF}),
              Send({0x02, 0x00, 0x00}),
              Ask({0x06}, {0xFF, 0xFF}),
              Send({0x06, 0x00, 0x00})});
  PCA9535 expander(&bus, 1);
  EXPECT_TRUE(expander.connect(0x20, 0x0000, 0x0000, 0xFFFF, 0));
}

TEST_F(PCA9535Test, ConnectWritesLevelsBeforeDirections) {
  bus_.Expect({Opens(0x20, 3),
               Ask({0x02}, {0x00, 0x00}),
               Send({0x02, 0x34, 0x12}),
               Ask({0x06}, {0x00, 0x00}),
               Send({0x06, 0x78, 0x56})});
  EXPECT_TRUE(expander_.connect(0x20, 0x5678, 0x1234, 0xFFFF, 0));
}

TEST_F(PCA9535Test, ConnectKeepsTheLinesOutsideTheMask) {
  // old 0xA5C3 and 0x3C5A, mask 0x0FF0
  bus_.Expect({Opens(0x20, 3),
               Ask({0x02}, {0xC3, 0xA5}),
               Send({0x02, 0x23, 0xA1}),
               Ask({0x06}, {0x5A, 0x3C}),
               Send({0x06, 0xDA, 0x3E})});
  EXPECT_TRUE(expander_.connect(0x20, 0xFEDC, 0x9122, 0x0FF0, 0));
}

TEST_F(PCA9535Test, ConnectWithEmptyMaskWritesBackWhatItRead) {
  bus_.Expect({Opens(0x20, 3),
               Ask({0x02}, {0xC3, 0xA5}),
               Send({0x02, 0xC3, 0xA5}),
               Ask({0x06}, {0x5A, 0x3C}),
               Send({0x06, 0x5A, 0x3C})});
  EXPECT_TRUE(expander_.connect(0x20, 0xFFFF, 0xFFFF, 0x0000, 0));
}

TEST_F(PCA9535Test, PortZeroTravelsFirst) {
  bus_.Expect({Opens(0x20, 3),
               Ask({0x02}, {0x00, 0x00}),
               Send({0x02, 0x01, 0x00}),
               Ask({0x06}, {0x00, 0x00}),
               Send({0x06, 0x00, 0x80})});
  EXPECT_TRUE(expander_.connect(0x20, 0x8000, 0x0001, 0xFFFF, 0));
}

TEST_F(PCA9535Test, ConnectPassesTheAddressOn) {
  bus_.Expect({Opens(0x77, -1), Opens(0xFF, -1)});
  EXPECT_FALSE(expander_.connect(0x77, 0, 0, 0xFFFF, 0));
  EXPECT_FALSE(expander_.connect(0xFF, 0, 0, 0xFFFF, 0));
}

TEST_F(PCA9535Test, ConnectIgnoresItsFlags) {
  bus_.Expect({Opens(0x20, 3),
               Ask({0x02}, {0x00, 0x00}),
               Send({0x02, 0x34, 0x12}),
               Ask({0x06}, {0x00, 0x00}),
               Send({0x06, 0x78, 0x56})});
  EXPECT_TRUE(expander_.connect(0x20, 0x5678, 0x1234, 0xFFFF, 0xFF));
}

TEST_F(PCA9535Test, ConnectTakesDescriptorZeroForOpen) {
  bus_.Expect({Opens(0x20, 0),
               Ask({0x02}, {0x00, 0x00}),
               Send({0x02, 0x00, 0x00}),
               Ask({0x06}, {0x00, 0x00}),
               Send({0x06, 0x00, 0x00})});
  EXPECT_TRUE(expander_.connect(0x20, 0, 0, 0, 0));
}

TEST_F(PCA9535Test, ConnectOfAnOpenBusDoesNotCloseItFirst) {
  bus_.Expect({Opens(0x20, 3),
               Ask({0x02}, {0x00, 0x00}),
               Send({0x02, 0x01, 0x00}),
               Ask({0x06}, {0xFF, 0xFF}),
               Send({0x06, 0xFE, 0xFF}),
               Opens(0x21, 3),
               Ask({0x02}, {0x01, 0x00}),
               Send({0x02, 0x03, 0x00}),
               Ask({0x06}, {0xFE, 0xFF}),
               Send({0x06, 0xFC, 0xFF})});
  EXPECT_TRUE(expander_.connect(0x20, 0x0000, 0x0001, 0x0001, 0));
  EXPECT_TRUE(expander_.connect(0x21, 0x0000, 0x0002, 0x0002, 0));
}

TEST_F(PCA9535Test, ConnectStopsWhenTheBusCannotBeOpened) {
  bus_.Expect({Opens(0x20, -1)});
  EXPECT_FALSE(expander_.connect(0x20, 0x5678, 0x1234, 0xFFFF, 0));
}

TEST_F(PCA9535Test, ConnectStopsWhenTheLevelsCannotBeRead) {
  bus_.Expect({Opens(0x20, 3), AskReturns({0x02}, {0xFF, 0xFF}, 0)});
  EXPECT_FALSE(expander_.connect(0x20, 0x5678, 0x1234, 0xFFFF, 0));
}

TEST_F(PCA9535Test, ConnectStopsWhenTheLevelsCannotBeWritten) {
  bus_.Expect({Opens(0x20, 3), Ask({0x02}, {0x00, 0x00}), SendReturns({0x02, 0x34, 0x12}, 0)});
  EXPECT_FALSE(expander_.connect(0x20, 0x5678, 0x1234, 0xFFFF, 0));
}

TEST_F(PCA9535Test, ConnectStopsWhenTheDirectionsCannotBeRead) {
  bus_.Expect({Opens(0x20, 3),
               Ask({0x02}, {0x00, 0x00}),
               Send({0x02, 0x34, 0x12}),
               AskReturns({0x06}, {0xFF, 0xFF}, 0)});
  EXPECT_FALSE(expander_.connect(0x20, 0x5678, 0x1234, 0xFFFF, 0));
}

TEST_F(PCA9535Test, ConnectFailsWhenTheDirectionsCannotBeWritten) {
  bus_.Expect({Opens(0x20, 3),
               Ask({0x02}, {0x00, 0x00}),
               Send({0x02, 0x34, 0x12}),
               Ask({0x06}, {0x00, 0x00}),
               SendReturns({0x06, 0x78, 0x56}, 0)});
  EXPECT_FALSE(expander_.connect(0x20, 0x5678, 0x1234, 0xFFFF, 0));
}

TEST_F(PCA9535Test, AnyOtherCountThanTheOneAskedForIsAFailure) {
  for (const int count : {-1, 1, 3}) {
    bus_.Expect({Opens(0x20, 3), AskReturns({0x02}, {0xFF, 0xFF}, count)});
    EXPECT_FALSE(expander_.connect(0x20, 0x5678, 0x1234, 0xFFFF, 0)) << count;
  }
  for (const int count : {-1, 1, 2, 4}) {
    bus_.Expect(
        {Opens(0x20, 3), Ask({0x02}, {0x00, 0x00}), SendReturns({0x02, 0x34, 0x12}, count)});
    EXPECT_FALSE(expander_.connect(0x20, 0x5678, 0x1234, 0xFFFF, 0)) << count;
  }
}

TEST_F(PCA9535Test, SetPortChangesOnlyTheLinesInTheMask) {
  bus_.Expect({Ask({0x02}, {0xC3, 0xA5}), Send({0x02, 0x23, 0xA1})});
  expander_.setPortActually(0x9122, 0x0FF0);
}

TEST_F(PCA9535Test, SetPortWritesAlsoWhenNothingChanges) {
  bus_.Expect({Ask({0x02}, {0xC3, 0xA5}), Send({0x02, 0xC3, 0xA5})});
  expander_.setPortActually(0xFFFF, 0x0000);
}

TEST_F(PCA9535Test, SetPortSkipsTheWriteWhenTheReadFails) {
  bus_.Expect({AskReturns({0x02}, {0xFF, 0xFF}, 0)});
  expander_.setPortActually(0x1234, 0xFFFF);
}

TEST_F(PCA9535Test, SetPortDoesNotRepeatAFailedWrite) {
  bus_.Expect({Ask({0x02}, {0x00, 0x00}), SendReturns({0x02, 0x34, 0x12}, 0)});
  expander_.setPortActually(0x1234, 0xFFFF);
}

TEST_F(PCA9535Test, GetPortMasksTheInputPair) {
  bus_.Expect({Ask({0x00}, {0xC3, 0xA5}),
               Ask({0x00}, {0xC3, 0xA5}),
               Ask({0x00}, {0xC3, 0xA5}),
               Ask({0x00}, {0xC3, 0xA5})});
  EXPECT_EQ(expander_.getPort(0xFFFF), 0xA5C3);
  EXPECT_EQ(expander_.getPort(0x0FF0), 0x05C0);
  EXPECT_EQ(expander_.getPort(0x8001), 0x8001);
  EXPECT_EQ(expander_.getPort(0x0000), 0x0000);
}

TEST_F(PCA9535Test, GetPortIsZeroWhenTheReadFails) {
  bus_.Expect({AskReturns({0x00}, {0xFF, 0xFF}, 0), AskReturns({0x00}, {0xFF, 0xFF}, 1)});
  EXPECT_EQ(expander_.getPort(0xFFFF), 0);
  EXPECT_EQ(expander_.getPort(0xFFFF), 0);
}

TEST_F(PCA9535Test, DisconnectMakesTheLinesInputsAndClosesTheBus) {
  bus_.Expect({Ask({0x06}, {0x5A, 0x30}), Send({0x06, 0xFA, 0x3F}), Closes()});
  expander_.disconnect(0x0FF0);
}

TEST_F(PCA9535Test, DisconnectClosesTheBusAlsoWhenTheReadFails) {
  bus_.Expect({AskReturns({0x06}, {0x00, 0x00}, 0), Closes()});
  expander_.disconnect(0xFFFF);
}

TEST_F(PCA9535Test, DisconnectClosesTheBusAlsoWhenTheWriteFails) {
  bus_.Expect({Ask({0x06}, {0x00, 0x00}), SendReturns({0x06, 0xFF, 0xFF}, 0), Closes()});
  expander_.disconnect(0xFFFF);
}

TEST_F(PCA9535Test, DisconnectWithoutConnectMakesTheSameTraffic) {
  bus_.Expect({AskReturns({0x06}, {0x00, 0x00}, 0),
               Closes(),
               AskReturns({0x06}, {0x00, 0x00}, 0),
               Closes()});
  expander_.disconnect(0x0001);
  expander_.disconnect(0x0001);
}

}  // namespace
