#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "simulator/trace/UpdateSteps.h"

namespace orvane {
namespace {

using std::chrono::nanoseconds;

class UpdateStepsTest : public testing::Test {
 protected:
  static constexpr const char* kSelector = "/sys/platform/module_selector/slotA";

  void DBus() { steps_.OnDBus("GetModuleLocations", nanoseconds(0), Outcome::kDone); }

  void Spi(const std::string& command,
           std::vector<std::uint8_t> mosi = {},
           const std::string& path = "/dev/spidev1.0") {
    const std::vector<ObservedSelect> selects = {
        {.period = {}, .command = command, .mosi = std::move(mosi), .miso = {}, .clocked = {}}};
    steps_.OnSpi({.path = path, .period = {}, .selects = selects});
  }
  void Read(std::uint8_t high, std::uint8_t middle, std::uint8_t low) {
    Spi("READ 0x... +1", {0x03, high, middle, low, 0x00});
  }

  void I2c(std::vector<std::uint8_t> bytes) {
    ObservedI2cMessage message;
    message.address = 0x20;
    message.bytes = std::move(bytes);
    steps_.OnI2c({.path = "/dev/i2c-4", .period = {}, .messages = {&message, 1}});
  }
  void Input() { I2c({0x00}); }
  void Output() { I2c({0x02, 0xA0, 0x3E}); }
  void Configuration() { I2c({0x06, 0xFF, 0xFF}); }

  void Write(const std::string& path, const std::string& bytes) {
    steps_.OnAccess({.path = path, .writes = true, .bytes = bytes});
  }
  void ResetLine(bool high) { steps_.OnLine(4, {Line::kReset, high}, nanoseconds(0)); }

  /// Up to the flash of a module behind an expander.
  void Connect() {
    DBus();
    Output();
    Spi("RDID", {0x9F, 0x00, 0x00, 0x00});
  }
  void Program() { Spi("PP 0x000000 +1", {0x02, 0x00, 0x00, 0x00, 0x55}); }

  std::optional<UpdateStep> Step() const { return steps_.Current(); }

  UpdateSteps steps_;
};

TEST_F(UpdateStepsTest, EachStepHasItsName) {
  EXPECT_EQ(StepName(UpdateStep::kFinding), "finding");
  EXPECT_EQ(StepName(UpdateStep::kConnecting), "connecting");
  EXPECT_EQ(StepName(UpdateStep::kProtection), "protection");
  EXPECT_EQ(StepName(UpdateStep::kReadingHead), "reading the head");
  EXPECT_EQ(StepName(UpdateStep::kReadingRest), "reading the rest");
  EXPECT_EQ(StepName(UpdateStep::kErasing), "erasing");
  EXPECT_EQ(StepName(UpdateStep::kProgramming), "programming");
  EXPECT_EQ(StepName(UpdateStep::kVerifying), "verifying");
  EXPECT_EQ(StepName(UpdateStep::kReset), "reset and DONE");
  EXPECT_EQ(StepName(UpdateStep::kPcie), "PCIe");
  EXPECT_EQ(StepName(UpdateStep::kDisconnecting), "disconnecting");
}

// --- What begins a step -------------------------------------------------------------------------

TEST_F(UpdateStepsTest, BeforeTheFirstEventIsPartOfWhatFollows) { EXPECT_EQ(Step(), std::nullopt); }

TEST_F(UpdateStepsTest, DBusCallIsFinding) {
  DBus();
  EXPECT_EQ(Step(), UpdateStep::kFinding);
}

TEST_F(UpdateStepsTest, ExpanderAfterFindingIsConnecting) {
  DBus();
  Input();
  EXPECT_EQ(Step(), UpdateStep::kConnecting);
  Configuration();
  Output();
  EXPECT_EQ(Step(), UpdateStep::kConnecting);
}

TEST_F(UpdateStepsTest, ExpanderThatDoesNotAcknowledgeIsConnecting) {
  DBus();
  I2c({});
  EXPECT_EQ(Step(), UpdateStep::kConnecting);
}

TEST_F(UpdateStepsTest, QspiPrg1IsConnecting) {
  DBus();
  Write("/sys/platform_m1/qspi_prg/value", "1");
  EXPECT_EQ(Step(), UpdateStep::kConnecting);
}

TEST_F(UpdateStepsTest, WordOfTheSelectorIsConnectingOrDisconnecting) {
  Write(kSelector, "SPIFIFO");
  EXPECT_EQ(Step(), UpdateStep::kConnecting);
  Write(kSelector, "SPILVDS");
  EXPECT_EQ(Step(), UpdateStep::kDisconnecting);
}

TEST_F(UpdateStepsTest, IdentificationIsConnecting) {
  DBus();
  Spi("RDID", {0x9F});
  EXPECT_EQ(Step(), UpdateStep::kConnecting);
}

TEST_F(UpdateStepsTest, IdentificationAfterOtherCommandsIsPartOfTheirStep) {
  Connect();
  Read(0, 0, 0);
  Spi("RDID", {0x9F});
  EXPECT_EQ(Step(), UpdateStep::kReadingHead);
}

TEST_F(UpdateStepsTest, WriteOfRegistersIsProtection) {
  Connect();
  Spi("WRSR 26 0f", {0x01, 0x26, 0x0F});
  EXPECT_EQ(Step(), UpdateStep::kProtection);
}

TEST_F(UpdateStepsTest, ReadOfTheFirst4KiBIsTheHeadAndBehindThemTheRest) {
  Connect();
  Read(0x00, 0x0F, 0xFF);
  EXPECT_EQ(Step(), UpdateStep::kReadingHead);
  Read(0x00, 0x10, 0x00);
  EXPECT_EQ(Step(), UpdateStep::kReadingRest);
  Read(0x01, 0x00, 0x00);
  EXPECT_EQ(Step(), UpdateStep::kReadingRest);
}

TEST_F(UpdateStepsTest, EachEraseIsErasing) {
  for (const char* const command : {"SSE 0x000000", "SE 0x000000", "CE"}) {
    Connect();
    Spi(command);
    EXPECT_EQ(Step(), UpdateStep::kErasing) << command;
  }
}

TEST_F(UpdateStepsTest, ReadOfAFlashThatWasProgrammedIsVerifying) {
  Connect();
  Program();
  EXPECT_EQ(Step(), UpdateStep::kProgramming);
  Read(0x00, 0x00, 0x00);
  EXPECT_EQ(Step(), UpdateStep::kVerifying);
  Read(0xFF, 0x00, 0x00);
  EXPECT_EQ(Step(), UpdateStep::kVerifying);
}

TEST_F(UpdateStepsTest, ReadOfAnotherFlashThanTheOneProgrammedIsNotVerifying) {
  Connect();
  Program();
  DBus();
  Spi("READ 0x000000 +1", {0x03, 0x00, 0x00, 0x00, 0x00}, "/dev/spidev2.0");
  EXPECT_EQ(Step(), UpdateStep::kReadingHead);
}

TEST_F(UpdateStepsTest, ResetFileIsReset) {
  Connect();
  Program();
  Write("/sys/platform_m1/zynq_hw_reset_n/value", "0");
  EXPECT_EQ(Step(), UpdateStep::kReset);
}

TEST_F(UpdateStepsTest, OutputRegisterAfterTheFlashWasUsedIsReset) {
  Connect();
  Program();
  Input();
  EXPECT_EQ(Step(), UpdateStep::kProgramming);
  Output();
  EXPECT_EQ(Step(), UpdateStep::kReset);
}

TEST_F(UpdateStepsTest, ConfigurationRegisterAfterTheFlashWasUsedIsDisconnecting) {
  Connect();
  Read(0, 0, 0);
  Configuration();
  EXPECT_EQ(Step(), UpdateStep::kDisconnecting);
}

TEST_F(UpdateStepsTest, ConfigurationRegisterInTheResetIsDisconnectingAfterALookAtDone) {
  Connect();
  Program();
  Output();
  Configuration();
  EXPECT_EQ(Step(), UpdateStep::kReset);
  Input();
  Configuration();
  EXPECT_EQ(Step(), UpdateStep::kDisconnecting);
}

TEST_F(UpdateStepsTest, OutputRegisterAfterALookAtDoneGoesOnWithTheReset) {
  Connect();
  Program();
  Output();
  Input();
  Output();
  Configuration();
  EXPECT_EQ(Step(), UpdateStep::kReset);
}

TEST_F(UpdateStepsTest, WriteBelowThePciFoldersIsPcieAndAReadIsNot) {
  for (const char* const path :
       {"/sys/bus/pci/devices/0000:04:00.0/remove", "/sys/class/pci_bus/0000:04/rescan"}) {
    DBus();
    steps_.OnAccess({.path = path, .writes = false, .bytes = "1"});
    EXPECT_EQ(Step(), UpdateStep::kFinding);
    Write(path, "1");
    EXPECT_EQ(Step(), UpdateStep::kPcie);
  }
}

TEST_F(UpdateStepsTest, ExpanderAfterPcieIsDisconnectingOrAgainConnecting) {
  Write("/sys/class/pci_bus/0000:04/rescan", "1");
  Configuration();
  EXPECT_EQ(Step(), UpdateStep::kDisconnecting);
  Input();
  EXPECT_EQ(Step(), UpdateStep::kDisconnecting);
  Output();
  EXPECT_EQ(Step(), UpdateStep::kConnecting);
}

// --- What prepares a step -----------------------------------------------------------------------

TEST_F(UpdateStepsTest, WriteEnableIsPartOfWhatFollows) {
  Connect();
  Read(0, 0, 0);
  Spi("WREN", {0x06});
  EXPECT_EQ(Step(), std::nullopt);
  Spi("SE 0x000000");
  EXPECT_EQ(Step(), UpdateStep::kErasing);
  Spi("WREN", {0x06});
  EXPECT_EQ(Step(), std::nullopt);
}

TEST_F(UpdateStepsTest, StatusAfterWorkOfTheChipIsPartOfIt) {
  for (const char* const command : {"SE 0x000000", "PP 0x000000 +1", "WRSR 00"}) {
    Connect();
    Spi(command);
    const auto step = Step();
    Spi("RDSR", {0x05, 0x00});
    Spi("RDSR", {0x05, 0x00});
    EXPECT_EQ(Step(), step) << command;
  }
}

TEST_F(UpdateStepsTest, StatusAfterAnythingElseIsPartOfWhatFollows) {
  Connect();
  Spi("RDSR", {0x05, 0x00});
  EXPECT_EQ(Step(), std::nullopt);
  Spi("SE 0x000000");
  Spi("RDCR", {0x15, 0x00});
  EXPECT_EQ(Step(), std::nullopt);
  Spi("RDSR", {0x05, 0x00});
  EXPECT_EQ(Step(), std::nullopt);
}

TEST_F(UpdateStepsTest, UnknownCommandsAndOtherFilesArePartOfTheStepUnderWay) {
  Connect();
  Program();
  Spi("ab 00", {0xAB, 0x00});
  Write("/sys/other", "1");
  steps_.OnOther("open image.bin O_RDONLY", nanoseconds(0));
  steps_.OnAccess({.path = "/sys/platform_m1/zynq_done/value", .writes = false, .bytes = "1"});
  EXPECT_EQ(Step(), UpdateStep::kProgramming);
}

TEST_F(UpdateStepsTest, MessageThatFailsIsPartOfTheStepUnderWay) {
  Connect();
  Program();
  steps_.OnSpi({.path = "/dev/spidev1.0", .period = {}, .selects = {}});
  EXPECT_EQ(Step(), UpdateStep::kProgramming);
}

TEST_F(UpdateStepsTest, OpeningOfTheSelectorIsPartOfWhatIsWritten) {
  DBus();
  steps_.OnOther("open /sys/platform/module_selector/slotA O_WRONLY|O_CREAT|O_TRUNC 0666",
                 nanoseconds(0));
  EXPECT_EQ(Step(), std::nullopt);
  Write(kSelector, "SPIFIFO");
  EXPECT_EQ(Step(), UpdateStep::kConnecting);
}

TEST_F(UpdateStepsTest, QspiPrg0IsPartOfWhatFollows) {
  Connect();
  Program();
  Write("/sys/platform_m1/qspi_prg/value", "0");
  EXPECT_EQ(Step(), std::nullopt);
}

TEST_F(UpdateStepsTest, FallOfTheResetLineWhileConnectingIsPartOfWhatFollows) {
  DBus();
  ResetLine(false);
  EXPECT_EQ(Step(), UpdateStep::kFinding);
  Output();
  ResetLine(true);
  EXPECT_EQ(Step(), UpdateStep::kConnecting);
  ResetLine(false);
  Output();
  EXPECT_EQ(Step(), std::nullopt);
  Spi("RDID", {0x9F});
  EXPECT_EQ(Step(), UpdateStep::kConnecting);
  Input();
  EXPECT_EQ(Step(), UpdateStep::kConnecting);
}

TEST_F(UpdateStepsTest, LookAtDoneAfterAFallOfTheResetLineWhileConnectingIsReset) {
  DBus();
  Output();
  ResetLine(false);
  Output();
  Input();
  EXPECT_EQ(Step(), UpdateStep::kReset);
}

TEST_F(UpdateStepsTest, OtherLinesMeanNothing) {
  DBus();
  Output();
  steps_.OnLine(4, {Line::kDone, false}, nanoseconds(0));
  EXPECT_EQ(Step(), UpdateStep::kConnecting);
}

TEST_F(UpdateStepsTest, PreparationThatNothingFollowsIsPartOfTheStepBeforeIt) {
  Connect();
  Program();
  Spi("WREN", {0x06});
  steps_.OnEnd(nanoseconds(0));
  EXPECT_EQ(Step(), UpdateStep::kProgramming);
}

// --- What is an update --------------------------------------------------------------------------

TEST_F(UpdateStepsTest, RunThatAsksTheInventoryAndConnectsIsAnUpdate) {
  EXPECT_FALSE(steps_.IsUpdate());
  DBus();
  EXPECT_FALSE(steps_.IsUpdate());
  Output();
  EXPECT_TRUE(steps_.IsUpdate());
  Read(0, 0, 0);
  EXPECT_TRUE(steps_.IsUpdate());
}

TEST_F(UpdateStepsTest, RunThatUsesTheFlashAtOnceIsNoUpdate) {
  Write("/sys/platform_m1/qspi_prg/value", "1");
  Spi("RDID", {0x9F});
  Read(0, 0, 0);
  Program();
  EXPECT_FALSE(steps_.IsUpdate());
}

}  // namespace
}  // namespace orvane
