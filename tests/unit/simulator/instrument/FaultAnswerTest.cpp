#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/instrument/FaultAnswer.h"

namespace orvane {
namespace {

using Numbers = std::vector<int>;

/// The end of the message, "none" when `answer` can come back.
std::string Problem(EventKind kind, std::string_view text, std::string_view answer) {
  return ProblemWithAnswer(kind, text, answer).value_or("none");
}

// --- Names of D-Bus errors ----------------------------------------------------------------------

TEST(FaultAnswerTest, DBusErrorNameHasTwoElementsOrMore) {
  EXPECT_TRUE(IsDBusErrorName("a.B"));
  EXPECT_TRUE(IsDBusErrorName("org.freedesktop.DBus.Error.Failed"));
  EXPECT_TRUE(IsDBusErrorName("_1._"));
  EXPECT_FALSE(IsDBusErrorName(""));
  EXPECT_FALSE(IsDBusErrorName("Failed"));
  EXPECT_FALSE(IsDBusErrorName("."));
  EXPECT_FALSE(IsDBusErrorName("a."));
  EXPECT_FALSE(IsDBusErrorName(".a"));
  EXPECT_FALSE(IsDBusErrorName("a..b"));
}

TEST(FaultAnswerTest, DBusErrorNameHasLettersDigitsAndUnderscores) {
  EXPECT_TRUE(IsDBusErrorName("azAZ_09.x"));
  EXPECT_FALSE(IsDBusErrorName("a-b.c"));
  EXPECT_FALSE(IsDBusErrorName("a.b c"));
  EXPECT_FALSE(IsDBusErrorName("a.\xc3\xa4"));
  EXPECT_FALSE(IsDBusErrorName(std::string_view("a.b\0", 4)));
}

TEST(FaultAnswerTest, NoElementOfADBusErrorNameBeginsWithADigit) {
  EXPECT_FALSE(IsDBusErrorName("1a.b"));
  EXPECT_FALSE(IsDBusErrorName("a.1b"));
}

TEST(FaultAnswerTest, LongestDBusErrorNameHas255Bytes) {
  EXPECT_TRUE(IsDBusErrorName("a." + std::string(253, 'b')));
  EXPECT_FALSE(IsDBusErrorName("a." + std::string(254, 'b')));
}

// --- D-Bus strings ------------------------------------------------------------------------------

TEST(FaultAnswerTest, DBusStringIsUtf8) {
  for (const std::string_view text : {"",
                                      "i2c-1",
                                      "\x7f",
                                      "\xc2\x80",          // U+0080
                                      "\xdf\xbf",          // U+07FF
                                      "\xe0\xa0\x80",      // U+0800
                                      "\xed\x9f\xbf",      // U+D7FF
                                      "\xee\x80\x80",      // U+E000
                                      "\xef\xbf\xbf",      // U+FFFF
                                      "\xf0\x90\x80\x80",  // U+10000
                                      "\xf4\x8f\xbf\xbf"}) {
    EXPECT_TRUE(IsDBusString(text)) << text;
  }
}

TEST(FaultAnswerTest, OtherBytesAreNoDBusString) {
  for (const std::string_view text : {"\x80",  // a continuation alone
                                      "\xbf",
                                      "a\xff",
                                      "\xfe",
                                      "\xf8\x88\x80\x80\x80",  // five bytes
                                      "\xc2",                  // cut off
                                      "\xe0\xa0",
                                      "\xf0\x90\x80",
                                      "\xc2 ",  // a letter instead of a continuation
                                      "\xe0\xa0 ",
                                      "\xc2\xc0",
                                      "\xc0\x80",  // written longer than needed
                                      "\xc1\xbf",
                                      "\xe0\x9f\xbf",
                                      "\xf0\x8f\xbf\xbf",
                                      "\xed\xa0\x80",  // surrogates
                                      "\xed\xbf\xbf",
                                      "\xf4\x90\x80\x80"}) {  // beyond U+10FFFF
    EXPECT_FALSE(IsDBusString(text)) << text;
  }
}

TEST(FaultAnswerTest, NullCharacterIsInNoDBusString) {
  EXPECT_FALSE(IsDBusString(std::string_view("\0", 1)));
  EXPECT_FALSE(IsDBusString(std::string_view("a\0b", 3)));
}

// --- Numbers ------------------------------------------------------------------------------------

TEST(FaultAnswerTest, NumbersAreSeparatedByWhiteSpace) {
  EXPECT_EQ(ParseNumbers("1 2 4"), (Numbers{1, 2, 4}));
  EXPECT_EQ(ParseNumbers(" 1\t2\n"), (Numbers{1, 2}));
  EXPECT_EQ(ParseNumbers("2147483647 -2147483648"), (Numbers{2'147'483'647, -2'147'483'647 - 1}));
  EXPECT_EQ(ParseNumbers(""), Numbers{});
  EXPECT_EQ(ParseNumbers(" "), Numbers{});
}

TEST(FaultAnswerTest, OtherWordsAreNoNumbers) {
  for (const std::string_view text :
       {"x", "1 x", "1,2", "0x1", "1.5", "2147483648", "-2147483649"}) {
    EXPECT_EQ(ParseNumbers(text), std::nullopt) << text;
  }
}

// --- D-Bus calls --------------------------------------------------------------------------------

TEST(FaultAnswerTest, AnswerOfTheLocationsIsAListOfNumbers) {
  EXPECT_EQ(Problem(EventKind::kDBus, "GetModuleLocations", "1 2"), "none");
  EXPECT_EQ(Problem(EventKind::kDBus, "GetModuleLocations", ""), "none");
  EXPECT_EQ(Problem(EventKind::kDBus, "GetModuleLocations", "1 x"),
            "cannot be the answer of GetModuleLocations (whole numbers with blanks between them)");
  EXPECT_EQ(Problem(EventKind::kDBus, "Locations", "x"),
            "cannot be the answer of GetModuleLocations (whole numbers with blanks between them)");
}

TEST(FaultAnswerTest, AnswerOfANameIsADBusString) {
  EXPECT_EQ(Problem(EventKind::kDBus, "GetI2CBus", "no numbers"), "none");
  EXPECT_EQ(Problem(EventKind::kDBus, "GetI2CBus", "\xff"),
            "cannot be the answer of GetI2CBus (UTF-8 without \\x00)");
  EXPECT_EQ(Problem(EventKind::kDBus, "SPIDev", "\xff"),
            "cannot be the answer of GetSPIDev (UTF-8 without \\x00)");
}

TEST(FaultAnswerTest, SlotInTheTextLeavesTheMethodsWithASlot) {
  EXPECT_EQ(Problem(EventKind::kDBus, "GetI2CBus 12", "x"), "none");
  EXPECT_EQ(Problem(EventKind::kDBus, "4", "x"), "none");
  EXPECT_EQ(Problem(EventKind::kDBus, " 4", "x"), "none");
  EXPECT_EQ(Problem(EventKind::kDBus, "4", "\xff"),
            "cannot be the answer of GetI2CBus (UTF-8 without \\x00)");
  EXPECT_EQ(Problem(EventKind::kDBus, "SPIDev 4", "\xff"),
            "cannot be the answer of GetSPIDev (UTF-8 without \\x00)");
}

TEST(FaultAnswerTest, AnswerForSeveralMethodsMustSuitAll) {
  for (const std::string_view text : {"", "Get"}) {
    EXPECT_EQ(Problem(EventKind::kDBus, text, "1 2"), "none");
    EXPECT_EQ(
        Problem(EventKind::kDBus, text, "i2c-1"),
        "cannot be the answer of GetModuleLocations (whole numbers with blanks between them)");
  }
}

TEST(FaultAnswerTest, TextOfNoMethodTakesAnyAnswer) {
  EXPECT_EQ(Problem(EventKind::kDBus, "GetColour", "\xff"), "none");
}

// --- Requests -----------------------------------------------------------------------------------

TEST(FaultAnswerTest, AnswerOfARequestIsANumberThatFits) {
  EXPECT_EQ(Problem(EventKind::kIoctl, "RD_MAX_SPEED_HZ", "4294967295"), "none");
  EXPECT_EQ(Problem(EventKind::kIoctl, "SPI_IOC_RD_BITS_PER_WORD", "255"), "none");
  EXPECT_EQ(Problem(EventKind::kIoctl, "MODE32", "256"), "none");
  EXPECT_EQ(Problem(EventKind::kIoctl, "MAX_SPEED", "4294967296"),
            "cannot be the answer of SPI_IOC_RD_MAX_SPEED_HZ (a number from 0 to 4294967295)");
  EXPECT_EQ(Problem(EventKind::kIoctl, "RD_BITS", "256"),
            "cannot be the answer of SPI_IOC_RD_BITS_PER_WORD (a number from 0 to 255)");
}

TEST(FaultAnswerTest, OtherWordsAreNoAnswerOfARequest) {
  for (const std::string_view answer : {"", "x", "1x", " 1", "-1", "0x10", "1 2"}) {
    EXPECT_EQ(Problem(EventKind::kIoctl, "RD_LSB_FIRST", answer),
              "cannot be the answer of SPI_IOC_RD_LSB_FIRST (a number from 0 to 255)")
        << answer;
  }
}

TEST(FaultAnswerTest, PathBeforeARequestIsNoPartOfIt) {
  EXPECT_EQ(Problem(EventKind::kIoctl, "/dev/spidev1.0 SPI_IOC_RD_MAX", "256"), "none");
  EXPECT_EQ(Problem(EventKind::kIoctl, "0 SPI_IOC_RD_LSB", "256"),
            "cannot be the answer of SPI_IOC_RD_LSB_FIRST (a number from 0 to 255)");
}

TEST(FaultAnswerTest, AnswerForSeveralRequestsMustFitAll) {
  for (const std::string_view text :
       {"", "SPI_IOC_RD", "RD_MODE", "/dev/spidev1.0", "/dev/spidev1.0 "}) {
    EXPECT_EQ(Problem(EventKind::kIoctl, text, "255"), "none") << text;
    EXPECT_EQ(Problem(EventKind::kIoctl, text, "256"),
              "cannot be the answer of SPI_IOC_RD_MODE (a number from 0 to 255)")
        << text;
  }
}

// --- Bytes --------------------------------------------------------------------------------------

TEST(FaultAnswerTest, AnyBytesCanBeRead) {
  for (const EventKind kind : {EventKind::kRead, EventKind::kSpi, EventKind::kI2c}) {
    EXPECT_EQ(Problem(kind, "", std::string_view("\0\xff", 2)), "none");
  }
}

}  // namespace
}  // namespace orvane
