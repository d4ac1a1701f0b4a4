#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cli/CommandLine.h"
#include "companion/report/Options.h"

namespace companion {
namespace {

using Words = std::vector<std::string>;
using testing::EndsWith;
using testing::StartsWith;

Options Parse(const Words& words) {
  std::vector<const char*> pointers;
  pointers.reserve(words.size());
  for (const std::string& word : words) {
    pointers.push_back(word.c_str());
  }
  return ParseOptions(pointers);
}

/// @return why the words are refused
std::string Refusal(const Words& words) {
  try {
    static_cast<void>(Parse(words));
  } catch (const cli::UsageError& error) {
    return error.what();
  }
  return "taken";
}

TEST(OptionsTest, UpdateHasItsDefaults) {
  const Options options = Parse({"update", "pyx1", "4", "new.bin"});
  EXPECT_EQ(options.command, Options::Command::kUpdate);
  EXPECT_EQ(options.target, "pyx1");
  EXPECT_EQ(options.slot, 4U);
  EXPECT_EQ(options.file, "new.bin");
  EXPECT_EQ(options.sha256, "");
  EXPECT_EQ(options.attempts, 3U);
  EXPECT_EQ(options.timeout, std::nullopt);
  EXPECT_FALSE(options.restart);
  EXPECT_FALSE(options.force);
  EXPECT_EQ(options.program, "");
  EXPECT_EQ(options.state, "/var/lib/tarnwick");
  EXPECT_EQ(options.waitSeconds, 0U);
  EXPECT_FALSE(options.json);
  EXPECT_EQ(options.answer, std::nullopt);
}

TEST(OptionsTest, OptionThatIsGivenTwiceIsRefused) {
  EXPECT_EQ(Refusal({"image", "new.bin", "--target", "wend", "--target", "dax"}),
            "--target: is given twice");
  EXPECT_EQ(Refusal({"verify", "dax", "2", "new.bin", "--state=a", "--state", "b"}),
            "--state: is given twice");
}

TEST(OptionsTest, UpdateTakesItsOptions) {
  const std::string sum(64, 'A');
  const Options options = Parse({"update",
                                 "--sha256",
                                 sum,
                                 "dax",
                                 "--attempts",
                                 "7",
                                 "2",
                                 "--timeout",
                                 "600",
                                 "--restart",
                                 "--force",
                                 "--program",
                                 "/bin/t",
                                 "new.bin",
                                 "--state",
                                 "/tmp/some",
                                 "--wait",
                                 "30",
                                 "--json"});
  EXPECT_EQ(options.sha256, sum);
  EXPECT_EQ(options.attempts, 7U);
  EXPECT_EQ(options.timeout, std::chrono::seconds(600));
  EXPECT_TRUE(options.restart);
  EXPECT_TRUE(options.force);
  EXPECT_EQ(options.program, "/bin/t");
  EXPECT_EQ(options.state, "/tmp/some");
  EXPECT_EQ(options.waitSeconds, 30U);
  EXPECT_TRUE(options.json);
}

TEST(OptionsTest, ReadTakesALength) {
  const Options options = Parse({"read", "wend", "1", "flash.bin"});
  EXPECT_EQ(options.command, Options::Command::kRead);
  EXPECT_EQ(options.length, 16777216U);
  EXPECT_EQ(Parse({"read", "wend", "1", "f", "--length", "1"}).length, 1U);
  EXPECT_EQ(Parse({"read", "wend", "1", "f", "--length", "16777216"}).length, 16777216U);
  for (const std::string word : {"0", "16777217", "0x10", "", "-1"}) {
    EXPECT_EQ(Refusal({"read", "wend", "1", "f", "--length", word}),
              "--length: '" + word + "' is no whole number from 1 to 16777216");
  }
}

TEST(OptionsTest, VerifyTakesAnImage) {
  const Options options = Parse({"verify", "pyx2", "5", "new.bin", "--wait=2", "--state=s"});
  EXPECT_EQ(options.command, Options::Command::kVerify);
  EXPECT_EQ(options.file, "new.bin");
  EXPECT_EQ(options.waitSeconds, 2U);
  EXPECT_EQ(options.state, "s");
}

TEST(OptionsTest, ImageNeedsNoModule) {
  const Options options = Parse({"image", "new.bin"});
  EXPECT_EQ(options.command, Options::Command::kImage);
  EXPECT_EQ(options.target, "");
  EXPECT_EQ(options.dump, std::nullopt);
  const Options more = Parse({"image", "new.bin", "--target", "wend", "--flash", "d", "--json"});
  EXPECT_EQ(more.target, "wend");
  EXPECT_EQ(more.dump, "d");
  EXPECT_TRUE(more.json);
}

TEST(OptionsTest, ModuleIsAPlainDecimalNumberAndNothingElse) {
  for (const std::string word : {"2x", "2.9", "", " 2", "2 ", "+2", "0x2", "4294967296"}) {
    EXPECT_EQ(Refusal({"update", "dax", word, "f"}),
              "MODULE: '" + word + "' is no whole number from 0 to 4294967295");
  }
  EXPECT_EQ(Refusal({"update", "dax", "-1", "f"}), "unknown option '-1'");
  EXPECT_EQ(Refusal({"update", "dax", "--", "-1", "f"}),
            "MODULE: '-1' is no whole number from 0 to 4294967295");
  EXPECT_EQ(Parse({"update", "dax", "4294967295", "f"}).slot, 4294967295U);
  EXPECT_EQ(Parse({"update", "dax", "007", "f"}).slot, 7U);
}

TEST(OptionsTest, TargetIsOneOfFourWords) {
  for (const std::string word : {"WEND", "pyx", ""}) {
    const std::string why = "'" + word + "' is not a type of module (wend, dax, pyx1 or pyx2)";
    EXPECT_EQ(Refusal({"verify", word, "1", "f"}), "TARGET: " + why);
    EXPECT_EQ(Refusal({"image", "f", "--target", word}), "--target: " + why);
  }
}

TEST(OptionsTest, SumHas64HexadecimalDigits) {
  for (const std::string& word :
       {std::string(63, 'a'), std::string(65, 'a'), std::string(63, 'a') + "g", std::string()}) {
    EXPECT_EQ(Refusal({"update", "dax", "2", "f", "--sha256", word}),
              "--sha256: '" + word + "' is not 64 hexadecimal digits");
  }
}

TEST(OptionsTest, NumbersHaveTheirRanges) {
  EXPECT_EQ(Refusal({"update", "dax", "2", "f", "--attempts", "0"}),
            "--attempts: '0' is no whole number from 1 to 100");
  EXPECT_EQ(Refusal({"update", "dax", "2", "f", "--attempts", "101"}),
            "--attempts: '101' is no whole number from 1 to 100");
  EXPECT_EQ(Refusal({"update", "dax", "2", "f", "--timeout", "0"}),
            "--timeout: '0' is no whole number from 1 to 1000000");
  EXPECT_EQ(Refusal({"verify", "dax", "2", "f", "--wait", "1000001"}),
            "--wait: '1000001' is no whole number from 0 to 1000000");
}

TEST(OptionsTest, EmptyNamesAreRefused) {
  EXPECT_EQ(Refusal({"image", ""}), "FILE: the name is empty");
  EXPECT_EQ(Refusal({"update", "dax", "2", ""}), "IMAGE: the name is empty");
  EXPECT_EQ(Refusal({"update", "dax", "2", "f", "--state="}), "--state: the name is empty");
  EXPECT_EQ(Refusal({"update", "dax", "2", "f", "--program="}), "--program: the name is empty");
  EXPECT_EQ(Refusal({"image", "f", "--flash="}), "--flash: the name is empty");
}

TEST(OptionsTest, MissingWordsAreNamed) {
  EXPECT_EQ(Refusal({}), "a word is missing: image or read or verify or update");
  EXPECT_EQ(Refusal({"image"}), "a word is missing: FILE");
  EXPECT_EQ(Refusal({"read", "dax", "2"}), "a word is missing: FILE");
  EXPECT_EQ(Refusal({"update", "dax"}), "a word is missing: MODULE");
}

TEST(OptionsTest, OptionsOfOtherCommandsAreUnknown) {
  EXPECT_EQ(Refusal({"verify", "dax", "2", "f", "--force"}), "unknown option '--force'");
  EXPECT_EQ(Refusal({"image", "f", "--state", "s"}), "unknown option '--state'");
  EXPECT_EQ(Refusal({"--json", "image", "f"}), "option '--json' comes after the command");
}

TEST(OptionsTest, HelpAndVersionAreTheAnswer) {
  EXPECT_THAT(*Parse({"--help"}).answer, StartsWith("Usage: tarnwickctl image  FILE"));
  EXPECT_THAT(*Parse({"update", "--help"}).answer, StartsWith("Usage: tarnwickctl image  FILE"));
  EXPECT_EQ(*Parse({"--version"}).answer, "tarnwickctl " TARNWICK_VERSION "\n");
}

TEST(OptionsTest, CommandsHaveNames) {
  EXPECT_STREQ(NameOf(Options::Command::kImage), "image");
  EXPECT_STREQ(NameOf(Options::Command::kRead), "read");
  EXPECT_STREQ(NameOf(Options::Command::kVerify), "verify");
  EXPECT_STREQ(NameOf(Options::Command::kUpdate), "update");
}

}  // namespace
}  // namespace companion
