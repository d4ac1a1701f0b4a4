#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "simulator/images/Bitstream.h"
#include "simulator/images/BootImage.h"
#include "simulator/images/Gzip.h"
#include "simulator/images/ImageMaker.h"
#include "tests/doubles/TemporaryDirectory.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

struct MakerRun {
  int status;
  std::string out;
  std::string err;
};

class ImageMakerTest : public testing::Test {
 protected:
  static MakerRun Run(const std::vector<std::string>& words) {
    std::vector<const char*> pointers;
    pointers.reserve(words.size());
    for (const std::string& word : words) {
      pointers.push_back(word.c_str());
    }
    std::ostringstream out;
    std::ostringstream err;
    const int status = orvane::RunImageMaker(pointers, out, err);
    return {status, out.str(), err.str()};
  }
  /// Runs with --out added; expects success and returns the file.
  Bytes Make(std::vector<std::string> words) const {
    words.insert(words.end(), {"--out", File()});
    const MakerRun outcome = Run(words);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "");
    std::ifstream file(File(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }
  /// Runs with --out added; expects a usage error of the usual form and nothing written, and
  /// returns what is wrong.
  std::string ProblemWith(std::vector<std::string> words) const {
    words.insert(words.end(), {"--out", File()});
    return ProblemWithJust(words);
  }
  std::string ProblemWithJust(const std::vector<std::string>& words) const {
    const MakerRun outcome = Run(words);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.out, "");
    EXPECT_FALSE(std::filesystem::exists(File()));
    const std::string start = "orvane-image: ";
    const std::string end = "\nTry 'orvane-image --help'.\n";
    if (!outcome.err.starts_with(start) || !outcome.err.ends_with(end)) {
      return "no usage error: " + outcome.err;
    }
    return outcome.err.substr(start.size(), outcome.err.size() - start.size() - end.size());
  }
  std::string File() const { return directory_.Path() + "/image.bin"; }

  TemporaryDirectory directory_;
};

TEST_F(ImageMakerTest, ZynqWritesAnImageWithDefaults) {
  EXPECT_EQ(Make({"zynq"}), orvane::MakeZynqImage({}));
}

TEST_F(ImageMakerTest, ZynqDefaultsAreAsTheHelpSays) {
  const Bytes image = Make({"zynq"});
  EXPECT_EQ(image.size(), 262144U);
  EXPECT_EQ(std::string(image.begin() + 76, image.begin() + 112),
            "u-boot-vexa.bin#2024-01-01 00:00:00#");
}

TEST_F(ImageMakerTest, ZynqTakesNameDateSizeAndSeed) {
  EXPECT_EQ(
      Make({"zynq", "--name", "x.bin", "--date=today", "--size", "5000", "--seed", "9"}),
      orvane::MakeZynqImage({.fileName = "x.bin", .buildDate = "today", .bytes = 5000, .seed = 9}));
}

TEST_F(ImageMakerTest, SizeTakesBinarySuffixes) {
  EXPECT_EQ(Make({"zynq", "--size", "3K"}).size(), 3072U);
  EXPECT_EQ(Make({"zynq", "--size", "2M"}).size(), 2097152U);
}

TEST_F(ImageMakerTest, GzipCompressesTheFile) {
  EXPECT_EQ(Make({"zynq", "--size", "8K", "--gzip"}),
            orvane::Gzip(orvane::MakeZynqImage({.bytes = 8192})));
}

TEST_F(ImageMakerTest, BitstreamDefaultsAreAsTheHelpSays) {
  EXPECT_EQ(
      Make({"bitstream"}),  // day 1, month 1, year 24
      orvane::MakeBitstream({.bytes = 262144, .userAccess = 0x08B00000, .stampWordOffset = 24}));
}

TEST_F(ImageMakerTest, BitstreamTakesStampAndWord) {
  EXPECT_EQ(
      Make({"bitstream", "--stamp", "2015-05-11 03:35:05", "--stamp-word", "77", "--size", "1K"}),
      orvane::MakeBitstream({.bytes = 1024, .userAccess = 0x5A9E38C5, .stampWordOffset = 77}));
}

TEST_F(ImageMakerTest, BitstreamWithoutStamp) {
  EXPECT_EQ(Make({"bitstream", "--no-stamp", "--seed", "4294967295"}),
            orvane::MakeBitstream({.seed = 4294967295}));
}

TEST_F(ImageMakerTest, ExistingFileIsReplaced) {
  std::ofstream(File()) << std::string(10000, 'x');
  EXPECT_EQ(Make({"zynq", "--size", "152"}).size(), 152U);
}

TEST_F(ImageMakerTest, HelpGoesToStandardOutput) {
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"--help"}, {"zynq", "--help"}, {"bitstream", "--help"}}) {
    const MakerRun outcome = Run(words);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out.substr(0, 31), "Usage: orvane-image zynq --out ");
    EXPECT_EQ(outcome.err, "");
  }
}

TEST_F(ImageMakerTest, VersionGoesToStandardOutput) {
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"--version"}, {"zynq", "--version"}}) {
    const MakerRun outcome = Run(words);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out.substr(0, 13), "orvane-image ");
    EXPECT_EQ(outcome.err, "");
  }
}

TEST_F(ImageMakerTest, UsageErrorIsOneLineAndWhereToLook) {
  EXPECT_EQ(Run({"zynq", "--frob"}).err,
            "orvane-image: unknown option '--frob'\nTry 'orvane-image --help'.\n");
}

TEST_F(ImageMakerTest, KindMustBeKnown) {
  EXPECT_EQ(ProblemWithJust({}), "a word is missing: zynq or bitstream");
  EXPECT_EQ(ProblemWithJust({"Zynq"}), "unknown word 'Zynq' (expected zynq or bitstream)");
}

TEST_F(ImageMakerTest, FileMustBeGiven) {
  EXPECT_EQ(ProblemWithJust({"zynq"}), "--out FILE is missing");
  EXPECT_EQ(ProblemWithJust({"zynq", "--out="}), "--out: '' is not a file name");
}

TEST_F(ImageMakerTest, OptionNeedsItsValue) {
  EXPECT_EQ(ProblemWithJust({"zynq", "--out"}), "option '--out' needs a value");
}

TEST_F(ImageMakerTest, UnknownOptionsAreNamed) {
  EXPECT_EQ(ProblemWith({"zynq", "--frob"}), "unknown option '--frob'");
  EXPECT_EQ(ProblemWith({"zynq", "-xy"}), "unknown option '-xy'");
  EXPECT_EQ(ProblemWith({"--frob", "zynq"}), "unknown option '--frob'");
}

TEST_F(ImageMakerTest, FlagTakesNoValue) {
  EXPECT_EQ(ProblemWith({"zynq", "--gzip=9"}), "option '--gzip' takes no value");
}

TEST_F(ImageMakerTest, OptionsOfTheOtherKindAreUnknown) {
  EXPECT_EQ(ProblemWith({"zynq", "--no-stamp"}), "unknown option '--no-stamp'");
  EXPECT_EQ(ProblemWith({"bitstream", "--name", "x"}), "unknown option '--name'");
}

TEST_F(ImageMakerTest, LooseWordIsRefused) {
  EXPECT_EQ(ProblemWithJust({"zynq", "--out", File(), "more"}), "unexpected word 'more'");
}

TEST_F(ImageMakerTest, BadSizesAreRefused) {
  for (const std::string size : {"",
                                 "K",
                                 "x",
                                 "-1",
                                 " 1",
                                 "1k",
                                 "1KB",
                                 "1.5M",
                                 "1025M",
                                 "1073741825",
                                 "99999999999999999999",
                                 "18014398509481985K",
                                 "151"}) {
    EXPECT_EQ(ProblemWith({"zynq", "--size", size}),
              "--size: '" + size + "' is not a size from 152 bytes to 1024M");
  }
  EXPECT_EQ(ProblemWith({"bitstream", "--size", "63"}),
            "--size: '63' is not a size from 64 bytes to 1024M");
}

TEST_F(ImageMakerTest, BadSeedsAreRefused) {
  for (const std::string seed : {"", "x", "-1", "1x", "4294967296"}) {
    EXPECT_EQ(ProblemWith({"zynq", "--seed", seed}),
              "--seed: '" + seed + "' is not a number from 0 to 4294967295");
  }
}

TEST_F(ImageMakerTest, LongDateIsRefused) {
  EXPECT_EQ(ProblemWith({"zynq", "--date", std::string(60, 'd')}),
            "the file name and the build date have 75 bytes together, 74 at most fit");
}

TEST_F(ImageMakerTest, BadStampsAreRefused) {
  for (const std::string stamp : {"",
                                  "2024-01-01",
                                  "2024-01-01T00:00:00",
                                  "2024-01-01 00:00:00 ",
                                  "2024-1-01 00:00:00",
                                  "-024-01-01 00:00:00"}) {
    EXPECT_EQ(ProblemWith({"bitstream", "--stamp", stamp}),
              "--stamp: '" + stamp + "' is not of the form YYYY-MM-DD hh:mm:ss");
  }
  EXPECT_EQ(ProblemWith({"bitstream", "--stamp", "2024-02-30 00:00:00"}),
            "--stamp: '2024-02-30 00:00:00': a stamp holds a date from 2000-01-01 to 2063-12-31");
  EXPECT_EQ(ProblemWith({"bitstream", "--stamp", "2024-02-01 24:00:00"}),
            "--stamp: '2024-02-01 24:00:00': a stamp holds a time from 00:00:00 to 23:59:59");
}

TEST_F(ImageMakerTest, StampAndNoStampExcludeEachOther) {
  EXPECT_EQ(ProblemWith({"bitstream", "--no-stamp", "--stamp", "2024-01-01 00:00:00"}),
            "--no-stamp excludes --stamp");
  EXPECT_EQ(ProblemWith({"bitstream", "--stamp-word", "30", "--no-stamp"}),
            "--no-stamp excludes --stamp-word");
}

TEST_F(ImageMakerTest, StampWordBeyondTheEndIsRefused) {
  EXPECT_EQ(ProblemWith({"bitstream", "--size", "1K", "--stamp-word", "255"}),
            "a stamp at word offset 255 does not fit: the last offset is 254");
}

TEST_F(ImageMakerTest, FileThatCannotBeOpenedIsAnIoError) {
  const std::string file = directory_.Path() + "/missing/image.bin";
  const MakerRun outcome = Run({"zynq", "--out", file});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "orvane-image: cannot write '" + file + "': No such file or directory\n");
}

TEST_F(ImageMakerTest, FullDeviceIsAnIoErrorForLargeAndSmallFiles) {
  for (const char* size : {"1M", "152"}) {
    const MakerRun outcome = Run({"zynq", "--out", "/dev/full", "--size", size});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "orvane-image: cannot write '/dev/full': No space left on device\n");
  }
}

}  // namespace
