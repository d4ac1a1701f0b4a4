// Every kind of image file on the modules behind a GPIO expander, whose flash is older. Every test
// compares console, exit code, the whole log and the flash.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "simulator/images/Bitstream.h"
#include "simulator/images/BootImage.h"
#include "simulator/instrument/Escape.h"
#include "tests/e2e/ExpanderProgram.h"
#include "tests/e2e/FileSearch.h"
#include "tests/e2e/ImageKinds.h"
#include "tests/e2e/Judgement.h"
#include "tests/e2e/PipeFeeder.h"
#include "tests/e2e/RunLog.h"

namespace {

using namespace program_test;
using namespace program_test::run_log;
using namespace program_test::expander;

constexpr int kAllPolls = 10'000;
const std::string kNoDelimiterOfPyx2 = "Can't find delimiter # in BOOTHEADER";

/// Which of the modules look for a time stamp, and which is the one that compares boot headers.
const auto kStampBoards = testing::Values(kDax, kPyx1);
const auto kBoards = testing::Values(kDax, kPyx1, kPyx2);

std::string WordOf(const testing::TestParamInfo<Board>& row) { return row.param.word; }

class ExpanderImage : public ExpanderProgram {
 protected:
  using ExpanderProgram::ExpanderProgram;

  /// @param file  what stands in image.bin
  void Store(const Bytes& file) {
    file_ = file;
    instrument_.WriteFile("image.bin", file);
  }

  Bytes Head() const { return {old_.begin(), old_.begin() + 512}; }

  Lines SearchStamp(const std::string& path, const Bytes& file) const {
    const std::uint32_t stamp = StampIn(file);
    return stamp != 0 ? Stamp(path, StampText(stamp)) : NoStamp(path);
  }

  /// Up to where the image is opened.
  Lines BeforeImage() const {
    return Join({Connect(),
                 Dump(),
                 IsPyx2() ? Join({{R"(stdout "\n")"},
                                  SearchDumpDate("dumpflash.bin", Head(), kNoDelimiterOfPyx2)})
                          : SearchStamp("dumpflash.bin", Head())});
  }

  Lines Decision() const {
    return Join({BeforeImage(),
                 IsPyx2() ? SearchImageDate("image.bin", file_, kNoDelimiterOfPyx2)
                          : SearchStamp("image.bin", file_),
                 OpenCheck()});
  }

  /// The end of a run that has written the flash so: an FPGA that cannot boot from it stays
  /// without DONE.
  std::pair<int, Lines> Ending(const Bytes& flash) const {
    const bool boots =
        IsPyx2() ? orvane::HasPlausibleBootHeader(flash) : orvane::HasPlausibleBitstream(flash);
    if (boots || !IsPyx()) {
      return {0, Join({Restart(), End(FinalDirections(), kSuccess, 0)})};
    }
    return {7, Join({Reset(kAllPolls), Pcie(), End(FinalDirections(), kNoDone, 7)})};
  }

  void ExpectWritten(const Bytes& contents) {
    const Bytes flash = Flashed(contents, old_);
    const auto [exitCode, ending] = Ending(flash);
    PlugIn();
    ExpectUpdate(exitCode, Join({Decision(), Rewrite(static_cast<int>(contents.size())), ending}));
    ExpectFlash(flash);
  }

  /// Of a pyx2: the exception is not caught.
  void ExpectAborted(const Lines& open, const std::string& message) {
    PlugIn();
    ExpectUpdate(134, Join({BeforeImage(), open, UnreadableHeader(message)}));
    ExpectFlashUntouched();
  }

  /// Of a pyx1: nothing notices before the flash is to be erased.
  void ExpectEraseFailed(const Lines& open) {
    PlugIn();
    ExpectUpdate(3,
                 Join({BeforeImage(),
                       open,
                       Console("Unlocking flash memory ... "),
                       {R"(stdout "Erasing device ... ")"},
                       open,
                       Pcie(),
                       End(board_.directions, kEraseFailed, 3)}));
    ExpectFlashUntouched();
  }

  /// Of a dax: the image is opened once more for that purpose.
  void ExpectOpenFailed(const Lines& open) {
    PlugIn();
    ExpectUpdate(2, Join({BeforeImage(), open, open, End(board_.directions, kOpenFailed, 2)}));
    ExpectFlashUntouched();
  }

  void ExpectCannotBeOpened(const std::string& error) {
    const Lines open = {"open image.bin O_RDONLY = " + error};
    if (IsPyx2()) {
      ExpectAborted(open, "ERROR: Can't open file 'image.bin'");
    } else if (IsPyx()) {
      ExpectEraseFailed(open);
    } else {
      ExpectOpenFailed(open);
    }
  }

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

  /// The program does not come to an end; the last it did is the last of the log.
  void ExpectEndless(const Lines& log) {
    PlugIn();
    ExpectRun(instrument_.RunLimited({board_.word, "-sf", Slot(), "image.bin"}),
              kOutOfTime,
              Join({log, {"killed SIGXCPU"}}));
    ExpectFlashUntouched();
  }

  Bytes file_ = image_;
};

class ExpanderReadableImageTest : public ExpanderImage,
                                  public testing::WithParamInterface<std::tuple<Board, ImageKind>> {
 protected:
  ExpanderReadableImageTest() : ExpanderImage(std::get<0>(GetParam())) {}
};

TEST_P(ExpanderReadableImageTest, IsWrittenWhenItsBuildDiffers) {
  const ImageKind& kind = std::get<1>(GetParam());
  const Bytes plain = CutTo(kind.bytes, Image(2024, std::max(kind.bytes, kHeaderBytes)));
  const Bytes file = kind.file(plain);
  if (IsPyx2() && file.size() < kHeaderBytes) {
    instrument_.WriteFile("image.bin", file);
    ExpectAborted({"open image.bin O_RDONLY"}, "ERROR: Can't read file");
  } else {
    Store(file);
    ExpectWritten(kind.contents(plain));
  }
}

INSTANTIATE_TEST_SUITE_P(Images,
                         ExpanderReadableImageTest,
                         testing::Combine(kBoards, testing::ValuesIn(ReadableImages())),
                         [](const auto& row) {
                           return std::get<0>(row.param).word + std::string("_") +
                                  std::get<1>(row.param).name;
                         });

class ExpanderImageTest : public ExpanderImage, public testing::WithParamInterface<Board> {
 protected:
  ExpanderImageTest() : ExpanderImage(GetParam()) {}
};

INSTANTIATE_TEST_SUITE_P(Boards, ExpanderImageTest, kBoards, WordOf);

TEST_P(ExpanderImageTest, SpoiltGzipKeepsTheProgramRunningAndNothingIsErased) {
  Store(SpoiltGzip(image_));
  ExpectEndless(Join({Decision(),
                      Console("Unlocking flash memory ... "),
                      {R"(stdout "Erasing device ... ")", "open image.bin O_RDONLY"}}));
}

TEST_P(ExpanderImageTest, MissingImageIsFoundOutAtDifferentSteps) {
  std::filesystem::remove(instrument_.File("image.bin"));
  ExpectCannotBeOpened("ENOENT");
}

TEST_P(ExpanderImageTest, UnreadableImageIsFoundOutAtDifferentSteps) {
  Fault("open:image.bin:EACCES");
  ExpectCannotBeOpened("EACCES");
}

TEST_P(ExpanderImageTest, DirectoryEndsTheProcessOrKeepsItRunning) {
  std::filesystem::remove(instrument_.File("image.bin"));
  std::filesystem::create_directory(instrument_.File("image.bin"));
  const Lines open = {"open image.bin O_RDONLY"};
  if (IsPyx2()) {
    ExpectAborted(open, "ERROR: Can't read file");
    return;
  }
  ExpectEndless(Join({BeforeImage(), open}));
}

TEST_P(ExpanderImageTest, PipeIsWrittenWhenEachOpeningIsFedOrEndsTheProcess) {
  if (IsPyx2()) {
    const PipeFeeder feeder(instrument_.File("image.bin"), image_, 1);
    ExpectAborted({"open image.bin O_RDONLY"}, "ERROR: Can't seek file");
  } else {
    const std::size_t openings = IsPyx() ? 3 : 4;  // stamp, dax: check, erase, program
    const PipeFeeder feeder(instrument_.File("image.bin"), image_, openings);
    ExpectWritten(image_);
  }
}

/// The modules that look for a time stamp.
class StampImageTest : public ExpanderImageTest {};

INSTANTIATE_TEST_SUITE_P(Boards, StampImageTest, kStampBoards, WordOf);

TEST_P(StampImageTest, MissingImageIsUpToDateWhenTheFlashHasNoStamp) {
  old_ = orvane::MakeBitstream({.bytes = 5000});
  instrument_.WriteFile("flash.bin", old_);
  std::filesystem::remove(instrument_.File("image.bin"));
  PlugIn();
  ExpectUpdate(11,
               Join({BeforeImage(),
                     {"open image.bin O_RDONLY = ENOENT"},
                     Console("No need to update Flash device "),
                     End(board_.directions, kUpToDate, 11)}));
  ExpectFlashUntouched();
}

TEST_P(StampImageTest, DirectoryIsNotUpToDateWhenTheFlashHasNoStamp) {
  old_ = orvane::MakeBitstream({.bytes = 5000});
  instrument_.WriteFile("flash.bin", old_);
  std::filesystem::remove(instrument_.File("image.bin"));
  std::filesystem::create_directory(instrument_.File("image.bin"));
  ExpectEndless(Join({BeforeImage(), {"open image.bin O_RDONLY"}}));
}

TEST_P(StampImageTest, StampAtAnOffsetThatIsNoMultipleOfFourIsNotFound) {
  Bytes file = image_;
  file.insert(file.begin(), 2, 0xFF);
  Store(file);
  ExpectWritten(file_);
}

TEST_P(StampImageTest, StampInTheFirstTwoWordsIsPrintedWithItsDateAndTime) {
  const Bytes stamp = {0x30, 0x01, 0xA0, 0x01, 0x5A, 0x9E, 0x38, 0xC5};
  std::copy(stamp.begin(), stamp.end(), image_.begin());
  Store(image_);
  const Bytes flash = Flashed(image_, old_);
  const auto [exitCode, ending] = Ending(flash);
  PlugIn();
  ExpectUpdate(exitCode,
               Join({BeforeImage(),
                     {"open image.bin O_RDONLY"},
                     Console("User Access Register found in file image.bin with Time Stamp :  "
                             "11/05/2015 03:35:05"),
                     {"close image.bin"},
                     OpenCheck(),
                     Rewrite(),
                     ending}));
  ExpectFlash(flash);
}

TEST_P(StampImageTest, StampMayStandAnywhereInTheImage) {
  Store(orvane::MakeBitstream(
      {.bytes = 5000, .userAccess = 0x5A9E38C5, .stampWordOffset = 5000 / 4 - 2}));
  ExpectWritten(file_);
}

/// The module that reads its image to the end whenever it opens it: for the stamp, to erase and to
/// program.
class ReopenedImageTest : public ExpanderImage {
 protected:
  ReopenedImageTest() : ExpanderImage(kPyx1) {}
};

TEST_F(ReopenedImageTest, GzipThatIsSpoiltWhenItIsProgrammedKeepsTheProgramRunning) {
  const PipeFeeder feeder(instrument_.File("image.bin"), {image_, image_, SpoiltGzip(image_)});
  PlugIn();
  const Outcome outcome = instrument_.RunLimited({board_.word, "-sf", Slot(), "image.bin"});

  const Lines start = Join({Decision(), BeginRewrite()});
  constexpr std::ptrdiff_t kTimes = 300;  // at the least
  const auto lines = std::count(outcome.log.begin(), outcome.log.end(), '\n');
  ASSERT_GT(lines, static_cast<std::ptrdiff_t>(start.size()) + 3 * kTimes);
  ExpectRun(outcome,
            kOutOfTime,
            Join({start,
                  ProgramLessThanNothing(static_cast<std::size_t>(lines - 1) - start.size()),
                  {"killed SIGXCPU"}}));
  ExpectFlash(Flashed({0xFF}, old_));  // erased, and nothing else
}

/// One of the modules, for what does not depend on which: it takes its time.
class LargestImageTest : public ExpanderImage {
 protected:
  LargestImageTest() : ExpanderImage(kPyx1) {}
};

TEST_F(LargestImageTest, ImageOfExactlyTheSizeOfTheFlashIsWritten) {
  Store(Image(2024, kFlashBytes));
  ExpectWritten(file_);
}

}  // namespace
