// What can go wrong with an update: by `tarnwick` today, and by `tarnwickctl update` from the same
// start.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "simulator/images/Bitstream.h"
#include "simulator/images/Gzip.h"
#include "tests/e2e/ImageKinds.h"
#include "tests/e2e/companion/Bench.h"

namespace companion_test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

/// What the flash holds after a run.
enum class Holds { kOld, kImage, kNeither };

struct Hazard {
  const char* name;
  Board board;
  void (*prepare)(Bench& bench);
  int todayExit;  ///< of `tarnwick`, as a shell shows it
  Holds todayFlash;
  const char* todayState;  ///< loaded= at the end, and more where it matters
  int updateExit;          ///< of `tarnwickctl update`
  Holds updateFlash;
  const char* options = "";                              ///< of `tarnwickctl update`
  std::string (*history)(const Bench& bench) = nullptr;  ///< commands that came before
};

void PrintTo(const Hazard& hazard, std::ostream* out) { *out << hazard.name; }

void ExpectHolds(const Ended& ended, const Bench& bench, Holds holds) {
  if (holds == Holds::kNeither) {
    ExpectFlashIsNeither(ended, bench);
  } else {
    ExpectFlash(ended, holds == Holds::kImage ? bench.New() : bench.Old());
  }
}

class HazardTest : public testing::TestWithParam<Hazard> {
 protected:
  HazardTest() : bench_(GetParam().board) { GetParam().prepare(bench_); }

  std::string AfterHistory(const std::string& command) const {
    return GetParam().history == nullptr ? command : GetParam().history(bench_) + "; " + command;
  }

  Bench bench_;
};

TEST_P(HazardTest, TarnwickToday) {
  const Hazard& hazard = GetParam();
  const Ended ended = bench_.Run(AfterHistory(bench_.Tarnwick()));
  EXPECT_EQ(ended.exitCode, hazard.todayExit) << ended.err;
  ExpectHolds(ended, bench_, hazard.todayFlash);
  EXPECT_THAT(ended.state, HasSubstr(hazard.todayState));
}

TEST_P(HazardTest, TarnwickctlUpdate) {
  const Hazard& hazard = GetParam();
  const Ended ended = bench_.Run(AfterHistory(bench_.Update(hazard.options)));
  EXPECT_EQ(ended.exitCode, hazard.updateExit) << ended.out << ended.err;
  ExpectHolds(ended, bench_, hazard.updateFlash);
  if (hazard.updateFlash == Holds::kOld) {
    EXPECT_THAT(FlashWrites(ended.log), IsEmpty());
  }
  if (hazard.updateExit == 0) {
    const bool isLoaded =
        hazard.board.word != std::string(kDax.word) || hazard.updateFlash == Holds::kOld;
    EXPECT_EQ(ended.state, bench_.Resting(isLoaded ? "current" : "other"));
  } else {
    EXPECT_EQ(ended.state, bench_.InUse());
  }
}

// --- Faults

void LosePage(Bench& bench) { bench.Fault("spi:PP#2:lost"); }

void LoseResetOfWend(Bench& bench) { bench.Fault("write:zynq_hw_reset_n#1:lost"); }
// A pyx drives its reset twice, while it is routed to the controller and to its flash.
void LoseResetOfPyx1(Bench& bench) {
  bench.Fault("i2c:w 02 20 3e#1:lost");
  bench.Fault("i2c:w 02 20 12#1:lost");
}
void LoseResetOfPyx2(Bench& bench) {
  bench.Fault("i2c:w 02 e8 f5#1:lost");
  bench.Fault("i2c:w 02 e8 f5#2:lost");
}

void FailToReadDone(Bench& bench) {
  bench.StoreFlash(bench.Image());
  bench.Fault("i2c:w 00 r +2#1:ENXIO");
}

// --- Updates that were cut short

std::string AfterTarnwick(const Bench& bench) { return bench.Tarnwick() + " >&2"; }

void CutInPages(Bench& bench) { bench.Fault("spi:PP#2:kill"); }

void CutBeforeResetOfWend(Bench& bench) { bench.Fault("write:zynq_hw_reset_n#1:kill"); }
void CutBeforeResetOfPyx1(Bench& bench) { bench.Fault("i2c:w 02 20 3e#1:kill"); }
void CutBeforeResetOfPyx2(Bench& bench) { bench.Fault("i2c:w 02 e8 f5#1:kill"); }

void CutInResetOfWend(Bench& bench) { bench.Fault("sleep:5 s#1:kill"); }
void CutInResetOfPyx1(Bench& bench) { bench.Fault("sleep:10 ms#1:kill"); }
void CutInResetOfPyx2(Bench& bench) {
  bench.Key("chip=macronix");
  bench.Fault("sleep:5 s#1:kill");
}

void CutBeforeRescan(Bench& bench) {
  bench.WriteFile("other.bin", bench.Build(2022));
  bench.Fault("write:/rescan#1:kill");
}

std::string AfterTwoTarnwicks(const Bench& bench) {
  return bench.Tarnwick() + " >&2; " + bench.Tarnwick("other.bin") + " >&2";
}

void CutBeforeRescanOfTheImage(Bench& bench) { bench.Fault("write:/rescan#1:kill"); }

// --- Images

void SpoilGzip(Bench& bench) {
  bench.StoreImage(program_test::SpoiltGzip(bench.Image()), bench.Image());
}

void Gzip(Bench& bench) { bench.StoreImage(program_test::Gzipped(bench.Image()), bench.Image()); }

/// The second half of the data is missing.
void CutGzip(Bench& bench) {
  const std::vector<program_test::ImageKind> kinds = program_test::ReadableImages();
  const auto kind = std::ranges::find_if(kinds, [](const program_test::ImageKind& each) {
    return std::string(each.name) == "GzipCutInHalf";
  });
  const Bytes image = bench.Build(2024, kind->bytes);
  bench.StoreImage(kind->file(image), image);
}

Bytes WithoutStamp(std::uint32_t seed) {
  return orvane::MakeBitstream({.bytes = 600, .seed = seed});
}

void LeaveOutStamps(Bench& bench) {
  bench.StoreFlash(WithoutStamp(1));
  bench.StoreImage(WithoutStamp(2));
}

void RemoveImage(Bench& bench) { std::filesystem::remove(bench.File("image.bin")); }

void RemoveImageAndStamp(Bench& bench) {
  bench.StoreFlash(WithoutStamp(1));
  RemoveImage(bench);
}

void EmptyImage(Bench& bench) { bench.StoreImage({}); }

void BuildForPyx1(Bench& bench) {
  bench.StoreImage(
      orvane::MakeBitstream({.bytes = 600, .userAccess = orvane::PackStamp({.year = 2024})}));
}

// --- The working directory, the kernel

void LeaveLongDump(Bench& bench) {
  bench.StoreFlash(WithoutStamp(1));
  Bytes dump(512, 0xFF);
  const Bytes stamped = bench.Image();
  dump.insert(dump.end(), stamped.begin(), stamped.end());
  bench.WriteFile("dumpflash.bin", dump);
}

void LimitTo(Bench& bench, const char* bytes) { bench.Option({"--bufsiz", bytes}); }
void LimitTransfersTo256(Bench& bench) { LimitTo(bench, "256"); }
void LimitTransfersTo320(Bench& bench) {
  bench.StoreImage(bench.Build(2024, 2000));
  LimitTo(bench, "320");
}

constexpr Holds kOld = Holds::kOld;
constexpr Holds kImage = Holds::kImage;
constexpr Holds kNeither = Holds::kNeither;

constexpr const char* kCurrent = "loaded=current";
constexpr const char* kOther = "loaded=other";
constexpr const char* kNothing = "loaded=none";

const Hazard kHazards[] = {
    {"LostPageOfWend", kWend, LosePage, 0, kNeither, kCurrent, 0, kImage},
    {"LostPageOfDax", kDax, LosePage, 0, kNeither, kOther, 0, kImage},
    {"LostPageOfPyx1", kPyx1, LosePage, 0, kNeither, kCurrent, 0, kImage},
    {"LostPageOfPyx2", kPyx2, LosePage, 0, kNeither, kCurrent, 0, kImage},

    {"HalfImageInWend", kWend, CutInPages, 11, kNeither, kOther, 0, kImage, "", AfterTarnwick},
    {"HalfImageInDax", kDax, CutInPages, 11, kNeither, kOther, 0, kImage, "", AfterTarnwick},
    {"HalfImageInPyx1", kPyx1, CutInPages, 11, kNeither, kOther, 0, kImage, "", AfterTarnwick},
    {"HalfImageInPyx2", kPyx2, CutInPages, 11, kNeither, kOther, 0, kImage, "", AfterTarnwick},

    {"CutBeforeResetOfWend",
     kWend,
     CutBeforeResetOfWend,
     11,
     kImage,
     kOther,
     0,
     kImage,
     "--restart",
     AfterTarnwick},
    {"CutBeforeResetOfPyx1",
     kPyx1,
     CutBeforeResetOfPyx1,
     11,
     kImage,
     kOther,
     0,
     kImage,
     "--restart",
     AfterTarnwick},
    {"CutBeforeResetOfPyx2",
     kPyx2,
     CutBeforeResetOfPyx2,
     11,
     kImage,
     kOther,
     0,
     kImage,
     "--restart",
     AfterTarnwick},

    {"LostResetOfWend", kWend, LoseResetOfWend, 0, kImage, kOther, 0, kImage},
    {"LostResetOfPyx1", kPyx1, LoseResetOfPyx1, 0, kImage, kOther, 0, kImage},
    {"LostResetOfPyx2", kPyx2, LoseResetOfPyx2, 0, kImage, kOther, 0, kImage},

    {"EndedInResetOfWend",
     kWend,
     CutInResetOfWend,
     11,
     kImage,
     kNothing,
     0,
     kImage,
     "",
     AfterTarnwick},
    {"EndedInResetOfPyx1",
     kPyx1,
     CutInResetOfPyx1,
     11,
     kImage,
     kCurrent,
     0,
     kImage,
     "--restart",
     AfterTarnwick},
    {"EndedInResetOfPyx2",
     kPyx2,
     CutInResetOfPyx2,
     11,
     kImage,
     kNothing,
     0,
     kImage,
     "",
     AfterTarnwick},

    {"EndpointGoneOfPyx1",
     kPyx1,
     CutBeforeRescan,
     10,
     kImage,
     "pcie=absent",
     0,
     kImage,
     "",
     AfterTwoTarnwicks},
    {"EndpointGoneOfPyx2",
     kPyx2,
     CutBeforeRescan,
     10,
     kImage,
     "pcie=absent",
     0,
     kImage,
     "",
     AfterTwoTarnwicks},
    {"EndpointGoneOverTheImageInPyx1",
     kPyx1,
     CutBeforeRescanOfTheImage,
     11,
     kImage,
     "pcie=absent",
     0,
     kImage,
     "",
     AfterTarnwick},
    {"EndpointGoneOverTheImageInPyx2",
     kPyx2,
     CutBeforeRescanOfTheImage,
     11,
     kImage,
     "pcie=absent",
     0,
     kImage,
     "",
     AfterTarnwick},

    {"CutGzipForDax", kDax, CutGzip, 0, kNeither, kOther, 2, kOld},
    {"CutGzipForPyx1", kPyx1, CutGzip, 0, kNeither, kCurrent, 2, kOld},
    {"CutGzipForPyx2", kPyx2, CutGzip, 0, kNeither, kCurrent, 2, kOld},
    {"GzipForWend", kWend, Gzip, 6, kImage, kOther, 0, kImage},

    {"NoStampOverNoStampInDax", kDax, LeaveOutStamps, 11, kOld, kCurrent, 0, kImage},
    {"NoStampOverNoStampInPyx1", kPyx1, LeaveOutStamps, 11, kOld, kCurrent, 0, kImage},

    {"UnreadableDoneOfRunningDax", kDax, FailToReadDone, 11, kOld, kNothing, 0, kOld},

    {"MissingImageForWend", kWend, RemoveImage, 134, kOld, kCurrent, 2, kOld},
    {"MissingImageForDax", kDax, RemoveImageAndStamp, 11, kOld, kCurrent, 2, kOld},
    {"MissingImageForPyx1", kPyx1, RemoveImageAndStamp, 11, kOld, kCurrent, 2, kOld},
    {"MissingImageForPyx2", kPyx2, RemoveImage, 134, kOld, kCurrent, 2, kOld},
    {"EmptyImageForDax", kDax, EmptyImage, 0, kOld, kCurrent, 2, kOld},
    {"EmptyImageForPyx1", kPyx1, EmptyImage, 0, kOld, kCurrent, 2, kOld},
    {"EmptyImageForWend", kWend, EmptyImage, 134, kOld, kCurrent, 2, kOld},
    {"EmptyImageForPyx2", kPyx2, EmptyImage, 134, kOld, kCurrent, 2, kOld},
    {"ImageOfPyx1ForPyx2", kPyx2, BuildForPyx1, 7, kImage, kNothing, 2, kOld},

    {"LongDumpBesideDax", kDax, LeaveLongDump, 11, kOld, kCurrent, 0, kImage},
    {"LongDumpBesidePyx1", kPyx1, LeaveLongDump, 11, kOld, kCurrent, 0, kImage},
    {"TransfersOf256Bytes", kDax, LimitTransfersTo256, 6, kNeither, kOther, 2, kOld},
    {"TransfersOf320Bytes", kDax, LimitTransfersTo320, 0, kNeither, kOther, 2, kOld},
};

INSTANTIATE_TEST_SUITE_P(Hazards, HazardTest, testing::ValuesIn(kHazards), [](const auto& hazard) {
  return std::string(hazard.param.name);
});

// --- Images without an end

class BoardHazardTest : public testing::TestWithParam<Board> {
 protected:
  Bench bench_{GetParam()};
};

INSTANTIATE_TEST_SUITE_P(Boards,
                         BoardHazardTest,
                         testing::Values(kWend, kDax, kPyx1, kPyx2),
                         program_test::WordOf);

TEST_P(BoardHazardTest, SpoiltGzipKeepsTarnwickRunning) {
  SpoilGzip(bench_);
  const Ended ended = bench_.Run("ulimit -c 0; ulimit -S -t 1; exec " + bench_.Tarnwick());
  EXPECT_EQ(ended.exitCode, 128 + SIGXCPU) << ended.err;
  ExpectFlash(ended, bench_.Old());
}

TEST_P(BoardHazardTest, SpoiltGzipIsRefusedByUpdate) {
  SpoilGzip(bench_);
  const Ended ended = bench_.Run(bench_.Update());
  EXPECT_EQ(ended.exitCode, 2) << ended.out << ended.err;
  ExpectFlash(ended, bench_.Old());
  EXPECT_EQ(ended.state, bench_.InUse());
  EXPECT_EQ(CountStarts(ended.log, "spi "), 0);
}

/// An image that goes on to 2 GiB without occupying the disk.
void GrowImage(const Bench& bench) {
  std::filesystem::resize_file(bench.File("image.bin"), std::uintmax_t{2} << 30);
}

TEST(HugeImageTest, IsWrittenOverTheOldContentsWithoutAnErase) {
  Bench bench(kDax);
  GrowImage(bench);
  bench.Fault("spi:PP#4:kill");  // the other pages take hours
  const Ended ended = bench.Run(bench.Tarnwick());
  EXPECT_EQ(ended.exitCode, 137);
  EXPECT_THAT(ended.out, EndsWith("Erasing device ... done.\nProgramming device ... "));
  EXPECT_EQ(CountStarts(ended.log, "spi /dev/spidev2.0 SE"), 0);
  ExpectFlashIsNeither(ended, bench);
}

TEST(HugeImageTest, IsRefusedByUpdate) {
  Bench bench(kDax);
  GrowImage(bench);
  const Ended ended = bench.Run(bench.Update());
  EXPECT_EQ(ended.exitCode, 2) << ended.out << ended.err;
  ExpectFlash(ended, bench.Old());
  EXPECT_EQ(CountStarts(ended.log, "spi "), 0);
}

// --- Lines of the expander that nobody drives

class OtherLinesTest : public testing::TestWithParam<Board> {
 protected:
  OtherLinesTest() { bench_.Fault("i2c:w 06 r#1:lost"); }

  /// All but those of the program.
  [[nodiscard]] std::string Driven() const {
    const bool isPyx2 = GetParam().word == std::string_view(kPyx2.word);
    return isPyx2 ? "driven=0xf5e8" : "driven=0x1220";
  }

  Bench bench_{GetParam()};
};

INSTANTIATE_TEST_SUITE_P(Boards,
                         OtherLinesTest,
                         testing::Values(kDax, kPyx1, kPyx2),
                         program_test::WordOf);

TEST_P(OtherLinesTest, LostReadingOfTheDirectionsLeavesThemDriven) {
  const Ended ended = bench_.Run(bench_.Tarnwick());
  EXPECT_EQ(ended.exitCode, 0) << ended.out << ended.err;
  EXPECT_THAT(ended.state, HasSubstr(Driven()));
}

TEST_P(OtherLinesTest, UpdateReleasesThem) {
  const Ended ended = bench_.Run(bench_.Tarnwick() + " >/dev/null 2>&1; " + bench_.Update());
  EXPECT_EQ(ended.exitCode, 0) << ended.out << ended.err;
  EXPECT_THAT(ended.state, HasSubstr("driven=0x0000"));
}

TEST_P(OtherLinesTest, VerifyLeavesThemAsItFindsThem) {
  const Ended ended = bench_.Run(bench_.Tarnwick() + " >/dev/null 2>&1; " + bench_.Verify());
  EXPECT_EQ(ended.exitCode, 0) << ended.out << ended.err;
  EXPECT_THAT(ended.state, HasSubstr(Driven()));
}

// --- The power fails

TEST_P(BoardHazardTest, PowerCutInThePagesLeavesHalfAnImageThatCountsAsUpToDate) {
  bench_.Fault("spi:PP#2:kill-all");
  EXPECT_EQ(bench_.Run(bench_.Tarnwick()).exitCode, 137);
  bench_.WithoutFaults();
  const Ended second = bench_.Run(bench_.Tarnwick());
  EXPECT_EQ(second.exitCode, 11);
  ExpectFlashIsNeither(second, bench_);
}

TEST_P(BoardHazardTest, PowerCutInThePagesIsMendedByTheNextUpdate) {
  bench_.Fault("spi:PP#2:kill-all");
  EXPECT_EQ(bench_.Run(bench_.Update()).exitCode, 137);
  bench_.WithoutFaults();
  const Ended second = bench_.Run(bench_.Update());
  EXPECT_EQ(second.exitCode, 0) << second.out << second.err;
  ExpectFlash(second, bench_.New());
  const bool isLoaded = std::string(GetParam().word) != kDax.word;
  EXPECT_EQ(second.state, bench_.Resting(isLoaded ? "current" : "other"));
}

}  // namespace
}  // namespace companion_test
