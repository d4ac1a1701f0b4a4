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

struct Outcome {
  int status;
  std::string out;
  std::string err;
};

class ImageMakerTest : public testing::Test {
 protected:
  static Outcome Run(std::vector<std::string> words) {
    words.insert(words.begin(), "orvane-image");
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (std::string& word : words) {
      argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    std::ostringstream out;
    std::ostringstream err;
    const int status = orvane::RunImageMaker(static_cast<int>(words.size()), argv.data(), out, err);
    return {status, out.str(), err.str()};
  }
  /// Runs with --out added; expects success and returns the file.
  Bytes Make(std::vector<std::string> words) const {
    words.insert(words.end(), {"--out", File()});
    const Outcome outcome = Run(words);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "");
    std::ifstream file(File(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }
  /// Runs with --out added; expects a usage error, nothing written, and returns its line.
  std::string UsageError(std::vector<std::string> words) const {
    words.insert(words.end(), {"--out", File()});
    return UsageErrorAsIs(words);
  }
  std::string UsageErrorAsIs(const std::vector<std::string>& words) const {
    const Outcome outcome = Run(words);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.out, "");
    EXPECT_FALSE(std::filesystem::exists(File()));
    return outcome.err;
  }
  std::string File() const { return directory_.path() + "/image.bin"; }

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
    const Outcome outcome = Run(words);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out.substr(0, 31), "Usage: orvane-image zynq --out ");
    EXPECT_EQ(outcome.err, "");
  }
}

TEST_F(ImageMakerTest, KindMustBeKnown) {
  EXPECT_EQ(UsageErrorAsIs({}), "orvane-image: say zynq or bitstream (see orvane-image --help)\n");
  EXPECT_EQ(UsageErrorAsIs({"Zynq"}),
            "orvane-image: 'Zynq' is neither zynq nor bitstream (see orvane-image --help)\n");
}

TEST_F(ImageMakerTest, FileMustBeGiven) {
  EXPECT_EQ(UsageErrorAsIs({"zynq"}),
            "orvane-image: --out FILE is missing (see orvane-image --help)\n");
}

TEST_F(ImageMakerTest, OptionNeedsItsValue) {
  EXPECT_EQ(UsageErrorAsIs({"zynq", "--out"}),
            "orvane-image: --out needs a value (see orvane-image --help)\n");
}

TEST_F(ImageMakerTest, UnknownOptionsAreNamed) {
  EXPECT_EQ(UsageError({"zynq", "--frob"}),
            "orvane-image: '--frob' is not an option of zynq (see orvane-image --help)\n");
  EXPECT_EQ(UsageError({"zynq", "-xy"}),
            "orvane-image: '-xy' is not an option of zynq (see orvane-image --help)\n");
  EXPECT_EQ(UsageError({"zynq", "--gzip=9"}),
            "orvane-image: '--gzip=9' is not an option of zynq (see orvane-image --help)\n");
}

TEST_F(ImageMakerTest, OptionsOfTheOtherKindAreUnknown) {
  EXPECT_EQ(UsageError({"zynq", "--no-stamp"}),
            "orvane-image: '--no-stamp' is not an option of zynq (see orvane-image --help)\n");
  EXPECT_EQ(UsageError({"bitstream", "--name", "x"}),
            "orvane-image: '--name' is not an option of bitstream (see orvane-image --help)\n");
}

TEST_F(ImageMakerTest, LooseWordIsRefused) {
  EXPECT_EQ(UsageErrorAsIs({"zynq", "--out", File(), "more"}),
            "orvane-image: 'more' is one word too many (see orvane-image --help)\n");
}

TEST_F(ImageMakerTest, BadSizesAreRefused) {
  for (const char* size : {"",
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
                           "18014398509481985K"}) {
    EXPECT_EQ(UsageError({"zynq", "--size", size}),
              "orvane-image: --size: '" + std::string(size) +
                  "' is not a size of at most 1024M (see orvane-image --help)\n");
  }
}

TEST_F(ImageMakerTest, SizesBelowTheSmallestImageAreRefused) {
  EXPECT_EQ(UsageError({"zynq", "--size", "151"}),
            "orvane-image: a Zynq image has at least 152 bytes (see orvane-image --help)\n");
  EXPECT_EQ(UsageError({"bitstream", "--size", "63"}),
            "orvane-image: a bitstream has at least 64 bytes (see orvane-image --help)\n");
}

TEST_F(ImageMakerTest, BadSeedsAreRefused) {
  for (const char* seed : {"", "x", "-1", "1x", "4294967296"}) {
    EXPECT_EQ(UsageError({"zynq", "--seed", seed}),
              "orvane-image: --seed: '" + std::string(seed) +
                  "' is not a number from 0 to 4294967295 (see orvane-image --help)\n");
  }
}

TEST_F(ImageMakerTest, LongDateIsRefused) {
  EXPECT_EQ(UsageError({"zynq", "--date", std::string(60, 'd')}),
            "orvane-image: the file name and the build date have room for 74 bytes together "
            "(see orvane-image --help)\n");
}

TEST_F(ImageMakerTest, BadStampsAreRefused) {
  for (const char* stamp : {"",
                            "2024-01-01",
                            "2024-01-01T00:00:00",
                            "2024-01-01 00:00:00 ",
                            "2024-1-01 00:00:00",
                            "-024-01-01 00:00:00"}) {
    EXPECT_EQ(UsageError({"bitstream", "--stamp", stamp}),
              "orvane-image: --stamp: '" + std::string(stamp) +
                  "' is not of the form YYYY-MM-DD hh:mm:ss (see orvane-image --help)\n");
  }
  EXPECT_EQ(UsageError({"bitstream", "--stamp", "2024-02-30 00:00:00"}),
            "orvane-image: a stamp holds a date from 2000-01-01 to 2063-12-31 "
            "(see orvane-image --help)\n");
  EXPECT_EQ(UsageError({"bitstream", "--stamp", "2024-02-01 24:00:00"}),
            "orvane-image: a stamp holds a time from 00:00:00 to 23:59:59 "
            "(see orvane-image --help)\n");
}

TEST_F(ImageMakerTest, StampAndNoStampExcludeEachOther) {
  const char* const kText =
      "orvane-image: --no-stamp excludes --stamp and --stamp-word (see orvane-image --help)\n";
  EXPECT_EQ(UsageError({"bitstream", "--no-stamp", "--stamp", "2024-01-01 00:00:00"}), kText);
  EXPECT_EQ(UsageError({"bitstream", "--stamp-word", "30", "--no-stamp"}), kText);
}

TEST_F(ImageMakerTest, StampWordBeyondTheEndIsRefused) {
  EXPECT_EQ(UsageError({"bitstream", "--size", "1K", "--stamp-word", "255"}),
            "orvane-image: the stamp does not fit: its last word offset is 254 "
            "(see orvane-image --help)\n");
}

TEST_F(ImageMakerTest, FileThatCannotBeOpenedIsAnIoError) {
  const std::string file = directory_.path() + "/missing/image.bin";
  const Outcome outcome = Run({"zynq", "--out", file});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "orvane-image: cannot write '" + file + "': No such file or directory\n");
}

TEST_F(ImageMakerTest, FullDeviceIsAnIoErrorForLargeAndSmallFiles) {
  for (const char* size : {"1M", "152"}) {
    const Outcome outcome = Run({"zynq", "--out", "/dev/full", "--size", size});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "orvane-image: cannot write '/dev/full': No space left on device\n");
  }
}

}  // namespace
