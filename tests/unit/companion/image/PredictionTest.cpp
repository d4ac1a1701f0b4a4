#include <gtest/gtest.h>

#include "companion/image/Gunzip.h"
#include "companion/image/Prediction.h"
#include "tests/unit/companion/image/Images.h"

namespace {

using namespace companion;
using images::Bytes;

/// What ReadImageFile() makes of a file.
ImageFile Image(const Bytes& file) {
  ImageFile image;
  if (!IsGzip(file)) {
    image.bytes = file;
    return image;
  }
  Gunzipped gunzipped = Gunzip(file, kFlashBytes);
  image.packing = gunzipped.packing;
  image.packed = file;
  image.bytes = gunzipped.bytes;
  return image;
}

std::string Over(const Bytes& head, const char* target, const Bytes& file) {
  return Predict(Image(file), target, head).text;
}

std::string OverBlank(const char* target, const Bytes& file) {
  return Over(BlankHead(target), target, file);
}

std::string OverSame(const char* target, const Bytes& file) {
  return Over(HeadThatHolds(Image(file), target), target, file);
}

std::string OverOther(const char* target, const Bytes& file) {
  return Over(HeadOfAnother(Image(file), target), target, file);
}

constexpr const char* kWritten = "0 (written; 7 when the FPGA does not start from it)";
constexpr const char* kWrittenToDax = "0 (written; in use at the next power-on)";
constexpr const char* kUpToDate = "11 (up to date, nothing is written)";
constexpr const char* kEndless = "runs for ever (damaged gzip data; nothing is erased or written)";
constexpr const char* kException =
    "134 (an exception: the file is shorter than a boot header; nothing is written)";
constexpr const char* kNotCompared = "6 (written, but it looks for the date in the file as it is)";

TEST(PredictionTest, ImageWithStampOrDateIsWrittenOverABlankFlash) {
  EXPECT_EQ(OverBlank("wend", images::BootImage("n#d#")), kWritten);
  EXPECT_EQ(OverBlank("dax", images::StampedBitstream()), kWrittenToDax);
  EXPECT_EQ(OverBlank("pyx1", images::StampedBitstream()), kWritten);
  EXPECT_EQ(OverBlank("pyx2", images::BootImage("n#d#")), kWritten);
}

TEST(PredictionTest, ImageWithStampOrDateIsUpToDateOverItself) {
  for (const char* const target : {"dax", "pyx1"}) {
    EXPECT_EQ(OverSame(target, images::StampedBitstream()), kUpToDate);
  }
  for (const char* const target : {"wend", "pyx2"}) {
    EXPECT_EQ(OverSame(target, images::BootImage("n#d#")), kUpToDate);
  }
}

TEST(PredictionTest, ImageIsWrittenOverAnother) {
  EXPECT_EQ(OverOther("wend", images::BootImage("n#d#")), kWritten);
  EXPECT_EQ(OverOther("dax", images::StampedBitstream()), kWrittenToDax);
  EXPECT_EQ(OverOther("dax", images::Bitstream()), kWrittenToDax);
}

TEST(PredictionTest, OutcomeIsInTheMembersToo) {
  const Prediction exit = Predict(Image(images::BootImage("n#d#")), "wend", BlankHead("wend"));
  EXPECT_EQ(exit.end, Prediction::End::kExit);
  EXPECT_EQ(exit.exitCode, 0);
  const Prediction exception = Predict(Image({}), "wend", BlankHead("wend"));
  EXPECT_EQ(exception.end, Prediction::End::kException);
  EXPECT_EQ(exception.exitCode, 134);
}

TEST(PredictionTest, ImageWithoutAStampIsNeverWrittenOverABlankFlash) {
  EXPECT_EQ(OverBlank("dax", images::Bitstream()), kUpToDate);
  EXPECT_EQ(OverBlank("pyx1", images::Bitstream()), kUpToDate);
}

TEST(PredictionTest, ImageWithoutADateFailsTheComparisonOfAWendAlone) {
  EXPECT_EQ(OverBlank("wend", images::BootImage("")), kNotCompared);
  EXPECT_EQ(OverBlank("pyx2", images::BootImage("")), kWritten);
}

TEST(PredictionTest, ImageWithDate1IsUpToDateOverABlankFlash) {
  EXPECT_EQ(OverBlank("wend", images::BootImage("n#date1#")), kUpToDate);
}

TEST(PredictionTest, StampBehindTheDumpedHeadIsWrittenAgainAndAgain) {
  EXPECT_EQ(OverSame("dax", images::StampedBitstream(508)), kWrittenToDax);
  EXPECT_EQ(OverSame("dax", images::StampedBitstream(504)), kUpToDate);
}

TEST(PredictionTest, StampThatIsCutAtTheEndOfTheImageIsAnotherOneInTheFlash) {
  // In the file 5A 9E A0 01: what is missing stays from the word before. In the flash 5A 9E FF FF.
  EXPECT_EQ(OverSame("dax", images::CutTo(70, images::StampedBitstream(64))), kWrittenToDax);
  // In the file there is none, in the flash FF FF FF FF.
  EXPECT_EQ(OverSame("dax", images::CutTo(68, images::StampedBitstream(64))), kWrittenToDax);
  // In the file and in the flash there is none.
  EXPECT_EQ(OverSame("dax", images::CutTo(67, images::StampedBitstream(64))), kUpToDate);
}

TEST(PredictionTest, ShortImageEndsTheProgramWhereItReadsABootHeader) {
  EXPECT_EQ(OverBlank("wend", Bytes(151, '#')), kException);
  EXPECT_EQ(OverBlank("pyx2", {}), kException);
  EXPECT_EQ(OverBlank("pyx2", Bytes(152, '#')), kWritten);
}

TEST(PredictionTest, EmptyImageIsUpToDateOrASuccessWithoutAnErase) {
  EXPECT_EQ(OverBlank("dax", {}), kUpToDate);
  EXPECT_EQ(OverOther("dax", {}), "0 (nothing is erased or written; in use at the next power-on)");
}

TEST(PredictionTest, DamagedGzipRunsForEver) {
  Bytes file = images::Gzip(images::StampedBitstream(64, 600));
  file[file.size() - 8] ^= 1;  // the check sum
  EXPECT_EQ(Predict(Image(file), "dax", HeadOfAnother(Image(file), "dax")).end,
            Prediction::End::kNever);
  EXPECT_EQ(OverOther("pyx1", file), kEndless);
  EXPECT_EQ(OverOther("wend", file), kEndless);
  EXPECT_EQ(OverBlank("pyx2", file), kEndless);
}

TEST(PredictionTest, DamagedGzipIsUpToDateWhereNoStampIsSeen) {
  Bytes file = images::Gzip(images::StampedBitstream(64), "odd");  // not at a multiple of four
  file[file.size() - 8] ^= 1;
  EXPECT_EQ(OverBlank("dax", file), kUpToDate);
}

TEST(PredictionTest, StampThatStandsInGzipDataAsItIsIsSeen) {
  const Bytes file = images::Gzip(images::StampedBitstream(64), "even");  // at byte 84 of the file
  EXPECT_EQ(OverSame("dax", file), kUpToDate);
  EXPECT_EQ(OverBlank("dax", file), kWrittenToDax);
}

TEST(PredictionTest, StampThatIsNotSeenInGzipDataIsWrittenAgainAndAgain) {
  const Bytes file = images::Gzip(images::StampedBitstream(64), "odd");
  EXPECT_EQ(OverSame("dax", file), kWrittenToDax);
  EXPECT_EQ(OverBlank("dax", file), kUpToDate);
}

TEST(PredictionTest, ShortGzipEndsTheProgramBeforeItsDamageDoes) {
  EXPECT_EQ(OverBlank("wend", Bytes{0x1F, 0x8B, 9}), kException);
}

TEST(PredictionTest, GzipIsWrittenToAWendButFailsItsComparison) {
  const Bytes file = images::Gzip(images::BootImage("n#d#", 600), std::string(160, 'n'));
  EXPECT_EQ(OverBlank("wend", file), kNotCompared);
  EXPECT_EQ(OverBlank("pyx2", file), kWritten);
}

TEST(PredictionTest, GzipWhoseDateStandsUncompressedPassesTheComparison) {
  // Behind 76 bytes of header and name follow "n#d#" and a NUL, the end of the name.
  const Bytes file = images::Gzip(images::BootImage("n#d#", 600), std::string(66, 'x') + "n#d#");
  EXPECT_EQ(OverBlank("wend", file), kWritten);
}

TEST(PredictionTest, GzipThatIsCutShortIsWrittenUpToTheCut) {
  Bytes file = images::Gzip(images::StampedBitstream(64), "n");
  file.resize(300);
  EXPECT_EQ(OverOther("dax", file),
            "0 (only what is before the cut is written; in use at the next power-on)");
}

TEST(PredictionTest, GzipOfNothingLeavesTheFlashAsItIs) {
  const Bytes file = images::Gzip({}, std::string(160, 'n'));
  EXPECT_EQ(OverOther("pyx1", file),
            "0 (nothing is erased or written; 7 when the FPGA does not start from it)");
  EXPECT_EQ(OverOther("wend", file),
            "6 (nothing is erased or written, but it looks for the date in the file as it is)");
}

TEST(PredictionTest, ImageLargerThanTheFlashIsNotPredictedUnlessItIsUpToDate) {
  ImageFile boot = Image(images::BootImage("n#d#"));
  boot.tooLarge = true;
  EXPECT_EQ(Predict(boot, "wend", BlankHead("wend")).end, Prediction::End::kUnknown);
  EXPECT_EQ(Predict(boot, "wend", BlankHead("wend")).text,
            "not predicted (the image is larger than the flash)");
  EXPECT_EQ(Predict(boot, "wend", HeadThatHolds(boot, "wend")).text, kUpToDate);
}

TEST(PredictionTest, StampOfALargeImageMayStandBehindWhatWasRead) {
  ImageFile stamped = Image(images::StampedBitstream());
  stamped.tooLarge = true;
  EXPECT_EQ(Predict(stamped, "dax", HeadThatHolds(stamped, "dax")).text, kUpToDate);
  ImageFile unstamped = Image(images::Bitstream());
  unstamped.tooLarge = true;
  EXPECT_EQ(Predict(unstamped, "dax", BlankHead("dax")).end, Prediction::End::kUnknown);
}

}  // namespace
