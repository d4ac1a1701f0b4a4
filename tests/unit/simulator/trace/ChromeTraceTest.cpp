#include <gtest/gtest.h>

#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "simulator/trace/ChromeTrace.h"

#include <nlohmann/json.hpp>

namespace orvane {
namespace {

using namespace std::chrono_literals;

const std::string kHead =
    R"({"displayTimeUnit":"ns","traceEvents":[
{"ph":"M","cat":"__metadata","name":"process_name","ts":0,"args":{"name":"command"},"pid":1},
{"ph":"M","cat":"__metadata","name":"process_sort_index","ts":0,"args":{"sort_index":1},"pid":1},
{"ph":"M","cat":"__metadata","name":"thread_name","ts":0,"args":{"name":"console"},"pid":1,"tid":2},
{"ph":"M","cat":"__metadata","name":"thread_sort_index","ts":0,"args":{"sort_index":2},"pid":1,"tid":2},
{"ph":"M","cat":"__metadata","name":"thread_name","ts":0,"args":{"name":"sleeps"},"pid":1,"tid":3},
{"ph":"M","cat":"__metadata","name":"thread_sort_index","ts":0,"args":{"sort_index":3},"pid":1,"tid":3},
{"ph":"M","cat":"__metadata","name":"thread_name","ts":0,"args":{"name":"looks and waits"},"pid":1,"tid":4},
{"ph":"M","cat":"__metadata","name":"thread_sort_index","ts":0,"args":{"sort_index":4},"pid":1,"tid":4},
{"ph":"M","cat":"__metadata","name":"thread_name","ts":0,"args":{"name":"control files"},"pid":1,"tid":5},
{"ph":"M","cat":"__metadata","name":"thread_sort_index","ts":0,"args":{"sort_index":5},"pid":1,"tid":5},
{"ph":"M","cat":"__metadata","name":"thread_name","ts":0,"args":{"name":"D-Bus"},"pid":1,"tid":6},
{"ph":"M","cat":"__metadata","name":"thread_sort_index","ts":0,"args":{"sort_index":6},"pid":1,"tid":6},
{"ph":"M","cat":"__metadata","name":"thread_name","ts":0,"args":{"name":"other events"},"pid":1,"tid":7},
{"ph":"M","cat":"__metadata","name":"thread_sort_index","ts":0,"args":{"sort_index":7},"pid":1,"tid":7})";
const std::string kTail = "\n]}\n";

class ChromeTraceTest : public testing::Test {
 protected:
  ChromeTraceTest() { trace_.emplace(out_); }

  /// A wend in slot 1, a pyx1 in slot 4 without nodes, and a bus of the chassis. The tracks are 9 for
  /// the SPI bus of the wend (process 8), 10 for its flash, 11 for its I2C bus, 13 for the flash of the
  /// pyx1 (process 12), and 15 for the bus of the chassis (process 14).
  void Start() {
    const std::vector<ObservedModule> modules = {
        {.slot = 1,
         .type = "wend",
         .spiPath = "/dev/spidev1.0",
         .i2cPaths = {"/dev/i2c-1"},
         .lines = {{Line::kDone, true}, {Line::kReset, true}, {Line::kQspiPrg, false}}},
        {.slot = 4,
         .type = "pyx1",
         .spiPath = {},
         .i2cPaths = {},
         .lines = {{Line::kDone, true},
                   {Line::kReset, false},
                   {Line::kSelector, false},
                   {Line::kEndpointPresent, true},
                   {Line::kEndpointEnabled, true}}}};
    const std::vector<std::string> chassisI2c = {"/dev/i2c-0"};
    trace_->OnStart(modules, chassisI2c);
    start_ = out_.str();
  }
  /// What has been written since Start().
  std::string Written() const { return out_.str().substr(start_.size()); }

  std::ostringstream out_;
  std::optional<ChromeTrace> trace_;
  std::string start_;
};

TEST_F(ChromeTraceTest, WithoutARunIsCompleteAllTheSame) {
  trace_.reset();
  EXPECT_EQ(out_.str(), kHead + kTail);
}

TEST_F(ChromeTraceTest, EachModuleAndTheChassisIsAProcess) {
  Start();
  EXPECT_EQ(out_.str(), kHead + R"(,
{"ph":"M","cat":"__metadata","name":"process_name","ts":0,"args":{"name":"wend@1"},"pid":8},
{"ph":"M","cat":"__metadata","name":"process_sort_index","ts":0,"args":{"sort_index":8},"pid":8},
{"ph":"M","cat":"__metadata","name":"thread_name","ts":0,"args":{"name":"spidev1.0"},"pid":8,"tid":9},
{"ph":"M","cat":"__metadata","name":"thread_sort_index","ts":0,"args":{"sort_index":9},"pid":8,"tid":9},
{"ph":"M","cat":"__metadata","name":"thread_name","ts":0,"args":{"name":"flash"},"pid":8,"tid":10},
{"ph":"M","cat":"__metadata","name":"thread_sort_index","ts":0,"args":{"sort_index":10},"pid":8,"tid":10},
{"ph":"M","cat":"__metadata","name":"thread_name","ts":0,"args":{"name":"i2c-1"},"pid":8,"tid":11},
{"ph":"M","cat":"__metadata","name":"thread_sort_index","ts":0,"args":{"sort_index":11},"pid":8,"tid":11},
{"ph":"C","cat":"line","name":"DONE","ts":0.0,"args":{"level":1},"pid":8},
{"ph":"C","cat":"line","name":"zynq_hw_reset_n","ts":0.0,"args":{"level":1},"pid":8},
{"ph":"C","cat":"line","name":"qspi_prg","ts":0.0,"args":{"level":0},"pid":8},
{"ph":"M","cat":"__metadata","name":"process_name","ts":0,"args":{"name":"pyx1@4"},"pid":12},
{"ph":"M","cat":"__metadata","name":"process_sort_index","ts":0,"args":{"sort_index":12},"pid":12},
{"ph":"M","cat":"__metadata","name":"thread_name","ts":0,"args":{"name":"flash"},"pid":12,"tid":13},
{"ph":"M","cat":"__metadata","name":"thread_sort_index","ts":0,"args":{"sort_index":13},"pid":12,"tid":13},
{"ph":"C","cat":"line","name":"DONE","ts":0.0,"args":{"level":1},"pid":12},
{"ph":"C","cat":"line","name":"PROGRAM_B","ts":0.0,"args":{"level":0},"pid":12},
{"ph":"C","cat":"line","name":"selector on SPIFIFO","ts":0.0,"args":{"level":0},"pid":12},
{"ph":"C","cat":"line","name":"endpoint present","ts":0.0,"args":{"level":1},"pid":12},
{"ph":"C","cat":"line","name":"endpoint enabled","ts":0.0,"args":{"level":1},"pid":12},
{"ph":"M","cat":"__metadata","name":"process_name","ts":0,"args":{"name":"chassis"},"pid":14},
{"ph":"M","cat":"__metadata","name":"process_sort_index","ts":0,"args":{"sort_index":14},"pid":14},
{"ph":"M","cat":"__metadata","name":"thread_name","ts":0,"args":{"name":"i2c-0"},"pid":14,"tid":15},
{"ph":"M","cat":"__metadata","name":"thread_sort_index","ts":0,"args":{"sort_index":15},"pid":14,"tid":15})");
}

TEST_F(ChromeTraceTest, MessageIsItsCostAndASliceForEachChipSelect) {
  Start();
  const std::vector<ObservedSelect> selects = {{.period = {20'000ns, 20'421ns},
                                                .command = "WREN",
                                                .mosi = {0x06},
                                                .miso = {0x00},
                                                .clocked = {}},
                                               {.period = {20'421ns, 24'632ns},
                                                .command = "PP 0x001000 +6",
                                                .mosi = {2, 0, 0x10, 0, 1, 2, 3, 4, 5, 6},
                                                .miso = std::vector<std::uint8_t>(10),
                                                .clocked = {}}};
  trace_->OnSpi({.path = "/dev/spidev1.0",
                 .period = {0ns, 24'632ns},
                 .cost = 20us,
                 .selects = selects,
                 .outcome = Outcome::kDone});
  EXPECT_EQ(Written(),
            R"(,
{"ph":"X","cat":"spi","name":"message cost","ts":0.0,"dur":20.0,"cname":"grey","pid":8,"tid":9},
{"ph":"X","cat":"spi","name":"WREN","ts":20.0,"dur":0.421,"args":{"mosi":"06","miso":"00"},"pid":8,"tid":9},
{"ph":"X","cat":"spi","name":"PP","ts":20.421,"dur":4.211,"args":{"operands":"0x001000 +6","mosi":"02 00 10 00 01 02 03 04 ... +2","miso":"00 00 00 00 00 00 00 00 ... +2"},"pid":8,"tid":9})");
}

TEST_F(ChromeTraceTest, MessageWithoutCostHasNoSliceForIt) {
  Start();
  const std::vector<ObservedSelect> selects = {{.period = {0ns, 1'000ns},
                                                .command = "RDSR",
                                                .mosi = {0x05, 0x00},
                                                .miso = {0x00, 0x03},
                                                .clocked = {}}};
  trace_->OnSpi({.path = "/dev/spidev1.0", .period = {0ns, 1'000ns}, .selects = selects});
  EXPECT_EQ(Written(),
            R"(,
{"ph":"X","cat":"spi","name":"RDSR","ts":0.0,"dur":1.0,"args":{"mosi":"05 00","miso":"00 03"},"pid":8,"tid":9})");
}

TEST_F(ChromeTraceTest, LostMessageSaysSo) {
  Start();
  const std::vector<ObservedSelect> selects = {{.period = {20'000ns, 20'421ns},
                                                .command = "WREN",
                                                .mosi = {0x06},
                                                .miso = {0x00},
                                                .clocked = {}}};
  trace_->OnSpi({.path = "/dev/spidev1.0",
                 .period = {0ns, 20'421ns},
                 .cost = 20us,
                 .selects = selects,
                 .outcome = Outcome::kLost});
  EXPECT_EQ(Written(),
            R"(,
{"ph":"X","cat":"spi","name":"message cost","ts":0.0,"dur":20.0,"cname":"grey","pid":8,"tid":9},
{"ph":"X","cat":"spi","name":"WREN","ts":20.0,"dur":0.421,"args":{"mosi":"06","miso":"00","outcome":"lost"},"cname":"bad","pid":8,"tid":9})");
}

TEST_F(ChromeTraceTest, FailedMessageIsOneSlice) {
  Start();
  trace_->OnSpi({.path = "/dev/spidev1.0",
                 .period = {5ns, 20'005ns},
                 .cost = 20us,
                 .selects = {},
                 .outcome = Outcome::kFailed});
  EXPECT_EQ(Written(),
            R"(,
{"ph":"X","cat":"spi","name":"failed message","ts":0.005,"dur":20.0,"args":{"outcome":"failed"},"cname":"terrible","pid":8,"tid":9})");
}

TEST_F(ChromeTraceTest, MessageWithoutAnythingIsNotFailed) {
  Start();
  trace_->OnSpi({.path = "/dev/spidev1.0", .period = {0ns, 20'000ns}, .cost = 20us});
  EXPECT_EQ(Written(),
            R"(,
{"ph":"X","cat":"spi","name":"message cost","ts":0.0,"dur":20.0,"cname":"grey","pid":8,"tid":9})");
}

TEST_F(ChromeTraceTest, I2cTransferNamesWhatItDoesAndItsBytes) {
  Start();
  const std::vector<ObservedI2cMessage> messages = {
      {.address = 0x21, .bytes = {0x06}}, {.address = 0x21, .reads = true, .bytes = {0xFF, 0x0A}}};
  trace_->OnI2c({.path = "/dev/i2c-1", .period = {0ns, 480'000ns}, .messages = messages});
  EXPECT_EQ(Written(),
            R"(,
{"ph":"X","cat":"i2c","name":"write and read 0x21","ts":0.0,"dur":480.0,"args":{"messages":["0x21 w 06","0x21 r ff 0a"]},"pid":8,"tid":11})");
}

TEST_F(ChromeTraceTest, I2cAddressThatNobodyAcknowledgesSaysSo) {
  Start();
  const std::vector<ObservedI2cMessage> messages = {{.address = 0x30, .acknowledged = false}};
  trace_->OnI2c({.path = "/dev/i2c-0",
                 .period = {0ns, 110'000ns},
                 .messages = messages,
                 .outcome = Outcome::kFailed});
  EXPECT_EQ(Written(),
            R"(,
{"ph":"X","cat":"i2c","name":"write 0x30","ts":0.0,"dur":110.0,"args":{"messages":["0x30 not acknowledged"],"outcome":"failed"},"cname":"terrible","pid":14,"tid":15})");
}

TEST_F(ChromeTraceTest, I2cTransferWithoutMessagesIsNamedAfterItsOutcome) {
  Start();
  trace_->OnI2c({.path = "/dev/i2c-1",
                 .period = {0ns, 480'000ns},
                 .messages = {},
                 .outcome = Outcome::kLost});
  trace_->OnI2c({.path = "/dev/i2c-1",
                 .period = {480'000ns, 480'000ns},
                 .messages = {},
                 .outcome = Outcome::kFailed});
  trace_->OnI2c({.path = "/dev/i2c-1", .period = {480'000ns, 490'000ns}, .messages = {}});
  EXPECT_EQ(Written(),
            R"(,
{"ph":"X","cat":"i2c","name":"lost transfer","ts":0.0,"dur":480.0,"args":{"outcome":"lost"},"cname":"bad","pid":8,"tid":11},
{"ph":"X","cat":"i2c","name":"failed transfer","ts":480.0,"dur":0.0,"args":{"outcome":"failed"},"cname":"terrible","pid":8,"tid":11},
{"ph":"X","cat":"i2c","name":"empty transfer","ts":480.0,"dur":10.0,"pid":8,"tid":11})");
}

TEST_F(ChromeTraceTest, NodeThatNobodyHasNamedIsAmongTheOtherEvents) {
  Start();
  trace_->OnSpi({.path = "/dev/new", .outcome = Outcome::kFailed});
  EXPECT_EQ(Written(),
            R"(,
{"ph":"X","cat":"spi","name":"failed message","ts":0.0,"dur":0.0,"args":{"outcome":"failed"},"cname":"terrible","pid":1,"tid":7})");
}

TEST_F(ChromeTraceTest, ControlFilesAndCallsAreInstants) {
  Start();
  trace_->OnAccess({.path = "/sys/a/value", .writes = true, .bytes = "1", .at = 1'000ns});
  trace_->OnAccess(
      {.path = "/sys/b/value", .bytes = {}, .at = 1'001ns, .outcome = Outcome::kFailed});
  trace_->OnAccess(
      {.path = "/sys/a/value", .writes = true, .bytes = "0", .at = 2us, .outcome = Outcome::kLost});
  trace_->OnDBus("GetI2CBus 1", 3us, Outcome::kDone);
  trace_->OnDBus("GetSPIDev 1", 4us, Outcome::kFailed);
  trace_->OnOther("open ./no O_RDWR = ENOENT", 5us);
  EXPECT_EQ(Written(),
            R"(,
{"ph":"i","cat":"control file","name":"write /sys/a/value","ts":1.0,"s":"t","args":{"bytes":"1"},"pid":1,"tid":5},
{"ph":"i","cat":"control file","name":"read /sys/b/value","ts":1.001,"s":"t","args":{"bytes":"","outcome":"failed"},"cname":"terrible","pid":1,"tid":5},
{"ph":"i","cat":"control file","name":"write /sys/a/value","ts":2.0,"s":"t","args":{"bytes":"0","outcome":"lost"},"cname":"bad","pid":1,"tid":5},
{"ph":"i","cat":"D-Bus","name":"GetI2CBus 1","ts":3.0,"s":"t","pid":1,"tid":6},
{"ph":"i","cat":"D-Bus","name":"GetSPIDev 1","ts":4.0,"s":"t","args":{"outcome":"failed"},"cname":"terrible","pid":1,"tid":6},
{"ph":"i","cat":"other","name":"open ./no O_RDWR = ENOENT","ts":5.0,"s":"t","pid":1,"tid":7})");
}

TEST_F(ChromeTraceTest, SleepsAndLooksHaveTheirTime) {
  Start();
  trace_->OnSleep({1ns, 5'000'000'001ns});
  trace_->OnUnseen({5'000'000'001ns, 5'000'000'401ns});
  EXPECT_EQ(Written(),
            R"(,
{"ph":"X","cat":"sleep","name":"sleep","ts":0.001,"dur":5000000.0,"pid":1,"tid":3},
{"ph":"X","cat":"look","name":"looks or waits","ts":5000000.001,"dur":0.4,"pid":1,"tid":4})");
}

TEST_F(ChromeTraceTest, TimesAreExactUpTo100Days) {
  Start();
  trace_->OnSleep({8'640'000'000'000'001ns, 8'640'000'000'000'008ns});
  EXPECT_EQ(Written(),
            R"(,
{"ph":"X","cat":"sleep","name":"sleep","ts":8640000000000.001,"dur":0.007,"pid":1,"tid":3})");
}

TEST_F(ChromeTraceTest, TextOfTheConsoleLastsUntilTheNextOne) {
  Start();
  trace_->OnConsole(1, "Erasing ...\n", 1us);
  EXPECT_EQ(Written(), "");
  trace_->OnConsole(2, "\n\rWarning: \"x\"\nnext", 5us);
  trace_->OnConsole(1, "\n", 5us);
  trace_->OnEnd(9us);
  EXPECT_TRUE(Written().starts_with(R"text(,
{"ph":"X","cat":"console","name":"Erasing ...","ts":1.0,"dur":4.0,"args":{"stream":"stdout","text":"Erasing ...\n"},"pid":1,"tid":2},
{"ph":"X","cat":"console","name":"Warning: \"x\"","ts":5.0,"dur":0.0,"args":{"stream":"stderr","text":"\n\rWarning: \"x\"\nnext"},"pid":1,"tid":2},
{"ph":"X","cat":"console","name":"(empty line)","ts":5.0,"dur":4.0,"args":{"stream":"stdout","text":"\n"},"pid":1,"tid":2},
)text"))
      << Written();
}

TEST_F(ChromeTraceTest, PiecesOfALineThatAreWrittenAtOneTimeAreOneText) {
  Start();
  for (const char* const piece : {"Warning: ", "x", "\n", "Next"}) {
    trace_->OnConsole(2, piece, 1us);
  }
  trace_->OnConsole(1, " out\n", 1us);
  trace_->OnConsole(1, "a", 2us);
  trace_->OnConsole(1, "b\n", 3us);
  trace_->OnConsole(1, "c\n", 4us);
  EXPECT_EQ(Written(),
            R"(,
{"ph":"X","cat":"console","name":"Warning: x","ts":1.0,"dur":0.0,"args":{"stream":"stderr","text":"Warning: x\n"},"pid":1,"tid":2},
{"ph":"X","cat":"console","name":"Next","ts":1.0,"dur":0.0,"args":{"stream":"stderr","text":"Next"},"pid":1,"tid":2},
{"ph":"X","cat":"console","name":" out","ts":1.0,"dur":1.0,"args":{"stream":"stdout","text":" out\n"},"pid":1,"tid":2},
{"ph":"X","cat":"console","name":"a","ts":2.0,"dur":1.0,"args":{"stream":"stdout","text":"a"},"pid":1,"tid":2},
{"ph":"X","cat":"console","name":"b","ts":3.0,"dur":1.0,"args":{"stream":"stdout","text":"b\n"},"pid":1,"tid":2})");
}

TEST_F(ChromeTraceTest, TextWithoutAnEndOfLineIsWrittenInParts) {
  Start();
  const std::string block(4096, 'x');
  trace_->OnConsole(1, block, 1us);
  trace_->OnConsole(1, "y", 1us);
  EXPECT_EQ(Written(),
            ",\n{\"ph\":\"X\",\"cat\":\"console\",\"name\":\"" + block +
                "\",\"ts\":1.0,\"dur\":0.0,\"args\":{\"stream\":\"stdout\",\"text\":\"" + block +
                "\"},\"pid\":1,\"tid\":2}");
}

TEST_F(ChromeTraceTest, BytesThatAreNotUtf8AreReplaced) {
  Start();
  trace_->OnAccess({.path = "/sys/a", .writes = true, .bytes = "\xFF\x01", .at = 0ns});
  EXPECT_EQ(
      Written(),
      ",\n{\"ph\":\"i\",\"cat\":\"control file\",\"name\":\"write /sys/a\",\"ts\":0.0,\"s\":\"t\","
      "\"args\":{\"bytes\":\"\xEF\xBF\xBD\\u0001\"},\"pid\":1,\"tid\":5}");
}

TEST_F(ChromeTraceTest, ChipIsBusyUntilItIsReady) {
  Start();
  trace_->OnChipBusy(1, ChipWork::kPageProgram, 0x1234, 1us);
  EXPECT_EQ(Written(), "");
  trace_->OnChipReady(1, 121us);
  trace_->OnChipBusy(4, ChipWork::kRegisterWrite, 0, 200us);
  trace_->OnChipReady(4, 201us);
  EXPECT_EQ(Written(),
            R"(,
{"ph":"X","cat":"flash","name":"page program","ts":1.0,"dur":120.0,"args":{"address":"0x001234"},"pid":8,"tid":10},
{"ph":"X","cat":"flash","name":"register write","ts":200.0,"dur":1.0,"pid":12,"tid":13})");
}

TEST_F(ChromeTraceTest, EachKindOfWorkHasItsName) {
  Start();
  for (const ChipWork work :
       {ChipWork::kSubsectorErase, ChipWork::kSectorErase, ChipWork::kChipErase}) {
    trace_->OnChipBusy(4, work, 0x10000, 1us);
    trace_->OnChipReady(4, 2us);
  }
  EXPECT_EQ(Written(),
            R"(,
{"ph":"X","cat":"flash","name":"erase 4 KiB","ts":1.0,"dur":1.0,"args":{"address":"0x010000"},"pid":12,"tid":13},
{"ph":"X","cat":"flash","name":"erase 64 KiB","ts":1.0,"dur":1.0,"args":{"address":"0x010000"},"pid":12,"tid":13},
{"ph":"X","cat":"flash","name":"erase chip","ts":1.0,"dur":1.0,"pid":12,"tid":13})");
}

TEST_F(ChromeTraceTest, LineIsACounterOfItsModule) {
  Start();
  trace_->OnLine(1, {Line::kReset, false}, 1us);
  trace_->OnLine(4, {Line::kSelector, true}, 2us);
  EXPECT_EQ(Written(),
            R"(,
{"ph":"C","cat":"line","name":"zynq_hw_reset_n","ts":1.0,"args":{"level":0},"pid":8},
{"ph":"C","cat":"line","name":"selector on SPIFIFO","ts":2.0,"args":{"level":1},"pid":12})");
}

TEST_F(ChromeTraceTest, EndShowsWhatHasNotEnded) {
  Start();
  trace_->OnConsole(1, "Erasing ...\n", 0us);
  trace_->OnChipBusy(1, ChipWork::kSectorErase, 0x20000, 1us);
  trace_->OnLine(1, {Line::kDone, false}, 2us);
  trace_->OnEnd(3us);
  EXPECT_EQ(Written(),
            R"(,
{"ph":"C","cat":"line","name":"DONE","ts":2.0,"args":{"level":0},"pid":8},
{"ph":"X","cat":"console","name":"Erasing ...","ts":0.0,"dur":3.0,"args":{"stream":"stdout","text":"Erasing ...\n"},"pid":1,"tid":2},
{"ph":"X","cat":"flash","name":"erase 64 KiB","ts":1.0,"dur":2.0,"args":{"address":"0x020000","outcome":"busy at the end of the run"},"cname":"terrible","pid":8,"tid":10},
{"ph":"C","cat":"line","name":"DONE","ts":3.0,"args":{"level":0},"pid":8},
{"ph":"C","cat":"line","name":"zynq_hw_reset_n","ts":3.0,"args":{"level":1},"pid":8},
{"ph":"C","cat":"line","name":"qspi_prg","ts":3.0,"args":{"level":0},"pid":8},
{"ph":"C","cat":"line","name":"DONE","ts":3.0,"args":{"level":1},"pid":12},
{"ph":"C","cat":"line","name":"PROGRAM_B","ts":3.0,"args":{"level":0},"pid":12},
{"ph":"C","cat":"line","name":"selector on SPIFIFO","ts":3.0,"args":{"level":0},"pid":12},
{"ph":"C","cat":"line","name":"endpoint present","ts":3.0,"args":{"level":1},"pid":12},
{"ph":"C","cat":"line","name":"endpoint enabled","ts":3.0,"args":{"level":1},"pid":12},
{"ph":"i","cat":"console","name":"end of the run","ts":3.0,"s":"t","pid":1,"tid":2})" +
                kTail);
}

TEST_F(ChromeTraceTest, RunThatEndsEarlyLeavesWholeJson) {
  Start();
  trace_->OnConsole(1, "Erasing ...\n", 0us);
  trace_->OnChipBusy(1, ChipWork::kSectorErase, 0x20000, 1us);
  trace_->OnSleep({1us, 2us});
  trace_.reset();
  const nlohmann::json all = nlohmann::json::parse(out_.str());
  EXPECT_EQ(all.at("traceEvents").back().at("name"), "sleep");
}

}  // namespace
}  // namespace orvane
