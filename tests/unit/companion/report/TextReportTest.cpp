#include <gtest/gtest.h>

#include "companion/report/TextReport.h"
#include "tests/unit/companion/report/SampleResults.h"

namespace companion::test {
namespace {

const std::string kSum(64, 'b');

TEST(TextReportTest, UpdateIsTextWithTheVerdictLast) {
  EXPECT_EQ(UpdateText(WrittenWend()),
            "module: wend in slot 1, \"i2c-1\", \"spidev1.0\"\n"
            "image: \"new.bin\", 1000 bytes, \"2024-05-06 07:08:09\"\n"
            "SHA-256 of the image: " +
                kSum +
                "\n"
                "flash before: \"2023-01-02 03:04:05\"\n"
                "attempt 1: tarnwick ended with 6\n"
                "attempt 2: tarnwick ended with 0\n"
                "chip: 20ba18, not protected\n"
                "DONE: high\n"
                "The flash holds the image, and it was taken into use.\n");
}

TEST(TextReportTest, RefusalBeforeAnythingIsKnownIsShort) {
  UpdateResult result;
  result.target = "pyx1";
  result.slot = 4;
  result.verdict = "Refused: the image is empty.";
  EXPECT_EQ(UpdateText(result), "module: pyx1 in slot 4\nRefused: the image is empty.\n");
}

TEST(TextReportTest, EachEndOfTarnwickHasALine) {
  UpdateResult result = WrittenWend();
  result.runs[0].run = {.problem = "not found"};
  result.runs[1].run = {.signal = 9};
  result.stampBefore.reset();
  result.image->stamp.reset();
  result.unfinished = true;
  result.readings[1].found.chip.status = 0x04;
  result.intoUse[0].found.done = DoneLine::kLow;
  result.intoUse[0].found.endpoint = Endpoint::kAbsent;
  EXPECT_EQ(UpdateText(result),
            "module: wend in slot 1, \"i2c-1\", \"spidev1.0\"\n"
            "image: \"new.bin\", 1000 bytes, without a stamp\n"
            "SHA-256 of the image: " +
                kSum +
                "\n"
                "flash before: without a stamp\n"
                "attempt 1: tarnwick could not be started\n"
                "attempt 2: tarnwick was ended by signal 9\n"
                "chip: 20ba18, protected in part\n"
                "DONE: high, then low\n"
                "PCIe endpoint: absent\n"
                "an earlier update of this slot was not finished\n"
                "The flash holds the image, and it was taken into use.\n");
}

TEST(TextReportTest, VerifyNamesTheStampOfTheFlash) {
  VerifyResult result;
  static_cast<ModuleResult&>(result) = WrittenWend();
  result.equal = true;
  result.stampThere = "2024";
  result.readings[1].found.chip = {.id = {0xC2, 0x20, 0x18}, .status = 0x3C, .config = 0x08};
  result.verdict = "The flash holds the image.";
  EXPECT_EQ(VerifyText(result),
            "module: wend in slot 1, \"i2c-1\", \"spidev1.0\"\n"
            "image: \"new.bin\", 1000 bytes, \"2024-05-06 07:08:09\"\n"
            "SHA-256 of the image: " +
                kSum +
                "\n"
                "flash: \"2024\"\n"
                "chip: c22018, protected whole\n"
                "DONE: high\n"
                "The flash holds the image.\n");
}

TEST(TextReportTest, VerifyWithoutAnAnswerNamesNoStamp) {
  VerifyResult result;
  result.target = "dax";
  result.slot = 2;
  result.verdict = "Locked.";
  EXPECT_EQ(VerifyText(result), "module: dax in slot 2\nLocked.\n");
}

TEST(TextReportTest, ReadNamesItsFileOnlyWhenItIsStored) {
  ReadResult result;
  static_cast<ModuleResult&>(result) = WrittenWend();
  result.file = "flash.bin";
  result.verdict = "Read.";
  const std::string start =
      "module: wend in slot 1, \"i2c-1\", \"spidev1.0\"\n"
      "chip: 20ba18, not protected\n"
      "DONE: high\n";
  EXPECT_EQ(ReadText(result), start + "Read.\n");
  result.sha256 = "sum";
  EXPECT_EQ(ReadText(result), start + "file: \"flash.bin\"\nRead.\n");
}

}  // namespace
}  // namespace companion::test
