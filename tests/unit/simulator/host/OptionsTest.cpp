#include <gtest/gtest.h>

#include <chrono>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "simulator/host/Options.h"

namespace orvane {
namespace {

Options Parse(std::initializer_list<const char*> words) {
  const std::vector<const char*> copy(words);
  return ParseOptions(copy);
}

ModuleOptions ParseModuleOf(const char* text) {
  return Parse({"--module", text, "--", "true"}).modules.at(0);
}

std::string ProblemWith(std::initializer_list<const char*> words) {
  try {
    Parse(words);
  } catch (const UsageError& error) {
    return error.what();
  }
  return "none";
}

TEST(OptionsTest, CommandAloneRunsOnOneModuleOfEachType) {
  const Options options = Parse({"--", "tarnwick", "-x", "--"});
  EXPECT_EQ(options.command, (std::vector<std::string>{"tarnwick", "-x", "--"}));
  ASSERT_EQ(options.modules.size(), 4U);
  EXPECT_EQ(options.modules[0].type, ModuleType::kWend);
  EXPECT_EQ(options.modules[0].slot, 1U);
  EXPECT_EQ(options.modules[1].type, ModuleType::kDax);
  EXPECT_EQ(options.modules[1].slot, 2U);
  EXPECT_EQ(options.modules[2].type, ModuleType::kPyx1);
  EXPECT_EQ(options.modules[2].slot, 4U);
  EXPECT_EQ(options.modules[3].type, ModuleType::kPyx2);
  EXPECT_EQ(options.modules[3].slot, 5U);
  EXPECT_EQ(options.modules[0].flashFile, "");
  EXPECT_EQ(options.modules[0].chip, Chip::kMicron);
  EXPECT_EQ(options.modules[0].done.kind, DonePolicy::Kind::kAuto);
  EXPECT_FALSE(options.fast);
  EXPECT_EQ(options.logFile, "");
  EXPECT_EQ(options.bufsiz, "4096");
  EXPECT_EQ(options.spiAlignment, 64U);
  EXPECT_TRUE(options.withBus);
  EXPECT_TRUE(options.withInventory);
  EXPECT_TRUE(options.withResources);
  EXPECT_TRUE(options.withSelector);
  EXPECT_EQ(options.stateFile, "");
  EXPECT_TRUE(options.faults.empty());
}

TEST(OptionsTest, StateFileIsTaken) {
  EXPECT_EQ(Parse({"--state", "how", "--", "true"}).stateFile, "how");
  EXPECT_EQ(ProblemWith({"--state", "", "--", "x"}), "--state: '' is not a file name");
}

TEST(OptionsTest, TraceFileIsTakenWithATimingThatHasTimes) {
  EXPECT_EQ(Parse({"--", "x"}).traceFile, "");
  EXPECT_EQ(Parse({"--trace", "run.json", "--timing", "typical", "--", "x"}).traceFile, "run.json");
  EXPECT_EQ(Parse({"--timing", "longest", "--trace=run.json", "--", "x"}).traceFile, "run.json");
  EXPECT_EQ(ProblemWith({"--timing", "typical", "--trace", "", "--", "x"}),
            "--trace: '' is not a file name");
}

TEST(OptionsTest, TraceFileIsRefusedWithPolls) {
  EXPECT_EQ(ProblemWith({"--trace", "run.json", "--", "x"}),
            "--trace: works with --timing typical or longest only");
  EXPECT_EQ(ProblemWith({"--timing", "polls", "--trace", "run.json", "--", "x"}),
            "--trace: works with --timing typical or longest only");
}

TEST(OptionsTest, LogAndTraceKeepTheConsole) {
  EXPECT_FALSE(Parse({"--timing", "typical", "--vcd", "levels", "--", "x"}).KeepsConsole());
  EXPECT_TRUE(Parse({"--log", "log", "--", "x"}).KeepsConsole());
  EXPECT_TRUE(Parse({"--timing", "typical", "--trace", "run.json", "--", "x"}).KeepsConsole());
}

TEST(OptionsTest, VcdFileIsTakenWithATimingThatHasTimes) {
  EXPECT_EQ(Parse({"--", "x"}).vcdFile, "");
  EXPECT_EQ(Parse({"--vcd", "levels", "--timing", "typical", "--", "x"}).vcdFile, "levels");
  EXPECT_EQ(Parse({"--timing", "longest", "--vcd=levels", "--", "x"}).vcdFile, "levels");
  EXPECT_EQ(ProblemWith({"--timing", "typical", "--vcd", "", "--", "x"}),
            "--vcd: '' is not a file name");
}

TEST(OptionsTest, VcdFileIsRefusedWithPolls) {
  EXPECT_EQ(ProblemWith({"--vcd", "levels", "--", "x"}),
            "--vcd: works with --timing typical or longest only");
  EXPECT_EQ(ProblemWith({"--timing", "polls", "--vcd", "levels", "--", "x"}),
            "--vcd: works with --timing typical or longest only");
}

TEST(OptionsTest, SelectorCanBeLeftOut) {
  EXPECT_FALSE(Parse({"--without", "selector", "--", "true"}).withSelector);
}

TEST(OptionsTest, ExpanderCanBeAbsent) {
  EXPECT_FALSE(Parse({"--module", "dax@2,expander=absent", "--", "true"}).modules.at(0).expander);
  EXPECT_TRUE(Parse({"--module", "pyx1@4", "--", "true"}).modules.at(0).expander);
}

TEST(OptionsTest, HelpNeedsNoCommand) {
  const std::optional<std::string> answer = Parse({"--help"}).answer;
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->substr(0, 50), "Usage: orvane-sim [OPTION]... -- COMMAND [ARG...]\n");
}

TEST(OptionsTest, VersionNeedsNoCommand) {
  const std::optional<std::string> answer = Parse({"--version"}).answer;
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->substr(0, 11), "orvane-sim ");
}

TEST(OptionsTest, HelpAfterTheCommandIsTheCommands) {
  const Options options = Parse({"--", "tarnwick", "--help"});
  EXPECT_FALSE(options.answer);
  EXPECT_EQ(options.command, (std::vector<std::string>{"tarnwick", "--help"}));
}

TEST(OptionsTest, FastAndLogAreTaken) {
  const Options options = Parse({"--fast", "--log", "events", "--", "true"});
  EXPECT_TRUE(options.fast);
  EXPECT_EQ(options.logFile, "events");
}

TEST(OptionsTest, ValuesCanFollowAnEqualsSign) {
  const Options options = Parse({"--log=events",
                                 "--module=wend@3,chip=macronix",
                                 "--fault=spi#1:EIO",
                                 "--bufsiz=",
                                 "--clock-step=5",
                                 "--without=bus",
                                 "--",
                                 "true"});
  EXPECT_EQ(options.logFile, "events");
  ASSERT_EQ(options.modules.size(), 1U);
  EXPECT_EQ(options.modules[0].slot, 3U);
  EXPECT_EQ(options.modules[0].chip, Chip::kMacronix);
  EXPECT_EQ(options.faults.size(), 1U);
  EXPECT_EQ(options.bufsiz, "");
  EXPECT_EQ(options.clockStep, std::chrono::milliseconds(5));
  EXPECT_FALSE(options.withBus);
}

TEST(OptionsTest, OptionThatCannotBeRepeatedIsRefusedTheSecondTime) {
  for (const char* const option : {"--log",
                                   "--trace",
                                   "--vcd",
                                   "--state",
                                   "--bufsiz",
                                   "--spi-alignment",
                                   "--clock-step",
                                   "--message-cost"}) {
    EXPECT_EQ(ProblemWith({option, "1", option, "1", "--", "x"}),
              std::string(option) + ": is given twice");
  }
  EXPECT_EQ(ProblemWith({"--timing", "polls", "--timing", "polls", "--", "x"}),
            "--timing: is given twice");
}

TEST(OptionsTest, ModuleKeysAreTaken) {
  const ModuleOptions module = ParseModuleOf("wend@3,flash=a b.bin,chip=macronix,done=low");
  EXPECT_EQ(module.slot, 3U);
  EXPECT_EQ(module.flashFile, "a b.bin");
  EXPECT_EQ(module.chip, Chip::kMacronix);
  EXPECT_EQ(module.done.kind, DonePolicy::Kind::kLow);
}

TEST(OptionsTest, FileForWhatIsLoadedIsTaken) {
  EXPECT_EQ(ParseModuleOf("dax@2,loaded=a b.bin").loadedFile, "a b.bin");
  EXPECT_EQ(ParseModuleOf("dax@2").loadedFile, "");
}

TEST(OptionsTest, FileForWhatIsLoadedNeedsAName) {
  EXPECT_EQ(ProblemWith({"--module", "dax@2,loaded=", "--", "true"}),
            "--module: key 'loaded': '' is not a file name");
}

TEST(OptionsTest, RegistersAreTaken) {
  const auto registers = ParseModuleOf("dax@2,registers=24:0f").registers;
  ASSERT_TRUE(registers.has_value());
  EXPECT_EQ(registers->status, 0x24);
  EXPECT_EQ(registers->configuration, 0x0F);
  EXPECT_FALSE(ParseModuleOf("dax@2").registers.has_value());
}

TEST(OptionsTest, RegistersAreTwoBytesInHexadecimalDigits) {
  for (const std::string value : {"", "24", "24:", "24:f", "24-0f", "24:0f0", "2:00f", "24:0g"}) {
    const std::string module = "dax@2,registers=" + value;
    EXPECT_EQ(ProblemWith({"--module", module.c_str(), "--", "true"}),
              "--module: key 'registers': '" + value +
                  "' is not STATUS:CONFIG, two hexadecimal digits each");
  }
}

TEST(OptionsTest, DoneHighIsTaken) {
  EXPECT_EQ(ParseModuleOf("wend@1,done=high").done.kind, DonePolicy::Kind::kHigh);
}

TEST(OptionsTest, DoneAfterCountsMilliseconds) {
  const DonePolicy done = ParseModuleOf("wend@1,done=after:9999").done;
  EXPECT_EQ(done.kind, DonePolicy::Kind::kAfter);
  EXPECT_EQ(done.delay, std::chrono::milliseconds(9999));
}

TEST(OptionsTest, NamesFromTheServiceCanBeEmptyOrOthers) {
  const ModuleOptions module = ParseModuleOf("wend@1,i2c=none,spi=spidev9.9");
  EXPECT_EQ(module.i2cName, "");
  EXPECT_EQ(module.spiName, "spidev9.9");
}

TEST(OptionsTest, PartsOfTheWorldCanBeMissing) {
  const ModuleOptions all = ParseModuleOf("wend@1");
  EXPECT_TRUE(all.i2cNode);
  EXPECT_TRUE(all.spiNode);
  EXPECT_TRUE(all.controlFiles);
  EXPECT_FALSE(ParseModuleOf("wend@1,i2cdev=missing").i2cNode);
  EXPECT_FALSE(ParseModuleOf("wend@1,spidev=missing").spiNode);
  EXPECT_FALSE(ParseModuleOf("wend@1,zynq-files=missing").controlFiles);
}

TEST(OptionsTest, HeldLinesAddUp) {
  const ModuleOptions module = ParseModuleOf("dax@2,held=15:1,held=0:0,held=8:1");
  EXPECT_EQ(module.heldLines, 0x8101);
  EXPECT_EQ(module.heldLevels, 0x8100);
  EXPECT_EQ(ParseModuleOf("dax@2").heldLines, 0);
}

TEST(OptionsTest, DefectsOfTheFlashAreTaken) {
  const FlashDefects defects =
      ParseModuleOf(
          "wend@1,flash-chip=absent,program-lost=3,erase-lost=2,register-lost=1,busy-after=7,"
          "worn-page=0x1000,worn-page=512,worn-sector=16777215")
          .defects;
  EXPECT_TRUE(defects.absent);
  EXPECT_EQ(defects.lostProgram, 3U);
  EXPECT_EQ(defects.lostErase, 2U);
  EXPECT_EQ(defects.lostRegisterWrite, 1U);
  EXPECT_EQ(defects.busyAfter, 7U);
  EXPECT_EQ(defects.wornPages, (std::vector<std::uint32_t>{4096, 512}));
  EXPECT_EQ(defects.wornSectors, (std::vector<std::uint32_t>{16'777'215}));
}

TEST(OptionsTest, SeveralModulesKeepTheirOrder) {
  const Options options = Parse({"--module", "wend@4", "--module", "wend@2", "--", "true"});
  ASSERT_EQ(options.modules.size(), 2U);
  EXPECT_EQ(options.modules[0].slot, 4U);
  EXPECT_EQ(options.modules[1].slot, 2U);
}

TEST(OptionsTest, FaultsKeepTheirOrder) {
  const Options options = Parse({"--fault", "spi#1:EIO", "--fault", "open:lib:ENOENT", "--", "x"});
  ASSERT_EQ(options.faults.size(), 2U);
  EXPECT_EQ(options.faults[0].kind, EventKind::kSpi);
  EXPECT_EQ(options.faults[1].text, "lib");
}

TEST(OptionsTest, ServicesCanBeLeftOut) {
  EXPECT_FALSE(Parse({"--without", "inventory", "--", "x"}).withInventory);
  EXPECT_FALSE(Parse({"--without", "resources", "--", "x"}).withResources);
  EXPECT_FALSE(Parse({"--without", "bus", "--", "x"}).withBus);
}

struct LimitRow {
  const char* text;
  std::uint64_t limit;
};

TEST(OptionsTest, DriverLimitIsThePositiveNumberInBufsizOrTheDefault) {
  for (const LimitRow& row : {LimitRow{"4096", 4096},
                              {"1", 1},
                              {"65536", 65536},
                              {"1099511627776", 1'099'511'627'776},
                              {"0", 4096},
                              {"-1", 4096},
                              {"abc", 4096},
                              {"  8192 kB", 4096},
                              {"", 4096},
                              {"none", 4096}}) {
    EXPECT_EQ(Parse({"--bufsiz", row.text, "--", "x"}).SpiLimit(), row.limit) << row.text;
  }
}

TEST(OptionsTest, BufsizNoneMeansNoFile) {
  EXPECT_EQ(Parse({"--bufsiz", "none", "--", "x"}).bufsiz, std::nullopt);
  EXPECT_EQ(Parse({"--bufsiz", "abc", "--", "x"}).bufsiz, "abc");
}

TEST(OptionsTest, AlignmentOfTransfersIsAPowerOfTwo) {
  EXPECT_EQ(Parse({"--spi-alignment", "1", "--", "x"}).spiAlignment, 1U);
  EXPECT_EQ(Parse({"--spi-alignment=128", "--", "x"}).spiAlignment, 128U);
  EXPECT_EQ(Parse({"--spi-alignment", "4096", "--", "x"}).spiAlignment, 4096U);
  for (const char* const text : {"", "0", "3", "8192", "64 ", "-64", "4294967297"}) {
    EXPECT_EQ(ProblemWith({"--spi-alignment", text, "--", "x"}),
              "--spi-alignment: '" + std::string(text) + "' is not a power of two up to 4096");
  }
}

TEST(OptionsTest, I2cClientsAreListedOnDemand) {
  EXPECT_FALSE(Parse({"--", "x"}).i2cClients);
  EXPECT_TRUE(Parse({"--i2c-clients", "--", "x"}).i2cClients);
}

TEST(OptionsTest, CommandMustBeThere) {
  EXPECT_EQ(ProblemWith({}), "COMMAND is missing after '--'");
  EXPECT_EQ(ProblemWith({"--fast"}), "COMMAND is missing after '--'");
  EXPECT_EQ(ProblemWith({"--"}), "COMMAND is missing after '--'");
}

TEST(OptionsTest, CommandWithoutTheDashesIsRefused) {
  EXPECT_EQ(ProblemWith({"tarnwick"}), "unexpected word 'tarnwick' (COMMAND comes after '--')");
}

TEST(OptionsTest, OptionWithoutItsValueIsRefused) {
  for (const char* const option : {"--module",
                                   "--log",
                                   "--state",
                                   "--bufsiz",
                                   "--fault",
                                   "--without",
                                   "--clock-step",
                                   "--timing",
                                   "--message-cost"}) {
    EXPECT_EQ(ProblemWith({option}), "option '" + std::string(option) + "' needs a value");
  }
}

TEST(OptionsTest, EmptyLogNameIsRefused) {
  EXPECT_EQ(ProblemWith({"--log", "", "--", "x"}), "--log: '' is not a file name");
}

TEST(OptionsTest, UnknownTypeIsRefused) {
  EXPECT_EQ(ProblemWith({"--module", "Wend@1", "--", "x"}),
            "--module: 'Wend' is not a type of module (wend, dax, pyx1 or pyx2)");
}

TEST(OptionsTest, SlotMustBeANumber) {
  for (const std::string slot : {"", "x", "-1", "1x", "2147483648"}) {
    const std::string text = "wend@" + slot;
    EXPECT_EQ(ProblemWith({"--module", text.c_str(), "--", "x"}),
              "--module: '" + slot + "' is not a slot number");
  }
  EXPECT_EQ(ProblemWith({"--module", "wend@2147483647", "--", "x"}), "none");
}

TEST(OptionsTest, SlotMustBeThere) {
  EXPECT_EQ(ProblemWith({"--module", "wend,chip=micron", "--", "x"}),
            "--module: a slot is missing after 'wend', as in wend@1");
}

TEST(OptionsTest, UnknownKeyIsRefused) {
  EXPECT_EQ(ProblemWith({"--module", "wend@1,colour=red", "--", "x"}),
            "--module: unknown key 'colour'");
  EXPECT_EQ(ProblemWith({"--module", "wend@1,chip=micron,", "--", "x"}),
            "--module: unknown key ''");
}

TEST(OptionsTest, KeyWithoutAValueIsRefused) {
  EXPECT_EQ(ProblemWith({"--module", "wend@1,chip", "--", "x"}),
            "--module: key 'chip' needs a value");
}

TEST(OptionsTest, KeyGivenTwiceIsRefused) {
  for (const std::string pair : {"flash=a",
                                 "chip=micron",
                                 "done=low",
                                 "i2c=none",
                                 "spi=none",
                                 "i2cdev=missing",
                                 "spidev=missing",
                                 "zynq-files=missing",
                                 "expander=absent",
                                 "flash-chip=absent",
                                 "program-lost=1",
                                 "erase-lost=1",
                                 "register-lost=1",
                                 "busy-after=1"}) {
    const std::string text = "wend@1," + pair + "," + pair;
    EXPECT_EQ(ProblemWith({"--module", text.c_str(), "--", "x"}),
              "--module: key '" + pair.substr(0, pair.find('=')) + "' is given twice");
  }
}

TEST(OptionsTest, KeyOfAnotherModuleIsNotGivenTwice) {
  EXPECT_EQ(ProblemWith({"--module", "wend@1,done=low", "--module", "wend@2,done=low", "--", "x"}),
            "none");
}

TEST(OptionsTest, WornPartsOfTheFlashCanBeRepeated) {
  EXPECT_EQ(ProblemWith({"--module",
                         "wend@1,worn-page=0,worn-page=0,worn-sector=0,worn-sector=65536",
                         "--",
                         "x"}),
            "none");
}

TEST(OptionsTest, LineThatIsHeldTwiceIsRefused) {
  EXPECT_EQ(ProblemWith({"--module", "dax@2,held=3:1,held=12:0,held=3:0", "--", "x"}),
            "--module: key 'held': line 3 is given twice");
  EXPECT_EQ(ProblemWith({"--module", "dax@2,held=3:1,held=3:1", "--", "x"}),
            "--module: key 'held': line 3 is given twice");
}

/// "held=3:1 on wend@1" for each key without effect.
std::vector<std::string> WithoutEffect(const char* module) {
  std::vector<std::string> texts;
  for (const KeyWithoutEffect& key : Parse({"--module", module, "--", "x"}).keysWithoutEffect) {
    texts.push_back(key.text + " on " + key.module);
  }
  return texts;
}

TEST(OptionsTest, KeysOfAnExpanderHaveNoEffectOnAWend) {
  EXPECT_EQ(WithoutEffect("wend@1,held=3:1,chip=micron,expander=absent,held=4:0"),
            (std::vector<std::string>{
                "held=3:1 on wend@1", "expander=absent on wend@1", "held=4:0 on wend@1"}));
}

TEST(OptionsTest, KeyOfControlFilesHasNoEffectOnModulesWithoutThem) {
  for (const std::string place : {"dax@2", "pyx1@4", "pyx2@5"}) {
    EXPECT_EQ(WithoutEffect((place + ",zynq-files=missing").c_str()),
              std::vector<std::string>{"zynq-files=missing on " + place});
  }
}

TEST(OptionsTest, EveryOtherKeyHasAnEffect) {
  const std::string keys =
      ",flash=a,chip=micron,done=low,i2c=none,spi=none,i2cdev=missing,spidev=missing,"
      "flash-chip=absent,program-lost=1,erase-lost=1,register-lost=1,busy-after=1,worn-page=0,"
      "worn-sector=0";
  EXPECT_EQ(WithoutEffect(("wend@1,zynq-files=missing" + keys).c_str()),
            std::vector<std::string>{});
  for (const std::string place : {"dax@2", "pyx1@4", "pyx2@5"}) {
    EXPECT_EQ(WithoutEffect((place + ",expander=absent,held=3:1" + keys).c_str()),
              std::vector<std::string>{});
  }
}

TEST(OptionsTest, UnhitRulesAndKeysCanBeAllowed) {
  EXPECT_FALSE(Parse({"--", "x"}).allowUnhit);
  EXPECT_TRUE(Parse({"--allow-unhit", "--", "x"}).allowUnhit);
}

struct ValueRow {
  const char* key;
  const char* value;
  const char* expected;
};

TEST(OptionsTest, UnknownValueIsRefused) {
  for (const ValueRow& row :
       {ValueRow{"flash", "", "a file name"},
        {"chip", "other", "micron or macronix"},
        {"done", "maybe", "auto, high, low or after:MS, MS up to 3600000"},
        {"done", "after:", "auto, high, low or after:MS, MS up to 3600000"},
        {"done", "after:x", "auto, high, low or after:MS, MS up to 3600000"},
        {"done", "after:3600001", "auto, high, low or after:MS, MS up to 3600000"},
        {"i2c", "", "a name in UTF-8"},
        {"i2c", "\xff", "a name in UTF-8"},
        {"spi", "", "a name in UTF-8"},
        {"i2cdev", "none", "missing"},
        {"spidev", "gone", "missing"},
        {"zynq-files", "x", "missing"},
        {"expander", "gone", "absent"},
        {"held", "16:0", "LINE:LEVEL, LINE 0 to 15, LEVEL 0 or 1"},
        {"held", "3:2", "LINE:LEVEL, LINE 0 to 15, LEVEL 0 or 1"},
        {"held", "3", "LINE:LEVEL, LINE 0 to 15, LEVEL 0 or 1"},
        {"held", ":1", "LINE:LEVEL, LINE 0 to 15, LEVEL 0 or 1"},
        {"flash-chip", "present", "absent"},
        {"program-lost", "0", "a number from 1 on"},
        {"erase-lost", "x", "a number from 1 on"},
        {"register-lost", "-1", "a number from 1 on"},
        {"busy-after", "", "a number from 1 on"},
        {"worn-page", "0x1000000", "an address of the flash, below 0x1000000"},
        {"worn-sector", "0xg", "an address of the flash, below 0x1000000"}}) {
    const std::string key = row.key;
    const std::string value = row.value;
    const std::string text = "wend@1," + key + "=" + value;
    EXPECT_EQ(ProblemWith({"--module", text.c_str(), "--", "x"}),
              "--module: key '" + key + "': '" + value + "' is not " + row.expected);
  }
}

TEST(OptionsTest, TwoModulesInOneSlotAreRefused) {
  EXPECT_EQ(ProblemWith({"--module", "wend@2", "--module", "wend@2", "--", "x"}),
            "--module: two modules in slot 2");
}

TEST(OptionsTest, TwoModulesWithOneFlashFileAreRefused) {
  EXPECT_EQ(ProblemWith({"--module", "wend@1,flash=f", "--module", "wend@2,flash=f", "--", "x"}),
            "--module: two modules with the flash file 'f'");
}

TEST(OptionsTest, BadFaultIsRefusedWithTheWordThatIsWrong) {
  EXPECT_EQ(ProblemWith({"--fault", "spi#0:EIO", "--", "x"}),
            "--fault: '#0': events are counted from 1");
}

TEST(OptionsTest, ClockStepIsANumberOfMillisecondsUpToAnHour) {
  EXPECT_EQ(Parse({"--", "x"}).clockStep, std::chrono::milliseconds(0));
  EXPECT_EQ(Parse({"--clock-step", "3600000", "--", "x"}).clockStep, std::chrono::hours(1));
  for (const char* const text : {"", "-1", "x", "3600001"}) {
    EXPECT_EQ(
        ProblemWith({"--clock-step", text, "--", "x"}),
        "--clock-step: '" + std::string(text) + "' is not a number of milliseconds up to 3600000");
  }
}

TEST(OptionsTest, TimingIsThatOfEveryModule) {
  const Options none = Parse({"--", "x"});
  EXPECT_EQ(none.timing, Timing::kPolls);
  EXPECT_EQ(none.modules[0].timing, Timing::kPolls);
  const Options typical = Parse({"--timing", "typical", "--", "x"});
  EXPECT_EQ(typical.timing, Timing::kTypical);
  ASSERT_EQ(typical.modules.size(), 4U);
  for (const ModuleOptions& module : typical.modules) {
    EXPECT_EQ(module.timing, Timing::kTypical);
  }
  const Options longest =
      Parse({"--timing=longest", "--module", "dax@2", "--module", "wend@1", "--", "x"});
  ASSERT_EQ(longest.modules.size(), 2U);
  EXPECT_EQ(longest.modules[0].timing, Timing::kLongest);
  EXPECT_EQ(longest.modules[1].timing, Timing::kLongest);
  EXPECT_EQ(Parse({"--timing", "polls", "--", "x"}).timing, Timing::kPolls);
}

TEST(OptionsTest, UnknownTimingIsRefused) {
  EXPECT_EQ(ProblemWith({"--timing", "real", "--", "x"}),
            "--timing: 'real' is not polls, typical or longest");
}

TEST(OptionsTest, SummaryIsTextUnlessItIsJson) {
  EXPECT_EQ(Parse({"--", "x"}).summary, SummaryForm::kNone);
  EXPECT_EQ(Parse({"--summary", "--timing", "typical", "--", "x"}).summary, SummaryForm::kText);
  EXPECT_EQ(Parse({"--summary=json", "--timing=longest", "--", "x"}).summary, SummaryForm::kJson);
}

TEST(OptionsTest, AnythingButJsonAsFormOfTheSummaryIsRefused) {
  EXPECT_EQ(ProblemWith({"--timing", "typical", "--summary=text", "--", "x"}),
            "--summary: 'text' is not json");
  EXPECT_EQ(ProblemWith({"--timing", "typical", "--summary=", "--", "x"}),
            "--summary: '' is not json");
}

TEST(OptionsTest, SecondSummaryIsRefused) {
  EXPECT_EQ(ProblemWith({"--timing", "typical", "--summary", "--summary=json", "--", "x"}),
            "--summary: is given twice");
}

TEST(OptionsTest, SummaryNeedsTimes) {
  for (const char* const option : {"--summary", "--summary=json"}) {
    EXPECT_EQ(ProblemWith({option, "--", "x"}),
              "--summary: works with --timing typical or longest only");
  }
}

TEST(OptionsTest, MessageCostIsANumberOfMicrosecondsUpToASecond) {
  EXPECT_EQ(Parse({"--timing", "typical", "--", "x"}).messageCost, std::chrono::microseconds(20));
  EXPECT_EQ(Parse({"--timing", "typical", "--message-cost", "0", "--", "x"}).messageCost,
            std::chrono::microseconds(0));
  EXPECT_EQ(Parse({"--message-cost", "1000000", "--timing", "longest", "--", "x"}).messageCost,
            std::chrono::seconds(1));
  for (const char* const text : {"", "-1", "x", "1.5", "1000001"}) {
    EXPECT_EQ(ProblemWith({"--timing", "typical", "--message-cost", text, "--", "x"}),
              "--message-cost: '" + std::string(text) +
                  "' is not a number of microseconds up to 1000000");
  }
}

TEST(OptionsTest, MessageCostWithPollsIsRefused) {
  EXPECT_EQ(ProblemWith({"--message-cost", "20", "--", "x"}),
            "--message-cost: has no effect with --timing polls");
  EXPECT_EQ(ProblemWith({"--message-cost", "20", "--timing", "polls", "--", "x"}),
            "--message-cost: has no effect with --timing polls");
}

TEST(OptionsTest, ClockStepWithoutPollsIsRefused) {
  for (const char* const timing : {"typical", "longest"}) {
    EXPECT_EQ(ProblemWith({"--clock-step", "0", "--timing", timing, "--", "x"}),
              "--clock-step: works with --timing polls only");
  }
  EXPECT_EQ(ProblemWith({"--clock-step", "5", "--timing", "polls", "--", "x"}), "none");
}

TEST(OptionsTest, UnknownServiceIsRefused) {
  EXPECT_EQ(ProblemWith({"--without", "shoes", "--", "x"}),
            "--without: 'shoes' is not inventory, resources, bus or selector");
}

}  // namespace
}  // namespace orvane
