#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include "tests/doubles/ScriptedSerialDevice.h"

namespace {

TEST(ScriptedSerialDeviceTest, ScriptedCallsGetTheirResultsAndBytes) {
  ScriptedSerialDevice device;
  device.Expect({AsksWhetherOpen(false),
                 Opens(0x20, 7),
                 AsksWhetherOpen(true),
                 Send({0x01, 0x02, 0x03}),
                 SendReturns({0x04}, 0),
                 Ask({0x9F}, {0x20, 0xBA}),
                 AskReturns({0x05}, {0xFF}, 0),
                 Ask({}, {0x77}),
                 Closes()});
  std::uint8_t tx[] = {0x01, 0x02, 0x03};
  std::uint8_t failing[] = {0x04};
  std::uint8_t command[] = {0x9F};
  std::uint8_t failingCommand[] = {0x05};
  std::uint8_t rx[2] = {};

  EXPECT_FALSE(device.is_open());
  EXPECT_EQ(device.open(0x20), 7);
  EXPECT_TRUE(device.is_open());
  EXPECT_EQ(device.write(tx, 3), 3);
  EXPECT_EQ(device.write(failing, 1), 0);
  EXPECT_EQ(device.read(rx, 2, command, 1), 2);
  EXPECT_EQ(rx[0], 0x20);
  EXPECT_EQ(rx[1], 0xBA);
  EXPECT_EQ(device.read(rx, 1, failingCommand, 1), 0);
  EXPECT_EQ(rx[0], 0xFF);
  EXPECT_EQ(device.read(rx, 1, nullptr, 0), 1);
  EXPECT_EQ(rx[0], 0x77);
  device.close();
}

TEST(ScriptedSerialDeviceTest, MissingCallFailsTheTest) {
  EXPECT_NONFATAL_FAILURE(
      {
        ScriptedSerialDevice device;
        device.Expect({Send({0x01, 0x02})});
      },
      "missing: write {01 02}");
}

TEST(ScriptedSerialDeviceTest, ExtraCallFailsTheTest) {
  ScriptedSerialDevice device;
  EXPECT_NONFATAL_FAILURE(device.close(), "called:   close\nexpected: nothing more");
}

TEST(ScriptedSerialDeviceTest, OtherBytesFailTheTestAndShowBoth) {
  ScriptedSerialDevice device;
  device.Expect({Send({0x02, 0xAA, 0x55})});
  std::uint8_t tx[] = {0x02, 0x55, 0xAA};
  int written = -1;
  EXPECT_NONFATAL_FAILURE(written = device.write(tx, 3),
                          "called:   write {02 55 aa}\nexpected: write {02 aa 55}");
  EXPECT_EQ(written, 0);
  std::uint8_t right[] = {0x02, 0xAA, 0x55};
  EXPECT_EQ(device.write(right, 3), 3);
}

TEST(ScriptedSerialDeviceTest, OtherReadLengthFailsTheTestAndReadsNothing) {
  ScriptedSerialDevice device;
  device.Expect({Ask({0x00}, {0x11})});
  std::uint8_t command[] = {0x00};
  std::uint8_t rx[2] = {0x33, 0x44};
  int count = -1;
  EXPECT_NONFATAL_FAILURE(count = device.read(rx, 2, command, 1),
                          "called:   write {00} and read 2\nexpected: write {00} and read 1");
  EXPECT_EQ(count, 0);
  EXPECT_EQ(rx[0], 0x33);
  EXPECT_EQ(device.read(rx, 1, command, 1), 1);
}

TEST(ScriptedSerialDeviceTest, ReorderedCallsFailTheTest) {
  ScriptedSerialDevice device;
  device.Expect({Opens(0x20, 3), Closes()});
  EXPECT_NONFATAL_FAILURE(device.close(), "called:   close\nexpected: open {20}");
  EXPECT_EQ(device.open(0x20), 3);
  device.close();
}

TEST(ScriptedSerialDeviceTest, OtherAddressFailsTheTestAndTheOpening) {
  ScriptedSerialDevice device;
  device.Expect({Opens(0x20, 3)});
  int descriptor = 0;
  EXPECT_NONFATAL_FAILURE(descriptor = device.open(0x21),
                          "called:   open {21}\nexpected: open {20}");
  EXPECT_EQ(descriptor, -1);
  EXPECT_EQ(device.open(0x20), 3);
}

TEST(ScriptedSerialDeviceTest, UnannouncedQuestionFailsTheTest) {
  ScriptedSerialDevice device;
  EXPECT_NONFATAL_FAILURE(static_cast<void>(device.is_open()),
                          "called:   is_open\nexpected: nothing more");
}

}  // namespace
