#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "simulator/instrument/Event.h"

namespace orvane {
namespace {

using namespace std::chrono_literals;
using Bytes = std::vector<std::uint8_t>;

/// As a line of the log shows it.
std::string Shown(const Event& event) { return std::string(Word(event.kind)) + " " + event.text; }

TEST(EventTest, FilesAreShownByTheirPaths) {
  EXPECT_EQ(Shown(OpenEvent("a", "O_WRONLY|O_CREAT 0600")), "open a O_WRONLY|O_CREAT 0600");
  EXPECT_EQ(Shown(CloseEvent("a")), "close a");
  EXPECT_EQ(Shown(ReadEvent("a")), "read a");
}

TEST(EventTest, DescriptorOfNoFileIsShownAsItsNumber) {
  EXPECT_EQ(Shown(CloseEvent(std::int64_t{-1})), "close -1");
}

TEST(EventTest, ContentsAreQuoted) {
  EXPECT_EQ(Shown(ReadEvent("a", "1\n")), R"(read a "1\n")");
  EXPECT_EQ(Shown(WriteEvent("a", "\x01\"")), R"(write a "\x01\"")");
}

TEST(EventTest, WriteToAFileIsShownByItsLength) {
  EXPECT_EQ(Shown(FileWriteEvent("a", 0)), "write a +0");
  EXPECT_EQ(Shown(FileWriteEvent("a", 4294967296)), "write a +4294967296");
}

TEST(EventTest, RequestsHaveTheNamesOfTheDriver) {
  EXPECT_EQ(Shown(ReadSettingEvent("a", SpiSetting::kMode)), "ioctl a SPI_IOC_RD_MODE");
  EXPECT_EQ(Shown(ReadSettingEvent("a", SpiSetting::kLsbFirst)), "ioctl a SPI_IOC_RD_LSB_FIRST");
  EXPECT_EQ(Shown(ReadSettingEvent("a", SpiSetting::kBitsPerWord)),
            "ioctl a SPI_IOC_RD_BITS_PER_WORD");
  EXPECT_EQ(Shown(WriteSettingEvent("a", SpiSetting::kMaxSpeedHz, 19000000)),
            "ioctl a SPI_IOC_WR_MAX_SPEED_HZ 19000000");
  EXPECT_EQ(Shown(WriteSettingEvent("a", SpiSetting::kMode32, 3)), "ioctl a SPI_IOC_WR_MODE32 3");
}

TEST(EventTest, OtherRequestIsShownAsItsNumber) {
  EXPECT_EQ(Shown(OtherRequestEvent("a", 0x6BFF)), "ioctl a 0x00006bff");
}

TEST(EventTest, SpiMessageIsShownByItsDescription) {
  EXPECT_EQ(Shown(SpiEvent("a", "WREN / RDSR")), "spi a WREN / RDSR");
  EXPECT_EQ(Shown(SpiSpeedEvent("a", 19000000, 8)), "spi a speed 19000000 bits 8");
}

TEST(EventTest, I2cAddressIsShownWhereItChanges) {
  const std::vector<I2cMessage> messages = {{.address = 0x05, .length = 1},
                                            {.address = 0x05, .length = 1, .reads = true},
                                            {.address = 0x123, .length = 2},
                                            {.address = 0x05, .length = 2, .reads = true}};
  const Bytes sent = {0x06, 0x40, 0xFF};
  const Bytes received = {0x07, 0x08, 0x09};
  EXPECT_EQ(Shown(I2cEvent("a", messages, sent)), "i2c a 0x05 w 06 r +1 0x123 w 40 ff 0x05 r +2");
  EXPECT_EQ(Shown(I2cEvent("a", messages, sent, received)),
            "i2c a 0x05 w 06 r 07 0x123 w 40 ff 0x05 r 08 09");
}

TEST(EventTest, I2cMessageWithoutBytesIsShownByItsDirection) {
  const std::vector<I2cMessage> messages = {{.address = 0x21}, {.address = 0x21, .reads = true}};
  EXPECT_EQ(Shown(I2cEvent("a", messages, Bytes(), Bytes())), "i2c a 0x21 w r");
}

TEST(EventTest, SleepIsShownInTheLargestWholeUnit) {
  EXPECT_EQ(Shown(SleepEvent(60s)), "sleep 60 s");
  EXPECT_EQ(Shown(SleepEvent(1500ms)), "sleep 1500 ms");
  EXPECT_EQ(Shown(SleepEvent(1us)), "sleep 1 us");
  EXPECT_EQ(Shown(SleepEvent(1001ns)), "sleep 1001 ns");
}

TEST(EventTest, CallIsShownByItsMethod) {
  EXPECT_EQ(Shown(DBusEvent("GetModuleLocations")), "dbus GetModuleLocations");
  EXPECT_EQ(Shown(DBusEvent("GetI2CBus", 4294967295U)), "dbus GetI2CBus 4294967295");
}

}  // namespace
}  // namespace orvane
