#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "simulator/boards/WendModule.h"
#include "simulator/images/BootImage.h"

namespace orvane {
namespace {

using namespace std::chrono_literals;

using Bytes = std::vector<std::uint8_t>;

constexpr const char* kQspiPrg = "/sys/platform_m3/qspi_prg/value";
constexpr const char* kHwReset = "/sys/platform_m3/zynq_hw_reset_n/value";

class WendModuleTest : public testing::Test {
 protected:
  void Send(const Bytes& mosi) {
    Bytes miso(mosi.size());
    wend_.Transfer(mosi, miso, ByteClock::Still());
  }

  WendModule wend_{{.type = ModuleType::kWend, .slot = 3}, MakeZynqImage({.bytes = 4096})};
};

TEST_F(WendModuleTest, StateTellsDoneOwnerOfTheFlashAndWhatIsLoaded) {
  EXPECT_EQ(wend_.DescribeState(), "done=1 qspi_prg=0 loaded=current");
  EXPECT_EQ(wend_.WriteAttribute(kQspiPrg, "1"), 0);
  EXPECT_EQ(wend_.WriteAttribute(kHwReset, "0"), 0);
  EXPECT_EQ(wend_.DescribeState(), "done=0 qspi_prg=1 loaded=none");
  EXPECT_EQ(wend_.LoadedContents(), std::nullopt);
}

TEST_F(WendModuleTest, LoadedIsOtherFromAChangeOfTheFlashUntilTheNextBoot) {
  const Bytes loaded(wend_.Flash().Contents().begin(), wend_.Flash().Contents().end());
  EXPECT_EQ(wend_.WriteAttribute(kQspiPrg, "1"), 0);
  Send({0x06});
  Send({0x02, 0xFF, 0x00, 0x00, 0x5A});
  EXPECT_EQ(wend_.DescribeState(), "done=1 qspi_prg=1 loaded=other");
  EXPECT_EQ(wend_.LoadedContents(), loaded);
  EXPECT_EQ(wend_.WriteAttribute(kQspiPrg, "0"), 0);
  EXPECT_EQ(wend_.WriteAttribute(kHwReset, "0"), 0);
  EXPECT_EQ(wend_.WriteAttribute(kHwReset, "1"), 0);
  wend_.AdvanceTime(20ms);
  EXPECT_EQ(wend_.DescribeState(), "done=1 qspi_prg=0 loaded=current");
  EXPECT_EQ(wend_.LoadedContents()->at(0xFF0000), 0x5A);
}

TEST(ModuleRegistersTest, RegistersAreThoseOfTheOptionsAndAreShown) {
  WendModule wend({.type = ModuleType::kWend,
                   .slot = 3,
                   .chip = Chip::kMacronix,
                   .registers = ChipRegisters{.status = 0x24, .configuration = 0x0F}},
                  MakeZynqImage({.bytes = 4096}));
  EXPECT_EQ(wend.DescribeState(), "done=1 qspi_prg=0 registers=24:0f loaded=current");
  EXPECT_EQ(wend.WriteAttribute(kQspiPrg, "1"), 0);
  for (const Bytes& mosi : {Bytes{0x06}, {0x01, 0x98, 0x07}, {0x06}}) {
    Bytes miso(mosi.size());
    wend.Transfer(mosi, miso, ByteClock::Still());
    wend.AdvanceTime(40ms);
  }
  EXPECT_EQ(wend.Flash().StatusRegister(), 0x9A);  // with the latch, which needs power
  EXPECT_EQ(wend.DescribeState(), "done=1 qspi_prg=1 registers=98:0f loaded=current");
}

TEST_F(WendModuleTest, LinesAreDoneResetAndTheOwnerOfTheFlash) {
  const auto levels = [this] {
    std::vector<bool> high;
    for (const LineLevel& level : wend_.Lines()) {
      high.push_back(level.high);
    }
    return high;
  };
  EXPECT_EQ(levels(), (std::vector{true, true, false}));
  EXPECT_EQ(wend_.WriteAttribute(kQspiPrg, "1"), 0);
  EXPECT_EQ(wend_.WriteAttribute(kHwReset, "0"), 0);
  EXPECT_EQ(levels(), (std::vector{false, false, true}));
  EXPECT_EQ(wend_.Lines()[0].line, Line::kDone);
  EXPECT_EQ(wend_.Lines()[1].line, Line::kReset);
  EXPECT_EQ(wend_.Lines()[2].line, Line::kQspiPrg);
}

TEST_F(WendModuleTest, NextChangeIsTheEndOfBooting) {
  EXPECT_EQ(wend_.NextChange(), kNever);
  EXPECT_EQ(wend_.WriteAttribute(kHwReset, "0"), 0);
  EXPECT_EQ(wend_.WriteAttribute(kHwReset, "1"), 0);
  EXPECT_EQ(wend_.NextChange(), std::chrono::milliseconds(20));
}

}  // namespace
}  // namespace orvane
