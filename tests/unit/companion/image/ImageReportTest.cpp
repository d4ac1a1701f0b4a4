#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "companion/image/Gunzip.h"
#include "companion/image/ImageReport.h"
#include "tests/unit/companion/image/Images.h"

namespace {

using namespace companion;
using images::Bytes;
using nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;

ImageFile Image(const Bytes& file) {
  ImageFile image{.path = "f.bin", .fileBytes = file.size(), .fileSha256 = "aa"};
  image.bytes = file;
  if (IsGzip(file)) {
    Gunzipped gunzipped = Gunzip(file, kFlashBytes);
    image.packing = gunzipped.packing;
    image.packingEnd = gunzipped.end;
    image.packed = file;
    image.bytes = gunzipped.bytes;
  }
  image.sha256 = "bb";
  image.gzipInGzip = IsGzip(file) && IsGzip(image.bytes);
  image.format = FormatIn(image.bytes);
  return image;
}

ImageReport Report(const Bytes& file) { return Examine(Image(file), std::nullopt, std::nullopt); }

std::string LastLine(const std::string& text) {
  const std::string lines = text.substr(0, text.size() - 1);
  return lines.substr(lines.rfind('\n') + 1);
}

TEST(ImageReportTest, BootImageIsTold) {
  EXPECT_EQ(ImageText(Report(images::BootImage("n#2024-05-06#"))),
            R"(file: "f.bin", a regular file of 600 bytes
SHA-256 of the file: aa
packing: plain
image: 600 bytes
format: Zynq boot image
build date (wend, pyx2): "2024-05-06"
time stamp (dax, pyx1): none
wend: fit
  bare tarnwick over a blank flash: 0 (written; 7 when the FPGA does not start from it)
  over one that holds this image: 11 (up to date, nothing is written)
  over one with another stamp or date: 0 (written; 7 when the FPGA does not start from it)
dax: unfit: it is a Zynq boot image; a dax takes a bitstream
  bare tarnwick over a blank flash: 11 (up to date, nothing is written)
  over one that holds this image: 11 (up to date, nothing is written)
  over one with another stamp or date: 0 (written; in use at the next power-on)
pyx1: unfit: it is a Zynq boot image; a pyx1 takes a bitstream
  bare tarnwick over a blank flash: 11 (up to date, nothing is written)
  over one that holds this image: 11 (up to date, nothing is written)
  over one with another stamp or date: 0 (written; 7 when the FPGA does not start from it)
pyx2: fit
  bare tarnwick over a blank flash: 0 (written; 7 when the FPGA does not start from it)
  over one that holds this image: 11 (up to date, nothing is written)
  over one with another stamp or date: 0 (written; 7 when the FPGA does not start from it)
fit
)");
}

TEST(ImageReportTest, BitstreamIsToldWithItsSynchronisationWordAndStamp) {
  const std::string text = ImageText(Report(images::StampedBitstream()));
  EXPECT_THAT(text, HasSubstr("\nformat: bitstream, synchronisation word at byte 48\n"));
  EXPECT_THAT(text, HasSubstr("\ntime stamp (dax, pyx1): \"11/05/2015 03:35:05\"\n"));
}

TEST(ImageReportTest, GzipIsToldWithWhatTarnwickDoesNotSee) {
  const std::string text = ImageText(Report(images::Gzip(images::StampedBitstream(), "odd")));
  EXPECT_THAT(text,
              HasSubstr("\npacking: gzip, complete\nimage: 600 bytes\n"
                        "SHA-256 of the image: bb\n"));
  EXPECT_THAT(text,
              HasSubstr("\ntime stamp (dax, pyx1): \"11/05/2015 03:35:05\"; tarnwick, which does "
                        "not decompress, sees none\n"));
  EXPECT_EQ(LastLine(text), "fit");
}

TEST(ImageReportTest, StampOutsideTheDumpedHeadIsTold) {
  EXPECT_THAT(ImageText(Report(images::StampedBitstream(508))),
              HasSubstr("\ntime stamp (dax, pyx1): \"11/05/2015 03:35:05\"; not in the head that "
                        "tarnwick dumps, where it sees none\n"));
}

TEST(ImageReportTest, BytesBehindGzipDataAreTold) {
  const Bytes file = images::Gzip(images::Bitstream());
  EXPECT_THAT(ImageText(Report(images::Joined(file, {'x'}))),
              HasSubstr("\npacking: gzip, complete, followed by other bytes, at byte " +
                        std::to_string(file.size()) + "\n"));
}

TEST(ImageReportTest, CutIsTold) {
  Bytes file = images::Gzip(images::Bitstream());
  file.pop_back();
  const std::string text = ImageText(Report(file));
  EXPECT_THAT(text, HasSubstr("\npacking: gzip, cut short\n"));
  EXPECT_EQ(LastLine(text), "unfit: its gzip data are cut short");
}

TEST(ImageReportTest, DamageIsToldWithItsPlace) {
  Bytes file = images::Gzip(images::Bitstream());
  file[2] = 9;
  const std::string text = ImageText(Report(file));
  EXPECT_THAT(text, HasSubstr("\npacking: gzip, damaged, at byte 4\n"));
  EXPECT_EQ(LastLine(text), "unfit: its gzip data are damaged near byte 4");
}

TEST(ImageReportTest, ImageThatIsTooLargeHasNoHashes) {
  ImageFile image = Image(images::Bitstream());
  image.tooLarge = true;
  image.fileSha256 = "";
  image.sha256 = "";
  const std::string text = ImageText(Examine(image, std::nullopt, std::nullopt));
  EXPECT_THAT(text,
              HasSubstr("\nSHA-256 of the file: not read whole\npacking: plain\n"
                        "image: more than 16777216 bytes\n"));
  EXPECT_EQ(LastLine(text), "unfit: it is larger than the flash (16777216 bytes)");
}

// --- Verdict ------------------------------------------------------------------------------------

TEST(ImageVerdictTest, ImageThatOneTypeTakesIsFit) {
  EXPECT_EQ(Report(images::BootImage("n#d#")).unfit, std::nullopt);
  EXPECT_EQ(Report(images::Bitstream()).unfit, std::nullopt);
}

TEST(ImageVerdictTest, ImageOfNoFormatIsUnfit) {
  EXPECT_EQ(Report(Bytes(200, 'x')).unfit, "it is neither a Zynq boot image nor a bitstream");
}

TEST(ImageVerdictTest, WhatIsWrongWithAnImageOfNoFormatComesFirst) {
  EXPECT_EQ(Report({}).unfit, "it is empty");
}

TEST(ImageVerdictTest, ShortBootImageIsUnfitForItsTypes) {
  EXPECT_EQ(Report(images::CutTo(100, images::BootImage(""))).unfit,
            "it is shorter than a boot header (152 bytes)");
}

TEST(ImageVerdictTest, ShortFileOfNoFormatIsUnfitForItsFormat) {
  EXPECT_EQ(Report({'x'}).unfit, "it is neither a Zynq boot image nor a bitstream");
}

TEST(ImageVerdictTest, VerdictIsForTheTargetAskedFor) {
  const ImageFile image = Image(images::Bitstream());
  EXPECT_EQ(Examine(image, "dax", std::nullopt).unfit, std::nullopt);
  EXPECT_EQ(Examine(image, "wend", std::nullopt).unfit,
            "it is a bitstream; a wend takes a Zynq boot image");
}

// --- Dump ---------------------------------------------------------------------------------------

TEST(ImageDumpTest, PredictionOverTheDumpIsTold) {
  const ImageReport report = Examine(Image(images::BootImage("n#d#")),
                                     std::nullopt,
                                     images::CutTo(4096, images::BootImage("n#d#")));
  EXPECT_THAT(ImageText(report),
              HasSubstr("\n  over the dump: 11 (up to date, nothing is written)\ndax: "));
}

TEST(ImageDumpTest, DumpOfTheHeadOfADaxIsNotEnoughForAWend) {
  const ImageReport report = Examine(Image(images::Bitstream()), std::nullopt, Bytes(512, 0xFF));
  EXPECT_FALSE(report.targets.at(0).overDump);
  EXPECT_TRUE(report.targets.at(1).overDump);
  EXPECT_TRUE(report.targets.at(2).overDump);
  EXPECT_TRUE(report.targets.at(3).overDump);
}

TEST(ImageDumpTest, DumpThatIsShorterThanAnyHeadIsNotEnough) {
  const ImageReport report = Examine(Image(images::Bitstream()), std::nullopt, Bytes(511, 0xFF));
  EXPECT_FALSE(report.targets.at(1).overDump);
}

// --- JSON ---------------------------------------------------------------------------------------

TEST(ImageJsonTest, BitstreamIsTold) {
  const json object = ImageJson(Report(images::StampedBitstream()));
  EXPECT_EQ(object.at("command"), "image");
  EXPECT_EQ(object.at("file"),
            json::parse(R"({"path": "f.bin", "bytes": 600, "sha256": "aa", "packing": "plain",
                            "packing_end": null})"));
  EXPECT_EQ(object.at("image"), json::parse(R"({"bytes": 600, "sha256": "bb", "too_large": false,
                            "gzip_in_gzip": false, "format": "bitstream",
                            "synchronisation_word": 48})"));
  EXPECT_EQ(object.at("time_stamp"),
            json::parse(R"({"in_file": "11/05/2015 03:35:05", "in_image": "11/05/2015 03:35:05",
                            "in_head": "11/05/2015 03:35:05"})"));
  EXPECT_EQ(object.at("build_date"),
            json::parse(R"({"in_file": null, "in_image": null, "in_head": null})"));
  EXPECT_EQ(object.at("verdict"), "fit");
  EXPECT_EQ(object.at("reason"), nullptr);
  EXPECT_EQ(object.at("exit_code"), 0);
  EXPECT_EQ(object.size(), 9U);
}

TEST(ImageJsonTest, TypeIsToldWithThePredictions) {
  const json object = ImageJson(Report(images::StampedBitstream(508)));
  const json written = {
      {"exit_code", 0}, {"endless", false}, {"text", "0 (written; in use at the next power-on)"}};
  EXPECT_EQ(object.at("targets").size(), 4U);
  EXPECT_EQ(object.at("targets").at(1),
            json({{"target", "dax"},
                  {"fit", true},
                  {"reason", nullptr},
                  {"tarnwick",
                   {{"over_blank", written},
                    {"over_same", written},
                    {"over_other", written},
                    {"over_dump", nullptr}}}}));
}

TEST(ImageJsonTest, UnfitImageIsToldWithTheReason) {
  const json object = ImageJson(Examine(Image(images::BootImage("n#d#")), "dax", std::nullopt));
  EXPECT_EQ(object.at("verdict"), "unfit");
  EXPECT_EQ(object.at("reason"), "it is a Zynq boot image; a dax takes a bitstream");
  EXPECT_EQ(object.at("exit_code"), 1);
  EXPECT_EQ(object.at("image").at("format"), "boot-image");
}

TEST(ImageJsonTest, EndlessRunHasNoExitCode) {
  Bytes file = images::Gzip(images::Bitstream());
  file[2] = 9;
  const json object =
      ImageJson(Examine(Image(file), std::nullopt, std::optional(Bytes(4096, '#'))));
  const json& wend = object.at("targets").at(0).at("tarnwick").at("over_dump");
  EXPECT_EQ(wend.at("exit_code"), nullptr);
  EXPECT_EQ(wend.at("endless"), true);
}

TEST(ImageJsonTest, ExceptionHasTheCodeThatAShellShows) {
  const json object = ImageJson(Report({'x'}));
  const json& wend = object.at("targets").at(0).at("tarnwick").at("over_blank");
  EXPECT_EQ(wend.at("exit_code"), 134);
  EXPECT_EQ(object.at("image").at("format"), "neither");
  EXPECT_EQ(object.at("image").at("synchronisation_word"), nullptr);
}

TEST(ImageJsonTest, ImageThatIsTooLargeHasNoHashes) {
  ImageFile image = Image(images::Bitstream());
  image.tooLarge = true;
  image.fileSha256 = "";
  image.sha256 = "";
  const json object = ImageJson(Examine(image, std::nullopt, std::nullopt));
  EXPECT_EQ(object.at("file").at("sha256"), nullptr);
  EXPECT_EQ(object.at("image").at("sha256"), nullptr);
  EXPECT_EQ(object.at("image").at("too_large"), true);
}

TEST(ImageJsonTest, EveryPackingHasItsWord) {
  const Bytes file = images::Gzip(images::Bitstream());
  Bytes damaged = file;
  damaged[2] = 9;
  const auto word = [](const Bytes& bytes) {
    return ImageJson(Report(bytes)).at("file").at("packing").get<std::string>();
  };
  EXPECT_EQ(word(file), "gzip");
  EXPECT_EQ(word(images::CutTo(30, file)), "gzip-cut-short");
  EXPECT_EQ(word(damaged), "gzip-damaged");
  EXPECT_EQ(word(images::Joined(file, {'x'})), "gzip-and-other-bytes");
  EXPECT_EQ(ImageJson(Report(images::Joined(file, {'x'}))).at("file").at("packing_end"),
            file.size());
}

}  // namespace
