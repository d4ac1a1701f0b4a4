// How the program handles its words and its environment, on an instrument with a wend in slot 1
// whose flash is up to date.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "simulator/images/BootImage.h"
#include "tests/e2e/Judgement.h"
#include "tests/e2e/RunLog.h"
#include "tests/e2e/VirtualInstrument.h"

namespace {

using namespace program_test;
using namespace program_test::run_log;

const Lines kInvalid = Console("Could not run program with command line parameters provided.");
const Lines kNoI2c = Join({ErrorLine("ERROR: No I2C device found"), Console(kConnectFailed)});

/// One log line for each line: each is written by itself.
Lines Help() {
  std::ifstream file(TARNWICK_GOLDEN_DIR "/help.txt", std::ios::binary);
  Lines log;
  for (std::string line; std::getline(file, line);) {
    log = Join({log, Console(line)});
  }
  return log;
}

/// The search for the channel of a bus with an empty name: the path of every adapter contains that.
Lines EveryAdapterAsked() {
  return Join({AdapterName("i2c-0", "Orvane chassis"),
               AdapterName("i2c-1", "Orvane slot 1"),
               AdapterName("i2c-10", "Orvane chassis"),
               AdapterName("i2c-10/i2c-11", "i2c-10-mux (chan_id 0)"),
               AdapterName("i2c-10/i2c-12", "i2c-10-mux (chan_id 1)")});
}

struct Words {
  const char* name;
  std::string words;  // as they are typed
  int exitCode;
  Lines log;  // without the exit
};

void PrintTo(const Words& row, std::ostream* out) { *out << row.name; }

class CommandLineTest : public testing::TestWithParam<Words> {};

TEST_P(CommandLineTest, Ends) {
  VirtualInstrument instrument;
  instrument.Options("--module wend@1");
  const int exitCode = GetParam().exitCode;
  ExpectRun(instrument.RunWords(GetParam().words),
            exitCode,
            Join({GetParam().log, {"exit " + std::to_string(exitCode)}}));
}

Lines Mode(const std::string& command) { return Console("programming mode: " + command); }

/// All words echoed, then the inventory.
Lines Echo(const std::string& command,
           const std::string& number,
           const std::string& file,
           const std::string& locations = "1") {
  return Join({Mode(command),
               Console("module number: " + number),
               Console("FPGA bitstream: '" + file + "'"),
               {"dbus GetModuleLocations = " + locations}});
}

/// A valid number of a slot that is empty.
Words EmptySlot(const char* name,
                const std::string& word,
                const std::string& number,
                const std::string& target = "wend") {
  return {name, target + " -sf '" + word + "' f", 1, Join({Echo("-sf", number, "f"), kNoI2c})};
}

Words NoNumber(const char* name, const std::string& word) {
  return {
      name,
      "wend -sf '" + word + "' f",
      255,
      Join(
          {Mode("-sf"), ErrorLine("ERROR: Could not resolve the HETNET address param"), kInvalid})};
}

Words NotHandled(const char* name, const std::string& target, const std::string& command) {
  return {name,
          "'" + target + "' " + command + " 1 f",
          255,
          Join({Console("ERROR: Module not handled"), kInvalid})};
}

Words NotRecognized(const char* name, const std::string& command) {
  return {name,
          "wend '" + command + "' 1 f",
          255,
          Join({ErrorLine("ERROR: Command not recognized"), kInvalid})};
}

INSTANTIATE_TEST_SUITE_P(
    Words,
    CommandLineTest,
    testing::Values(
        Words{"NoWordsShowHelp", "", 0, Help()},
        Words{"OneWordShowsHelp", "--help", 0, Help()},
        Words{"TwoWordsShowHelp", "wend -sf", 0, Help()},
        Words{"SixWordsShowHelp", "wend -sf 1 f g h", 0, Help()},
        Words{"ThreeWordsShowHelp", "wend -sf 1", 0, Help()},
        Words{"FiveWordsShowHelp", "wend -sf 1 f g", 0, Help()},
        Words{"UnknownTargetInThreeWordsShowsHelp", "foo -x 1", 0, Help()},
        Words{"LongHelpIgnoresModuleAndFile", "wend --help x y", 0, Help()},
        Words{"ShortHelpIgnoresModuleAndFile", "dax -h x ''", 0, Help()},
        Words{"Pyx1KnowsHelp", "pyx1 -h 1 f", 0, Help()},
        Words{"Pyx2KnowsHelp", "pyx2 --help 1 f", 0, Help()},
        NotHandled("HelpForUnknownTargetIsRefusedOnStandardOutput", "foo", "--help"),
        NotHandled("TargetIsCaseSensitive", "WEND", "-sf"),
        NotHandled("TargetWithTailIsUnknown", "wend1", "-sf"),
        NotHandled("EmptyTargetIsUnknown", "", "-sf"),
        NotHandled("Pyx3IsUnknown", "pyx3", "-sf"),
        NotRecognized("UnknownCommand", "-x"),
        NotRecognized("EmptyCommand", ""),
        NotRecognized("CommandIsCaseSensitive", "-SF"),
        NotRecognized("CommandWithTail", "-sf "),
        NoNumber("ModuleOfLetters", "abc"),
        NoNumber("EmptyModule", ""),
        NoNumber("ModuleOfBlanks", "  "),
        NoNumber("ModuleOfASignAlone", "-"),
        NoNumber("ModuleOfTwoSigns", "+-1"),
        NoNumber("ModuleOfTwentyNines", "99999999999999999999"),
        NoNumber("ModuleOneBeyond64Bits", "18446744073709551616"),
        EmptySlot("NegativeModuleWraps", "-1", "4294967295"),
        EmptySlot("LargestModuleIsCutTo32Bits", "18446744073709551615", "4294967295"),
        EmptySlot("ModuleIsCutTo32Bits", "4294967298", "2"),
        EmptySlot("LargestNegativeModuleWraps", "-18446744073709551613", "3"),
        EmptySlot("Largest32BitModule", "4294967295", "4294967295"),
        EmptySlot("ModuleOneBeyond32BitsIsZero", "4294967296", "0"),
        EmptySlot("ZeroModule", "0", "0"),
        EmptySlot("BlankBeforeModule", " 7", "7"),
        EmptySlot("TabBeforeModule", "\t7", "7"),
        EmptySlot("BlankBehindModule", "7 ", "7"),
        EmptySlot("Pyx1OfEmptySlot", "3", "3", "pyx1"),
        EmptySlot("Pyx2OfEmptySlot", "3", "3", "pyx2"),
        EmptySlot("PlusBeforeModule", "+7", "7"),
        EmptySlot("LettersBehindModule", "7abc", "7"),
        EmptySlot("HexadecimalModuleIsZero", "0x1", "0"),
        EmptySlot("LeadingZeroIsDecimal", "010", "10"),
        Words{"LongCommandIsEchoedAsTyped",
              "wend --spi-flash 3 'a b'",
              1,
              Join({Echo("--spi-flash", "3", "a b"), kNoI2c})},
        Words{"EmptyFileNameIsTaken", "wend -sf 3 ''", 1, Join({Echo("-sf", "3", ""), kNoI2c})},
        Words{"DaxOfEmptySlotLooksForAMuxOfNoBus",
              "dax -sf 3 f",
              1,
              Join({Echo("-sf", "3", "f"), EveryAdapterAsked(), kNoI2c})}),
    [](const auto& row) { return row.param.name; });

struct Inventory {
  const char* name;
  const char* options;
  const char* locations;  // as the log shows them
};

void PrintTo(const Inventory& row, std::ostream* out) { *out << row.name; }

class InventoryTest : public testing::TestWithParam<Inventory> {};

TEST_P(InventoryTest, ModuleThatIsNotInItIsNotAskedFor) {
  VirtualInstrument instrument;
  instrument.Options("--module wend@1 --module wend@2 --module pyx1@4");
  instrument.Options(GetParam().options);
  ExpectRun(instrument.RunWords("wend -sf 3 f"),
            1,
            Join({Echo("-sf", "3", "f", GetParam().locations), kNoI2c, {"exit 1"}}));
}

INSTANTIATE_TEST_SUITE_P(
    Locations,
    InventoryTest,
    testing::Values(Inventory{"OneTwoAndFour", "", "1 2 4"},
                    Inventory{"Empty", "--fault dbus:GetModuleLocations:data:", "none"},
                    Inventory{"NegativeAndTheSameDigits",
                              "--fault 'dbus:GetModuleLocations:data:-3 33 13'",
                              "-3 33 13"}),
    [](const auto& row) { return row.param.name; });

struct ClockSpeed {
  const char* name;
  const char* value;
  const char* printedMHz;
  const char* hz;
  bool warns;
};

void PrintTo(const ClockSpeed& row, std::ostream* out) { *out << row.name; }

class ClockSpeedTest : public testing::TestWithParam<ClockSpeed> {};

/// A transfer with the rate 0 has none of its own, and takes the node's.
constexpr const char* kNodeHz = "50000000";

TEST_P(ClockSpeedTest, IsPrintedAndUsed) {
  VirtualInstrument instrument;
  const auto image = orvane::MakeZynqImage({.buildDate = "2024-05-06", .bytes = 4096});
  instrument.WriteFile("image.bin", image);
  instrument.WriteFile("flash.bin", image);
  instrument.Option({"--module", "wend@1,flash=" + instrument.File("flash.bin").string()});
  instrument.Environment("SPI_CLOCK_SPEED", GetParam().value);

  const Outcome outcome = instrument.RunWords("wend -sf 1 image.bin");

  ExpectExitCode(outcome, 11);
  ExpectOutContains(outcome, std::string("\nSPI clock rate =") + GetParam().printedMHz + "MHz\n");
  ExpectTrafficContains(outcome,
                        std::string("\nspi /dev/spidev1.0 speed ") + GetParam().hz + " bits 8\n");
  ExpectErr(outcome,
            GetParam().warns ? "Warning: SPI speed >= 20MHz may prevent writing to the first "
                               "16Mebibytes on RQV-3000 platforms.\n"
                             : "");
}

INSTANTIATE_TEST_SUITE_P(
    Values,
    ClockSpeedTest,
    testing::Values(ClockSpeed{"Number", "25", "25", "25000000", true},
                    ClockSpeed{"FastestWithoutWarning", "19", "19", "19000000", false},
                    ClockSpeed{"SlowestWithWarning", "20", "20", "20000000", true},
                    ClockSpeed{"LettersLeaveTheDefault", "abc", "19", "19000000", false},
                    ClockSpeed{"EmptyLeavesTheDefault", "", "19", "19000000", false},
                    ClockSpeed{"BlankLeavesTheDefault", " ", "19", "19000000", false},
                    ClockSpeed{"SignAloneLeavesTheDefault", "-", "19", "19000000", false},
                    ClockSpeed{"Zero", "0", "0", kNodeHz, false},
                    ClockSpeed{"FractionIsCut", "1.5", "1", "1000000", false},
                    ClockSpeed{"LettersBehindAreIgnored", "25abc", "25", "25000000", true},
                    ClockSpeed{"BlankBeforeIsSkipped", " 25", "25", "25000000", true},
                    ClockSpeed{"PlusIsTaken", "+7", "7", "7000000", false},
                    ClockSpeed{"HexadecimalIsZero", "0x19", "0", kNodeHz, false},
                    ClockSpeed{"NegativeWraps", "-1", "4294967295", "4293967296", true},
                    ClockSpeed{"Beyond32BitsIsCut", "4294967296", "0", kNodeHz, false},
                    ClockSpeed{"ProductWraps", "4295", "4295", "32704", false},
                    ClockSpeed{"LargestProductInRange", "4294", "4294", "4294000000", true}),
    [](const auto& row) { return row.param.name; });

}  // namespace
