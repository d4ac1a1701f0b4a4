#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/instrument/Escape.h"

namespace orvane {
namespace {

TEST(QuoteTest, PrintableTextStaysAsItIs) { EXPECT_EQ(Quote("a 'b' #~"), "\"a 'b' #~\""); }

TEST(QuoteTest, ControlCharactersBecomeEscapes) {
  EXPECT_EQ(Quote("a\n\t\r\"\\"), R"("a\n\t\r\"\\")");
}

TEST(QuoteTest, OtherBytesBecomeTwoHexDigits) {
  EXPECT_EQ(Quote(std::string("\0\x1f\x7f\xff", 4)), R"("\x00\x1f\x7f\xff")");
}

TEST(UnescapeTest, UndoesWhatQuoteDoes) {
  EXPECT_EQ(Unescape(R"(a\n\t\r\"\\\x00\xfFb)"),
            std::string("a\n\t\r\"\\\0\xff"
                        "b",
                        9));
}

TEST(UnescapeTest, AnythingElseBehindABackslashIsRefused) {
  for (const char* const text : {"\\", "\\q", "\\x", "\\x1", "\\xg0", "\\x0g", "\\x-1"}) {
    EXPECT_THROW(Unescape(text), std::invalid_argument) << text;
  }
}

TEST(HexBytesTest, BytesAreApart) { EXPECT_EQ(HexBytes("\x0a\xff"), "0a ff"); }

TEST(HexBytesTest, NothingIsNothing) { EXPECT_EQ(HexBytes(""), ""); }

TEST(LimitedHexBytesTest, ThirtyTwoBytesAreShownAndTheOthersCounted) {
  std::vector<std::uint8_t> bytes = {0x0A, 0xFF};
  EXPECT_EQ(LimitedHexBytes(bytes), "0a ff");
  bytes.resize(32);
  const std::string shown =
      "0a ff 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
      "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00";
  EXPECT_EQ(LimitedHexBytes(bytes), shown);
  bytes.resize(33);
  EXPECT_EQ(LimitedHexBytes(bytes), shown + " ... +1");
  EXPECT_EQ(LimitedHexBytes({}), "");
}

TEST(HexNumberTest, NumberHasAtLeastTheDigits) {
  EXPECT_EQ(HexNumber(0x21, 2), "0x21");
  EXPECT_EQ(HexNumber(0x21, 4), "0x0021");
  EXPECT_EQ(HexNumber(0xFFFFFFFF, 2), "0xffffffff");
  EXPECT_EQ(HexNumber(0, 1), "0x0");
}

}  // namespace
}  // namespace orvane
