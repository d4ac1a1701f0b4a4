#include <gtest/gtest.h>
#include <stdlib.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "app/RunSequence.h"
#include "devices/I2CDev.h"
#include "devices/SPIDev.h"
#include "tests/doubles/EventLog.h"
#include "tests/doubles/LoggedConsole.h"
#include "tests/doubles/ScratchDirectory.h"
#include "tests/unit/app/PlatformDoubles.h"
#include "tests/unit/app/RunDoubles.h"

namespace {

std::string Golden() { return ReadFile(TARNWICK_GOLDEN_FOLDER "/help.txt"); }

/// The environment variable of the SPI clock; its former value returns at the end.
class SpiClockVariable {
 public:
  SpiClockVariable() {
    if (const char* const former = ::getenv("SPI_CLOCK_SPEED"); former != nullptr) {
      former_ = former;
    }
    ::unsetenv("SPI_CLOCK_SPEED");
  }
  SpiClockVariable(const SpiClockVariable&) = delete;
  SpiClockVariable& operator=(const SpiClockVariable&) = delete;
  ~SpiClockVariable() {
    if (former_) {
      Set(*former_);
    } else {
      ::unsetenv("SPI_CLOCK_SPEED");
    }
  }

  static void Set(const std::string& value) { ::setenv("SPI_CLOCK_SPEED", value.c_str(), 1); }

 private:
  std::optional<std::string> former_;
};

class RunSequenceTest : public testing::Test {
 protected:
  RunSequenceTest() {
    platform_.locations = {1, 2, 4, 5};
    platform_.i2cBus = "i2c-1";
    platform_.spiDev = "spidev1.0";
    run_.muxChannels = {{"i2c-1", "i2c-5"}};
  }

  /// @param words  argv, with a null pointer for a word that is absent
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

  [[nodiscard]] bool Happened(const std::string& beginning) const {
    return ("\n" + log_.Text()).find("\n" + beginning) != std::string::npos;
  }

  SpiClockVariable spiClock_;
  EventLog log_;
  LoggedConsole console_{log_};
  PlatformDoubles platform_{log_};
  RunDoubles run_{log_};
};

// --- The whole of a run -------------------------------------------------------------------------

TEST_F(RunSequenceTest, WendRunTakesEveryStepInOrder) {
  EXPECT_EQ(Run({"tarnwick", "wend", "-sf", "1", "image.bin"}), 0);
  EXPECT_EQ(log_.Text(), R"(out "programming mode: -sf\n"
out "module number: 1\n"
out "FPGA bitstream: 'image.bin'\n"
inventory: construct
inventory: GetModuleLocations
inventory: destroy
resources: construct
resources: SetupDeviceAddress 1
resources: GetI2CBus
resources: destroy
I2CDev: construct /dev/i2c-1
expander: construct with 1
inventory: construct
inventory: GetModuleLocations
inventory: destroy
resources: construct
resources: SetupDeviceAddress 1
resources: GetSPIDev
resources: destroy
out "SPI clock rate =19MHz\n"
SPIDev: construct /dev/spidev1.0 19000000 Hz mode 0 bits 8
out "WEND Programming\n"
programmer: construct for module 1
out "Connecting ...\n"
programmer: Connect
programmer: ProgramDevice 'image.bin'
programmer: destroy
SPIDev: destroy
out "FPGA programmed successfully.\n"
expander: destroy
I2CDev: destroy
)");
}

TEST_F(RunSequenceTest, ExpanderIsBuiltOverTheI2CDevice) {
  Run({"tarnwick", "wend", "-sf", "1", "image.bin"});
  ASSERT_NE(run_.i2c, nullptr);
  EXPECT_EQ(platform_.expanderBus, run_.i2c);
}

TEST_F(RunSequenceTest, ProgrammerIsBuiltOverTheSpiDevice) {
  Run({"tarnwick", "wend", "-sf", "1", "image.bin"});
  ASSERT_NE(run_.spi, nullptr);
  EXPECT_EQ(run_.programmerSpi, run_.spi);
}

TEST_F(RunSequenceTest, FailedConnectSkipsProgramming) {
  run_.connectResult = FpgaProgrammerInterface::ConnectFailed;
  EXPECT_EQ(Run({"tarnwick", "wend", "-sf", "1", "image.bin"}), 1);
  const std::string text = log_.Text();
  EXPECT_EQ(text.substr(text.find("programmer: Connect")), R"(programmer: Connect
programmer: destroy
SPIDev: destroy
out "Could not connect to the device. Check Module # and power.\n"
expander: destroy
I2CDev: destroy
)");
}

TEST_F(RunSequenceTest, AnyConnectResultButSuccessSkipsProgrammingAndIsTheResult) {
  run_.connectResult = FpgaProgrammerInterface::UpToDate;
  EXPECT_EQ(Run({"tarnwick", "wend", "-sf", "1", "image.bin"}), 11);
  EXPECT_FALSE(Happened("programmer: ProgramDevice"));
}

TEST_F(RunSequenceTest, SpiDeviceThatTheDriverDestroyedIsDestroyedOnce) {
  run_.connectResult = FpgaProgrammerInterface::ConnectFailed;
  run_.connectDestroysTheSpiDevice = true;
  EXPECT_EQ(Run({"tarnwick", "wend", "-sf", "1", "image.bin"}), 1);
  const std::string text = log_.Text();
  EXPECT_EQ(text.substr(text.find("programmer: Connect")), R"(programmer: Connect
SPIDev: destroy
programmer: destroy
out "Could not connect to the device. Check Module # and power.\n"
expander: destroy
I2CDev: destroy
)");
}

struct Result {
  int status;
  std::string line;
};

class ProgramResultTest : public RunSequenceTest, public testing::WithParamInterface<Result> {
 protected:
  ProgramResultTest() {
    run_.programResult = static_cast<FpgaProgrammerInterface::Status>(GetParam().status);
  }
};

TEST_P(ProgramResultTest, IsTheExitCodeAndItsLineIsTheLastOutput) {
  EXPECT_EQ(Run({"tarnwick", "wend", "-sf", "1", "f"}), GetParam().status);
  EXPECT_EQ(console_.Out(), R"(programming mode: -sf
module number: 1
FPGA bitstream: 'f'
SPI clock rate =19MHz
WEND Programming
Connecting ...
)" + GetParam().line + "\n");
  EXPECT_EQ(console_.Err(), "");
}

TEST_P(ProgramResultTest, NeverHasWendEnumerateThePcieEndpointAgain) {
  Run({"tarnwick", "wend", "-sf", "1", "f"});
  EXPECT_FALSE(Happened("switch"));
}

TEST_P(ProgramResultTest, IsPrintedBetweenTheTwoHalvesOfTheDestruction) {
  Run({"tarnwick", "wend", "-sf", "1", "f"});
  const std::string text = log_.Text();
  EXPECT_EQ(text.substr(text.find("programmer: destroy")),
            "programmer: destroy\nSPIDev: destroy\nout \"" + GetParam().line +
                "\\n\"\nexpander: destroy\nI2CDev: destroy\n");
}

INSTANTIATE_TEST_SUITE_P(
    Results,
    ProgramResultTest,
    testing::Values(Result{0, "FPGA programmed successfully."},
                    Result{1, "Could not connect to the device. Check Module # and power."},
                    Result{2, "Could not open source file."},
                    Result{3, "Could not erase the device."},
                    Result{4, "Unknown Status."},
                    Result{6, "Programming operation failed."},
                    Result{7, "FPGA did not assert configuration completed."},
                    Result{11, "FPGA is up to date."}),
    [](const auto& row) { return std::to_string(row.param.status); });

// --- Number of arguments ------------------------------------------------------------------------

struct Arguments {
  std::string name;
  std::vector<const char*> words;
};

std::string NameOf(const testing::TestParamInfo<Arguments>& row) { return row.param.name; }

class HelpByCountTest : public RunSequenceTest, public testing::WithParamInterface<Arguments> {};

TEST_P(HelpByCountTest, ShowsTheHelpAndNothingElse) {
  EXPECT_EQ(Run(GetParam().words), 0);
  EXPECT_EQ(console_.Out(), Golden());
  EXPECT_EQ(console_.Err(), "");
  EXPECT_FALSE(Happened("inventory"));
}

INSTANTIATE_TEST_SUITE_P(
    Counts,
    HelpByCountTest,
    testing::Values(Arguments{"NotEvenAProgramName", {}},
                    Arguments{"NoWord", {"tarnwick"}},
                    Arguments{"OtherProgramName", {"/opt/other"}},
                    Arguments{"OneWord", {"tarnwick", "--help"}},
                    Arguments{"TwoWords", {"tarnwick", "wend", "-h"}},
                    Arguments{"ThreeWords", {"tarnwick", "wend", "-sf", "1"}},
                    Arguments{"FiveWords", {"tarnwick", "wend", "-sf", "1", "f", "g"}},
                    Arguments{"SixWords", {"tarnwick", "wend", "-sf", "1", "f", "g", "h"}}),
    NameOf);

// --- TARGET -------------------------------------------------------------------------------------

class UnknownTargetTest : public RunSequenceTest, public testing::WithParamInterface<Arguments> {};

TEST_P(UnknownTargetTest, IsReportedOnStandardOutput) {
  EXPECT_EQ(Run(GetParam().words), -1);
  EXPECT_EQ(log_.Text(), R"(out "ERROR: Module not handled\n"
out "Could not run program with command line parameters provided.\n"
)");
}

INSTANTIATE_TEST_SUITE_P(
    Targets,
    UnknownTargetTest,
    testing::Values(Arguments{"UpperCase", {"tarnwick", "WEND", "-sf", "1", "f"}},
                    Arguments{"Capital", {"tarnwick", "Dax", "-sf", "1", "f"}},
                    Arguments{"Empty", {"tarnwick", "", "-sf", "1", "f"}},
                    Arguments{"LeadingBlank", {"tarnwick", " wend", "-sf", "1", "f"}},
                    Arguments{"OnlyABeginning", {"tarnwick", "pyx", "-sf", "1", "f"}},
                    Arguments{"OneLetterMore", {"tarnwick", "wends", "-sf", "1", "f"}},
                    Arguments{"Pyx3", {"tarnwick", "pyx3", "-sf", "1", "f"}},
                    Arguments{"AlsoWithHelp", {"tarnwick", "foo", "--help", "1", "x"}},
                    Arguments{"AlsoWithoutCommand", {"tarnwick", "foo", nullptr, "1", "x"}},
                    Arguments{"AlsoWithABadCommand", {"tarnwick", "foo", "-x", "y", "x"}}),
    NameOf);

TEST_F(RunSequenceTest, AbsentTargetIsInvalid) {
  EXPECT_EQ(Run({"tarnwick", nullptr, "-sf", "1", "f"}), -1);
  EXPECT_EQ(log_.Text(), R"(err "ERROR: Invalid input params\n"
out "Could not run program with command line parameters provided.\n"
)");
}

// --- COMMAND ------------------------------------------------------------------------------------

class HelpCommandTest : public RunSequenceTest, public testing::WithParamInterface<Arguments> {};

TEST_P(HelpCommandTest, ShowsTheHelpAndNothingElse) {
  EXPECT_EQ(Run(GetParam().words), 0);
  EXPECT_EQ(console_.Out(), Golden());
  EXPECT_EQ(console_.Err(), "");
  EXPECT_FALSE(Happened("inventory"));
}

INSTANTIATE_TEST_SUITE_P(
    Commands,
    HelpCommandTest,
    testing::Values(Arguments{"WendShort", {"tarnwick", "wend", "-h", "1", "x"}},
                    Arguments{"WendLong", {"tarnwick", "wend", "--help", "1", "x"}},
                    Arguments{"DaxShort", {"tarnwick", "dax", "-h", "1", "x"}},
                    Arguments{"DaxLong", {"tarnwick", "dax", "--help", "1", "x"}},
                    Arguments{"Pyx1Short", {"tarnwick", "pyx1", "-h", "1", "x"}},
                    Arguments{"Pyx1Long", {"tarnwick", "pyx1", "--help", "1", "x"}},
                    Arguments{"Pyx2Short", {"tarnwick", "pyx2", "-h", "1", "x"}},
                    Arguments{"Pyx2Long", {"tarnwick", "pyx2", "--help", "1", "x"}},
                    Arguments{"BadModuleIsIgnored", {"tarnwick", "dax", "-h", "x", "f"}},
                    Arguments{"AbsentWordsAreIgnored",
                              {"tarnwick", "wend", "--help", nullptr, nullptr}}),
    NameOf);

class UnknownCommandTest : public RunSequenceTest,
                           public testing::WithParamInterface<const char*> {};

TEST_P(UnknownCommandTest, IsReportedBeforeAnythingIsEchoed) {
  EXPECT_EQ(Run({"tarnwick", "wend", GetParam(), "1", "f"}), -1);
  EXPECT_EQ(log_.Text(), R"(err "ERROR: Command not recognized\n"
out "Could not run program with command line parameters provided.\n"
)");
}

INSTANTIATE_TEST_SUITE_P(Commands,
                         UnknownCommandTest,
                         testing::Values("",
                                         "-SF",
                                         "-s",
                                         "-sf ",
                                         " -sf",
                                         "sf",
                                         "--spi-flas",
                                         "--spi-flash=1",
                                         "--spi-Flash",
                                         "-H",
                                         "-help",
                                         "--h",
                                         "help",
                                         "-?"));

TEST_F(RunSequenceTest, LongCommandProgramsToo) {
  EXPECT_EQ(Run({"tarnwick", "wend", "--spi-flash", "1", "f"}), 0);
  EXPECT_TRUE(console_.Out().starts_with("programming mode: --spi-flash\nmodule number: 1\n"));
  EXPECT_TRUE(Happened("programmer: ProgramDevice 'f'"));
}

TEST_F(RunSequenceTest, AbsentCommandGoesOnWithModule42AndAnEmptyPath) {
  platform_.locations = {42};
  EXPECT_EQ(Run({"tarnwick", "wend", nullptr, "1", "f"}), 0);
  EXPECT_EQ(log_.Count("resources: SetupDeviceAddress 42"), 2);
  EXPECT_EQ(log_.Count("programmer: construct for module 42"), 1);
  EXPECT_EQ(log_.Count("programmer: ProgramDevice ''"), 1);
  EXPECT_EQ(console_.Out(), R"(SPI clock rate =19MHz
WEND Programming
Connecting ...
FPGA programmed successfully.
)");
}

TEST_F(RunSequenceTest, AbsentCommandEndsAtTheInventoryOfAnInstrumentWithoutModule42) {
  EXPECT_EQ(Run({"tarnwick", "wend", nullptr, nullptr, nullptr}), 1);
  EXPECT_EQ(log_.Text(), R"(inventory: construct
inventory: GetModuleLocations
inventory: destroy
err "ERROR: No I2C device found\n"
out "Could not connect to the device. Check Module # and power.\n"
)");
}

// --- MODULE -------------------------------------------------------------------------------------

struct Module {
  std::string name;
  const char* word;
  std::string number;
};

class ModuleNumberTest : public RunSequenceTest, public testing::WithParamInterface<Module> {};

TEST_P(ModuleNumberTest, IsEchoedAndPassedOnAsConverted) {
  platform_.locations = {static_cast<int>(std::stoul(GetParam().number))};
  EXPECT_EQ(Run({"tarnwick", "wend", "-sf", GetParam().word, "f"}), 0);
  EXPECT_EQ(console_.Out(), "programming mode: -sf\nmodule number: " + GetParam().number + R"(
FPGA bitstream: 'f'
SPI clock rate =19MHz
WEND Programming
Connecting ...
FPGA programmed successfully.
)");
  EXPECT_EQ(console_.Err(), "");
  EXPECT_EQ(log_.Count("resources: SetupDeviceAddress " + GetParam().number), 2);
  EXPECT_EQ(log_.Count("programmer: construct for module " + GetParam().number), 1);
}

INSTANTIATE_TEST_SUITE_P(Words,
                         ModuleNumberTest,
                         testing::Values(Module{"Zero", "0", "0"},
                                         Module{"LeadingZeros", "007", "7"},
                                         Module{"OctalLookingIsDecimal", "010", "10"},
                                         Module{"HexadecimalStopsAtTheX", "0x10", "0"},
                                         Module{"LeadingBlank", " 7", "7"},
                                         Module{"LeadingTabAndNewline", "\t\n7", "7"},
                                         Module{"PlusSign", "+7", "7"},
                                         Module{"MinusOne", "-1", "4294967295"},
                                         Module{"BlankAndMinus", " -7", "4294967289"},
                                         Module{"TrailingLetter", "3x", "3"},
                                         Module{"TrailingLetters", "7abc", "7"},
                                         Module{"TrailingBlank", "7 ", "7"},
                                         Module{"Fraction", "7.9", "7"},
                                         Module{"Largest32Bit", "4294967295", "4294967295"},
                                         Module{"OneMoreThan32BitWraps", "4294967296", "0"},
                                         Module{"TwoMoreThan32BitWraps", "4294967297", "1"},
                                         Module{"SixMoreThan32BitWraps", "4294967301", "5"},
                                         Module{
                                             "Largest64Bit", "18446744073709551615", "4294967295"},
                                         Module{"MinusLargest64Bit", "-18446744073709551615", "1"}),
                         [](const auto& row) { return row.param.name; });

class BadModuleTest : public RunSequenceTest, public testing::WithParamInterface<Module> {};

TEST_P(BadModuleTest, IsReportedAfterTheModeLine) {
  EXPECT_EQ(Run({"tarnwick", "wend", "-sf", GetParam().word, "f"}), -1);
  EXPECT_EQ(log_.Text(), R"(out "programming mode: -sf\n"
err "ERROR: Could not resolve the HETNET address param\n"
out "Could not run program with command line parameters provided.\n"
)");
}

INSTANTIATE_TEST_SUITE_P(Words,
                         BadModuleTest,
                         testing::Values(Module{"Letters", "abc", ""},
                                         Module{"Empty", "", ""},
                                         Module{"Blank", " ", ""},
                                         Module{"SignAlone", "-", ""},
                                         Module{"TwoSigns", "+-7", ""},
                                         Module{"BlankBehindTheSign", "- 7", ""},
                                         Module{"LetterFirst", "x3", ""},
                                         Module{"TwentyNines", "99999999999999999999", ""},
                                         Module{"OneMoreThan64Bit", "18446744073709551616", ""},
                                         Module{"MinusTwentyNines", "-99999999999999999999", ""},
                                         Module{"Absent", nullptr, ""}),
                         [](const auto& row) { return row.param.name; });

// --- FILE ---------------------------------------------------------------------------------------

TEST_F(RunSequenceTest, AbsentFileIsReportedAfterTheModuleNumber) {
  EXPECT_EQ(Run({"tarnwick", "wend", "-sf", "3x", nullptr}), -1);
  EXPECT_EQ(log_.Text(), R"(out "programming mode: -sf\n"
out "module number: 3\n"
err "ERROR: Could not resolve the FPGA bitstream param\n"
out "Could not run program with command line parameters provided.\n"
)");
}

TEST_F(RunSequenceTest, FileIsEchoedAndPassedOnAsTyped) {
  EXPECT_EQ(Run({"tarnwick", "wend", "-sf", "1", " a 'b'/../c "}), 0);
  EXPECT_EQ(log_.Count(R"(out "FPGA bitstream: ' a 'b'/../c '\n")"), 1);
  EXPECT_EQ(log_.Count("programmer: ProgramDevice ' a 'b'/../c '"), 1);
}

TEST_F(RunSequenceTest, EmptyFileNameIsNotCheckedHere) {
  EXPECT_EQ(Run({"tarnwick", "wend", "-sf", "1", ""}), 0);
  EXPECT_EQ(log_.Count(R"(out "FPGA bitstream: ''\n")"), 1);
  EXPECT_EQ(log_.Count("programmer: ProgramDevice ''"), 1);
}

// --- The module's devices -----------------------------------------------------------------------

class EveryTargetTest : public RunSequenceTest, public testing::WithParamInterface<const char*> {};

TEST_P(EveryTargetTest, UnpopulatedModuleHasNoI2CDevice) {
  EXPECT_EQ(Run({"tarnwick", GetParam(), "-sf", "3", "f"}), 1);
  EXPECT_EQ(console_.Out(), R"(programming mode: -sf
module number: 3
FPGA bitstream: 'f'
Could not connect to the device. Check Module # and power.
)");
  EXPECT_EQ(console_.Err(), "ERROR: No I2C device found\n");
  EXPECT_FALSE(Happened("resources"));
  EXPECT_FALSE(Happened("I2CDev: construct"));
  EXPECT_FALSE(Happened("expander"));
}

TEST_P(EveryTargetTest, ModuleWithoutSpiDevicePrintsItsResultBeforeTheExpanderGoes) {
  platform_.spiDev = "";
  EXPECT_EQ(Run({"tarnwick", GetParam(), "-sf", "4", "f"}), 1);
  const std::string text = log_.Text();
  EXPECT_EQ(text.substr(text.find("resources: GetSPIDev")), R"(resources: GetSPIDev
resources: destroy
err "ERROR: No SPI device found\n"
out "Could not connect to the device. Check Module # and power.\n"
expander: destroy
I2CDev: destroy
)");
}

INSTANTIATE_TEST_SUITE_P(Targets,
                         EveryTargetTest,
                         testing::Values("wend", "dax", "pyx1", "pyx2"),
                         [](const auto& row) { return std::string(row.param); });

TEST_F(RunSequenceTest, ModuleWithoutI2CBusHasNoI2CDeviceAlsoOnWend) {
  platform_.i2cBus = "";
  EXPECT_EQ(Run({"tarnwick", "wend", "-sf", "1", "f"}), 1);
  EXPECT_EQ(console_.Err(), "ERROR: No I2C device found\n");
  EXPECT_FALSE(Happened("I2CDev"));
}

TEST_F(RunSequenceTest, DaxTakesTheBusOfChannel0BehindTheModulesBus) {
  Run({"tarnwick", "dax", "-sf", "2", "f"});
  EXPECT_EQ(log_.Count("I2CDev: find channel 0 behind 'i2c-1'"), 1);
  EXPECT_EQ(log_.Count("I2CDev: construct /dev/i2c-5"), 1);
}

TEST_F(RunSequenceTest, DaxLooksForTheChannelBeforeAnythingElseIsAsked) {
  Run({"tarnwick", "dax", "-sf", "2", "f"});
  EXPECT_NE(log_.Text().find(R"(resources: GetI2CBus
resources: destroy
I2CDev: find channel 0 behind 'i2c-1'
I2CDev: construct /dev/i2c-5
expander: construct with 1
inventory: construct
)"),
            std::string::npos)
      << log_.Text();
}

TEST_F(RunSequenceTest, DaxWithoutMuxHasNoI2CDevice) {
  run_.muxChannels.clear();
  EXPECT_EQ(Run({"tarnwick", "dax", "-sf", "2", "f"}), 1);
  EXPECT_EQ(console_.Err(), "ERROR: No I2C device found\n");
  EXPECT_FALSE(Happened("I2CDev: construct"));
}

TEST_F(RunSequenceTest, DaxLooksForTheChannelAlsoBehindAnEmptyName) {
  platform_.i2cBus = "";
  run_.muxChannels = {{"", "i2c-9"}};
  Run({"tarnwick", "dax", "-sf", "2", "f"});
  EXPECT_EQ(log_.Count("I2CDev: find channel 0 behind ''"), 1);
  EXPECT_EQ(log_.Count("I2CDev: construct /dev/i2c-9"), 1);
}

TEST_F(RunSequenceTest, DaxLooksForTheChannelAlsoForAnUnpopulatedModule) {
  EXPECT_EQ(Run({"tarnwick", "dax", "-sf", "3", "f"}), 1);
  EXPECT_EQ(log_.Count("I2CDev: find channel 0 behind ''"), 1);
  EXPECT_EQ(console_.Err(), "ERROR: No I2C device found\n");
}

class NoMuxTest : public RunSequenceTest, public testing::WithParamInterface<const char*> {};

TEST_P(NoMuxTest, ModulesBusIsTakenAsItIs) {
  Run({"tarnwick", GetParam(), "-sf", "4", "f"});
  EXPECT_FALSE(Happened("I2CDev: find channel"));
  EXPECT_EQ(log_.Count("I2CDev: construct /dev/i2c-1"), 1);
}

INSTANTIATE_TEST_SUITE_P(Targets,
                         NoMuxTest,
                         testing::Values("wend", "pyx1", "pyx2"),
                         [](const auto& row) { return std::string(row.param); });

// --- SPI clock ----------------------------------------------------------------------------------

struct Clock {
  std::string name;
  std::string value;
  std::string megahertz;
  std::string hertz;
};

class SpiClockTest : public RunSequenceTest, public testing::WithParamInterface<Clock> {};

TEST_P(SpiClockTest, IsEchoedInMegahertzAndOpensTheDeviceInHertz) {
  SpiClockVariable::Set(GetParam().value);
  EXPECT_EQ(Run({"tarnwick", "wend", "-sf", "1", "f"}), 0);
  EXPECT_EQ(log_.Count("out \"SPI clock rate =" + GetParam().megahertz + "MHz\\n\""), 1);
  EXPECT_EQ(
      log_.Count("SPIDev: construct /dev/spidev1.0 " + GetParam().hertz + " Hz mode 0 bits 8"), 1);
}

INSTANTIATE_TEST_SUITE_P(Values,
                         SpiClockTest,
                         testing::Values(Clock{"TwentyFive", "25", "25", "25000000"},
                                         Clock{"Zero", "0", "0", "0"},
                                         Clock{"LeadingBlank", " 25", "25", "25000000"},
                                         Clock{"TrailingLetters", "25abc", "25", "25000000"},
                                         Clock{"Fraction", "2.5", "2", "2000000"},
                                         Clock{"PlusSign", "+7", "7", "7000000"},
                                         Clock{"MinusOneWraps", "-1", "4294967295", "4293967296"},
                                         Clock{"LettersLeaveTheDefault", "abc", "19", "19000000"},
                                         Clock{"EmptyLeavesTheDefault", "", "19", "19000000"},
                                         Clock{"BlankLeavesTheDefault", " ", "19", "19000000"},
                                         Clock{"SignAloneLeavesTheDefault", "-", "19", "19000000"},
                                         Clock{"HexadecimalStopsAtTheX", "0x19", "0", "0"},
                                         Clock{"LargestThatFits", "4294", "4294", "4294000000"},
                                         Clock{"OneMoreWrapsInHertz", "4295", "4295", "32704"},
                                         Clock{"OneMoreThan32BitIsCut", "4294967296", "0", "0"},
                                         Clock{"FarMoreThan64BitIsCut",
                                               "99999999999999999999",
                                               "4294967295",
                                               "4293967296"}),
                         [](const auto& row) { return row.param.name; });

TEST_F(RunSequenceTest, UnsetSpiClockIs19Megahertz) {
  EXPECT_EQ(Run({"tarnwick", "wend", "-sf", "1", "f"}), 0);
  EXPECT_EQ(log_.Count(R"(out "SPI clock rate =19MHz\n")"), 1);
  EXPECT_EQ(log_.Count("SPIDev: construct /dev/spidev1.0 19000000 Hz mode 0 bits 8"), 1);
}

// --- Targets behind an expander -----------------------------------------------------------------

struct ExpanderTarget {
  const char* word;
  const char* line;
  const char* address;
};

class ExpanderTargetTest : public RunSequenceTest,
                           public testing::WithParamInterface<ExpanderTarget> {
 protected:
  ExpanderTargetTest() { run_.muxChannels["i2c-1"] = "i2c-5"; }

  /// The events from the programmer's line on.
  std::string FromProgrammer() const {
    const std::string text = log_.Text();
    return text.substr(text.find(std::string("out \"") + GetParam().line));
  }

  std::string Constructed() const {
    const std::string word = GetParam().word;
    return std::string("out \"") + GetParam().line +
           "\\n\"\nprogrammer: construct for module 4 with lines at " + GetParam().address +
           "\nprogrammer: is a " + word + "'s\nout \"Connecting ...\\n\"\nprogrammer: Connect\n";
  }

  bool IsPyx() const { return GetParam().word[0] == 'p'; }

  std::string EndedWith(const std::string& result) const {
    return "programmer: destroy\nSPIDev: destroy\nout \"" + result +
           "\\n\"\nexpander: destroy\nI2CDev: destroy\n";
  }

  static constexpr const char* kPcieUpdate =
      "switch: construct\nswitch: RemoveDevice 4\nswitch: RescanPciBus 4\n"
      "switch: EnableDevice 4\nswitch: destroy\n";
};

TEST_P(ExpanderTargetTest, SuccessReenumeratesThePcieEndpointOfAPyx) {
  EXPECT_EQ(Run({"tarnwick", GetParam().word, "-sf", "4", "f"}), 0);
  EXPECT_EQ(FromProgrammer(),
            Constructed() + "programmer: ProgramDevice 'f'\n" + (IsPyx() ? kPcieUpdate : "") +
                EndedWith("FPGA programmed successfully."));
}

TEST_P(ExpanderTargetTest, UpToDateLeavesThePcieEndpointAlone) {
  run_.programResult = FpgaProgrammerInterface::UpToDate;
  EXPECT_EQ(Run({"tarnwick", GetParam().word, "-sf", "4", "f"}), 11);
  EXPECT_EQ(FromProgrammer(),
            Constructed() + "programmer: ProgramDevice 'f'\n" + EndedWith("FPGA is up to date."));
}

TEST_P(ExpanderTargetTest, FailedConnectStillReenumeratesThePcieEndpointOfAPyx) {
  run_.connectResult = FpgaProgrammerInterface::ConnectFailed;
  EXPECT_EQ(Run({"tarnwick", GetParam().word, "-sf", "4", "f"}), 1);
  EXPECT_EQ(FromProgrammer(),
            Constructed() + (IsPyx() ? kPcieUpdate : "") +
                EndedWith("Could not connect to the device. Check Module # and power."));
}

TEST_P(ExpanderTargetTest, ProgrammerFailureHidesAPcieFailure) {
  run_.programResult = FpgaProgrammerInterface::ConfigDoneNotAsserted;
  platform_.removed = false;
  EXPECT_EQ(Run({"tarnwick", GetParam().word, "-sf", "4", "f"}), 7);
  EXPECT_EQ(Happened("switch: RemoveDevice 4"), IsPyx());
}

TEST_P(ExpanderTargetTest, PcieFailureAloneIsTheResultOfAPyx) {
  platform_.enabled = false;
  EXPECT_EQ(Run({"tarnwick", GetParam().word, "-sf", "4", "f"}), IsPyx() ? 10 : 0);
}

TEST_P(ExpanderTargetTest, SpiDeviceThatTheDriverDestroysIsDestroyedOnce) {
  run_.connectResult = FpgaProgrammerInterface::ConnectFailed;
  run_.connectDestroysTheSpiDevice = true;
  EXPECT_EQ(Run({"tarnwick", GetParam().word, "-sf", "4", "f"}), 1);
  EXPECT_EQ(log_.Count("SPIDev: destroy"), 1);
}

INSTANTIATE_TEST_SUITE_P(Targets,
                         ExpanderTargetTest,
                         testing::Values(ExpanderTarget{"dax", "DAX Gpio Programming", "33"},
                                         ExpanderTarget{"pyx1", "Pyx1 Gpio Programming", "32"},
                                         ExpanderTarget{"pyx2", "Pyx2 Gpio Programming", "32"}),
                         [](const auto& row) { return std::string(row.param.word); });

// --- Exceptions ---------------------------------------------------------------------------------

class PlatformExceptionTest : public RunSequenceTest,
                              public testing::WithParamInterface<const char*> {};

TEST_P(PlatformExceptionTest, PassesOnWithoutAResultLine) {
  platform_.throwAt = GetParam();
  EXPECT_THROW(Run({"tarnwick", "wend", "-sf", "1", "f"}), std::runtime_error);
  EXPECT_TRUE(console_.Out().ends_with("FPGA bitstream: 'f'\n"));
  EXPECT_EQ(console_.Err(), "");
}

INSTANTIATE_TEST_SUITE_P(Operations,
                         PlatformExceptionTest,
                         testing::Values("inventory: construct",
                                         "inventory: GetModuleLocations",
                                         "resources: construct",
                                         "resources: SetupDeviceAddress 1",
                                         "resources: GetI2CBus",
                                         "expander: construct with 1",
                                         "resources: GetSPIDev"));

TEST_F(RunSequenceTest, ExceptionOfThePcieSwitchPassesOnWithoutAResultLine) {
  platform_.throwAt = "switch: RescanPciBus 4";
  EXPECT_THROW(Run({"tarnwick", "pyx1", "-sf", "4", "f"}), std::runtime_error);
  EXPECT_TRUE(console_.Out().ends_with("Connecting ...\n"));
  EXPECT_EQ(console_.Err(), "");
}

TEST_F(RunSequenceTest, UnreadableBootHeaderPassesOnWithoutAResultLine) {
  run_.unreadableHeader = true;
  EXPECT_THROW(Run({"tarnwick", "wend", "-sf", "1", "f"}), std::logic_error);
  EXPECT_TRUE(console_.Out().ends_with("Connecting ...\n"));
  EXPECT_EQ(console_.Err(), "");
}

}  // namespace
