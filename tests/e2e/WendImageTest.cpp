// Every kind of image file on a wend, whose flash is older. Every test compares console, exit code,
// the whole log and the flash.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "simulator/images/Gzip.h"
#include "tests/e2e/FileSearch.h"
#include "tests/e2e/ImageKinds.h"
#include "tests/e2e/Judgement.h"
#include "tests/e2e/PipeFeeder.h"
#include "tests/e2e/RunLog.h"
#include "tests/e2e/WendProgram.h"

namespace {

using namespace program_test;
using namespace program_test::run_log;
using namespace program_test::wend;

class WendImageTest : public WendProgram {
 protected:
  /// @param file  what stands in image.bin
  void Store(const Bytes& file) {
    file_ = file;
    instrument_.WriteFile("image.bin", file);
  }

  Lines ImageDateLines() const { return SearchImageDate("image.bin", file_); }

  /// A scratch file that holds the head of the flash is compared with the image.
  Lines CompareLines(const std::string& scratch, const Bytes& flash) const {
    return Join({{R"(stdout "\n")"},
                 SearchName(scratch, flash),
                 SearchDumpDate(scratch, flash),
                 ImageDateLines()});
  }

  Lines BeforeImage() const {
    Lines lines =
        Join({Connect(), Dump("./FlashDevice.bin"), CompareLines("./FlashDevice.bin", old_)});
    lines.resize(lines.size() - ImageDateLines().size());
    return lines;
  }

  /// The end of a run that has written the flash so.
  std::pair<int, Lines> Ending(const Bytes& flash) const {
    if (!SameDate(flash, file_)) {
      return {6,
              Join({ErrorLine("ERROR: SPI flash upgrade failed - Try to remove WEND if present !"),
                    End(kProgramFailed, 6)})};
    }
    return {0, Join({FinalSteps(20), kDone, End(kSuccess, 0)})};
  }

  void ExpectWritten(const Bytes& contents) {
    const Bytes flash = Flashed(contents, old_);
    const auto [exitCode, ending] = Ending(flash);
    PlugIn();
    ExpectUpdate(exitCode,
                 Join({BeforeImage(),
                       ImageDateLines(),
                       EraseStep(SectorsOf(contents.size())),
                       ProgramStep(static_cast<int>(contents.size())),
                       Dump("./FlashDevice_verif.bin"),
                       CompareLines("./FlashDevice_verif.bin", flash),
                       ending}));
    ExpectFlash(flash);
  }

  void ExpectAborted(const Lines& open, const std::string& message) {
    PlugIn();
    ExpectUpdate(134, Join({BeforeImage(), open, UnreadableHeader(message)}));
    ExpectFlashUntouched();
  }

  Bytes file_ = image_;
};

class WendReadableImageTest : public WendImageTest,
                              public testing::WithParamInterface<ImageKind> {};

TEST_P(WendReadableImageTest, IsWrittenWhenItHasABootHeader) {
  const ImageKind& kind = GetParam();
  const Bytes plain = CutTo(kind.bytes, Image(kNewDate, std::max(kind.bytes, kHeaderBytes)));
  const Bytes file = kind.file(plain);
  if (file.size() < kHeaderBytes) {
    instrument_.WriteFile("image.bin", file);
    ExpectAborted(kOpenImage, "ERROR: Can't read file");
  } else {
    Store(file);
    ExpectWritten(kind.contents(plain));
  }
}

INSTANTIATE_TEST_SUITE_P(Images,
                         WendReadableImageTest,
                         testing::ValuesIn(ReadableImages()),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(WendImageTest, ImageOfExactlyTheSizeOfTheFlashIsWritten) {
  Store(Image(kNewDate, kFlashBytes));
  ExpectWritten(file_);
}

TEST_F(WendImageTest, ImageThatIsNoMoreThanABootHeaderIsWritten) {
  Store(Image(kNewDate, kHeaderBytes));
  ExpectWritten(file_);
}

TEST_F(WendImageTest, ImageOneByteShorterThanABootHeaderEndsTheProcess) {
  instrument_.WriteFile("image.bin", CutTo(kHeaderBytes - 1, image_));
  ExpectAborted(kOpenImage, "ERROR: Can't read file");
}

TEST_F(WendImageTest, GzipImageIsWrittenButFailsTheComparisonThatVerifiesIt) {
  Store(orvane::Gzip(image_));
  ASSERT_FALSE(SameDate(image_, file_));
  ExpectWritten(image_);
}

TEST_F(WendImageTest, ImageWithoutBootHeaderTextIsWrittenAndFailsTheComparison) {
  Store(Bytes(600, 0x5A));
  ExpectWritten(file_);
}

struct HeaderRow {
  const char* name;
  std::string field;  // at byte 76, up to 76 bytes; the rest is as in any other image
};

std::ostream& operator<<(std::ostream& out, const HeaderRow& row) { return out << row.name; }

class HeaderTextTest : public WendImageTest, public testing::WithParamInterface<HeaderRow> {};

TEST_P(HeaderTextTest, DecidesWhetherTheWrittenFlashIsTakenForTheImage) {
  Bytes file = image_;
  std::copy(GetParam().field.begin(), GetParam().field.end(), file.begin() + 76);
  Store(file);
  ExpectWritten(file_);
}

INSTANTIATE_TEST_SUITE_P(
    Fields,
    HeaderTextTest,
    testing::Values(HeaderRow{"DateBetweenTwoDelimiters", "u-boot-vexa.bin#2031-01-01#filler"},
                    HeaderRow{"DateUpToTheEndOfTheField",
                              std::string("name#2031-01-01") + std::string(61, '\0')},
                    HeaderRow{"DateOfOneByteAtTheEnd", std::string(74, 'n') + "#d"},
                    HeaderRow{"DelimiterAsTheLastByte", std::string(75, 'n') + "#"},
                    HeaderRow{"EmptyName", "#2031-01-01#"},
                    HeaderRow{"EmptyDate", "name##2031-01-01"},
                    HeaderRow{"NoDelimiter", std::string(76, 'n')},
                    HeaderRow{"BlanksAroundTheDate", "name# 2023-01-02 03:04:05 #"},
                    HeaderRow{"BytesThatAreNoText", "na\xFFme#\x01\x80\t#"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(WendImageTest, MissingDateOfTheFlashStandsForTheTextDate1) {
  instrument_.WriteFile("flash.bin", old_ = Bytes(5000, 0x5A));
  Store(Image("date1", 600));
  PlugIn();
  ExpectUpdate(11, Join({BeforeImage(), ImageDateLines(), End(kUpToDate, 11)}));
  ExpectFlashUntouched();
}

TEST_F(WendImageTest, MissingDateOfTheImageStandsForTheTextDate2) {
  instrument_.WriteFile("flash.bin", old_ = Image("date2", 5000));
  Store(Bytes(600, 0x5A));
  PlugIn();
  ExpectUpdate(11, Join({BeforeImage(), ImageDateLines(), End(kUpToDate, 11)}));
  ExpectFlashUntouched();
}

TEST_F(WendImageTest, SpoiltGzipKeepsTheProgramRunningAndNothingIsErased) {
  Store(SpoiltGzip(image_));
  PlugIn();
  ExpectRun(
      instrument_.RunLimited({"wend", "-sf", "1", "image.bin"}),
      kOutOfTime,
      Join(
          {BeforeImage(), ImageDateLines(), kUnlocking, kErasing, kOpenImage, {"killed SIGXCPU"}}));
  ExpectFlashUntouched();
}

TEST_F(WendImageTest, MissingImageEndsTheProcess) {
  std::filesystem::remove(instrument_.File("image.bin"));
  ExpectAborted({"open image.bin O_RDONLY = ENOENT"}, "ERROR: Can't open file 'image.bin'");
}

TEST_F(WendImageTest, UnreadableImageEndsTheProcess) {
  Fault("open:image.bin:EACCES");
  ExpectAborted({"open image.bin O_RDONLY = EACCES"}, "ERROR: Can't open file 'image.bin'");
}

TEST_F(WendImageTest, ImageThatIsGoneAfterTheDecisionFailsTheErase) {
  Fault("open:image.bin#2:ENOENT");
  PlugIn();
  ExpectUpdate(3,
               Join({Decide(),
                     kUnlocking,
                     kErasing,
                     {"open image.bin O_RDONLY = ENOENT"},
                     End(kEraseFailed, 3)}));
  ExpectFlashUntouched();
}

TEST_F(WendImageTest, ImageThatIsGoneAfterTheEraseFailsTheProgrammingBeforeTheDeviceIsTouched) {
  Fault("open:image.bin#3:ENOENT");
  PlugIn();
  ExpectUpdate(6,
               Join({Decide(),
                     EraseStep(),
                     kProgramming,
                     {"open image.bin O_RDONLY = ENOENT"},
                     End(kProgramFailed, 6)}));
  ExpectFlash(Flashed({0xFF}, old_));
}

TEST_F(WendImageTest, DirectoryEndsTheProcess) {
  std::filesystem::remove(instrument_.File("image.bin"));
  std::filesystem::create_directory(instrument_.File("image.bin"));
  ExpectAborted(kOpenImage, "ERROR: Can't read file");
}

TEST_F(WendImageTest, PipeEndsTheProcess) {
  const PipeFeeder feeder(instrument_.File("image.bin"), image_, 1);
  ExpectAborted(kOpenImage, "ERROR: Can't seek file");
}

}  // namespace
