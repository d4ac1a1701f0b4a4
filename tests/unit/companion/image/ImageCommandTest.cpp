#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "companion/image/ImageCommand.h"
#include "tests/doubles/TemporaryDirectory.h"
#include "tests/unit/companion/image/Images.h"

#include <nlohmann/json.hpp>

namespace {

using namespace companion;
using images::Bytes;
using nlohmann::json;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class ImageCommandTest : public testing::Test {
 protected:
  std::string Store(const std::string& name, const Bytes& bytes) {
    return folder_.File(name, images::Text(bytes));
  }

  ExitCode Run(const ImageOptions& options) { return RunImage(options, out_); }

  TemporaryDirectory folder_;
  std::ostringstream out_;
};

TEST_F(ImageCommandTest, FitImageIsTold) {
  const std::string path = Store("f", images::Bitstream());
  EXPECT_EQ(Run({.path = path}), ExitCode::kDone);
  EXPECT_THAT(out_.str(), StartsWith("file: \"" + path + "\", a regular file of 600 bytes\n"));
  EXPECT_THAT(out_.str(), EndsWith("\nfit\n"));
}

TEST_F(ImageCommandTest, UnfitImageIsTold) {
  EXPECT_EQ(Run({.path = Store("f", {})}), ExitCode::kNot);
  EXPECT_THAT(out_.str(), EndsWith("\nunfit: it is empty\n"));
}

TEST_F(ImageCommandTest, VerdictIsForTheTarget) {
  EXPECT_EQ(Run({.path = Store("f", images::Bitstream()), .target = "pyx2"}), ExitCode::kNot);
  EXPECT_THAT(out_.str(), EndsWith("\nunfit: it is a bitstream; a pyx2 takes a Zynq boot image\n"));
}

TEST_F(ImageCommandTest, FileThatCannotBeReadIsRefused) {
  EXPECT_EQ(Run({.path = folder_.Path()}), ExitCode::kRefused);
  EXPECT_EQ(out_.str(), "refused: \"" + folder_.Path() + "\" is no regular file but a directory\n");
}

TEST_F(ImageCommandTest, DumpThatCannotBeReadIsRefused) {
  const std::string path = Store("f", images::Bitstream());
  EXPECT_EQ(Run({.path = path, .dump = folder_.Path() + "/none"}), ExitCode::kRefused);
  EXPECT_EQ(out_.str(),
            "refused: cannot open \"" + folder_.Path() + "/none\": No such file or directory\n");
}

TEST_F(ImageCommandTest, DumpWithoutTheHeadOfAFlashIsRefused) {
  const std::string path = Store("f", images::Bitstream());
  const std::string dump = Store("d", Bytes(511, 0xFF));
  EXPECT_EQ(Run({.path = path, .dump = dump}), ExitCode::kRefused);
  EXPECT_EQ(out_.str(),
            "refused: \"" + dump +
                "\" is shorter than the 512 bytes of the flash that tarnwick compares\n");
}

TEST_F(ImageCommandTest, DumpOf512BytesIsRefusedForAWendAlone) {
  const std::string path = Store("f", images::Bitstream());
  const std::string dump = Store("d", Bytes(512, 0xFF));
  EXPECT_EQ(Run({.path = path, .target = "wend", .dump = dump}), ExitCode::kRefused);
  EXPECT_EQ(out_.str(),
            "refused: \"" + dump +
                "\" is shorter than the 4096 bytes of the flash that tarnwick compares\n");
  EXPECT_EQ(Run({.path = path, .target = "dax", .dump = dump}), ExitCode::kDone);
  EXPECT_EQ(Run({.path = path, .dump = dump}), ExitCode::kDone);
}

TEST_F(ImageCommandTest, DumpIsReadAsFarAsATypeDumpsAFlash) {
  const std::string path = Store("f", images::Bitstream());
  Bytes dump(5000, 0xFF);
  EXPECT_EQ(Run({.path = path, .dump = Store("d", dump), .json = true}), ExitCode::kDone);
  const json object = json::parse(out_.str());
  EXPECT_EQ(object.at("targets").at(1).at("tarnwick").at("over_dump").at("exit_code"), 11);
}

TEST_F(ImageCommandTest, JsonIsOneObject) {
  EXPECT_EQ(Run({.path = Store("f", images::Bitstream()), .json = true}), ExitCode::kDone);
  EXPECT_EQ(json::parse(out_.str()).at("verdict"), "fit");
  EXPECT_THAT(out_.str(), EndsWith("}\n"));
}

TEST_F(ImageCommandTest, RefusalIsAnObjectToo) {
  EXPECT_EQ(Run({.path = folder_.Path(), .json = true}), ExitCode::kRefused);
  const json object = json::parse(out_.str());
  EXPECT_EQ(object.at("command"), "image");
  EXPECT_EQ(object.at("file").at("path"), folder_.Path());
  EXPECT_EQ(object.at("verdict"), "refused");
  EXPECT_EQ(object.at("reason"), "\"" + folder_.Path() + "\" is no regular file but a directory");
  EXPECT_EQ(object.at("exit_code"), 2);
}

TEST_F(ImageCommandTest, TextsThatAreNoUtf8AreReplacedInTheObject) {
  const std::string path = Store("f\xFF", images::BootImage("n#d\xFE\xFF#"));
  EXPECT_EQ(Run({.path = path, .json = true}), ExitCode::kDone);
  const json object = json::parse(out_.str());
  EXPECT_EQ(object.at("build_date").at("in_image"), "d\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_THAT(object.at("file").at("path").get<std::string>(), EndsWith("/f\xEF\xBF\xBD"));
}

TEST_F(ImageCommandTest, PathThatIsNoUtf8IsReplacedInARefusalToo) {
  EXPECT_EQ(Run({.path = "none\xFF", .json = true}), ExitCode::kRefused);
  EXPECT_EQ(json::parse(out_.str()).at("file").at("path"), "none\xEF\xBF\xBD");
}

}  // namespace
