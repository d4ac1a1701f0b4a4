#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "simulator/trace/RunObserver.h"
#include "simulator/trace/VcdTrace.h"

namespace orvane {
namespace {

using std::chrono::nanoseconds;
using testing::StartsWith;

constexpr std::uint32_t k10Mhz = 10'000'000;

ObservedSelect Select(std::vector<std::uint8_t> mosi,
                      std::vector<std::uint8_t> miso,
                      Period period,
                      std::uint32_t hertz = k10Mhz) {
  const auto bytes = static_cast<std::uint32_t>(mosi.size());
  return {.period = period,
          .command = {},
          .mosi = std::move(mosi),
          .miso = std::move(miso),
          .clocked = {{.bytes = bytes, .hertz = hertz}}};
}

Period Between(std::int64_t begin, std::int64_t end) {
  return {nanoseconds(begin), nanoseconds(end)};
}

/// A trace of one module with these nodes: its SPI signals are "!", "\"", "#" and "$" in the file, or
/// SCL is "!" and SDA is "\"".
class VcdTraceTest : public testing::Test {
 protected:
  void PlugIn(const std::string& spiPath, const std::vector<std::string>& i2cPaths) {
    const ObservedModule module{
        .slot = 1, .type = "wend", .spiPath = spiPath, .i2cPaths = i2cPaths, .lines = {}};
    trace_.OnStart({&module, 1}, {});
    Take();
  }
  void PlugInSpi() { PlugIn("/dev/spidev1.0", {}); }
  void PlugInI2c() { PlugIn("", {"/dev/i2c-1"}); }

  void Spi(const std::vector<ObservedSelect>& selects, Outcome outcome = Outcome::kDone) {
    trace_.OnSpi({.path = "/dev/spidev1.0", .period = {}, .selects = selects, .outcome = outcome});
  }
  void I2c(std::int64_t begin,
           const std::vector<ObservedI2cMessage>& messages,
           Outcome outcome = Outcome::kDone) {
    trace_.OnI2c({.path = "/dev/i2c-1",
                  .period = Between(begin, begin),
                  .messages = messages,
                  .outcome = outcome});
  }
  /// What has been written since this was called last.
  std::string Take() { return std::exchange(out_, std::ostringstream()).str(); }
  std::string TakeUntil(std::int64_t end) {
    trace_.OnEnd(nanoseconds(end));
    return Take();
  }

  std::ostringstream out_;
  VcdTrace trace_{out_};
};

// --- The start ----------------------------------------------------------------------------------

TEST_F(VcdTraceTest, SignalsAreNamedAfterTheirNodes) {
  const std::vector<ObservedModule> modules = {
      {.slot = 1,
       .type = "wend",
       .spiPath = "/dev/spidev1.0",
       .i2cPaths = {"/dev/i2c-1"},
       .lines = {}},
      {.slot = 4,
       .type = "pyx1",
       .spiPath = "/dev/spidev4.0",
       .i2cPaths = {"/dev/i2c-4", "/dev/i2c-12"},
       .lines = {}},
      {.slot = 5, .type = "pyx2", .spiPath = {}, .i2cPaths = {}, .lines = {}}};
  const std::vector<std::string> chassis = {"/dev/i2c-0"};
  trace_.OnStart(modules, chassis);
  EXPECT_EQ(Take(),
            "$version orvane-sim $end\n"
            "$timescale 1 ns $end\n"
            "$scope module wend_1 $end\n"
            "$var wire 1 ! spidev1_0_CS $end\n"
            "$var wire 1 \" spidev1_0_CLK $end\n"
            "$var wire 1 # spidev1_0_MOSI $end\n"
            "$var wire 1 $ spidev1_0_MISO $end\n"
            "$var wire 1 % i2c_1_SCL $end\n"
            "$var wire 1 & i2c_1_SDA $end\n"
            "$upscope $end\n"
            "$scope module pyx1_4 $end\n"
            "$var wire 1 ' spidev4_0_CS $end\n"
            "$var wire 1 ( spidev4_0_CLK $end\n"
            "$var wire 1 ) spidev4_0_MOSI $end\n"
            "$var wire 1 * spidev4_0_MISO $end\n"
            "$var wire 1 + i2c_4_SCL $end\n"
            "$var wire 1 , i2c_4_SDA $end\n"
            "$var wire 1 - i2c_12_SCL $end\n"
            "$var wire 1 . i2c_12_SDA $end\n"
            "$upscope $end\n"
            "$scope module pyx2_5 $end\n"
            "$upscope $end\n"
            "$scope module chassis $end\n"
            "$var wire 1 / i2c_0_SCL $end\n"
            "$var wire 1 0 i2c_0_SDA $end\n"
            "$upscope $end\n"
            "$enddefinitions $end\n"
            "#0\n"
            "$dumpvars\n"
            "1!\n0\"\n0#\n0$\n1%\n1&\n"
            "1'\n0(\n0)\n0*\n1+\n1,\n1-\n1.\n"
            "1/\n10\n"
            "$end\n");
}

TEST_F(VcdTraceTest, WithoutBusesHasOnlyItsStartAndEnd) {
  trace_.OnStart({}, {});
  EXPECT_EQ(TakeUntil(7),
            "$version orvane-sim $end\n"
            "$timescale 1 ns $end\n"
            "$enddefinitions $end\n"
            "#0\n"
            "$dumpvars\n"
            "$end\n"
            "#7\n");
}

// --- SPI ----------------------------------------------------------------------------------------

TEST_F(VcdTraceTest, BitsChangeWhileTheClockIsLowAndTheHighestIsFirst) {
  PlugInSpi();
  Spi({Select({0xA5}, {0x0F}, Between(20'000, 20'800))});
  EXPECT_EQ(TakeUntil(21'000),
            "#20000\n0!\n1#\n"
            "#20050\n1\"\n"
            "#20100\n0\"\n0#\n"
            "#20150\n1\"\n"
            "#20200\n0\"\n1#\n"
            "#20250\n1\"\n"
            "#20300\n0\"\n0#\n"
            "#20350\n1\"\n"
            "#20400\n0\"\n1$\n"
            "#20450\n1\"\n"
            "#20500\n0\"\n1#\n"
            "#20550\n1\"\n"
            "#20600\n0\"\n0#\n"
            "#20650\n1\"\n"
            "#20700\n0\"\n1#\n"
            "#20750\n1\"\n"
            "#20775\n0\"\n"
            "#20800\n1!\n"
            "#21000\n");
}

// The lines keep the levels of the last bit: here MOSI is high already.
TEST_F(VcdTraceTest, ChipSelectIsHighBetweenMessages) {
  PlugInSpi();
  Spi({Select({0x01}, {0x00}, Between(1'000, 1'800))});
  Take();
  Spi({Select({0x80}, {0x00}, Between(2'000, 2'800))});
  EXPECT_THAT(Take(), StartsWith("#2000\n0!\n#2050\n1\"\n#2100\n0\"\n0#\n"));
}

TEST_F(VcdTraceTest, BytesFollowEachOtherWithoutAGap) {
  PlugInSpi();
  Spi({Select({0x00, 0x80}, {0x01, 0x00}, Between(1'000, 2'600))});
  EXPECT_EQ(Take(),
            "#1000\n0!\n#1050\n1\"\n"
            "#1100\n0\"\n#1150\n1\"\n"
            "#1200\n0\"\n#1250\n1\"\n"
            "#1300\n0\"\n#1350\n1\"\n"
            "#1400\n0\"\n#1450\n1\"\n"
            "#1500\n0\"\n#1550\n1\"\n"
            "#1600\n0\"\n#1650\n1\"\n"
            "#1700\n0\"\n1$\n#1750\n1\"\n"
            "#1800\n0\"\n1#\n0$\n#1850\n1\"\n"
            "#1900\n0\"\n0#\n#1950\n1\"\n"
            "#2000\n0\"\n#2050\n1\"\n"
            "#2100\n0\"\n#2150\n1\"\n"
            "#2200\n0\"\n#2250\n1\"\n"
            "#2300\n0\"\n#2350\n1\"\n"
            "#2400\n0\"\n#2450\n1\"\n"
            "#2500\n0\"\n#2550\n1\"\n#2575\n0\"\n"
            "#2600\n1!\n");
}

// A bit takes 52.6 ns. Its end is rounded up, as that of each byte is.
TEST_F(VcdTraceTest, BitsThatAreNoWholeNanosecondsDoNotAddUpTheirRounding) {
  PlugInSpi();
  Spi({Select({0x00, 0x00}, {0x00, 0x00}, Between(1'000, 1'843), 19'000'000)});
  EXPECT_EQ(Take(),
            "#1000\n0!\n#1026\n1\"\n"
            "#1053\n0\"\n#1079\n1\"\n"
            "#1106\n0\"\n#1132\n1\"\n"
            "#1158\n0\"\n#1184\n1\"\n"
            "#1211\n0\"\n#1237\n1\"\n"
            "#1264\n0\"\n#1290\n1\"\n"
            "#1316\n0\"\n#1342\n1\"\n"
            "#1369\n0\"\n#1395\n1\"\n"
            "#1422\n0\"\n#1448\n1\"\n"
            "#1474\n0\"\n#1500\n1\"\n"
            "#1527\n0\"\n#1553\n1\"\n"
            "#1579\n0\"\n#1605\n1\"\n"
            "#1632\n0\"\n#1658\n1\"\n"
            "#1685\n0\"\n#1711\n1\"\n"
            "#1737\n0\"\n#1763\n1\"\n"
            "#1790\n0\"\n#1816\n1\"\n#1829\n0\"\n"
            "#1843\n1!\n");
}

TEST_F(VcdTraceTest, TransfersOfOneChipSelectHaveTheirOwnRates) {
  PlugInSpi();
  ObservedSelect select = Select({0x00, 0x00}, {0x00, 0x00}, Between(1'000, 2'200));
  select.clocked = {{.bytes = 1, .hertz = k10Mhz}, {.bytes = 1, .hertz = 2 * k10Mhz}};
  Spi({select});
  EXPECT_EQ(Take(),
            "#1000\n0!\n#1050\n1\"\n"
            "#1100\n0\"\n#1150\n1\"\n"
            "#1200\n0\"\n#1250\n1\"\n"
            "#1300\n0\"\n#1350\n1\"\n"
            "#1400\n0\"\n#1450\n1\"\n"
            "#1500\n0\"\n#1550\n1\"\n"
            "#1600\n0\"\n#1650\n1\"\n"
            "#1700\n0\"\n#1750\n1\"\n"
            "#1800\n0\"\n#1825\n1\"\n"
            "#1850\n0\"\n#1875\n1\"\n"
            "#1900\n0\"\n#1925\n1\"\n"
            "#1950\n0\"\n#1975\n1\"\n"
            "#2000\n0\"\n#2025\n1\"\n"
            "#2050\n0\"\n#2075\n1\"\n"
            "#2100\n0\"\n#2125\n1\"\n"
            "#2150\n0\"\n#2175\n1\"\n#2187\n0\"\n"
            "#2200\n1!\n");
}

TEST_F(VcdTraceTest, ChipSelectWithoutATimeBeforeItIsHighForAQuarterOfABit) {
  PlugInSpi();
  Spi({Select({0x01}, {0x00}, Between(0, 800)), Select({0x00}, {0x80}, Between(800, 1'600))});
  EXPECT_EQ(Take(),
            "#25\n0!\n#50\n1\"\n"
            "#100\n0\"\n#150\n1\"\n"
            "#200\n0\"\n#250\n1\"\n"
            "#300\n0\"\n#350\n1\"\n"
            "#400\n0\"\n#450\n1\"\n"
            "#500\n0\"\n#550\n1\"\n"
            "#600\n0\"\n#650\n1\"\n"
            "#700\n0\"\n1#\n#750\n1\"\n#775\n0\"\n"
            "#800\n1!\n"
            "#825\n0!\n0#\n1$\n#850\n1\"\n"
            "#900\n0\"\n0$\n#950\n1\"\n"
            "#1000\n0\"\n#1050\n1\"\n"
            "#1100\n0\"\n#1150\n1\"\n"
            "#1200\n0\"\n#1250\n1\"\n"
            "#1300\n0\"\n#1350\n1\"\n"
            "#1400\n0\"\n#1450\n1\"\n"
            "#1500\n0\"\n#1550\n1\"\n#1575\n0\"\n"
            "#1600\n1!\n");
}

TEST_F(VcdTraceTest, BitAt250MegahertzHasFourTimesOfItsOwn) {
  PlugInSpi();
  Spi({Select({0x00}, {0x00}, Between(0, 32), 250'000'000)});
  EXPECT_EQ(Take(),
            "#1\n0!\n#2\n1\"\n#4\n0\"\n#6\n1\"\n#8\n0\"\n#10\n1\"\n#12\n0\"\n#14\n1\"\n#16\n0\"\n"
            "#18\n1\"\n#20\n0\"\n#22\n1\"\n#24\n0\"\n#26\n1\"\n#28\n0\"\n#30\n1\"\n#31\n0\"\n"
            "#32\n1!\n");
}

// At 4 GHz 8 bits take 2 ns.
TEST_F(VcdTraceTest, AtHigherRatesTheFileIsLateUntilTheBusHasBeenIdle) {
  PlugInSpi();
  const std::string afterItsFirstRise =
      "\"\n#4\n0\"\n#6\n1\"\n#8\n0\"\n#10\n1\"\n#12\n0\"\n#14\n1\"\n#16\n0\"\n#18\n1\"\n#20\n0\"\n"
      "#22\n1\"\n#24\n0\"\n#26\n1\"\n#28\n0\"\n#30\n1\"\n#31\n0\"\n#32\n1!\n";
  Spi({Select({0x00}, {0x00}, Between(0, 2), 4'000'000'000)});
  EXPECT_EQ(Take(), "#1\n0!\n#2\n1" + afterItsFirstRise);
  Spi({Select({0x00}, {0x00}, Between(10, 12), 4'000'000'000)});
  EXPECT_EQ(Take(),
            "#33\n0!\n#34\n1\"\n#36\n0\"\n#38\n1\"\n#40\n0\"\n#42\n1\"\n#44\n0\"\n#46\n1\"\n"
            "#48\n0\"\n#50\n1\"\n#52\n0\"\n#54\n1\"\n#56\n0\"\n#58\n1\"\n#60\n0\"\n#62\n1\"\n"
            "#63\n0\"\n#64\n1!\n");
  EXPECT_EQ(TakeUntil(20), "#65\n");  // after the last bit
}

TEST_F(VcdTraceTest, FileThatWasLateIsOnTimeAgainAfterTheBusHasBeenIdle) {
  PlugInSpi();
  Spi({Select({0x00}, {0x00}, Between(100, 102), 4'000'000'000)});
  Take();
  Spi({Select({0x00}, {0x00}, Between(200, 202), 4'000'000'000)});
  EXPECT_THAT(Take(), StartsWith("#200\n0!\n#202\n1\"\n"));
}

TEST_F(VcdTraceTest, LostAndFailedMessagesAreNotOnTheWire) {
  PlugInSpi();
  Spi({Select({0xA5}, {0x00}, Between(1'000, 1'800))}, Outcome::kLost);
  Spi({}, Outcome::kFailed);
  EXPECT_EQ(TakeUntil(2'000), "#2000\n");
}

TEST_F(VcdTraceTest, ChipSelectWithoutBytesIsNotShown) {
  PlugInSpi();
  ObservedSelect select = Select({}, {}, Between(1'000, 1'000));
  select.clocked.clear();
  Spi({select});
  EXPECT_EQ(Take(), "");
}

// --- I2C ----------------------------------------------------------------------------------------

constexpr const char* kStartAt10000 = "#17500\n0\"\n#20000\n0!\n";

TEST_F(VcdTraceTest, ByteThatIsWrittenIsBetweenStartAndStop) {
  PlugInI2c();
  I2c(10'000, {{.address = 0x21, .reads = false, .acknowledged = true, .bytes = {0xC0}}});
  EXPECT_EQ(TakeUntil(220'000),
            std::string(kStartAt10000) +
                // 0x21 and a write: 0 1 0 0 0 0 1 0, acknowledged
                "#25000\n1!\n#30000\n0!\n"
                "#32500\n1\"\n#35000\n1!\n#40000\n0!\n"
                "#42500\n0\"\n#45000\n1!\n#50000\n0!\n"
                "#55000\n1!\n#60000\n0!\n"
                "#65000\n1!\n#70000\n0!\n"
                "#75000\n1!\n#80000\n0!\n"
                "#82500\n1\"\n#85000\n1!\n#90000\n0!\n"
                "#92500\n0\"\n#95000\n1!\n#100000\n0!\n"
                "#105000\n1!\n#110000\n0!\n"
                // 0xC0: 1 1 0 0 0 0 0 0, acknowledged
                "#112500\n1\"\n#115000\n1!\n#120000\n0!\n"
                "#125000\n1!\n#130000\n0!\n"
                "#132500\n0\"\n#135000\n1!\n#140000\n0!\n"
                "#145000\n1!\n#150000\n0!\n"
                "#155000\n1!\n#160000\n0!\n"
                "#165000\n1!\n#170000\n0!\n"
                "#175000\n1!\n#180000\n0!\n"
                "#185000\n1!\n#190000\n0!\n"
                "#195000\n1!\n#200000\n0!\n"
                // the stop
                "#205000\n1!\n#207500\n1\"\n"
                "#220000\n");
}

TEST_F(VcdTraceTest, AddressThatNobodyAcknowledgesIsFollowedByAStop) {
  PlugInI2c();
  I2c(10'000,
      {{.address = 0x00, .reads = true, .acknowledged = false, .bytes = {}}},
      Outcome::kFailed);
  EXPECT_EQ(Take(),
            std::string(kStartAt10000) +
                "#25000\n1!\n#30000\n0!\n"
                "#35000\n1!\n#40000\n0!\n"
                "#45000\n1!\n#50000\n0!\n"
                "#55000\n1!\n#60000\n0!\n"
                "#65000\n1!\n#70000\n0!\n"
                "#75000\n1!\n#80000\n0!\n"
                "#85000\n1!\n#90000\n0!\n"
                "#92500\n1\"\n#95000\n1!\n#100000\n0!\n"  // it reads
                "#105000\n1!\n#110000\n0!\n"              // and stays high
                "#112500\n0\"\n#115000\n1!\n#117500\n1\"\n");
}

TEST_F(VcdTraceTest, SecondMessageFollowsARepeatedStartAndItsLastByteIsNotAcknowledged) {
  PlugInI2c();
  I2c(10'000,
      {{.address = 0x00, .reads = false, .acknowledged = true, .bytes = {}},
       {.address = 0x00, .reads = true, .acknowledged = true, .bytes = {0x00, 0x00}}});
  std::string clocks;
  const auto low = [&clocks](int bits, int from) {
    for (int begin = from; begin < from + bits * 10'000; begin += 10'000) {
      clocks += "#" + std::to_string(begin + 5'000) + "\n1!\n#" + std::to_string(begin + 10'000) +
                "\n0!\n";
    }
    return std::exchange(clocks, "");
  };
  EXPECT_EQ(Take(),
            kStartAt10000 + low(9, 20'000) +
                "#112500\n1\"\n#115000\n1!\n#117500\n0\"\n#120000\n0!\n" + low(7, 120'000) +
                "#192500\n1\"\n#195000\n1!\n#200000\n0!\n"  // it reads
                "#202500\n0\"\n#205000\n1!\n#210000\n0!\n"  // and is acknowledged
                + low(8, 210'000) + low(1, 290'000) +       // the first byte is acknowledged too
                low(8, 300'000) +
                "#382500\n1\"\n#385000\n1!\n#390000\n0!\n"  // the last one is not
                "#392500\n0\"\n#395000\n1!\n#397500\n1\"\n");
}

TEST_F(VcdTraceTest, TransferThatIsLostOrFailsByARuleIsNotOnTheBus) {
  PlugInI2c();
  I2c(10'000, {}, Outcome::kLost);
  I2c(20'000, {}, Outcome::kFailed);
  EXPECT_EQ(TakeUntil(30'000), "#30000\n");
}

}  // namespace
}  // namespace orvane
