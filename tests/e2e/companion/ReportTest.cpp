// What tarnwickctl --json writes: exactly one object, of the keys that the schema names, after errors
// too. And what an update costs, as the report and the log of the instrument tell it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <sstream>
#include <string>

#include "tests/doubles/ChildProcess.h"
#include "tests/e2e/companion/CompanionTest.h"

#include <nlohmann/json.hpp>

namespace companion_test {
namespace {

using nlohmann::json;
using program_test::Bytes;
using program_test::Outcome;

class ReportTest : public CompanionTest {
 protected:
  /// Runs a command with --json and holds its standard output against the schema.
  json Report(const std::string& command,
              const std::string& file,
              const std::string& options = "") {
    return Checked(Companion(command, file, "--json " + options));
  }

  /// The command `image`, which takes no module.
  json ImageReport(const std::string& file) {
    return Checked(instrument_.RunShell("exec \"$TARNWICKCTL\" image " + file + " --json"));
  }

  json Checked(const Outcome& outcome) {
    const Bytes out(outcome.out.begin(), outcome.out.end());
    instrument_.WriteFile("report.json", out);
    ChildProcess validator(
        {.words = {
             PYTHON_PATH, VALIDATE_PATH, SCHEMA_PATH, instrument_.File("report.json").string()}});
    EXPECT_EQ(validator.Wait().ExitCode(), 0) << outcome.out << outcome.err;
    json report = json::parse(outcome.out, nullptr, false);
    EXPECT_FALSE(report.is_discarded());
    EXPECT_EQ(report.value("exit_code", -1), outcome.exitCode);
    log_ = outcome.log;
    err_ = outcome.err;
    return report;
  }

  std::string log_;
  std::string err_;
};

/// Where the type of the module makes no difference.
class AnyTypeReportTest : public ReportTest {};

TEST_P(ReportTest, OfAChangedModule) {
  PlugIn();
  const json report = Report("update", "image.bin");
  EXPECT_EQ(report["verdict"], "proven");
  EXPECT_EQ(report["written"], true);
  EXPECT_EQ(report["in_use"], IsDax() ? "at-power-on" : "taken");
  EXPECT_EQ(report["stamp_before"], Stamp(2023));
  EXPECT_EQ(report["image"]["stamp"], Stamp(2024));
  EXPECT_EQ(report["proven_sha256"], report["image"]["sha256"]);
  EXPECT_EQ(report["runs"][0]["exit_code"], 0);
  EXPECT_EQ(report["chip"]["id"], "20ba18");
  EXPECT_EQ(report["done_after"], "high");
  EXPECT_EQ(report["endpoint"], IsPyx() ? "enabled" : "none");
  // With --json the console of `tarnwick` is passed on to standard error, and is in the report.
  EXPECT_EQ(err_, report["runs"][0]["stdout"].get<std::string>());
}

TEST_P(ReportTest, OfAnUnchangedModule) {
  StoreFlash(image_);
  PlugIn();
  const json report = Report("update", "image.bin");
  EXPECT_EQ(report["verdict"], "proven");
  EXPECT_EQ(report["written"], false);
  EXPECT_EQ(report["in_use"], IsDax() ? "at-power-on" : "found");
  EXPECT_EQ(err_, "");
}

TEST_P(ReportTest, OfALockableChip) {
  PlugIn(",chip=macronix");
  const json report = Report("update", "image.bin");
  EXPECT_EQ(report["exit_code"], 0);
  EXPECT_EQ(report["chip"]["lockable"], true);
  EXPECT_EQ(report["chip"]["locked_whole"], true);
  EXPECT_EQ(report["locked_whole"], true);
}

TEST_P(ReportTest, OfAFlashThatIsVerified) {
  PlugIn();
  const json report = Report("verify", "image.bin");
  EXPECT_EQ(report["verdict"], "differs");
  EXPECT_EQ(report["equal"], false);
  StoreFlash(image_);
  EXPECT_EQ(Report("verify", "image.bin")["verdict"], "equal");
}

TEST_P(ReportTest, OfAFlashThatIsRead) {
  PlugIn();
  const json report = Report("read", "contents.bin", "--length 4096");
  EXPECT_EQ(report["verdict"], "read");
  EXPECT_EQ(report["bytes"], 4096);
}

TEST_P(AnyTypeReportTest, OfARefusal) {
  PlugIn();
  EXPECT_EQ(Report("update", "no-such-file")["verdict"], "refused");
  EXPECT_EQ(Report("verify", "no-such-file")["verdict"], "refused");
  EXPECT_EQ(Report("read", "no-such-folder/f")["verdict"], "refused");
  EXPECT_EQ(Report("update", "image.bin", "--program /bin/true")["verdict"], "refused");
  EXPECT_EQ(Report("update", "image.bin", "--sha256 " + std::string(64, '0'))["verdict"],
            "refused");
  std::filesystem::remove_all(instrument_.File("state"));
  instrument_.WriteFile("state", {});  // no folder
  EXPECT_EQ(Report("update", "image.bin")["verdict"], "refused");
  ExpectFlashUntouched();
}

TEST_P(AnyTypeReportTest, OfASlotThatIsEmpty) {
  instrument_.Option({"--module", "wend@9"});
  EXPECT_EQ(Report("update", "image.bin")["verdict"], "refused");
  EXPECT_EQ(Report("verify", "image.bin")["verdict"], "refused");
  EXPECT_EQ(Report("read", "contents.bin")["verdict"], "refused");
}

TEST_P(AnyTypeReportTest, OfATransferLimitThatDoesNotSuit) {
  PlugIn();
  instrument_.Option({"--bufsiz", "260"});
  const json report = Report("update", "image.bin");
  EXPECT_EQ(report["verdict"], "refused");
  EXPECT_THAT(report["reason"].get<std::string>(), testing::HasSubstr("is 260"));
  ExpectFlashUntouched();
}

TEST_P(ReportTest, OfAModuleThatCannotBeReached) {
  PlugIn(",flash-chip=absent");
  EXPECT_EQ(Report("update", "image.bin")["verdict"], "unreachable");
  EXPECT_EQ(Report("verify", "image.bin")["verdict"], "unreachable");
  EXPECT_EQ(Report("read", "contents.bin")["verdict"], "unreachable");
}

TEST_P(AnyTypeReportTest, OfABusThatDoesNotAnswer) {
  PlugIn();
  instrument_.Option({"--without", "bus"});
  EXPECT_EQ(Report("update", "image.bin")["verdict"], "unreachable");
}

TEST_P(ReportTest, OfAPageThatCannotBeWritten) {
  PlugIn(",worn-page=256");
  const json report = Report("update", "image.bin", "--attempts 2");
  EXPECT_EQ(report["verdict"], "not-proven");
  EXPECT_EQ(report["attempts"], 2);
  EXPECT_THAT(report["reason"].get<std::string>(),
              testing::HasSubstr("the same page as after the attempt before"));
}

TEST_P(AnyTypeReportTest, OfALockThatAnotherHolds) {
  PlugIn();
  const json report = Checked(instrument_.RunShell(
      "umask 077 && mkdir state && exec flock state/lock \"$TARNWICKCTL\" update " +
      std::string(board_.word) + " " + Slot() + " image.bin --state state --json"));
  EXPECT_EQ(report["verdict"], "locked");
}

TEST_P(AnyTypeReportTest, OfImageFiles) {
  PlugIn();
  EXPECT_EQ(ImageReport("image.bin")["verdict"], "fit");
  instrument_.WriteFile("short.bin", {'x'});
  EXPECT_EQ(ImageReport("short.bin")["verdict"], "unfit");
  EXPECT_EQ(ImageReport("no-such-file")["verdict"], "refused");
}

TEST_P(AnyTypeReportTest, IsThereForANameThatIsNoUtf8) {
  PlugIn();
  EXPECT_EQ(Report("update", "no-\\\xFF-file")["verdict"], "refused");
  instrument_.WriteFile("\xFF.bin", image_);
  EXPECT_EQ(Report("verify", "\xFF.bin")["verdict"], "differs");
  EXPECT_EQ(ImageReport("\xFF.bin")["verdict"], "fit");
}

TEST_P(AnyTypeReportTest, IsNotThereWhenTheWordsAreNotUnderstood) {
  PlugIn();
  const Outcome outcome =
      instrument_.RunShell("exec \"$TARNWICKCTL\" update wend 2x image.bin --json");
  EXPECT_EQ(outcome.exitCode, 2);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err,
            "tarnwickctl: MODULE: '2x' is no whole number from 0 to 4294967295\n"
            "Try 'tarnwickctl --help'.\n");
}

// --- Cost ---------------------------------------------------------------------------------------

constexpr std::size_t kBlock = 4096;
constexpr std::size_t kWitness = 16;  // bytes that show that READ still works

/// The bytes of all READ commands of a log.
std::size_t BytesRead(const std::string& log) {
  std::istringstream lines(log);
  std::size_t bytes = 0;
  for (std::string line; std::getline(lines, line);) {
    const std::size_t read = line.find(" READ ");
    if (line.starts_with("spi ") && read != std::string::npos) {
      bytes += std::stoul(line.substr(line.find('+', read) + 1));
    }
  }
  return bytes;
}

std::size_t Count(const std::string& log, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = log.find(part); at != std::string::npos; at = log.find(part, at + 1)) {
    ++count;
  }
  return count;
}

TEST_P(ReportTest, UnchangedModuleCostsOneReadingOfTheImage) {
  StoreImage(Image(2024, 4 * kBlock));
  StoreFlash(image_);
  PlugIn();
  const json report = Report("update", "image.bin");
  ASSERT_EQ(report["readings"].size(), 1U);
  EXPECT_EQ(report["readings"][0]["bytes"], image_.size());
  EXPECT_EQ(report["readings"][0]["blocks_read_again"], 0);
  EXPECT_TRUE(report["runs"].empty());
  EXPECT_TRUE(report["into_use"].empty());
  EXPECT_EQ(BytesRead(log_), image_.size() + kWitness);
}

TEST_P(ReportTest, ChangedModuleCostsTarnwickTwoReadingsAndOneReset) {
  StoreImage(Image(2024, 4 * kBlock));
  const Outcome bare = BareUpdate();
  PlugIn();
  const json report = Report("update", "image.bin");
  ASSERT_EQ(report["readings"].size(), 2U);
  EXPECT_EQ(report["readings"][0]["bytes"], image_.size());
  EXPECT_EQ(report["readings"][1]["bytes"], image_.size());
  EXPECT_EQ(report["readings"][1]["blocks_read_again"], 0);
  EXPECT_EQ(report["runs"].size(), 1U);
  EXPECT_EQ(report["into_use"].size(), IsDax() ? 0U : 1U);
  // A block that differs is read again twice, before anything is written.
  const std::size_t again = report["readings"][0]["blocks_read_again"].get<std::size_t>();
  EXPECT_EQ(BytesRead(log_),
            BytesRead(bare.log) + 2 * (image_.size() + kWitness) + 2 * again * kBlock);
  for (const std::string command : {" PP ", " SE ", " WRSR "}) {
    EXPECT_EQ(Count(log_, command), Count(bare.log, command)) << command;
  }
  const std::size_t resets = IsPyx() ? 1 : 0;
  for (const std::string file : {"/remove \"1\"", "/rescan \"1\""}) {
    EXPECT_EQ(Count(bare.log, file), resets) << file;
    EXPECT_EQ(Count(log_, file), 2 * resets) << file;
  }
}

INSTANTIATE_TEST_SUITE_P(EachType,
                         ReportTest,
                         testing::Values(program_test::kWend,
                                         program_test::kDax,
                                         program_test::kPyx1,
                                         program_test::kPyx2),
                         program_test::WordOf);

INSTANTIATE_TEST_SUITE_P(OneType,
                         AnyTypeReportTest,
                         testing::Values(program_test::kPyx1),
                         program_test::WordOf);

}  // namespace
}  // namespace companion_test
