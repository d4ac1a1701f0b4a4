// The run sequence. The whole-program tables show what words on a command line do; these tests show
// words that are null pointers, exceptions of the platform and the order of destruction.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "app/RunSequence.h"
#include "tests/doubles/Console.h"
#include "tests/doubles/EventLog.h"
#include "tests/doubles/FileKernel.h"
#include "tests/doubles/PlatformDoubles.h"
#include "tests/doubles/RedirectedFile.h"

namespace {

using testing::ElementsAre;

/// A pyx1 in every slot, whose expander does not answer.
class RunSequenceTest : public testing::Test {
 protected:
  RunSequenceTest() {
    platform_.locations = {4, 42};
    platform_.i2cBus = "i2c-1";
    platform_.spiDev = "spidev1.0";
    platform_.expanderAnswers = false;
  }

  /// @param words  argv, with a null pointer for an absent word
  static int Run(const std::vector<const char*>& words) {
    std::vector<std::string> storage;
    storage.reserve(words.size());
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (const char* const word : words) {
      argv.push_back(word == nullptr ? nullptr : storage.emplace_back(word).data());
    }
    argv.push_back(nullptr);
    return runTarnwick(static_cast<int>(words.size()), argv.data());
  }

  EventLog log_;
  Console console_{&log_};
  PlatformDoubles platform_{log_};
  FileKernel kernel_{&log_};
  RedirectedFile bufsiz_{"/sys/module/spidev/parameters/bufsiz", "4096\n"};
  RedirectedFile slotA_{"/sys/platform/module_selector/slotA"};
  RedirectedFile slotB_{"/sys/platform/module_selector/slotB"};
};

TEST_F(RunSequenceTest, ResultIsPrintedBetweenTheTwoHalvesOfTheDestruction) {
  EXPECT_EQ(Run({"tarnwick", "pyx1", "-sf", "4", "image.bin"}), 1);
  EXPECT_THAT(log_.Take(),
              ElementsAre("out| programming mode: -sf\n",
                          "out| module number: 4\n",
                          "out| FPGA bitstream: 'image.bin'\n",
                          "inventory: construct",
                          "inventory: GetModuleLocations",
                          "inventory: destroy",
                          "resources: construct",
                          "resources: SetupDeviceAddress 4",
                          "resources: GetI2CBus",
                          "resources: destroy",
                          "expander: construct with 1",
                          "inventory: construct",
                          "inventory: GetModuleLocations",
                          "inventory: destroy",
                          "resources: construct",
                          "resources: SetupDeviceAddress 4",
                          "resources: GetSPIDev",
                          "resources: destroy",
                          "out| SPI clock rate =19MHz\n",
                          "out| Pyx1 Gpio Programming\n",
                          "nanosleep(100000000)",
                          "out| Connecting ...\n",
                          "expander: connect 0x20 0x0140 0x2C80 0xEDDF 0",
                          "switch: construct",
                          "switch: RemoveDevice 4",
                          "switch: RescanPciBus 4",
                          "switch: EnableDevice 4",
                          "switch: destroy",
                          "expander: disconnect 0xEDDF",
                          "nanosleep(100000000)",
                          "close(-1)",  // the flash driver
                          "close(-1)",  // the SPI device
                          "out| Could not connect to the device. Check Module # and power.\n",
                          "expander: destroy",
                          "close(-1)"));  // the I2C device
}

TEST_F(RunSequenceTest, ModuleIsReadAs64BitsOnEveryMachineAndCutTo32) {
  EXPECT_EQ(Run({"tarnwick", "pyx1", "-sf", "4294967300", "f"}), 1);
  EXPECT_TRUE(console_.Out().starts_with("programming mode: -sf\nmodule number: 4\n"));
}

TEST_F(RunSequenceTest, LargestModuleOf64BitsIsCutTo32) {
  EXPECT_EQ(Run({"tarnwick", "pyx1", "-sf", "18446744073709551615", "f"}), 1);
  EXPECT_TRUE(console_.Out().starts_with("programming mode: -sf\nmodule number: 4294967295\n"));
}

TEST_F(RunSequenceTest, ModuleBeyond64BitsIsNoNumber) {
  EXPECT_EQ(Run({"tarnwick", "pyx1", "-sf", "18446744073709551616", "f"}), -1);
  EXPECT_EQ(console_.Err(), "ERROR: Could not resolve the HETNET address param\n");
}

// --- Words that are not there -------------------------------------------------------------------

TEST_F(RunSequenceTest, NotEvenAProgramNameShowsTheHelp) {
  EXPECT_EQ(Run({}), 0);
  EXPECT_TRUE(console_.Out().starts_with("\x1B[1mNAME\x1B[0m\n"));
}

TEST_F(RunSequenceTest, AbsentTargetIsInvalid) {
  EXPECT_EQ(Run({"tarnwick", nullptr, "-sf", "4", "f"}), -1);
  EXPECT_THAT(log_.Take(),
              ElementsAre("err| ERROR: Invalid input params\n",
                          "out| Could not run program with command line parameters provided.\n"));
}

TEST_F(RunSequenceTest, AbsentCommandForAnUnknownTargetIsThatOfTheTarget) {
  EXPECT_EQ(Run({"tarnwick", "foo", nullptr, "4", "f"}), -1);
  EXPECT_TRUE(console_.Out().starts_with("ERROR: Module not handled\n"));
}

TEST_F(RunSequenceTest, AbsentCommandGoesOnWithModule42) {
  EXPECT_EQ(Run({"tarnwick", "pyx1", nullptr, nullptr, nullptr}), 1);
  EXPECT_EQ(log_.Count("resources: SetupDeviceAddress 42"), 2);
  EXPECT_EQ(log_.Count("switch: RemoveDevice 42"), 1);
  EXPECT_TRUE(console_.Out().starts_with("SPI clock rate =19MHz\n"));
}

TEST_F(RunSequenceTest, AbsentCommandEndsAtTheInventoryOfAnInstrumentWithoutModule42) {
  platform_.locations = {4};
  EXPECT_EQ(Run({"tarnwick", "wend", nullptr, nullptr, nullptr}), 1);
  EXPECT_EQ(console_.Err(), "ERROR: No I2C device found\n");
}

TEST_F(RunSequenceTest, HelpNeedsNeitherModuleNorFile) {
  EXPECT_EQ(Run({"tarnwick", "wend", "--help", nullptr, nullptr}), 0);
  EXPECT_TRUE(console_.Out().starts_with("\x1B[1mNAME\x1B[0m\n"));
}

TEST_F(RunSequenceTest, AbsentModuleIsReportedAfterTheModeLine) {
  EXPECT_EQ(Run({"tarnwick", "wend", "-sf", nullptr, "f"}), -1);
  EXPECT_THAT(log_.Take(),
              ElementsAre("out| programming mode: -sf\n",
                          "err| ERROR: Could not resolve the HETNET address param\n",
                          "out| Could not run program with command line parameters provided.\n"));
}

TEST_F(RunSequenceTest, WordHetnetIsKeptInTheLineAboutTheModule) {
  EXPECT_EQ(Run({"tarnwick", "dax", "-sf", "abc", "f"}), -1);
  EXPECT_EQ(console_.Err(), "ERROR: Could not resolve the HETNET address param\n");
}

TEST_F(RunSequenceTest, AbsentFileIsReportedAfterTheModuleNumber) {
  EXPECT_EQ(Run({"tarnwick", "wend", "-sf", "3x", nullptr}), -1);
  EXPECT_THAT(log_.Take(),
              ElementsAre("out| programming mode: -sf\n",
                          "out| module number: 3\n",
                          "err| ERROR: Could not resolve the FPGA bitstream param\n",
                          "out| Could not run program with command line parameters provided.\n"));
}

// --- Exceptions ---------------------------------------------------------------------------------

struct Throw {
  const char* event;
  const char* lastLine;
};

class PlatformExceptionTest : public RunSequenceTest, public testing::WithParamInterface<Throw> {};

TEST_P(PlatformExceptionTest, PassesOnWithoutAResultLine) {
  platform_.throwAt = GetParam().event;
  EXPECT_THROW(Run({"tarnwick", "pyx1", "-sf", "4", "f"}), std::runtime_error);
  EXPECT_TRUE(console_.Out().ends_with(GetParam().lastLine)) << console_.Out();
  EXPECT_EQ(console_.Err(), "");
}

constexpr const char* kFile = "FPGA bitstream: 'f'\n";

INSTANTIATE_TEST_SUITE_P(Operations,
                         PlatformExceptionTest,
                         testing::Values(Throw{"inventory: construct", kFile},
                                         Throw{"inventory: GetModuleLocations", kFile},
                                         Throw{"resources: construct", kFile},
                                         Throw{"resources: SetupDeviceAddress 4", kFile},
                                         Throw{"resources: GetI2CBus", kFile},
                                         Throw{"expander: construct with 1", kFile},
                                         Throw{"resources: GetSPIDev", kFile},
                                         Throw{"switch: RescanPciBus 4", "Connecting ...\n"}));

}  // namespace
