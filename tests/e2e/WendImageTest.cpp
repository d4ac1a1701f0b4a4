// Every kind of image file on a wend, whose flash is older. Every test compares console, exit code,
// the whole log and the flash.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "simulator/images/BootImage.h"
#include "tests/e2e/ImageKinds.h"
#include "tests/e2e/Judgement.h"
#include "tests/e2e/PipeFeeder.h"
#include "tests/e2e/ProgramTest.h"
#include "tests/e2e/RunLog.h"

namespace {

using namespace program_test;
using namespace program_test::run_log;

class WendImageTest : public ProgramTest {
 protected:
  WendImageTest() : ProgramTest(kWend) {}

  void ExpectAborted(const std::string& golden) {
    PlugIn();
    ExpectUpdate(134, golden);
    ExpectFlashUntouched();
  }

  void ExpectWritten(int exitCode, const std::string& golden) {
    PlugIn();
    ExpectUpdate(exitCode, golden);
    ExpectFlashRewritten();
  }
};

class WendReadableImageTest : public WendImageTest,
                              public testing::WithParamInterface<ImageKind> {};

TEST_P(WendReadableImageTest, IsWrittenWhenItHasABootHeader) {
  const ImageKind& kind = GetParam();
  const Bytes plain = CutTo(kind.bytes, Image(2024, std::max(kind.bytes, kHeaderBytes)));
  StoreImage(kind.file(plain));
  if (image_.size() < kHeaderBytes) {
    ExpectAborted("image-too-short");
    return;
  }
  PlugIn();
  const Bytes contents = kind.contents(plain);
  if (kind.shows != Shows::kNothing) {
    ExpectUpdate(0, WithBytes(Log("micron-rewritten"), contents.size()));
  } else {
    ExpectUpdate(6, WithBytes(Log("image-without-build"), contents.size()));
  }
  ExpectFlash(Flashed(contents, old_));
}

INSTANTIATE_TEST_SUITE_P(Images,
                         WendReadableImageTest,
                         testing::ValuesIn(ReadableImages()),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(WendImageTest, ImageOfExactlyTheSizeOfTheFlashIsWritten) {
  StoreImage(Image(2024, kFlashBytes));
  PlugIn();
  ExpectUpdate(0, WithBytes(Log("micron-rewritten"), kFlashBytes));
  ExpectFlashRewritten();
}

TEST_F(WendImageTest, ImageThatIsNoMoreThanABootHeaderIsWritten) {
  StoreImage(Image(2024, kHeaderBytes));
  PlugIn();
  ExpectUpdate(0, WithBytes(Log("micron-rewritten"), kHeaderBytes));
  ExpectFlashRewritten();
}

TEST_F(WendImageTest, ImageOneByteShorterThanABootHeaderEndsTheProcess) {
  StoreImage(CutTo(kHeaderBytes - 1, image_));
  ExpectAborted("image-too-short");
}

TEST_F(WendImageTest, GzipImageIsWrittenButFailsTheComparisonThatVerifiesIt) {
  const Bytes contents = image_;
  StoreImage(Gzipped(contents));
  PlugIn();
  ExpectUpdate(6, "image-without-build");
  ExpectFlash(Flashed(contents, old_));
}

TEST_F(WendImageTest, ImageWithoutBootHeaderTextIsWrittenAndFailsTheComparison) {
  StoreImage(Bytes(600, 0x5A));
  ExpectWritten(6, "no-boot-header");
}

struct HeaderRow {
  const char* name;
  std::string field;  // at byte 76, up to 76 bytes; the rest is as in any other image
  int exitCode;
  const char* golden;
};

std::ostream& operator<<(std::ostream& out, const HeaderRow& row) { return out << row.name; }

class HeaderTextTest : public WendImageTest, public testing::WithParamInterface<HeaderRow> {};

TEST_P(HeaderTextTest, DecidesWhetherTheWrittenFlashIsTakenForTheImage) {
  Bytes file = image_;
  std::copy(GetParam().field.begin(), GetParam().field.end(), file.begin() + 76);
  StoreImage(file);
  ExpectWritten(GetParam().exitCode, GetParam().golden);
}

INSTANTIATE_TEST_SUITE_P(
    Fields,
    HeaderTextTest,
    testing::Values(
        HeaderRow{"DateBetweenTwoDelimiters",
                  "u-boot-vexa.bin#2031-01-01#filler",
                  0,
                  "date-between-delimiters"},
        HeaderRow{"DateUpToTheEndOfTheField",
                  std::string("name#2031-01-01") + std::string(61, '\0'),
                  0,
                  "date-up-to-the-end"},
        HeaderRow{"DateOfOneByteAtTheEnd", std::string(74, 'n') + "#d", 0, "date-of-one-byte"},
        HeaderRow{"DelimiterAsTheLastByte", std::string(75, 'n') + "#", 6, "delimiter-at-the-end"},
        HeaderRow{"EmptyName", "#2031-01-01#", 0, "empty-name"},
        HeaderRow{"EmptyDate", "name##2031-01-01", 6, "empty-date"},
        HeaderRow{"NoDelimiter", std::string(76, 'n'), 6, "no-delimiter"},
        HeaderRow{"BlanksAroundTheDate", "name# 2023-05-06 07:08:09 #", 0, "blanks-around-date"},
        HeaderRow{"BytesThatAreNoText", "na\xFFme#\x01\x80\t#", 0, "header-of-no-text"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(WendImageTest, MissingDateOfTheFlashStandsForTheTextDate1) {
  StoreFlash(Bytes(5000, 0x5A));
  StoreImage(orvane::MakeZynqImage({.buildDate = "date1", .bytes = 600}));
  PlugIn();
  ExpectUpdate(11, "flash-without-date");
  ExpectFlashUntouched();
}

TEST_F(WendImageTest, MissingDateOfTheImageStandsForTheTextDate2) {
  StoreFlash(orvane::MakeZynqImage({.buildDate = "date2", .bytes = 5000}));
  StoreImage(Bytes(600, 0x5A));
  PlugIn();
  ExpectUpdate(11, "image-without-date");
  ExpectFlashUntouched();
}

TEST_F(WendImageTest, SpoiltGzipKeepsTheProgramRunningAndNothingIsErased) {
  StoreImage(SpoiltGzip(image_));
  PlugIn();
  ExpectGolden(UpdateLimited(), kOutOfTime, "wend-spoilt-gzip");
  ExpectFlashUntouched();
}

TEST_F(WendImageTest, MissingImageEndsTheProcess) {
  std::filesystem::remove(instrument_.File("image.bin"));
  ExpectAborted("missing-image");
}

TEST_F(WendImageTest, UnreadableImageEndsTheProcess) {
  Fault("open:image.bin:EACCES");
  ExpectAborted("unreadable-image");
}

TEST_F(WendImageTest, ImageThatIsGoneAfterTheDecisionFailsTheErase) {
  Fault("open:image.bin#2:ENOENT");
  PlugIn();
  ExpectUpdate(3, "image-gone-before-erase");
  ExpectFlashUntouched();
}

TEST_F(WendImageTest, ImageThatIsGoneAfterTheEraseFailsTheProgrammingBeforeTheDeviceIsTouched) {
  Fault("open:image.bin#3:ENOENT");
  PlugIn();
  ExpectUpdate(6, "image-gone-before-programming");
  ExpectFlashErased();
}

TEST_F(WendImageTest, DirectoryEndsTheProcess) {
  std::filesystem::remove(instrument_.File("image.bin"));
  std::filesystem::create_directory(instrument_.File("image.bin"));
  ExpectAborted("image-is-a-directory");
}

TEST_F(WendImageTest, PipeEndsTheProcess) {
  const PipeFeeder feeder(instrument_.File("image.bin"), image_, 1);
  ExpectAborted("image-is-a-pipe");
}

}  // namespace
