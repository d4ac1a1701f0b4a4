// When things happen on the instrument, and what an observer is told of them.
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "simulator/boards/ModuleFactory.h"
#include "simulator/images/BootImage.h"
#include "simulator/instrument/Instrument.h"

namespace orvane {
namespace {

using namespace std::chrono_literals;
using Bytes = std::vector<std::uint8_t>;
using Lines = std::vector<std::string>;

constexpr const char* kSpi = "/dev/spidev1.0";
constexpr const char* kQspiPrg = "/sys/platform_m1/qspi_prg/value";
constexpr const char* kReset = "/sys/platform_m1/zynq_hw_reset_n/value";

std::string Hex(const Bytes& bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    text += {kDigits[byte >> 4U], kDigits[byte & 0x0FU]};
  }
  return text;
}

std::string Word(Outcome outcome) {
  switch (outcome) {
    case Outcome::kDone:
      return "";
    case Outcome::kLost:
      return " lost";
    case Outcome::kFailed:
      break;
  }
  return " failed";
}

/// Writes down what it is told, a line each.
class Notes : public RunObserver {
 public:
  void OnStart(std::span<const ObservedModule> modules,
               std::span<const std::string> chassisI2c) override {
    std::string text = "start";
    for (const ObservedModule& module : modules) {
      text += " " + module.type + "@" + std::to_string(module.slot) + " " + module.spiPath;
      for (const std::string& path : module.i2cPaths) {
        text += " " + path;
      }
    }
    for (const std::string& path : chassisI2c) {
      text += " " + path;
    }
    lines.push_back(text);
  }
  void OnSpi(const ObservedSpi& message) override {
    lines.push_back("spi " + Text(message.period) + " cost " + Text(message.cost) +
                    Word(message.outcome));
    for (const ObservedSelect& select : message.selects) {
      std::string clocked;
      for (const ClockedBytes& bytes : select.clocked) {
        clocked += " " + std::to_string(bytes.bytes) + "@" + std::to_string(bytes.hertz);
      }
      lines.push_back("select " + Text(select.period) + " " + select.command + " " +
                      Hex(select.mosi) + " " + Hex(select.miso) + clocked);
    }
  }
  void OnI2c(const ObservedI2c& transfer) override {
    std::string text = "i2c " + Text(transfer.period);
    for (const ObservedI2cMessage& message : transfer.messages) {
      text += (message.reads ? " r " : " w ") + std::to_string(message.address) + " " +
              (message.acknowledged ? Hex(message.bytes) : "nobody");
    }
    lines.push_back(text + Word(transfer.outcome));
  }
  void OnAccess(const ObservedAccess& access) override {
    lines.push_back(std::string(access.writes ? "write " : "read ") + std::string(access.bytes) +
                    " " + Text(access.at) + Word(access.outcome));
  }
  void OnDBus(std::string_view call, std::chrono::nanoseconds at, Outcome outcome) override {
    lines.push_back("dbus " + std::string(call) + " " + Text(at) + Word(outcome));
  }
  void OnConsole(int descriptor, std::string_view bytes, std::chrono::nanoseconds at) override {
    lines.push_back("console " + std::to_string(descriptor) + " " + std::string(bytes) + " " +
                    Text(at));
  }
  void OnEnd(std::chrono::nanoseconds at) override { lines.push_back("end " + Text(at)); }
  void OnSleep(Period period) override { lines.push_back("sleep " + Text(period)); }
  void OnUnseen(Period period) override { lines.push_back("unseen " + Text(period)); }
  void OnOther(std::string_view text, std::chrono::nanoseconds at) override {
    lines.push_back("other " + std::string(text) + " " + Text(at));
  }
  void OnChipBusy(unsigned slot,
                  ChipWork work,
                  std::uint32_t address,
                  std::chrono::nanoseconds at) override {
    lines.push_back("busy " + std::to_string(slot) + " " + std::to_string(static_cast<int>(work)) +
                    " " + std::to_string(address) + " " + Text(at));
  }
  void OnChipReady(unsigned slot, std::chrono::nanoseconds at) override {
    lines.push_back("ready " + std::to_string(slot) + " " + Text(at));
  }
  void OnLine(unsigned slot, LineLevel level, std::chrono::nanoseconds at) override {
    lines.push_back("line " + std::to_string(slot) + " " + std::string(LineName(level.line)) +
                    (level.high ? " 1 " : " 0 ") + Text(at));
  }

  Lines lines;

 private:
  static std::string Text(std::chrono::nanoseconds time) { return std::to_string(time.count()); }
  static std::string Text(Period period) { return Text(period.begin) + "-" + Text(period.end); }
};

class InstrumentTimeTest : public testing::Test {
 protected:
  /// A wend in slot 1, whose flash the controller owns, and a dax in slot 2.
  void Build(Timing timing, std::initializer_list<const char*> rules = {}) {
    std::vector<std::unique_ptr<Module>> modules;
    modules.push_back(MakeModule({.type = ModuleType::kWend, .slot = 1, .timing = timing},
                                 MakeZynqImage({.bytes = 4096}),
                                 selector_.Selector()));
    modules.push_back(MakeModule(
        {.type = ModuleType::kDax, .slot = 2, .timing = timing}, {}, selector_.Selector()));
    FaultRules faults;
    for (const char* const rule : rules) {
      faults.Add(FaultRule::Parse(rule));
    }
    instrument_.emplace(std::move(modules),
                        selector_,
                        std::move(faults),
                        SpiBuffers{.bytes = 4096},
                        log_,
                        TimingOptions{.timing = timing,
                                      .messageCost = 20us,
                                      .observer = timing == Timing::kPolls ? nullptr : &notes_});
    EXPECT_EQ(instrument_->WriteAttribute(kQspiPrg, "1").error, 0);
    notes_.lines.clear();
  }

  /// One transfer that sends, and one that receives unless `count` is 0.
  EventResult Spi(const Bytes& sent, std::uint32_t count = 0, std::uint32_t hertz = 1'000'000) {
    std::vector<SpiTransfer> transfers = {{.length = static_cast<std::uint32_t>(sent.size()),
                                           .speedHz = hertz,
                                           .bitsPerWord = 8,
                                           .sends = true}};
    if (count > 0) {
      transfers.push_back({.length = count, .speedHz = hertz, .bitsPerWord = 8, .receives = true});
    }
    return instrument_->SubmitSpi(kSpi, {transfers, sent});
  }
  EventResult I2c(std::uint16_t address, const Bytes& sent, std::uint16_t count = 0) {
    std::vector<I2cMessage> messages = {
        {.address = address, .length = static_cast<std::uint16_t>(sent.size())}};
    if (count > 0) {
      messages.push_back({.address = address, .length = count, .reads = true});
    }
    return instrument_->SubmitI2c("/dev/i2c-11", messages, sent);
  }
  Lines TakeNotes() { return std::exchange(notes_.lines, {}); }
  std::chrono::nanoseconds Of(Cause cause) const { return instrument_->Totals().Of(cause); }

  Notes notes_;
  EventLog log_{nullptr};
  ModuleSelectorFiles selector_{true};
  std::optional<Instrument> instrument_;
};

TEST_F(InstrumentTimeTest, MessageTakesItsCostAndThenItsBits) {
  Build(Timing::kTypical);
  EXPECT_EQ(Spi({0x9F}, 3).bytes, (Bytes{0x20, 0xBA, 0x18}));
  EXPECT_EQ(instrument_->Now(), std::chrono::nanoseconds(52'000));  // 20 us, and 32 bits of 1 us
  EXPECT_EQ(Of(Cause::kMessageCost), std::chrono::microseconds(20));
  EXPECT_EQ(Of(Cause::kWire), std::chrono::microseconds(32));
  EXPECT_EQ(TakeNotes(),
            (Lines{"spi 0-52000 cost 20000",
                   "select 20000-52000 RDID 9f000000 0020ba18 1@1000000 3@1000000"}));
}

TEST_F(InstrumentTimeTest, PageProgramAt19MHzTakes109474NanosecondsOnTheWire) {
  Build(Timing::kTypical);
  Bytes command(260, 0xFF);
  command[0] = 0x02;
  EXPECT_EQ(Spi(command, 0, 19'000'000).error, 0);
  EXPECT_EQ(instrument_->Now(), std::chrono::nanoseconds(129'474));
}

TEST_F(InstrumentTimeTest, MessageWithoutARateHasTheRateOfItsNode) {
  Build(Timing::kTypical);
  EXPECT_EQ(instrument_->WriteSetting(kSpi, SpiSetting::kMaxSpeedHz, 4'000'000).error, 0);
  EXPECT_EQ(Spi({0x06}, 0, 0).error, 0);
  EXPECT_EQ(instrument_->Now(), std::chrono::microseconds(22));
}

TEST_F(InstrumentTimeTest, SeveralChipSelectsInOneMessageHaveOneCost) {
  Build(Timing::kTypical);
  const std::vector<SpiTransfer> transfers = {
      {.length = 1, .speedHz = 1'000'000, .changesChipSelect = true, .sends = true},
      {.length = 1, .speedHz = 2'000'000, .sends = true}};
  const Bytes sent = {0x06, 0x04};
  EXPECT_EQ(instrument_->SubmitSpi(kSpi, {transfers, sent}).error, 0);
  EXPECT_EQ(TakeNotes(),
            (Lines{"spi 0-32000 cost 20000",
                   "select 20000-28000 WREN 06 00 1@1000000",
                   "select 28000-32000 WRDI 04 00 1@2000000"}));
}

TEST_F(InstrumentTimeTest, LostMessageTakesItsTime) {
  Build(Timing::kTypical, {"spi:lost"});
  EXPECT_EQ(Spi({0x9F}, 3).bytes, (Bytes{0, 0, 0}));
  EXPECT_EQ(instrument_->Now(), std::chrono::microseconds(52));
  EXPECT_EQ(TakeNotes(),
            (Lines{"spi 0-52000 cost 20000 lost",
                   "select 20000-52000 RDID 9f000000 00000000 1@1000000 3@1000000"}));
}

TEST_F(InstrumentTimeTest, FailedMessageTakesItsCostAlone) {
  Build(Timing::kTypical, {"spi#1:EIO"});
  EXPECT_EQ(Spi({0x9F}, 3).error, EIO);
  EXPECT_EQ(instrument_->Now(), std::chrono::microseconds(20));
  EXPECT_EQ(Spi(Bytes(4097)).error, EMSGSIZE);
  EXPECT_EQ(instrument_->Now(), std::chrono::microseconds(40));
  EXPECT_EQ(TakeNotes(),
            (Lines{"spi 0-20000 cost 20000 failed", "spi 20000-40000 cost 20000 failed"}));
}

TEST_F(InstrumentTimeTest, MessageThatKillsTakesNoTime) {
  Build(Timing::kTypical, {"spi:kill"});
  EXPECT_EQ(Spi({0x9F}, 3).killed, Killed::kCaller);
  EXPECT_EQ(instrument_->Now(), std::chrono::nanoseconds(0));
  EXPECT_EQ(TakeNotes(), Lines{});
}

TEST_F(InstrumentTimeTest, ChipIsBusyFromTheEndOfTheCommandUntilItsTimeIsOver) {
  Build(Timing::kTypical);
  EXPECT_EQ(Spi({0x06}).error, 0);  // until 28 us
  EXPECT_EQ(Spi({0x02, 0x00, 0x01, 0x00, 0x00}).error, 0);
  EXPECT_EQ(instrument_->Now(), std::chrono::microseconds(88));
  EXPECT_EQ(instrument_->Sleep(std::chrono::milliseconds(1)).error, 0);
  EXPECT_EQ(Spi({0x05}, 1).bytes, Bytes{0x00});
  EXPECT_EQ(TakeNotes(),
            (Lines{"spi 0-28000 cost 20000",
                   "select 20000-28000 WREN 06 00 1@1000000",
                   "busy 1 1 256 88000",
                   "spi 28000-88000 cost 20000",
                   "select 48000-88000 PP 0x000100 +1 0200010000 0000000000 5@1000000",
                   "ready 1 208000",
                   "sleep 88000-1088000",
                   "spi 1088000-1124000 cost 20000",
                   "select 1108000-1124000 RDSR 0500 0000 1@1000000 1@1000000"}));
  // 120 us of work; then nobody asks until the status byte at 1116 us.
  EXPECT_EQ(Of(Cause::kChipBusy), std::chrono::microseconds(120));
  EXPECT_EQ(Of(Cause::kLatePoll), std::chrono::microseconds(908));
  EXPECT_EQ(Of(Cause::kMessageCost), std::chrono::microseconds(40));
  EXPECT_EQ(Of(Cause::kWire), std::chrono::microseconds(56));
  EXPECT_EQ(Of(Cause::kSleep), std::chrono::microseconds(0));
  EXPECT_EQ(instrument_->Totals().Sum(), instrument_->Now());
}

TEST_F(InstrumentTimeTest, StatusByteIsSampledAsItBegins) {
  Build(Timing::kTypical);
  EXPECT_EQ(Spi({0x06}).error, 0);
  EXPECT_EQ(Spi({0x02, 0x00, 0x01, 0x00, 0x00}).error, 0);                // busy until 208 us
  EXPECT_EQ(instrument_->Sleep(std::chrono::microseconds(84)).error, 0);  // until 172 us
  // Its opcode from 192 us on, its bytes at 200 us and 208 us.
  EXPECT_EQ(Spi({0x05}, 2).bytes, (Bytes{0x03, 0x00}));
}

TEST_F(InstrumentTimeTest, I2cTransferTakes10MicrosecondsForEachBit) {
  Build(Timing::kTypical);
  // Start, address, register; start, address, two bytes; stop: 1 + 18 + 1 + 27 + 1 bits.
  EXPECT_EQ(I2c(0x21, {0x06}, 2).bytes, (Bytes{0xFF, 0xFF}));
  EXPECT_EQ(instrument_->Now(), std::chrono::microseconds(480));
  EXPECT_EQ(Of(Cause::kWire), std::chrono::microseconds(480));
  EXPECT_EQ(TakeNotes(), (Lines{"i2c 0-480000 w 33 06 r 33 ffff"}));
}

TEST_F(InstrumentTimeTest, I2cTransferEndsAfterAnAddressThatNobodyAcknowledges) {
  Build(Timing::kTypical);
  EXPECT_EQ(I2c(0x30, {0x06}, 2).error, ENXIO);
  EXPECT_EQ(instrument_->Now(), std::chrono::microseconds(110));  // start, address, stop
  EXPECT_EQ(TakeNotes(), (Lines{"i2c 0-110000 w 48 nobody failed"}));
}

TEST_F(InstrumentTimeTest, LostI2cTransferTakesItsTimeAndAFailedOneNone) {
  Build(Timing::kTypical, {"i2c#1:lost", "i2c#2:EIO"});
  EXPECT_EQ(I2c(0x21, {0x06}, 2).error, 0);
  EXPECT_EQ(instrument_->Now(), std::chrono::microseconds(480));
  EXPECT_EQ(I2c(0x21, {0x06}, 2).error, EIO);
  EXPECT_EQ(instrument_->Now(), std::chrono::microseconds(480));
  EXPECT_EQ(TakeNotes(), (Lines{"i2c 0-480000 lost", "i2c 480000-480000 failed"}));
}

TEST_F(InstrumentTimeTest, DoneRisesAtItsOwnTimeWithinASleep) {
  Build(Timing::kTypical);
  EXPECT_EQ(instrument_->WriteAttribute(kQspiPrg, "0").error, 0);
  EXPECT_EQ(instrument_->WriteAttribute(kReset, "0").error, 0);
  EXPECT_EQ(instrument_->Sleep(std::chrono::milliseconds(1)).error, 0);
  EXPECT_EQ(instrument_->WriteAttribute(kReset, "1").error, 0);
  EXPECT_EQ(instrument_->Sleep(std::chrono::seconds(1)).error, 0);
  EXPECT_EQ(TakeNotes(),
            (Lines{"write 0 0",
                   "line 1 QSPI_PRG 0 0",
                   "write 0 0",
                   "line 1 DONE 0 0",
                   "line 1 RESET 0 0",
                   "sleep 0-1000000",
                   "write 1 1000000",
                   "line 1 RESET 1 1000000",
                   "line 1 DONE 1 21000000",
                   "sleep 1000000-1001000000"}));
  EXPECT_EQ(Of(Cause::kSleep), std::chrono::milliseconds(1'001));
}

TEST_F(InstrumentTimeTest, TimeThatPassesWithoutAnEventHasItsCause) {
  Build(Timing::kLongest);
  instrument_->PassTime(Cause::kLook, 200ns);
  instrument_->PassTime(Cause::kWait, 5s);
  instrument_->PassTime(Cause::kLook, 0ns);
  EXPECT_EQ(Of(Cause::kLook), std::chrono::nanoseconds(200));
  EXPECT_EQ(Of(Cause::kWait), std::chrono::seconds(5));
  EXPECT_EQ(TakeNotes(), (Lines{"unseen 0-200", "unseen 200-5000000200"}));
}

TEST_F(InstrumentTimeTest, EverythingElseTakesNoTime) {
  Build(Timing::kTypical,
        {"dbus#3:error", "read#2:EIO", "open#2:ENOENT", "open#3:kill", "write#2:lost"});
  instrument_->GetModuleLocations();
  instrument_->GetI2CBus(1);
  instrument_->GetSPIDev(1);
  EXPECT_EQ(instrument_->ReadFile(kReset, "1\n", 0, 9).error, 0);
  EXPECT_EQ(instrument_->ReadFile(kReset, "1\n", 0, 9).error, EIO);
  instrument_->Arrive(OpenEvent("a", "O_RDWR"));
  instrument_->Complete(OpenEvent("a", "O_RDWR"));
  instrument_->Arrive(OpenEvent("b", "O_RDWR"));
  instrument_->Arrive(OpenEvent("c", "O_RDWR"));  // kills: it does not happen
  EXPECT_EQ(instrument_->ReadSetting(kSpi, SpiSetting::kMode).error, 0);
  EXPECT_EQ(instrument_->WriteAttribute(kReset, "0").error, 0);
  EXPECT_EQ(instrument_->Now(), std::chrono::nanoseconds(0));
  EXPECT_EQ(TakeNotes(),
            (Lines{"dbus GetModuleLocations 0",
                   "dbus GetI2CBus 1 0",
                   "dbus GetSPIDev 1 0 failed",
                   "read 1\n 0",
                   "read  0 failed",
                   "other open a O_RDWR 0",
                   "other open b O_RDWR = ENOENT 0",
                   "other ioctl /dev/spidev1.0 SPI_IOC_RD_MODE = 0 0",
                   "write 0 0 lost"}));
}

TEST_F(InstrumentTimeTest, ConsoleAndEndAreToldWithTheirTime) {
  Build(Timing::kTypical);
  EXPECT_EQ(instrument_->Sleep(std::chrono::nanoseconds(7)).error, 0);
  instrument_->NoteConsole(2, "text");
  instrument_->NoteEnd();
  EXPECT_EQ(TakeNotes(), (Lines{"sleep 0-7", "console 2 text 7", "end 7"}));
}

TEST_F(InstrumentTimeTest, WithoutAnObserverNobodyIsTold) {
  Build(Timing::kPolls);
  instrument_->NoteConsole(2, "text");
  instrument_->NoteEnd();
  EXPECT_EQ(TakeNotes(), Lines{});
}

TEST_F(InstrumentTimeTest, StartTellsOfTheModulesAndTheirNodes) {
  Build(Timing::kTypical);
  std::vector<std::unique_ptr<Module>> modules;
  modules.push_back(MakeModule({.type = ModuleType::kPyx1, .slot = 4}, {}, selector_.Selector()));
  const Instrument other(std::move(modules),
                         selector_,
                         {},
                         {.bytes = 4096},
                         log_,
                         {.timing = Timing::kTypical, .observer = &notes_});
  EXPECT_EQ(TakeNotes(),
            (Lines{"start pyx1@4 /dev/spidev4.0 /dev/i2c-4 /dev/i2c-0 /dev/i2c-10 /dev/i2c-11 "
                   "/dev/i2c-12"}));
}

TEST_F(InstrumentTimeTest, TimeIsDescribedInSecondsWithNineDigits) {
  Build(Timing::kLongest);
  EXPECT_EQ(instrument_->DescribeTime(), "instrument time=0.000000000\n");
  EXPECT_EQ(instrument_->Sleep(std::chrono::seconds(61) + std::chrono::nanoseconds(20)).error, 0);
  EXPECT_EQ(instrument_->DescribeTime(), "instrument time=61.000000020\n");
}

TEST_F(InstrumentTimeTest, WithPollsTheTimeIsAnEstimate) {
  Build(Timing::kPolls);
  EXPECT_EQ(instrument_->DescribeTime(), "instrument estimate=0.000000000\n");
  EXPECT_EQ(instrument_->Sleep(std::chrono::seconds(1)).error, 0);
  EXPECT_EQ(instrument_->Now(), std::chrono::seconds(1));
  EXPECT_EQ(I2c(0x21, {0x06}, 2).error, 0);
  EXPECT_EQ(instrument_->Now(), std::chrono::seconds(1) + std::chrono::microseconds(480));
  EXPECT_EQ(Spi({0x06}).error, 0);
  EXPECT_EQ(instrument_->Now(), std::chrono::seconds(1) + std::chrono::microseconds(488));
}

TEST_F(InstrumentTimeTest, EstimateHasTheTypicalTimeOfWorkInPlaceOfItsPolls) {
  Build(Timing::kPolls);
  EXPECT_EQ(Spi({0x06}).error, 0);                          // 8 us
  EXPECT_EQ(Spi({0x02, 0x00, 0x01, 0x00, 0x00}).error, 0);  // 40 us, and 120 us of work
  EXPECT_EQ(Spi({0x05}, 2).bytes, (Bytes{0x03, 0x03}));
  EXPECT_EQ(instrument_->Now(), std::chrono::microseconds(168));
  EXPECT_EQ(Spi({0x05}, 1).bytes, Bytes{0x00});  // the chip is ready: 16 us
  EXPECT_EQ(instrument_->Now(), std::chrono::microseconds(184));
}

}  // namespace
}  // namespace orvane
