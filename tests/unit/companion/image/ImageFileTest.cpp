#include <gtest/gtest.h>
#include <unistd.h>
#include <zlib.h>

#include <cerrno>
#include <string>

#include "companion/image/ImageFile.h"
#include "tests/doubles/TemporaryDirectory.h"
#include "tests/unit/companion/FailingCalls.h"
#include "tests/unit/companion/image/Images.h"

FAILING_CALL(ssize_t, read, (int file, void* bytes, std::size_t count), (file, bytes, count))

namespace {

using namespace companion;
using images::Bytes;

constexpr std::size_t kMiB = 1U << 20;

constexpr const char* kShaOfNothing =
    "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

class ImageFileTest : public testing::Test {
 protected:
  [[nodiscard]] std::string PathOf(const Bytes& bytes) const {
    return folder_.File("image.bin", images::Text(bytes));
  }

  [[nodiscard]] ImageFile Read(const Bytes& bytes) const { return ReadPath(PathOf(bytes)); }

  static ImageFile ReadPath(const std::string& path) {
    ImageReading reading = ReadImageFile(path);
    EXPECT_TRUE(reading.image) << reading.refusal;
    EXPECT_EQ(reading.refusal, "");
    return reading.image.value_or(ImageFile());
  }

  /// A gzip file of zeros.
  [[nodiscard]] std::string PathOfZeros(std::size_t count) const {
    std::string path = folder_.Path() + "/zeros.gz";
    gzFile file = ::gzopen(path.c_str(), "wb1");
    const Bytes piece(kMiB, 0);
    while (count > 0) {
      const std::size_t part = std::min(count, piece.size());
      EXPECT_EQ(::gzwrite(file, piece.data(), static_cast<unsigned>(part)), static_cast<int>(part));
      count -= part;
    }
    ::gzclose(file);
    return path;
  }

  /// A file with these first bytes, and zeros behind them that take no place on the disk.
  [[nodiscard]] std::string PathOfLong(const Bytes& start, off_t count) const {
    std::string path = PathOf(start);
    EXPECT_EQ(::truncate(path.c_str(), count), 0);
    return path;
  }

  TemporaryDirectory folder_;
};

TEST_F(ImageFileTest, PlainFileIsTheImage) {
  const ImageFile image = Read({'a', 'b', 'c'});
  EXPECT_EQ(image.path, folder_.Path() + "/image.bin");
  EXPECT_EQ(image.fileBytes, 3U);
  EXPECT_EQ(image.packing, Packing::kPlain);
  EXPECT_EQ(image.packingEnd, std::nullopt);
  EXPECT_EQ(images::Text(image.bytes), "abc");
  EXPECT_EQ(image.packed, Bytes());
  EXPECT_EQ(image.fileSha256, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(image.sha256, image.fileSha256);
  EXPECT_FALSE(image.tooLarge);
  EXPECT_FALSE(image.gzipInGzip);
  EXPECT_EQ(image.format, ImageFormat::kNeither);
}

TEST_F(ImageFileTest, GzipFileThatCannotBeReadToItsEndIsRefused) {
  const std::string path = PathOf(images::Gzip(Bytes(60'000, 'x'), std::string(60'000, 'n')));
  const FailingCalls failing("read", EIO, 1, 1);
  const ImageReading reading = ReadImageFile(path);
  EXPECT_FALSE(reading.image);
  EXPECT_EQ(reading.refusal, "cannot read \"" + path + "\": Input/output error");
  EXPECT_EQ(failing.Failed(), 1);
}

TEST_F(ImageFileTest, GzipFileHoldsTheImage) {
  const Bytes file = images::Gzip({'a', 'b', 'c'});
  const ImageFile image = Read(file);
  EXPECT_EQ(image.fileBytes, file.size());
  EXPECT_EQ(image.packing, Packing::kGzip);
  EXPECT_EQ(image.packed, file);
  EXPECT_EQ(images::Text(image.bytes), "abc");
  EXPECT_EQ(image.sha256, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(image.fileSha256, Sha256(file.data(), file.size()));
}

TEST_F(ImageFileTest, BytesOfTheFileAreThoseOfAPlainImage) {
  const ImageFile image = Read({'a', 'b', 'c'});
  EXPECT_EQ(BytesOfFile(image).data(), image.bytes.data());
}

TEST_F(ImageFileTest, BytesOfTheFileAreThoseOfGzipData) {
  const ImageFile image = Read(images::Gzip({'a'}));
  EXPECT_EQ(BytesOfFile(image).data(), image.packed.data());
}

TEST_F(ImageFileTest, EmptyFileIsAnEmptyImage) {
  const ImageFile image = Read({});
  EXPECT_EQ(image.fileBytes, 0U);
  EXPECT_EQ(image.packing, Packing::kPlain);
  EXPECT_EQ(image.fileSha256, kShaOfNothing);
  EXPECT_EQ(UnfitReason(image, "dax", false), "it is empty");
}

TEST_F(ImageFileTest, GzipOfNothingIsAnEmptyImage) {
  const ImageFile image = Read(images::Gzip({}));
  EXPECT_EQ(image.sha256, kShaOfNothing);
  EXPECT_EQ(UnfitReason(image, "wend", true), "it is empty");
}

TEST_F(ImageFileTest, ImageAsLargeAsTheFlashIsFit) {
  const ImageFile image = ReadPath(PathOfLong(images::Bitstream(), 16 * kMiB));
  EXPECT_EQ(image.bytes.size(), 16 * kMiB);
  EXPECT_FALSE(image.tooLarge);
  EXPECT_EQ(image.fileSha256.size(), 64U);
  EXPECT_EQ(UnfitReason(image, "dax", false), std::nullopt);
}

TEST_F(ImageFileTest, OneByteMoreThanTheFlashIsTooLarge) {
  const ImageFile image = ReadPath(PathOfLong(images::Bitstream(), 16 * kMiB + 1));
  EXPECT_TRUE(image.tooLarge);
  EXPECT_EQ(image.fileBytes, 16 * kMiB + 1);
  EXPECT_EQ(image.bytes.size(), 16 * kMiB);
  EXPECT_EQ(image.fileSha256, "");
  EXPECT_EQ(image.sha256, "");
  EXPECT_EQ(UnfitReason(image, "dax", true), "it is larger than the flash (16777216 bytes)");
}

TEST_F(ImageFileTest, FileOfTwoGibibytesIsNotReadToItsEnd) {
  const ImageFile image = ReadPath(PathOfLong({}, off_t{2048} * kMiB));
  EXPECT_TRUE(image.tooLarge);
  EXPECT_EQ(image.fileBytes, std::uint64_t{2048} * kMiB);
  EXPECT_EQ(image.bytes.size(), 16 * kMiB);
}

TEST_F(ImageFileTest, GzipOfAsMuchAsTheFlashHoldsIsWhole) {
  const ImageFile image = ReadPath(PathOfZeros(16 * kMiB));
  EXPECT_EQ(image.packing, Packing::kGzip);
  EXPECT_EQ(image.bytes.size(), 16 * kMiB);
  EXPECT_FALSE(image.tooLarge);
}

TEST_F(ImageFileTest, GzipOfOneByteMoreThanTheFlashHoldsIsTooLarge) {
  const ImageFile image = ReadPath(PathOfZeros(16 * kMiB + 1));
  EXPECT_TRUE(image.tooLarge);
  EXPECT_EQ(image.bytes.size(), 16 * kMiB);
  EXPECT_EQ(image.fileSha256.size(), 64U);
  EXPECT_EQ(image.sha256, "");
}

TEST_F(ImageFileTest, GzipFileMuchLargerThanAnImageIsNotReadToItsEnd) {
  const ImageFile image = ReadPath(PathOfLong(images::Gzip({'a'}), off_t{2048} * kMiB));
  EXPECT_TRUE(image.tooLarge);
  EXPECT_EQ(image.packing, Packing::kGzip);
  EXPECT_EQ(image.fileBytes, std::uint64_t{2048} * kMiB);
  EXPECT_EQ(image.fileSha256, "");
  EXPECT_EQ(image.bytes, Bytes());
}

TEST_F(ImageFileTest, GzipWithManyOtherBytesBehindItIsReadWhole) {
  const ImageFile image = ReadPath(PathOfLong(images::Gzip({'a'}), 20 * kMiB));
  EXPECT_FALSE(image.tooLarge);
  EXPECT_EQ(image.packing, Packing::kGzipAndOtherBytes);
  EXPECT_EQ(image.fileSha256.size(), 64U);
}

TEST_F(ImageFileTest, DirectoryIsRefused) {
  const ImageReading reading = ReadImageFile(folder_.Path());
  EXPECT_FALSE(reading.image);
  EXPECT_EQ(reading.refusal, "\"" + folder_.Path() + "\" is no regular file but a directory");
}

TEST_F(ImageFileTest, MissingFileIsRefused) {
  const ImageReading reading = ReadImageFile(folder_.Path() + "/none");
  EXPECT_FALSE(reading.image);
  EXPECT_EQ(reading.refusal,
            "cannot open \"" + folder_.Path() + "/none\": No such file or directory");
}

TEST_F(ImageFileTest, FileThatCannotBeReadIsRefused) {
  const ImageReading reading = ReadImageFile("/proc/self/mem");
  EXPECT_FALSE(reading.image);
  EXPECT_EQ(reading.refusal, "cannot read \"/proc/self/mem\": Input/output error");
}

// --- Format -------------------------------------------------------------------------------------

TEST(ImageFormatTest, BootImageHasWidthWordIdentificationAndCheckSum) {
  EXPECT_EQ(FormatIn(images::BootImage("n#d#")), ImageFormat::kBootImage);
}

TEST(ImageFormatTest, OneWrongByteOfTheBootHeaderMakesItNone) {
  for (const std::size_t at : {0x20U, 0x23U, 0x24U, 0x27U, 0x28U, 0x47U, 0x48U, 0x4BU}) {
    Bytes bytes = images::BootImage("n#d#");
    bytes[at] ^= 1;
    EXPECT_EQ(FormatIn(bytes), ImageFormat::kNeither) << at;
  }
}

TEST(ImageFormatTest, BootHeaderThatEndsBehindItsCheckSumIsOne) {
  EXPECT_EQ(FormatIn(images::CutTo(0x4C, images::BootImage(""))), ImageFormat::kBootImage);
  EXPECT_EQ(FormatIn(images::CutTo(0x4B, images::BootImage(""))), ImageFormat::kNeither);
}

TEST(ImageFormatTest, SynchronisationWordTellsABitstreamAtAnyOffset) {
  for (const std::size_t at : {0U, 1U, 48U, 131U, 4092U}) {
    Bytes bytes(5000, 0xFF);
    images::Put(bytes, at, Bytes{0xAA, 0x99, 0x55, 0x66});
    EXPECT_EQ(FormatIn(bytes), ImageFormat::kBitstream) << at;
    EXPECT_EQ(SynchronisationWordIn(bytes), at);
  }
}

TEST(ImageFormatTest, SynchronisationWordBehindTheFirst4096BytesTellsNothing) {
  Bytes bytes(5000, 0xFF);
  images::Put(bytes, 4093, Bytes{0xAA, 0x99, 0x55, 0x66});
  EXPECT_EQ(FormatIn(bytes), ImageFormat::kNeither);
  EXPECT_EQ(SynchronisationWordIn(bytes), std::nullopt);
  EXPECT_EQ(FormatBytes(), 4096U);
}

TEST(ImageFormatTest, BootImageThatHoldsASynchronisationWordIsABootImage) {
  Bytes bytes = images::BootImage("n#d#");
  images::Put(bytes, 300, Bytes{0xAA, 0x99, 0x55, 0x66});
  EXPECT_EQ(FormatIn(bytes), ImageFormat::kBootImage);
}

TEST(ImageFormatTest, NothingIsNeither) { EXPECT_EQ(FormatIn(Bytes()), ImageFormat::kNeither); }

TEST(ImageFormatTest, EveryTypeHasItsFormat) {
  EXPECT_EQ(FormatOf("wend"), ImageFormat::kBootImage);
  EXPECT_EQ(FormatOf("dax"), ImageFormat::kBitstream);
  EXPECT_EQ(FormatOf("pyx1"), ImageFormat::kBitstream);
  EXPECT_EQ(FormatOf("pyx2"), ImageFormat::kBootImage);
}

TEST(ImageFormatTest, EveryFormatHasAName) {
  EXPECT_EQ(NameOf(ImageFormat::kBootImage), "Zynq boot image");
  EXPECT_EQ(NameOf(ImageFormat::kBitstream), "bitstream");
  EXPECT_EQ(NameOf(ImageFormat::kNeither), "neither a Zynq boot image nor a bitstream");
}

// --- Fit or not ---------------------------------------------------------------------------------

class UnfitReasonTest : public ImageFileTest {
 protected:
  [[nodiscard]] std::optional<std::string> Reason(const Bytes& file,
                                                  const char* target,
                                                  bool force = false) const {
    return UnfitReason(Read(file), target, force);
  }
};

TEST_F(UnfitReasonTest, ImageOfTheTypesFormatIsFit) {
  for (const char* const target : {"wend", "pyx2"}) {
    EXPECT_EQ(Reason(images::BootImage("n#d#"), target), std::nullopt);
  }
  for (const char* const target : {"dax", "pyx1"}) {
    EXPECT_EQ(Reason(images::Bitstream(), target), std::nullopt);
  }
}

TEST_F(UnfitReasonTest, GzipImageIsFit) {
  EXPECT_EQ(Reason(images::Gzip(images::Bitstream()), "dax"), std::nullopt);
}

TEST_F(UnfitReasonTest, GzipFollowedByOtherBytesIsFit) {
  EXPECT_EQ(Reason(images::Joined(images::Gzip(images::Bitstream()), {'x'}), "dax"), std::nullopt);
}

TEST_F(UnfitReasonTest, ImageOfAnotherFormatIsUnfit) {
  EXPECT_EQ(Reason(images::BootImage("n#d#"), "dax"),
            "it is a Zynq boot image; a dax takes a bitstream");
  EXPECT_EQ(Reason(images::Bitstream(), "pyx2"),
            "it is a bitstream; a pyx2 takes a Zynq boot image");
  EXPECT_EQ(Reason(Bytes(200, 'x'), "wend"),
            "it is neither a Zynq boot image nor a bitstream; a wend takes a Zynq boot image");
}

TEST_F(UnfitReasonTest, ForceOverrulesTheFormat) {
  EXPECT_EQ(Reason(images::BootImage("n#d#"), "dax", true), std::nullopt);
  EXPECT_EQ(Reason(Bytes(152, 'x'), "wend", true), std::nullopt);
}

TEST_F(UnfitReasonTest, ImageShorterThanABootHeaderIsUnfitAlsoByForce) {
  const Bytes bytes = images::CutTo(151, images::BootImage("n#d#"));
  for (const bool force : {false, true}) {
    EXPECT_EQ(Reason(bytes, "wend", force), "it is shorter than a boot header (152 bytes)");
  }
  EXPECT_EQ(Reason(images::CutTo(152, images::BootImage("n#d#")), "pyx2"), std::nullopt);
}

TEST_F(UnfitReasonTest, BitstreamMayBeShort) {
  EXPECT_EQ(Reason(images::Bitstream(52), "pyx1"), std::nullopt);
}

TEST_F(UnfitReasonTest, GzipThatIsCutShortIsUnfitAlsoByForce) {
  Bytes file = images::Gzip(images::Bitstream());
  file.pop_back();
  EXPECT_EQ(Reason(file, "dax", true), "its gzip data are cut short");
}

TEST_F(UnfitReasonTest, DamagedGzipIsUnfitAlsoByForce) {
  Bytes file = images::Gzip(images::Bitstream());
  file[2] = 9;  // no such method, found when the next byte is read
  EXPECT_EQ(Reason(file, "dax", true), "its gzip data are damaged near byte 4");
}

TEST_F(UnfitReasonTest, GzipInGzipIsUnfitAlsoByForce) {
  const ImageFile image = Read(images::Gzip(images::Gzip(images::Bitstream())));
  EXPECT_TRUE(image.gzipInGzip);
  EXPECT_EQ(UnfitReason(image, "dax", true), "it holds gzip data in gzip data");
}

TEST(Sha256Test, IsThatOfTheBytes) {
  EXPECT_EQ(Sha256("", 0), kShaOfNothing);
  EXPECT_EQ(Sha256("abc", 3), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

}  // namespace
