// Every kind of image file on the modules behind a GPIO expander, whose flash is older. Every test
// compares console, exit code, the whole log and the flash.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <string>
#include <tuple>

#include "simulator/images/Bitstream.h"
#include "simulator/instrument/Escape.h"
#include "tests/e2e/ImageKinds.h"
#include "tests/e2e/Judgement.h"
#include "tests/e2e/PipeFeeder.h"
#include "tests/e2e/ProgramTest.h"
#include "tests/e2e/RunLog.h"

namespace {

using namespace program_test;
using namespace program_test::run_log;

/// Which of the modules look for a time stamp, and which is the one that compares boot headers.
const auto kStampBoards = testing::Values(kDax, kPyx1);
const auto kBoards = testing::Values(kDax, kPyx1, kPyx2);

class ExpanderReadableImageTest : public ProgramTest,
                                  public testing::WithParamInterface<std::tuple<Board, ImageKind>> {
 protected:
  ExpanderReadableImageTest() : ProgramTest(std::get<0>(GetParam())) {}
};

TEST_P(ExpanderReadableImageTest, IsWrittenWhenItsBuildDiffers) {
  const ImageKind& kind = std::get<1>(GetParam());
  const Bytes plain = CutTo(kind.bytes, Image(2024, std::max(kind.bytes, kHeaderBytes)));
  StoreImage(kind.file(plain));
  PlugIn();
  if (HasBootHeader() && image_.size() < kHeaderBytes) {
    ExpectUpdate(134, "image-too-short");
    ExpectFlashUntouched();
    return;
  }
  const Bytes contents = kind.contents(plain);
  if (kind.shows == Shows::kBuild || (HasBootHeader() && kind.shows == Shows::kBootHeaderAlone)) {
    ExpectUpdate(0, WithBytes(Log("micron-rewritten"), contents.size()));
  } else if (kind.boots || !IsPyx()) {
    ExpectUpdate(0, WithBytes(Log("image-without-build"), contents.size()));
  } else {
    ExpectUpdate(7, WithBytes(Log("image-that-does-not-boot"), contents.size()));
  }
  ExpectFlash(Flashed(contents, old_));
}

INSTANTIATE_TEST_SUITE_P(Images,
                         ExpanderReadableImageTest,
                         testing::Combine(kBoards, testing::ValuesIn(ReadableImages())),
                         [](const auto& row) {
                           return std::get<0>(row.param).word + std::string("_") +
                                  std::get<1>(row.param).name;
                         });

class ExpanderImageTest : public BoardTest {
 protected:
  /// A pyx2 that finds no boot header ends with an exception, a pyx1 fails when it erases the
  /// flash, and a dax when it opens the image before that.
  void ExpectCannotBeOpened(const std::string& golden) {
    PlugIn();
    ExpectUpdate(HasBootHeader() ? 134 : IsPyx() ? 3 : 2, golden);
    ExpectFlashUntouched();
  }

  /// The program does not end; the last line of the log is the last event before it hangs.
  void ExpectEndless(const std::string& golden) {
    PlugIn();
    ExpectGolden(UpdateLimited(), kOutOfTime, std::string(board_.word) + "-" + golden);
    ExpectFlashUntouched();
  }

  void StoreDirectory() {
    std::filesystem::remove(instrument_.File("image.bin"));
    std::filesystem::create_directory(instrument_.File("image.bin"));
  }
};

INSTANTIATE_TEST_SUITE_P(Boards, ExpanderImageTest, kBoards, WordOf);

TEST_P(ExpanderImageTest, GzipImageIsWrittenAndShowsNoBuild) {
  const Bytes contents = image_;
  StoreImage(Gzipped(contents));
  PlugIn();
  ExpectUpdate(0, "image-without-build");
  ExpectFlash(Flashed(contents, old_));
}

TEST_P(ExpanderImageTest, SpoiltGzipKeepsTheProgramRunningAndNothingIsErased) {
  StoreImage(SpoiltGzip(image_));
  ExpectEndless("spoilt-gzip");
}

TEST_P(ExpanderImageTest, MissingImageIsFoundOutAtDifferentSteps) {
  std::filesystem::remove(instrument_.File("image.bin"));
  ExpectCannotBeOpened("missing-image");
}

TEST_P(ExpanderImageTest, UnreadableImageIsFoundOutAtDifferentSteps) {
  Fault("open:image.bin:EACCES");
  ExpectCannotBeOpened("unreadable-image");
}

TEST_P(ExpanderImageTest, DirectoryEndsTheProcessOrKeepsItRunning) {
  StoreDirectory();
  if (HasBootHeader()) {
    ExpectCannotBeOpened("image-is-a-directory");
  } else {
    ExpectEndless("image-is-a-directory");
  }
}

TEST_P(ExpanderImageTest, PipeIsWrittenWhenEachOpeningIsFedOrEndsTheProcess) {
  if (HasBootHeader()) {
    const PipeFeeder feeder(instrument_.File("image.bin"), image_, 1);
    ExpectCannotBeOpened("image-is-a-pipe");
  } else {
    const std::size_t openings = IsPyx() ? 3 : 4;  // stamp, dax: check, erase, program
    const PipeFeeder feeder(instrument_.File("image.bin"), image_, openings);
    PlugIn();
    ExpectUpdate(0, "micron-rewritten");
    ExpectFlashRewritten();
  }
}

/// The modules that look for a time stamp.
class StampImageTest : public ExpanderImageTest {};

INSTANTIATE_TEST_SUITE_P(Boards, StampImageTest, kStampBoards, WordOf);

TEST_P(StampImageTest, MissingImageIsUpToDateWhenTheFlashHasNoStamp) {
  StoreFlash(orvane::MakeBitstream({.bytes = 5000}));
  std::filesystem::remove(instrument_.File("image.bin"));
  PlugIn();
  ExpectUpdate(11, "missing-image-up-to-date");
  ExpectFlashUntouched();
}

TEST_P(StampImageTest, DirectoryIsNotUpToDateWhenTheFlashHasNoStamp) {
  StoreFlash(orvane::MakeBitstream({.bytes = 5000}));
  StoreDirectory();
  ExpectEndless("image-is-a-directory-without-stamps");
}

TEST_P(StampImageTest, StampAtAnOffsetThatIsNoMultipleOfFourIsNotFound) {
  Bytes file = image_;
  file.insert(file.begin(), 2, 0xFF);
  StoreImage(CutTo(kImageBytes, file));
  PlugIn();
  ExpectUpdate(IsPyx() ? 7 : 0, "image-that-does-not-boot");
  ExpectFlashRewritten();
}

TEST_P(StampImageTest, StampInTheFirstTwoWordsIsPrintedWithItsDateAndTime) {
  Bytes file = image_;
  const Bytes stamp = {0x30, 0x01, 0xA0, 0x01, 0x5A, 0x9E, 0x38, 0xC5};
  std::copy(stamp.begin(), stamp.end(), file.begin());
  StoreImage(file);
  PlugIn();
  ExpectUpdate(0, "stamp-of-2015");
  ExpectFlashRewritten();
}

TEST_P(StampImageTest, StampMayStandAnywhereInTheImage) {
  StoreImage(orvane::MakeBitstream(
      {.bytes = 5000, .userAccess = 0x5A9E38C5, .stampWordOffset = 5000 / 4 - 2}));
  PlugIn();
  ExpectUpdate(0, WithBytes(Log("stamp-of-2015"), 5000));
  ExpectFlashRewritten();
}

/// The module that reads its image to the end each time it opens it: for the stamp, to erase and to
/// program.
class ReopenedImageTest : public ProgramTest {
 protected:
  ReopenedImageTest() : ProgramTest(kPyx1) {}

  /// Piece by piece, each of -1 byte: what is left of its command is the opcode and two bytes of an
  /// address that counts down from 0. The chip does not program for it.
  Lines ProgramLessThanNothing(std::size_t lines) const {
    const std::string spi = "spi /dev/spidev" + Slot() + ".0 ";
    Lines log;
    for (unsigned address = 0; log.size() < lines; --address) {
      const unsigned char sent[] = {0x02,
                                    static_cast<unsigned char>(address >> 16),
                                    static_cast<unsigned char>(address >> 8)};
      log.push_back(spi + "WREN");
      log.push_back(spi + orvane::HexBytes({reinterpret_cast<const char*>(sent), sizeof sent}));
      log.push_back(spi + "RDSR = 02");
    }
    log.resize(lines);
    return log;
  }
};

TEST_F(ReopenedImageTest, GzipThatIsSpoiltWhenItIsProgrammedKeepsTheProgramRunning) {
  const PipeFeeder feeder(instrument_.File("image.bin"), {image_, image_, SpoiltGzip(image_)});
  PlugIn();
  const Outcome outcome = UpdateLimited();

  // The first is of the identification, the second of the erase, the third of a page program.
  const Lines start = Until(Log("micron-rewritten"), "spi /dev/spidev4.0 WREN", 3);
  constexpr std::ptrdiff_t kTimes = 300;  // at the least
  const auto lines = std::count(outcome.log.begin(), outcome.log.end(), '\n');
  ASSERT_GT(lines, static_cast<std::ptrdiff_t>(start.size()) + 3 * kTimes);
  ExpectRun(outcome,
            kOutOfTime,
            Join({start,
                  ProgramLessThanNothing(static_cast<std::size_t>(lines - 1) - start.size()),
                  {"killed SIGXCPU"}}));
  ExpectFlashErased();
}

/// Only one of the modules, because the test takes long and is the same for all.
class LargestImageTest : public ProgramTest {
 protected:
  LargestImageTest() : ProgramTest(kPyx1) {}
};

TEST_F(LargestImageTest, ImageOfExactlyTheSizeOfTheFlashIsWritten) {
  StoreImage(Image(2024, kFlashBytes));
  PlugIn();
  ExpectUpdate(0, WithBytes(Log("micron-rewritten"), kFlashBytes));
  ExpectFlashRewritten();
}

}  // namespace
