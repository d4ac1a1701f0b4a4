// flashrom, a general tool for flash chips, unmodified on the virtual instrument: what nobody of this
// project wrote finds, reads, writes, erases and verifies the models of the chips.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <random>
#include <string>
#include <tuple>

#include "tests/e2e/simulator/SimulatorRun.h"

namespace orvane {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr const char* kFlashrom = "/usr/sbin/flashrom";
constexpr std::size_t kFlashBytes = 16U << 20;
constexpr std::size_t kPageBytes = 256;

// The exit codes of flashrom.
constexpr int kSuccess = 0;
constexpr int kNoChip = 1;  // none, or several definitions match
constexpr int kWriteFailed = 2;
constexpr int kContentsDiffer = 3;

// Its ends are in the middle of the smallest blocks that can be erased.
constexpr std::size_t kRegion = 0x020100;
constexpr std::size_t kRegionEnd = 0x03FF00;
constexpr const char* kLayout = "00020100:0003feff part\n";
constexpr const char* kInRegion = " -l layout -i part";

/// How instrument time passes.
struct Timing {
  const char* label;
  const char* options;  // of orvane-sim
};
std::ostream& operator<<(std::ostream& out, const Timing& timing) { return out << timing.label; }
// For each delay flashrom reads the clock until the time has passed. A stepped clock makes it short.
constexpr Timing kPolls = {"Polls", "--clock-step 5"};
constexpr Timing kTypical = {"Typical", "--fast --timing typical"};
constexpr Timing kTimings[] = {kPolls, kTypical};

/// A chip, and a definition of flashrom that matches it.
struct Definition {
  const char* label;
  const char* chip;  // of the module
  const char* name;
};
std::ostream& operator<<(std::ostream& out, const Definition& one) { return out << one.name; }
constexpr Definition kDefinitions[] = {
    {"N25Q128", "micron", "N25Q128..3E"},
    {"MX25L12805D", "macronix", "MX25L12805D"},
    {"MX25L12833F", "macronix", "MX25L12833F/MX25L12835F/MX25L12845E/MX25L12865E/MX25L12873F"}};
constexpr const char* kFourByteDefinition = "MT25QL128";

/// Random contents of a whole flash.
std::string Contents(std::uint64_t seed) {
  std::mt19937_64 random(seed);
  std::string contents(kFlashBytes, '\0');
  for (std::size_t at = 0; at < kFlashBytes; at += sizeof(std::uint64_t)) {
    const std::uint64_t bits = random();
    std::memcpy(contents.data() + at, &bits, sizeof bits);
  }
  return contents;
}

/// What flashrom has found and done. Left out: the lines before it, about flashrom itself and the
/// system, and the paragraph that asks for reports about operations that are marked as untested.
std::string Told(const std::string& out) {
  std::string told = out.substr(std::min(out.find("Found "), out.size()));
  constexpr const char* kThanks = "Thanks for your help!\n";
  const std::size_t request = told.find("===\n");
  const std::size_t thanks = told.find(kThanks);
  if (request != std::string::npos && thanks != std::string::npos) {
    told.erase(request, thanks + std::strlen(kThanks) - request);
  }
  return told;
}

/// A wend in slot 1 whose flash holds Contents(1). Contents(2) are in the file "new".
class FlashromTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(::access(kFlashrom, X_OK), 0) << kFlashrom << " is not installed";
    run_.WithoutLog();
    run_.WriteFile("flash", before_);
    run_.WriteFile("new", new_);
    run_.WriteFile("layout", kLayout);
  }

  /// @param keys  more of the module, ",KEY=VALUE..."
  void PlugIn(const std::string& chip, const Timing& timing, const std::string& keys = "") {
    run_.Option(timing.options);
    run_.Option("--module wend@1,flash=flash,chip=" + chip + keys);
  }

  /// Lets the controller have the flash and runs flashrom with these words.
  SimulatorOutcome Flashrom(const std::string& words) {
    return run_.Shell("echo 1 >/sys/platform_m1/qspi_prg/value && exec " + Line(words));
  }
  static std::string Line(const std::string& words) {
    return std::string(kFlashrom) + " -p linux_spi:dev=/dev/spidev1.0,spispeed=19000 " + words;
  }

  /// The old contents with the region replaced by that of others.
  std::string WithRegion(const std::string& others) const {
    std::string contents = before_;
    contents.replace(kRegion, kRegionEnd - kRegion, others, kRegion, kRegionEnd - kRegion);
    return contents;
  }

  /// Compared by value: a difference of 16 MiB is not to be printed.
  bool Holds(const char* file, const std::string& contents) const {
    return run_.ReadFile(file) == contents;
  }

  SimulatorRun run_;
  const std::string before_ = Contents(1);
  const std::string new_ = Contents(2);
  const std::string erased_ = std::string(kFlashBytes, '\xFF');
};

// --- With the definition of the chip ------------------------------------------------------------

class FlashromByDefinitionTest
    : public FlashromTest,
      public testing::WithParamInterface<std::tuple<Definition, Timing>> {
 protected:
  void PlugIn(const std::string& keys = "") {
    FlashromTest::PlugIn(std::get<0>(GetParam()).chip, std::get<1>(GetParam()), keys);
  }
  /// Runs flashrom with the definition and these words.
  SimulatorOutcome Flashrom(const std::string& words) {
    return FlashromTest::Flashrom("-c " + Name() + " " + words);
  }
  static std::string Name() { return std::get<0>(GetParam()).name; }
  /// The line about the chip.
  static std::string Found() {
    const std::string chip = std::get<0>(GetParam()).chip;
    return "Found " + std::string(chip == "micron" ? "Micron/Numonyx/ST" : "Macronix") +
           " flash chip \"" + Name() + "\" (16384 kB, SPI) on linux_spi.\n";
  }
};

std::string LabelOf(const testing::TestParamInfo<std::tuple<Definition, Timing>>& row) {
  return std::string(std::get<0>(row.param).label) + std::get<1>(row.param).label;
}

INSTANTIATE_TEST_SUITE_P(Chips,
                         FlashromByDefinitionTest,
                         testing::Combine(testing::ValuesIn(kDefinitions),
                                          testing::ValuesIn(kTimings)),
                         LabelOf);

/// What takes minutes of instrument time, in which flashrom reads the clock without a pause.
using FlashromForMinutesTest = FlashromByDefinitionTest;
INSTANTIATE_TEST_SUITE_P(Chips,
                         FlashromForMinutesTest,
                         testing::Combine(testing::ValuesIn(kDefinitions), testing::Values(kPolls)),
                         LabelOf);

/// A chip whose whole flash is protected. Its registers are written in the times of the data sheet.
class FlashromUnlockTest : public FlashromByDefinitionTest {
 protected:
  static constexpr const char* kProtected = ",registers=24:00";  // level 9
};
INSTANTIATE_TEST_SUITE_P(Chips,
                         FlashromUnlockTest,
                         testing::Combine(testing::Values(kDefinitions[1], kDefinitions[2]),
                                          testing::Values(kTypical)),
                         LabelOf);

TEST_P(FlashromByDefinitionTest, ChipIsFound) {
  PlugIn();
  const SimulatorOutcome outcome = Flashrom("");
  EXPECT_EQ(outcome.status, kSuccess);
  EXPECT_EQ(Told(outcome.out), Found() + "No operations were specified.\n");
  EXPECT_EQ(outcome.err, "");
  EXPECT_TRUE(Holds("flash", before_));
}

TEST_P(FlashromByDefinitionTest, WholeFlashIsRead) {
  PlugIn();
  const SimulatorOutcome outcome = Flashrom("-r read");
  EXPECT_EQ(outcome.status, kSuccess);
  EXPECT_EQ(Told(outcome.out), Found() + "Reading flash... done.\n");
  EXPECT_EQ(outcome.err, "");
  EXPECT_TRUE(Holds("read", before_));
  EXPECT_TRUE(Holds("flash", before_));
}

TEST_P(FlashromByDefinitionTest, RegionIsWrittenAndVerifiedAndAllElseIsKept) {
  PlugIn();
  const SimulatorOutcome outcome = Flashrom("-w new" + std::string(kInRegion));
  EXPECT_EQ(outcome.status, kSuccess);
  EXPECT_EQ(Told(outcome.out),
            Found() +
                "Reading old flash chip contents... done.\n"
                "Erasing and writing flash chip... Erase/write done.\n"
                "Verifying flash... VERIFIED.\n");
  EXPECT_EQ(outcome.err, "");
  EXPECT_TRUE(Holds("flash", WithRegion(new_)));
}

TEST_P(FlashromByDefinitionTest, RegionIsErasedAndAllElseIsKept) {
  PlugIn();
  const SimulatorOutcome outcome = Flashrom("-E" + std::string(kInRegion));
  EXPECT_EQ(outcome.status, kSuccess);
  EXPECT_EQ(Told(outcome.out), Found() + "Erasing and writing flash chip... Erase/write done.\n");
  EXPECT_EQ(outcome.err, "");
  EXPECT_TRUE(Holds("flash", WithRegion(erased_)));
}

TEST_P(FlashromForMinutesTest, WholeFlashIsErased) {
  PlugIn();
  const SimulatorOutcome outcome = Flashrom("-E");
  EXPECT_EQ(outcome.status, kSuccess);
  EXPECT_EQ(Told(outcome.out), Found() + "Erasing and writing flash chip... Erase/write done.\n");
  EXPECT_EQ(outcome.err, "");
  EXPECT_TRUE(Holds("flash", erased_));
}

TEST_P(FlashromByDefinitionTest, EqualContentsAreVerified) {
  run_.WriteFile("new", before_);
  PlugIn();
  const SimulatorOutcome outcome = Flashrom("-v new");
  EXPECT_EQ(outcome.status, kSuccess);
  EXPECT_EQ(Told(outcome.out), Found() + "Verifying flash... VERIFIED.\n");
  EXPECT_EQ(outcome.err, "");
  EXPECT_TRUE(Holds("flash", before_));
}

TEST_P(FlashromByDefinitionTest, OneOtherByteIsNotVerified) {
  constexpr std::size_t kAddress = 0xABCDEF;
  std::string other = before_;
  other[kAddress] = '\x00';
  run_.WriteFile("new", other);
  other[kAddress] = '\x01';
  run_.WriteFile("flash", other);
  PlugIn();
  const SimulatorOutcome outcome = Flashrom("-v new");
  EXPECT_EQ(outcome.status, kContentsDiffer);
  EXPECT_EQ(Told(outcome.out), Found() + "Verifying flash... ");
  EXPECT_EQ(outcome.err,
            "FAILED at 0x00abcdef! Expected=0x00, Found=0x01, failed byte count from "
            "0x00000000-0x00ffffff: 0x1\n");
}

TEST_P(FlashromByDefinitionTest, LostPageIsNotVerified) {
  constexpr std::size_t kSecondPage = kRegion + kPageBytes;
  run_.WriteFile("flash", WithRegion(erased_));
  std::string wanted = WithRegion(new_);
  wanted.replace(kSecondPage, kPageBytes, kPageBytes, '\0');
  run_.WriteFile("new", wanted);
  PlugIn(",program-lost=2");
  const SimulatorOutcome outcome = Flashrom("-w new" + std::string(kInRegion));
  EXPECT_EQ(outcome.status, kContentsDiffer);
  EXPECT_EQ(Told(outcome.out),
            Found() +
                "Reading old flash chip contents... done.\n"
                "Erasing and writing flash chip... Erase/write done.\n"
                "Verifying flash... ");
  EXPECT_EQ(outcome.err,
            "FAILED at 0x00020200! Expected=0x00, Found=0xff, failed byte count from "
            "0x00000000-0x00ffffff: 0x100\n"
            "Your flash chip is in an unknown state.\n"
            "Please report this to the mailing list at flashrom@flashrom.org or\n"
            "on IRC (see https://www.flashrom.org/Contact for details), thanks!\n");
  EXPECT_TRUE(Holds("flash", wanted.replace(kSecondPage, kPageBytes, kPageBytes, '\xFF')));
}

// As long as the erases of 4 KiB work, flashrom sends no other one.
TEST_P(FlashromByDefinitionTest, LostEraseOfABlockIsFollowedByThatOfItsSector) {
  run_.Option("--log events");
  PlugIn(",erase-lost=2");
  const SimulatorOutcome outcome = Flashrom("-w new" + std::string(kInRegion));
  EXPECT_EQ(outcome.status, kSuccess);
  EXPECT_THAT(Told(outcome.out),
              EndsWith("Looking for another erase function.\n"
                       "Erase/write done.\n"
                       "Verifying flash... VERIFIED.\n"));
  EXPECT_THAT(outcome.err, StartsWith("FAILED at 0x00021000! Expected=0xff, "));
  EXPECT_THAT(outcome.err, EndsWith("\nERASE FAILED!\n"));
  EXPECT_THAT(run_.ReadFile("events"), HasSubstr("\nspi /dev/spidev1.0 SE 0x020000\n"));
  EXPECT_TRUE(Holds("flash", WithRegion(new_)));
}

TEST_P(FlashromUnlockTest, ProtectedRegionIsWrittenAndProtectedAgain) {
  run_.Option("--log events --state state");
  PlugIn(kProtected);
  const SimulatorOutcome outcome = Flashrom("-w new" + std::string(kInRegion));
  EXPECT_EQ(outcome.status, kSuccess);
  EXPECT_EQ(Told(outcome.out),
            Found() +
                "Reading old flash chip contents... done.\n"
                "Erasing and writing flash chip... Erase/write done.\n"
                "Verifying flash... VERIFIED.\n");
  EXPECT_EQ(outcome.err, "");
  EXPECT_TRUE(Holds("flash", WithRegion(new_)));
  EXPECT_THAT(run_.ReadFile("events"),
              HasSubstr("\nspi /dev/spidev1.0 WREN\nspi /dev/spidev1.0 WRSR 00\n"));
  EXPECT_THAT(run_.ReadFile("state"), StartsWith("1 done=0 qspi_prg=1 registers=24:00 "));
}

// --- Without a definition, or with the wrong one ------------------------------------------------

class FlashromByTimingTest : public FlashromTest, public testing::WithParamInterface<Timing> {};

INSTANTIATE_TEST_SUITE_P(Timings,
                         FlashromByTimingTest,
                         testing::ValuesIn(kTimings),
                         [](const auto& row) { return std::string(row.param.label); });

TEST_P(FlashromByTimingTest, TwoDefinitionsMatchAMicron) {
  PlugIn("micron", GetParam());
  const SimulatorOutcome outcome = Flashrom("");
  EXPECT_EQ(outcome.status, kNoChip);
  EXPECT_EQ(Told(outcome.out),
            "Found Micron/Numonyx/ST flash chip \"N25Q128..3E\" (16384 kB, SPI) on linux_spi.\n"
            "Found Micron flash chip \"MT25QL128\" (16384 kB, SPI) on linux_spi.\n"
            "Multiple flash chip definitions match the detected chip(s): \"N25Q128..3E\", "
            "\"MT25QL128\"\n"
            "Please specify which chip definition to use with the -c <chipname> option.\n");
  EXPECT_EQ(outcome.err, "");
}

TEST_P(FlashromByTimingTest, TwoDefinitionsMatchAMacronix) {
  PlugIn("macronix", GetParam());
  const SimulatorOutcome outcome = Flashrom("");
  EXPECT_EQ(outcome.status, kNoChip);
  EXPECT_EQ(Told(outcome.out),
            "Found Macronix flash chip \"MX25L12805D\" (16384 kB, SPI) on linux_spi.\n"
            "Found Macronix flash chip "
            "\"MX25L12833F/MX25L12835F/MX25L12845E/MX25L12865E/MX25L12873F\" (16384 kB, SPI) on "
            "linux_spi.\n"
            "Multiple flash chip definitions match the detected chip(s): \"MX25L12805D\", "
            "\"MX25L12833F/MX25L12835F/MX25L12845E/MX25L12865E/MX25L12873F\"\n"
            "Please specify which chip definition to use with the -c <chipname> option.\n");
  EXPECT_EQ(outcome.err, "");
}

TEST_P(FlashromByTimingTest, DefinitionOfTheOtherMakerFindsNoChip) {
  PlugIn("macronix", GetParam());
  const SimulatorOutcome outcome = Flashrom("-c N25Q128..3E");
  EXPECT_EQ(outcome.status, kNoChip);
  EXPECT_THAT(outcome.out, HasSubstr("\nNo EEPROM/flash device found.\n"));
}

TEST_P(FlashromByTimingTest, NoChipIsFoundWhileTheZynqOwnsTheFlash) {
  PlugIn("micron", GetParam());
  const SimulatorOutcome outcome = run_.Shell("exec " + Line("-c N25Q128..3E"));
  EXPECT_EQ(outcome.status, kNoChip);
  EXPECT_THAT(outcome.out, HasSubstr("\nNo EEPROM/flash device found.\n"));
}

/// The definition that sends four bytes of address, which the model does not have.
class FourByteDefinitionTest : public FlashromByTimingTest {
 protected:
  SimulatorOutcome FourByte(const std::string& words) {
    PlugIn("micron", GetParam());
    return Flashrom("-c " + std::string(kFourByteDefinition) + " " + words);
  }
  static constexpr const char* kFound =
      "Found Micron flash chip \"MT25QL128\" (16384 kB, SPI) on linux_spi.\n";
};

INSTANTIATE_TEST_SUITE_P(Timings,
                         FourByteDefinitionTest,
                         testing::ValuesIn(kTimings),
                         [](const auto& row) { return std::string(row.param.label); });

using FourByteForMinutesTest = FourByteDefinitionTest;
INSTANTIATE_TEST_SUITE_P(Timings,
                         FourByteForMinutesTest,
                         testing::Values(kPolls),
                         [](const auto& row) { return std::string(row.param.label); });

TEST_P(FourByteDefinitionTest, ReadsZerosBecauseTheChipIgnoresItsCommands) {
  run_.Option("--log events");
  const SimulatorOutcome outcome = FourByte("-r read" + std::string(kInRegion));
  EXPECT_EQ(outcome.status, kSuccess);
  EXPECT_EQ(Told(outcome.out), std::string(kFound) + "Reading flash... done.\n");
  EXPECT_EQ(outcome.err, "");
  EXPECT_TRUE(Holds("flash", before_));
  EXPECT_EQ(run_.ReadFile("read").substr(kRegion, kRegionEnd - kRegion),
            std::string(kRegionEnd - kRegion, '\0'));
  const std::string log = run_.ReadFile("events");
  EXPECT_THAT(log, HasSubstr("\nspi /dev/spidev1.0 WREN\nspi /dev/spidev1.0 b7\n"));
  EXPECT_THAT(log, HasSubstr("\nspi /dev/spidev1.0 13 00 02 01 00 = 00 00 "));
  EXPECT_THAT(log, Not(HasSubstr("spi /dev/spidev1.0 READ")));
}

TEST_P(FourByteDefinitionTest, VerifiesNothing) {
  run_.WriteFile("new", before_);
  const SimulatorOutcome outcome = FourByte("-v new" + std::string(kInRegion));
  EXPECT_EQ(outcome.status, kContentsDiffer);
  EXPECT_EQ(Told(outcome.out), std::string(kFound) + "Verifying flash... ");
  EXPECT_THAT(outcome.err, StartsWith("FAILED at 0x00020100! Expected=0x"));
  EXPECT_THAT(outcome.err, HasSubstr(", Found=0x00, "));
}

// It tries one way to erase after the other. The last ones erase the whole chip, and have no address.
TEST_P(FourByteForMinutesTest, WriteOfARegionFailsAndErasesTheWholeFlash) {
  const SimulatorOutcome outcome = FourByte("-w new" + std::string(kInRegion));
  EXPECT_EQ(outcome.status, kWriteFailed);
  EXPECT_THAT(outcome.out, HasSubstr("\nNo usable erase functions left.\n"));
  EXPECT_THAT(outcome.err, StartsWith("FAILED at 0x00020000! Expected=0xff, Found=0x00, "));
  EXPECT_TRUE(Holds("flash", erased_));
}

// --- Nothing but the instrument -----------------------------------------------------------------

TEST_F(FlashromTest, NeedsNoOptionOfTheInstrument) {
  PlugIn("micron", {.label = "", .options = ""});
  const SimulatorOutcome outcome = Flashrom("-c N25Q128..3E -w new" + std::string(kInRegion));
  EXPECT_EQ(outcome.status, kSuccess);
  EXPECT_THAT(outcome.out, HasSubstr("\nVerifying flash... VERIFIED.\n"));
  EXPECT_EQ(outcome.err, "");
  EXPECT_TRUE(Holds("flash", WithRegion(new_)));
}

}  // namespace
}  // namespace orvane
