#include <gtest/gtest.h>

#include "companion/image/Quoted.h"

namespace {

using companion::Quoted;

TEST(QuotedTest, PlainTextIsShownInQuotes) { EXPECT_EQ(Quoted("wend 1.bin"), "\"wend 1.bin\""); }

TEST(QuotedTest, TextInUtf8IsKept) { EXPECT_EQ(Quoted("gr\xC3\xBCn"), "\"gr\xC3\xBCn\""); }

TEST(QuotedTest, LinesAndEscapeSequencesOfTheTerminalStayInOneLine) {
  EXPECT_EQ(Quoted("a\nb\x1B[2Jc\"\\"), R"("a\nb\u001b[2Jc\"\\")");
}

TEST(QuotedTest, NulIsShown) { EXPECT_EQ(Quoted({"a\0b", 3}), R"("a\u0000b")"); }

TEST(QuotedTest, BytesThatAreNoUtf8AreReplaced) { EXPECT_EQ(Quoted("a\xFF"), "\"a\xEF\xBF\xBD\""); }

}  // namespace
