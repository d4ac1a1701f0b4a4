#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "simulator/boards/ModuleFactory.h"
#include "simulator/instrument/Instrument.h"

namespace orvane {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using Bytes = std::vector<std::uint8_t>;

constexpr const char* kSpi = "/dev/spidev1.0";
constexpr const char* kI2c = "/dev/i2c-1";
constexpr const char* kQspiPrg = "/sys/platform_m1/qspi_prg/value";
constexpr const char* kReset = "/sys/platform_m1/zynq_hw_reset_n/value";
constexpr const char* kDone = "/sys/platform_m1/zynq_done/value";

/// A chip at 0x21 that stores what it was sent and answers 40 01 02 ...
class Expander : public I2cDevice {
 public:
  void Write(std::span<const std::uint8_t> bytes) override {
    written_.emplace_back(bytes.begin(), bytes.end());
  }
  void Read(std::span<std::uint8_t> bytes) override {
    std::uint8_t next = 0x40;
    for (std::uint8_t& byte : bytes) {
      byte = std::exchange(next, next == 0x40 ? std::uint8_t{1} : std::uint8_t(next + 1));
    }
  }
  const std::vector<Bytes>& Written() const { return written_; }

 private:
  std::vector<Bytes> written_;
};

/// A board that echoes what its SPI bus is sent, with the expander behind channel 0 of a mux.
class EchoModule : public Module {
 public:
  explicit EchoModule(unsigned slot) : Module({.slot = slot}, {}) {}

  void Transfer(std::span<const std::uint8_t> mosi,
                std::span<std::uint8_t> miso,
                ByteClock& clock) override {
    clock.Pass(mosi.size());
    messages_.emplace_back(mosi.begin(), mosi.end());
    std::copy(mosi.begin(), mosi.end(), miso.begin());
  }
  bool HasMux() const override { return true; }
  I2cDevice* FindI2c(std::optional<unsigned> channel, std::uint16_t address) override {
    return channel == 0U && address == 0x21 ? &expander_ : nullptr;
  }
  int WriteAttribute(std::string_view /*path*/, std::string_view /*value*/) override { return 0; }
  std::string DescribeState() const override { return ""; }
  std::vector<LineLevel> Lines() const override { return {}; }

  const std::vector<Bytes>& Messages() const { return messages_; }
  const Expander& TheExpander() const { return expander_; }

 private:
  std::vector<Bytes> messages_;
  Expander expander_;
};

class InstrumentTest : public testing::Test {
 protected:
  Instrument& Build(ModuleOptions module = {},
                    std::initializer_list<const char*> rules = {},
                    std::uint64_t bufsiz = 4096) {
    std::vector<std::unique_ptr<Module>> modules;
    modules.push_back(MakeModule(module, {}, selector_.Selector()));
    return BuildWith(std::move(modules), rules, bufsiz);
  }

  Instrument& BuildWith(std::vector<std::unique_ptr<Module>> modules,
                        std::initializer_list<const char*> rules = {},
                        std::uint64_t bufsiz = 4096) {
    FaultRules faults;
    for (const char* const rule : rules) {
      faults.Add(FaultRule::Parse(rule));
    }
    instrument_.emplace(
        std::move(modules), selector_, std::move(faults), SpiBuffers{.bytes = bufsiz}, log_);
    return *instrument_;
  }

  /// An instrument with an echo board in slot 1.
  EchoModule& BuildEcho(std::initializer_list<const char*> rules = {},
                        std::uint64_t bufsiz = 4096) {
    auto module = std::make_unique<EchoModule>(1U);
    EchoModule& echo = *module;
    std::vector<std::unique_ptr<Module>> modules;
    modules.push_back(std::move(module));
    BuildWith(std::move(modules), rules, bufsiz);
    return echo;
  }

  /// Sends the bytes, then receives `count`, as two transfers under one chip select.
  EventResult Spi(const Bytes& sent, std::uint32_t count = 0) {
    std::vector<SpiTransfer> transfers = {{.length = static_cast<std::uint32_t>(sent.size()),
                                           .speedHz = 19'000'000,
                                           .bitsPerWord = 8,
                                           .sends = true}};
    if (count > 0) {
      transfers.push_back(
          {.length = count, .speedHz = 19'000'000, .bitsPerWord = 8, .receives = true});
    }
    return instrument_->SubmitSpi(kSpi, {transfers, sent});
  }

  /// A write message, and a read message of `count` bytes unless that is 0.
  EventResult I2c(const char* path,
                  std::uint16_t address,
                  const Bytes& sent,
                  std::uint16_t count = 0) {
    std::vector<I2cMessage> messages = {
        {.address = address, .length = static_cast<std::uint16_t>(sent.size())}};
    if (count > 0) {
      messages.push_back({.address = address, .length = count, .reads = true});
    }
    return instrument_->SubmitI2c(path, messages, sent);
  }

  std::string Log() { return std::exchange(out_, std::ostringstream()).str(); }
  /// The log without the line about the speed in front.
  std::string LogBehindSpeed() {
    const std::string log = Log();
    const std::string speed = "spi /dev/spidev1.0 speed 19000000 bits 8\n";
    EXPECT_EQ(log.substr(0, speed.size()), speed);
    return log.substr(std::min(speed.size(), log.size()));
  }

  std::ostringstream out_;
  EventLog log_{&out_};
  ModuleSelectorFiles selector_{false};
  std::optional<Instrument> instrument_;
};

// --- What there is ------------------------------------------------------------------------------

TEST_F(InstrumentTest, WendHasItsNodesAndItsFiles) {
  const Instrument& instrument = Build();
  EXPECT_THAT(instrument.NodePaths(),
              ElementsAre("/dev/i2c-0",
                          "/dev/i2c-1",
                          "/dev/i2c-10",
                          "/dev/i2c-11",
                          "/dev/i2c-12",
                          "/dev/spidev1.0"));
  EXPECT_THAT(instrument.AttributePaths(), ElementsAre(kQspiPrg, kDone, kReset));
  EXPECT_TRUE(instrument.HasNode("/dev/spidev1.0"));
  EXPECT_FALSE(instrument.HasNode("/dev/spidev1.1"));
}

TEST_F(InstrumentTest, MissingPartsAreMissing) {
  const Instrument& instrument = Build({.i2cNode = false, .spiNode = false, .controlFiles = false});
  EXPECT_THAT(instrument.NodePaths(),
              ElementsAre("/dev/i2c-0", "/dev/i2c-10", "/dev/i2c-11", "/dev/i2c-12"));
  EXPECT_TRUE(instrument.AttributePaths().empty());
}

TEST_F(InstrumentTest, FileThatNoModuleAnswersForHasNoContents) {
  EXPECT_EQ(Build().AttributeContents("/sys/module/spidev/parameters/bufsiz"), std::nullopt);
}

// --- SPI ----------------------------------------------------------------------------------------

TEST_F(InstrumentTest, WendReadsZerosUntilTheControllerOwnsTheFlash) {
  Instrument& instrument = Build();
  EXPECT_EQ(Spi({0x9F}, 3).bytes, (Bytes{0x00, 0x00, 0x00}));
  EXPECT_EQ(instrument.WriteAttribute(kQspiPrg, "1").value, 1);
  const EventResult result = Spi({0x9F}, 3);
  EXPECT_EQ(result.error, 0);
  EXPECT_EQ(result.value, 4);
  EXPECT_EQ(result.bytes, (Bytes{0x20, 0xBA, 0x18}));
  EXPECT_EQ(Log(),
            "spi /dev/spidev1.0 speed 19000000 bits 8\n"
            "spi /dev/spidev1.0 RDID = 00 00 00\n"
            "write /sys/platform_m1/qspi_prg/value \"1\"\n"
            "spi /dev/spidev1.0 RDID = 20 ba 18\n");
}

TEST_F(InstrumentTest, FlashLosesItsControllerAgain) {
  Instrument& instrument = Build();
  instrument.WriteAttribute(kQspiPrg, "1\n");
  EXPECT_EQ(Spi({0x9F}, 1).bytes, (Bytes{0x20}));
  instrument.WriteAttribute(kQspiPrg, "0\n");
  EXPECT_EQ(Spi({0x9F}, 1).bytes, (Bytes{0x00}));
}

TEST_F(InstrumentTest, TransfersOfAMessageAreOneChipSelect) {
  const EchoModule& echo = BuildEcho();
  EXPECT_EQ(Spi({0x03, 0x00, 0x10, 0x00}, 2).bytes, (Bytes{0x00, 0x00}));
  EXPECT_THAT(echo.Messages(), ElementsAre(Bytes{0x03, 0x00, 0x10, 0x00, 0x00, 0x00}));
  EXPECT_EQ(LogBehindSpeed(), "spi /dev/spidev1.0 READ 0x001000 +2\n");
}

TEST_F(InstrumentTest, ChipSelectChangeSplitsAMessage) {
  const EchoModule& echo = BuildEcho();
  const Bytes sent = {0x06, 0x05};
  const std::vector<SpiTransfer> transfers = {
      {.length = 1, .speedHz = 1, .bitsPerWord = 8, .changesChipSelect = true, .sends = true},
      {.length = 1, .speedHz = 1, .bitsPerWord = 8, .changesChipSelect = true, .sends = true}};
  EXPECT_EQ(instrument_->SubmitSpi(kSpi, {transfers, sent}).value, 2);
  EXPECT_THAT(echo.Messages(), ElementsAre(Bytes{0x06}, Bytes{0x05}));
  EXPECT_EQ(Log(),
            "spi /dev/spidev1.0 speed 1 bits 8\n"
            "spi /dev/spidev1.0 WREN / RDSR\n");
}

TEST_F(InstrumentTest, FullDuplexTransferSendsAndReceives) {
  const EchoModule& echo = BuildEcho();
  const Bytes sent = {0xAB, 0xCD};
  const std::vector<SpiTransfer> transfers = {
      {.length = 2, .speedHz = 19'000'000, .bitsPerWord = 8, .sends = true, .receives = true}};
  EXPECT_EQ(instrument_->SubmitSpi(kSpi, {transfers, sent}).bytes, (Bytes{0xAB, 0xCD}));
  EXPECT_THAT(echo.Messages(), ElementsAre(Bytes{0xAB, 0xCD}));
  EXPECT_EQ(LogBehindSpeed(), "spi /dev/spidev1.0 ab cd = ab cd\n");
}

TEST_F(InstrumentTest, TransferWithoutBuffersClocksZeros) {
  const EchoModule& echo = BuildEcho();
  const std::vector<SpiTransfer> transfers = {
      {.length = 3, .speedHz = 19'000'000, .bitsPerWord = 8}};
  EXPECT_EQ(instrument_->SubmitSpi(kSpi, {transfers, Bytes()}).value, 3);
  EXPECT_THAT(echo.Messages(), ElementsAre(Bytes{0x00, 0x00, 0x00}));
  EXPECT_EQ(LogBehindSpeed(), "spi /dev/spidev1.0 -\n");
}

TEST_F(InstrumentTest, SpeedIsShownWheneverItChanges) {
  BuildEcho();
  const auto send = [&](std::uint32_t speedHz, std::uint8_t bits) {
    const Bytes sent = {0x06};
    const std::vector<SpiTransfer> transfers = {
        {.length = 1, .speedHz = speedHz, .bitsPerWord = bits, .sends = true}};
    instrument_->SubmitSpi(kSpi, {transfers, sent});
  };
  send(1000, 8);
  send(1000, 8);
  send(2000, 8);
  send(2000, 16);
  EXPECT_EQ(Log(),
            "spi /dev/spidev1.0 speed 1000 bits 8\n"
            "spi /dev/spidev1.0 WREN\n"
            "spi /dev/spidev1.0 WREN\n"
            "spi /dev/spidev1.0 speed 2000 bits 8\n"
            "spi /dev/spidev1.0 WREN\n"
            "spi /dev/spidev1.0 speed 2000 bits 16\n"
            "spi /dev/spidev1.0 WREN\n");
}

TEST_F(InstrumentTest, TransferWithoutARateOfItsOwnIsShownWithThatOfTheNode) {
  BuildEcho();
  const auto send = [&](std::uint32_t speedHz, std::uint8_t bits) {
    const Bytes sent = {0x06};
    const std::vector<SpiTransfer> transfers = {
        {.length = 1, .speedHz = speedHz, .bitsPerWord = bits, .sends = true}};
    instrument_->SubmitSpi(kSpi, {transfers, sent});
  };
  send(0, 0);
  send(50'000'000, 8);
  send(1000, 0);
  instrument_->WriteSetting(kSpi, SpiSetting::kMaxSpeedHz, 1000);
  instrument_->WriteSetting(kSpi, SpiSetting::kBitsPerWord, 16);
  send(0, 8);
  send(0, 0);
  EXPECT_EQ(Log(),
            "spi /dev/spidev1.0 speed 50000000 bits 8\n"
            "spi /dev/spidev1.0 WREN\n"
            "spi /dev/spidev1.0 WREN\n"
            "spi /dev/spidev1.0 speed 1000 bits 8\n"
            "spi /dev/spidev1.0 WREN\n"
            "ioctl /dev/spidev1.0 SPI_IOC_WR_MAX_SPEED_HZ 1000\n"
            "ioctl /dev/spidev1.0 SPI_IOC_WR_BITS_PER_WORD 16\n"
            "spi /dev/spidev1.0 WREN\n"
            "spi /dev/spidev1.0 speed 1000 bits 16\n"
            "spi /dev/spidev1.0 WREN\n");
}

TEST_F(InstrumentTest, TransferWithoutARateToADeviceThatHasNoneIsShownWithoutRate) {
  BuildEcho();
  const Bytes sent = {0x06};
  const std::vector<SpiTransfer> transfers = {{.length = 1, .sends = true}};
  EXPECT_EQ(instrument_->SubmitSpi(kI2c, {transfers, sent}).error, ENOTTY);
  EXPECT_EQ(Log(), "spi /dev/i2c-1 WREN = ENOTTY\n");
}

TEST_F(InstrumentTest, ReceiveTotalOfTheLimitFits) {
  BuildEcho();
  const EventResult result = Spi({0x03, 0x00, 0x00, 0x00}, 4096);
  EXPECT_EQ(result.error, 0);
  EXPECT_EQ(result.value, 4100);
}

TEST_F(InstrumentTest, ReceiveTotalAboveTheLimitIsRefused) {
  const EchoModule& echo = BuildEcho();
  const EventResult result = Spi({0x03, 0x00, 0x00, 0x00}, 4097);
  EXPECT_EQ(result.error, EMSGSIZE);
  EXPECT_TRUE(result.bytes.empty());
  EXPECT_TRUE(echo.Messages().empty());
  EXPECT_EQ(LogBehindSpeed(), "spi /dev/spidev1.0 READ 0x000000 +4097 = EMSGSIZE\n");
}

TEST_F(InstrumentTest, TransmitTotalOfTheLimitFits) {
  BuildEcho({}, 260);
  EXPECT_EQ(Spi(Bytes(260)).value, 260);
}

TEST_F(InstrumentTest, TransmitTotalAboveTheLimitIsRefused) {
  BuildEcho({}, 260);
  EXPECT_EQ(Spi(Bytes(261)).error, EMSGSIZE);
}

TEST_F(InstrumentTest, MessageWhoseBytesWereLeftOutIsRefused) {
  BuildEcho();
  const std::vector<SpiTransfer> transfers = {
      {.length = 0xFFFFFFFF, .speedHz = 19'000'000, .bitsPerWord = 8, .sends = true}};
  EXPECT_EQ(instrument_->SubmitSpi(kSpi, {transfers, std::nullopt}).error, EMSGSIZE);
  EXPECT_EQ(LogBehindSpeed(), "spi /dev/spidev1.0 message of 4294967295 bytes = EMSGSIZE\n");
}

TEST_F(InstrumentTest, MessageBeyondWhatIsCarriedFindsNoMemory) {
  BuildEcho({}, 1'099'511'627'776);
  const std::vector<SpiTransfer> transfers = {
      {.length = 0xFFFFFFFF, .speedHz = 19'000'000, .bitsPerWord = 8, .receives = true}};
  EXPECT_EQ(instrument_->SubmitSpi(kSpi, {transfers, Bytes()}).error, ENOMEM);
}

TEST_F(InstrumentTest, LongAnswerIsCutInTheLog) {
  BuildEcho();
  Spi({0x05}, 34);
  EXPECT_EQ(LogBehindSpeed(),
            "spi /dev/spidev1.0 RDSR = 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
            "00 00 00 00 00 00 00 00 00 00 00 00 ... +2\n");
}

TEST_F(InstrumentTest, FailedSpiMessageDoesNotReachTheModule) {
  const EchoModule& echo = BuildEcho({"spi:PP#1:EIO"});
  EXPECT_EQ(Spi({0x02, 0x00, 0x00, 0x00, 0x11}).error, EIO);
  EXPECT_TRUE(echo.Messages().empty());
  EXPECT_EQ(LogBehindSpeed(), "spi /dev/spidev1.0 PP 0x000000 +1 = EIO\n");
}

TEST_F(InstrumentTest, LostSpiMessageReadsZeros) {
  const EchoModule& echo = BuildEcho({"spi#1:lost"});
  const EventResult result = Spi({0x9F}, 3);
  EXPECT_EQ(result.error, 0);
  EXPECT_EQ(result.value, 4);
  EXPECT_EQ(result.bytes, (Bytes{0x00, 0x00, 0x00}));
  EXPECT_TRUE(echo.Messages().empty());
  EXPECT_EQ(LogBehindSpeed(), "spi /dev/spidev1.0 RDID = lost\n");
}

TEST_F(InstrumentTest, WrongAnswerComesFromAMessageThatWasDone) {
  const EchoModule& echo = BuildEcho({"spi:RDSR:data:\\x81"});
  const EventResult result = Spi({0x05}, 2);
  EXPECT_EQ(result.bytes, (Bytes{0x81, 0x00}));
  EXPECT_EQ(echo.Messages().size(), 1U);
  EXPECT_EQ(LogBehindSpeed(), "spi /dev/spidev1.0 RDSR = 81 00\n");
}

TEST_F(InstrumentTest, KilledSpiMessageDoesNotReachTheModule) {
  const EchoModule& echo = BuildEcho({"spi#1:kill"});
  EXPECT_EQ(Spi({0x06}).killed, Killed::kCaller);
  EXPECT_TRUE(echo.Messages().empty());
  EXPECT_EQ(LogBehindSpeed(), "spi /dev/spidev1.0 WREN = kill\n");
}

TEST_F(InstrumentTest, MessageThatKillsAllDoesNotReachTheModule) {
  const EchoModule& echo = BuildEcho({"spi#1:kill-all"});
  EXPECT_EQ(Spi({0x06}).killed, Killed::kAll);
  EXPECT_TRUE(echo.Messages().empty());
  EXPECT_EQ(LogBehindSpeed(), "spi /dev/spidev1.0 WREN = kill-all\n");
}

TEST_F(InstrumentTest, MessageThatKillsTheSessionDoesNotReachTheModule) {
  const EchoModule& echo = BuildEcho({"spi#1:kill-session"});
  EXPECT_EQ(Spi({0x06}).killed, Killed::kSession);
  EXPECT_TRUE(echo.Messages().empty());
  EXPECT_EQ(LogBehindSpeed(), "spi /dev/spidev1.0 WREN = kill-session\n");
}

// --- Settings -----------------------------------------------------------------------------------

TEST_F(InstrumentTest, SettingsHaveTheirValuesAtPowerOn) {
  Instrument& instrument = Build();
  EXPECT_EQ(instrument.ReadSetting(kSpi, SpiSetting::kMaxSpeedHz).bytes,
            (Bytes{0x80, 0xF0, 0xFA, 0x02}));  // 50000000
  EXPECT_EQ(instrument.ReadSetting(kSpi, SpiSetting::kBitsPerWord).bytes, (Bytes{8, 0, 0, 0}));
  EXPECT_EQ(instrument.ReadSetting(kSpi, SpiSetting::kLsbFirst).bytes, (Bytes{0, 0, 0, 0}));
  EXPECT_EQ(Log(),
            "ioctl /dev/spidev1.0 SPI_IOC_RD_MAX_SPEED_HZ = 50000000\n"
            "ioctl /dev/spidev1.0 SPI_IOC_RD_BITS_PER_WORD = 8\n"
            "ioctl /dev/spidev1.0 SPI_IOC_RD_LSB_FIRST = 0\n");
}

TEST_F(InstrumentTest, SettingKeepsWhatIsWritten) {
  Instrument& instrument = Build();
  EXPECT_EQ(instrument.WriteSetting(kSpi, SpiSetting::kMaxSpeedHz, 1000).error, 0);
  EXPECT_EQ(instrument.ReadSetting(kSpi, SpiSetting::kMaxSpeedHz).bytes, (Bytes{0xE8, 3, 0, 0}));
  EXPECT_EQ(instrument.WriteSetting(kSpi, SpiSetting::kMode, 3).error, 0);
  EXPECT_EQ(instrument.ReadSetting(kSpi, SpiSetting::kMode32).bytes, (Bytes{3, 0, 0, 0}));
  EXPECT_EQ(Log(),
            "ioctl /dev/spidev1.0 SPI_IOC_WR_MAX_SPEED_HZ 1000\n"
            "ioctl /dev/spidev1.0 SPI_IOC_RD_MAX_SPEED_HZ = 1000\n"
            "ioctl /dev/spidev1.0 SPI_IOC_WR_MODE 3\n"
            "ioctl /dev/spidev1.0 SPI_IOC_RD_MODE32 = 3\n");
}

TEST_F(InstrumentTest, SpeedZeroIsInvalid) {
  EXPECT_EQ(Build().WriteSetting(kSpi, SpiSetting::kMaxSpeedHz, 0).error, EINVAL);
  EXPECT_EQ(Log(), "ioctl /dev/spidev1.0 SPI_IOC_WR_MAX_SPEED_HZ 0 = EINVAL\n");
}

TEST_F(InstrumentTest, FailedSettingKeepsTheOldValue) {
  Instrument& instrument = Build({}, {"ioctl:SPI_IOC_WR_MODE#1:EINVAL"});
  EXPECT_EQ(instrument.WriteSetting(kSpi, SpiSetting::kMode, 3).error, EINVAL);
  EXPECT_EQ(instrument.ReadSetting(kSpi, SpiSetting::kMode).bytes, (Bytes{0, 0, 0, 0}));
}

TEST_F(InstrumentTest, FailedReadOfASettingBringsNothing) {
  const EventResult result =
      Build({}, {"ioctl:RD_MAX_SPEED#1:EIO"}).ReadSetting(kSpi, SpiSetting::kMaxSpeedHz);
  EXPECT_EQ(result.error, EIO);
  EXPECT_TRUE(result.bytes.empty());
}

TEST_F(InstrumentTest, OtherRequestIsNoneOfTheDevice) {
  EXPECT_EQ(Build().RefuseRequest(kSpi, 0x1234U).error, ENOTTY);
  EXPECT_EQ(Log(), "ioctl /dev/spidev1.0 0x00001234 = ENOTTY\n");
}

TEST_F(InstrumentTest, SpiRequestsAreNoneOfAnI2cNode) {
  Instrument& instrument = Build();
  EXPECT_EQ(instrument.ReadSetting(kI2c, SpiSetting::kMode).error, ENOTTY);
  EXPECT_EQ(instrument.WriteSetting(kI2c, SpiSetting::kMode, 0).error, ENOTTY);
  const std::vector<SpiTransfer> transfers = {{.length = 1, .sends = true}};
  EXPECT_EQ(instrument.SubmitSpi(kI2c, {transfers, Bytes{0x06}}).error, ENOTTY);
}

TEST_F(InstrumentTest, I2cTransferIsNoneOfAnSpiNode) {
  Build();
  EXPECT_EQ(I2c(kSpi, 0x21, {0x02}).error, ENOTTY);
}

// --- I2C ----------------------------------------------------------------------------------------

TEST_F(InstrumentTest, NobodyAcknowledgesOnAWend) {
  Build();
  EXPECT_EQ(I2c(kI2c, 0x21, {0x02, 0xFF, 0xFF}).error, ENXIO);
  const EventResult result = I2c(kI2c, 0x21, {0x06}, 2);
  EXPECT_EQ(result.error, ENXIO);
  EXPECT_TRUE(result.bytes.empty());
  EXPECT_EQ(Log(),
            "i2c /dev/i2c-1 0x21 w 02 ff ff = ENXIO\n"
            "i2c /dev/i2c-1 0x21 w 06 r +2 = ENXIO\n");
}

TEST_F(InstrumentTest, NobodyAcknowledgesOnTheChassis) {
  Build();
  EXPECT_EQ(I2c("/dev/i2c-0", 0x21, {0x02}).error, ENXIO);
}

TEST_F(InstrumentTest, DeviceBehindTheMuxIsReachedThroughItsChannelOnly) {
  const EchoModule& echo = BuildEcho();
  EXPECT_EQ(I2c("/dev/i2c-11", 0x21, {0x02, 0xFF, 0xFF}).value, 1);
  EXPECT_EQ(I2c("/dev/i2c-12", 0x21, {0x03}).error, ENXIO);
  EXPECT_EQ(I2c("/dev/i2c-1", 0x21, {0x04}).error, ENXIO);
  EXPECT_EQ(I2c("/dev/i2c-11", 0x20, {0x05}).error, ENXIO);
  EXPECT_THAT(echo.TheExpander().Written(), ElementsAre(Bytes{0x02, 0xFF, 0xFF}));
}

TEST_F(InstrumentTest, CombinedI2cTransferWritesThenReads) {
  const EchoModule& echo = BuildEcho();
  const EventResult result = I2c("/dev/i2c-11", 0x21, {0x06}, 2);
  EXPECT_EQ(result.value, 2);
  EXPECT_EQ(result.bytes, (Bytes{0x40, 0x01}));
  EXPECT_THAT(echo.TheExpander().Written(), ElementsAre(Bytes{0x06}));
  EXPECT_EQ(Log(), "i2c /dev/i2c-11 0x21 w 06 r 40 01\n");
}

TEST_F(InstrumentTest, EmptyWriteIsShownAsSuch) {
  BuildEcho();
  I2c("/dev/i2c-11", 0x21, {}, 1);
  EXPECT_EQ(Log(), "i2c /dev/i2c-11 0x21 w r 40\n");
}

TEST_F(InstrumentTest, EachAddressOfATransferIsShown) {
  BuildEcho();
  const std::vector<I2cMessage> messages = {{.address = 0x21, .length = 1},
                                            {.address = 0x22, .length = 1}};
  EXPECT_EQ(instrument_->SubmitI2c("/dev/i2c-11", messages, Bytes{0x06, 0x07}).error, ENXIO);
  EXPECT_EQ(Log(), "i2c /dev/i2c-11 0x21 w 06 0x22 w 07 = ENXIO\n");
}

TEST_F(InstrumentTest, LostI2cTransferIsAcknowledgedAndNotDone) {
  const EchoModule& echo = BuildEcho({"i2c#1:lost"});
  const EventResult result = I2c("/dev/i2c-11", 0x21, {0x06}, 2);
  EXPECT_EQ(result.error, 0);
  EXPECT_EQ(result.value, 2);
  EXPECT_EQ(result.bytes, (Bytes{0x00, 0x00}));
  EXPECT_TRUE(echo.TheExpander().Written().empty());
  EXPECT_EQ(Log(), "i2c /dev/i2c-11 0x21 w 06 r +2 = lost\n");
}

TEST_F(InstrumentTest, FailedI2cTransferDoesNotReachTheDevice) {
  const EchoModule& echo = BuildEcho({"i2c:r +2#1:EREMOTEIO"});
  EXPECT_EQ(I2c("/dev/i2c-11", 0x21, {0x06}).error, 0);
  EXPECT_EQ(I2c("/dev/i2c-11", 0x21, {0x06}, 2).error, EREMOTEIO);
  EXPECT_EQ(echo.TheExpander().Written().size(), 1U);
}

TEST_F(InstrumentTest, WrongI2cAnswerReplacesWhatTheDeviceSends) {
  BuildEcho({"i2c#1:data:\\x7f"});
  EXPECT_EQ(I2c("/dev/i2c-11", 0x21, {0x06}, 2).bytes, (Bytes{0x7F, 0x00}));
  EXPECT_EQ(Log(), "i2c /dev/i2c-11 0x21 w 06 r 7f 00\n");
}

// --- Control files ------------------------------------------------------------------------------

TEST_F(InstrumentTest, ControlFilesReadBackTheirLines) {
  Instrument& instrument = Build({.done = {.kind = DonePolicy::Kind::kHigh}});
  EXPECT_EQ(instrument.AttributeContents(kQspiPrg), "0\n");
  EXPECT_EQ(instrument.AttributeContents(kReset), "1\n");
  EXPECT_EQ(instrument.AttributeContents(kDone), "1\n");
  instrument.WriteAttribute(kQspiPrg, "1");
  instrument.WriteAttribute(kReset, "0");
  EXPECT_EQ(instrument.AttributeContents(kQspiPrg), "1\n");
  EXPECT_EQ(instrument.AttributeContents(kReset), "0\n");
}

TEST_F(InstrumentTest, WritingTheDoneFileChangesNothing) {
  Instrument& instrument = Build({.done = {.kind = DonePolicy::Kind::kLow}});
  EXPECT_EQ(instrument.WriteAttribute(kDone, "1").error, 0);
  EXPECT_EQ(instrument.AttributeContents(kDone), "0\n");
}

TEST_F(InstrumentTest, LostWriteLeavesTheLineAlone) {
  Instrument& instrument = Build({}, {"write:qspi_prg/value \"1\"#1:lost"});
  const EventResult result = instrument.WriteAttribute(kQspiPrg, "1");
  EXPECT_EQ(result.error, 0);
  EXPECT_EQ(result.value, 1);
  EXPECT_EQ(instrument.AttributeContents(kQspiPrg), "0\n");
  EXPECT_EQ(Log(), "write /sys/platform_m1/qspi_prg/value \"1\" = lost\n");
}

TEST_F(InstrumentTest, FailedWriteLeavesTheLineAlone) {
  Instrument& instrument = Build({}, {"write#1:EIO"});
  EXPECT_EQ(instrument.WriteAttribute(kQspiPrg, "1").error, EIO);
  EXPECT_EQ(instrument.AttributeContents(kQspiPrg), "0\n");
}

TEST_F(InstrumentTest, WriteThatHasHappenedIsCarriedOut) {
  Instrument& instrument = Build();
  EXPECT_TRUE(instrument.AcceptWrite(kQspiPrg, "1\n"));
  EXPECT_EQ(instrument.AttributeContents(kQspiPrg), "1\n");
  EXPECT_EQ(Log(), "write /sys/platform_m1/qspi_prg/value \"1\\n\"\n");
}

TEST_F(InstrumentTest, FaultOnAWriteThatHasHappenedIsReported) {
  Instrument& instrument = Build({}, {"write#1:EIO"});
  EXPECT_FALSE(instrument.AcceptWrite(kQspiPrg, "1\n"));
  EXPECT_EQ(instrument.AttributeContents(kQspiPrg), "0\n");
  EXPECT_EQ(Log(), "write /sys/platform_m1/qspi_prg/value \"1\\n\" = EIO\n");
}

TEST_F(InstrumentTest, ReadGivesWhatIsAskedForAndThereIs) {
  Instrument& instrument = Build();
  const auto read = [&](std::size_t offset, std::size_t count) {
    const EventResult result = instrument.ReadFile(kDone, "1\n", offset, count);
    EXPECT_EQ(result.value, static_cast<std::int64_t>(result.bytes.size()));
    return std::string(result.bytes.begin(), result.bytes.end());
  };
  EXPECT_EQ(read(0, 1), "1");
  EXPECT_EQ(read(0, 100), "1\n");
  EXPECT_EQ(read(1, 100), "\n");
  EXPECT_EQ(read(2, 100), "");
  EXPECT_EQ(read(3, 100), "");
  EXPECT_EQ(Log(),
            "read /sys/platform_m1/zynq_done/value \"1\"\n"
            "read /sys/platform_m1/zynq_done/value \"1\\n\"\n"
            "read /sys/platform_m1/zynq_done/value \"\\n\"\n"
            "read /sys/platform_m1/zynq_done/value \"\"\n"
            "read /sys/platform_m1/zynq_done/value \"\"\n");
}

TEST_F(InstrumentTest, WrongDataIsReadInPlaceOfTheContents) {
  Instrument& instrument = Build({}, {"read:zynq_done#1:data:xyz", "read:zynq_done#2:data:"});
  EXPECT_EQ(instrument.ReadFile(kDone, "1\n", 0, 1).bytes, (Bytes{'x'}));
  EXPECT_EQ(instrument.ReadFile(kDone, "1\n", 0, 1).value, 0);
  EXPECT_EQ(instrument.ReadFile(kDone, "1\n", 0, 1).bytes, (Bytes{'1'}));
}

TEST_F(InstrumentTest, FailedReadBringsNothing) {
  const EventResult result = Build({}, {"read#1:EIO"}).ReadFile(kDone, "1\n", 0, 1);
  EXPECT_EQ(result.error, EIO);
  EXPECT_EQ(Log(), "read /sys/platform_m1/zynq_done/value = EIO\n");
}

// --- Time ---------------------------------------------------------------------------------------

TEST_F(InstrumentTest, SleepIsShownInTheLargestWholeUnit) {
  Instrument& instrument = Build();
  for (const std::chrono::nanoseconds length : {std::chrono::nanoseconds(5s),
                                                std::chrono::nanoseconds(1500ms),
                                                std::chrono::nanoseconds(1ms),
                                                std::chrono::nanoseconds(1us),
                                                1ns,
                                                1001ns}) {
    instrument.Sleep(length);
  }
  EXPECT_EQ(Log(), "sleep 5 s\nsleep 1500 ms\nsleep 1 ms\nsleep 1 us\nsleep 1 ns\nsleep 1001 ns\n");
}

TEST_F(InstrumentTest, DoneRisesWithInstrumentTimeAlone) {
  Instrument& instrument = Build({.done = {.kind = DonePolicy::Kind::kAfter, .delay = 3ms}});
  instrument.WriteAttribute(kReset, "0");
  instrument.Sleep(5s);
  EXPECT_EQ(instrument.AttributeContents(kDone), "0\n");
  instrument.WriteAttribute(kReset, "1");
  instrument.Sleep(2ms);
  EXPECT_EQ(instrument.AttributeContents(kDone), "0\n");
  instrument.Sleep(1ms);
  EXPECT_EQ(instrument.AttributeContents(kDone), "1\n");
}

TEST_F(InstrumentTest, RegisterWriteEndsWithInstrumentTime) {
  Build({.chip = Chip::kMacronix});
  instrument_->WriteAttribute(kQspiPrg, "1");
  Spi({0x06});
  Spi({0x01, 0x24, 0x08});
  EXPECT_EQ(Spi({0x05}, 1).bytes[0] & 1U, 1U);
  instrument_->Sleep(40ms);
  EXPECT_EQ(Spi({0x05}, 1).bytes[0] & 1U, 0U);
}

TEST_F(InstrumentTest, InterruptedSleepTakesNoTime) {
  Instrument& instrument =
      Build({.done = {.kind = DonePolicy::Kind::kAfter, .delay = 3ms}}, {"sleep#1:EINTR"});
  instrument.WriteAttribute(kReset, "0");
  instrument.WriteAttribute(kReset, "1");
  EXPECT_EQ(instrument.Sleep(3ms).error, EINTR);
  EXPECT_EQ(instrument.AttributeContents(kDone), "0\n");
}

// --- D-Bus --------------------------------------------------------------------------------------

TEST_F(InstrumentTest, InventoryListsTheSlotsInOrder) {
  std::vector<std::unique_ptr<Module>> modules;
  modules.push_back(MakeModule({.slot = 4}, {}, selector_.Selector()));
  modules.push_back(MakeModule({.slot = 1}, {}, selector_.Selector()));
  EXPECT_THAT(BuildWith(std::move(modules)).GetModuleLocations().numbers, ElementsAre(4, 1));
  EXPECT_EQ(Log(), "dbus GetModuleLocations = 4 1\n");
}

TEST_F(InstrumentTest, InventoryAnswerCanBeReplaced) {
  Instrument& instrument =
      Build({}, {"dbus:GetModuleLocations#1:data:1 2 -4", "dbus:GetModuleLocations#2:data:"});
  EXPECT_THAT(instrument.GetModuleLocations().numbers, ElementsAre(1, 2, -4));
  EXPECT_TRUE(instrument.GetModuleLocations().numbers.empty());
  EXPECT_EQ(Log(), "dbus GetModuleLocations = 1 2 -4\ndbus GetModuleLocations = none\n");
}

TEST_F(InstrumentTest, ResourcesNameTheNodes) {
  Instrument& instrument = Build({.slot = 3});
  EXPECT_EQ(instrument.GetI2CBus(3).text, "i2c-3");
  EXPECT_EQ(instrument.GetSPIDev(3).text, "spidev3.0");
  EXPECT_EQ(Log(), "dbus GetI2CBus 3 = \"i2c-3\"\ndbus GetSPIDev 3 = \"spidev3.0\"\n");
}

TEST_F(InstrumentTest, ResourcesNameNothingForAnEmptySlot) {
  Instrument& instrument = Build();
  EXPECT_EQ(instrument.GetI2CBus(2).text, "");
  EXPECT_EQ(instrument.GetSPIDev(2).text, "");
}

TEST_F(InstrumentTest, ResourcesNameWhatTheyAreTold) {
  Instrument& instrument = Build({.i2cName = "", .spiName = "spidev9.9"});
  EXPECT_EQ(instrument.GetI2CBus(1).text, "");
  EXPECT_EQ(instrument.GetSPIDev(1).text, "spidev9.9");
}

TEST_F(InstrumentTest, DBusCallsFailWithTheNamedError) {
  Instrument& instrument = Build({}, {"dbus:Locations#1:error", "dbus:GetI2CBus 1#1:error:a.B"});
  EXPECT_EQ(instrument.GetModuleLocations().error, "org.freedesktop.DBus.Error.Failed");
  EXPECT_EQ(instrument.GetI2CBus(1).error, "a.B");
  EXPECT_EQ(Log(),
            "dbus GetModuleLocations = org.freedesktop.DBus.Error.Failed\n"
            "dbus GetI2CBus 1 = a.B\n");
}

TEST_F(InstrumentTest, DBusCallsCanKill) {
  Instrument& instrument = Build({}, {"dbus:kill"});
  EXPECT_EQ(instrument.GetModuleLocations().killed, Killed::kCaller);
  EXPECT_EQ(instrument.GetSPIDev(1).killed, Killed::kCaller);
}

TEST_F(InstrumentTest, DBusCallsCanKillAll) {
  Instrument& instrument = Build({}, {"dbus:kill-all"});
  EXPECT_EQ(instrument.GetModuleLocations().killed, Killed::kAll);
  EXPECT_EQ(instrument.GetSPIDev(1).killed, Killed::kAll);
  EXPECT_EQ(Log(), "dbus GetModuleLocations = kill-all\ndbus GetSPIDev 1 = kill-all\n");
}

TEST_F(InstrumentTest, DBusCallsCanKillTheSession) {
  Instrument& instrument = Build({}, {"dbus:kill-session"});
  EXPECT_EQ(instrument.GetModuleLocations().killed, Killed::kSession);
  EXPECT_EQ(instrument.GetSPIDev(1).killed, Killed::kSession);
  EXPECT_EQ(Log(), "dbus GetModuleLocations = kill-session\ndbus GetSPIDev 1 = kill-session\n");
}

// --- Events that others carry out ---------------------------------------------------------------

TEST_F(InstrumentTest, EventIsLoggedWhenItsResultIsKnown) {
  Instrument& instrument = Build();
  EXPECT_EQ(instrument.Arrive({EventKind::kOpen, "a O_RDONLY"}).kind, Fault::Kind::kNone);
  EXPECT_EQ(Log(), "");
  instrument.Complete({EventKind::kOpen, "a O_RDONLY"}, "EACCES");
  EXPECT_EQ(Log(), "open a O_RDONLY = EACCES\n");
}

// --- Rules that hit nothing ---------------------------------------------------------------------

using Texts = std::vector<std::string>;

TEST_F(InstrumentTest, RulesThatHitNothingAreKnown) {
  Instrument& instrument = Build({}, {"sleep:EINTR", "dbus#2:kill"});
  instrument.Sleep(1ms);
  instrument.GetI2CBus(1);
  EXPECT_EQ(instrument.UnhitFaults(), Texts{"dbus#2:kill"});
}

TEST_F(InstrumentTest, AnswersThatAreGivenHaveHit) {
  Instrument& instrument = Build({},
                                 {"spi:data:x",
                                  "i2c:data:x",
                                  "ioctl:data:1",
                                  "read:data:x",
                                  "dbus:Locations:data:1",
                                  "dbus:GetI2CBus:data:x",
                                  "dbus:GetSPIDev:data:x"});
  EXPECT_EQ(instrument.UnhitFaults().size(), 7U);
  Spi({0x05}, 1);
  instrument.ReadSetting(kSpi, SpiSetting::kMode);
  instrument.ReadFile("a", "b", 0, 1);
  instrument.GetModuleLocations();
  instrument.GetI2CBus(1);
  instrument.GetSPIDev(1);
  EXPECT_EQ(instrument.UnhitFaults(), Texts{"i2c:data:x"});
}

TEST_F(InstrumentTest, AnswerForAnEventWithoutOneHasNotHit) {
  Instrument& instrument = Build({}, {"spi:data:x", "ioctl:data:1", "i2c:data:x"});
  Spi({0x06});
  instrument.WriteSetting(kSpi, SpiSetting::kMode, 0);
  instrument.RefuseRequest(kSpi, 0);
  instrument.SubmitI2c(kSpi, {}, {});
  EXPECT_EQ(instrument.UnhitFaults(), (Texts{"spi:data:x", "ioctl:data:1", "i2c:data:x"}));
}

// --- All events ---------------------------------------------------------------------------------

TEST_F(InstrumentTest, AllEventsAreCountedTogether) {
  Instrument& instrument = Build({}, {"any#4:kill"});
  EXPECT_EQ(instrument.GetI2CBus(1).killed, Killed::kNo);
  EXPECT_EQ(instrument.WriteAttribute(kQspiPrg, "1").killed, Killed::kNo);
  EXPECT_EQ(Spi({0x06}).killed, Killed::kNo);
  EXPECT_EQ(instrument.Sleep(1ms).killed, Killed::kCaller);
}

}  // namespace
}  // namespace orvane
