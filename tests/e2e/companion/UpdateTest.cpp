// tarnwickctl where nothing goes wrong: what each command prints and leaves, on each type of module.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/e2e/companion/CompanionTest.h"

namespace companion_test {
namespace {

using program_test::Bytes;
using program_test::Outcome;
using testing::HasSubstr;
using testing::Not;

class UpdateTest : public CompanionTest {};

/// The lines about module and image that all reports begin with.
TEST_P(UpdateTest, ChangedModuleIsWrittenAndTakenIntoUse) {
  const Outcome bare = BareUpdate();
  PlugIn();
  const Outcome outcome = Companion("update", "image.bin");
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.out,
            bare.out + ModuleLine() + ImageLines() + "flash before: \"" + Stamp(2023) +
                "\"\n"
                "attempt 1: tarnwick ended with 0\n" +
                StateLines() +
                (IsDax() ? "The flash holds the image. The module uses it from its next power-on.\n"
                         : "The flash holds the image, and it was taken into use.\n"));
  EXPECT_EQ(outcome.err, "");
  ExpectFlashRewritten();
  EXPECT_EQ(State(), IsDax() ? "done=1 driven=0x0000 loaded=other" : InUse());
  EXPECT_EQ(NamesInState(), std::vector<std::string>{"lock"});
}

TEST_P(UpdateTest, UnchangedModuleIsReadAndNothingElse) {
  StoreFlash(image_);
  PlugIn();
  const Outcome outcome = Companion("update", "image.bin");
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.out,
            ModuleLine() + ImageLines() + "flash before: \"" + Stamp(2024) + "\"\n" + StateLines() +
                (IsDax() ? "The flash holds the image. It was not written. The module uses it from "
                           "its next power-on.\n"
                         : "The flash holds the image, and it is in use. Nothing was written.\n"));
  EXPECT_EQ(outcome.err, "");
  ExpectFlashUntouched();
  EXPECT_EQ(State(), InUse());
  EXPECT_THAT(outcome.log, Not(HasSubstr("/remove")));
  EXPECT_THAT(outcome.log, Not(HasSubstr("qspi_reset/value O_WRONLY")));
}

TEST_P(UpdateTest, EqualFlashIsVerified) {
  StoreFlash(image_);
  PlugIn();
  const Outcome outcome = Companion("verify", "image.bin");
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.out,
            ModuleLine() + ImageLines() + "flash: \"" + Stamp(2024) + "\"\n" + StateLines() +
                "The flash holds the image.\n");
  EXPECT_EQ(outcome.err, "");
  ExpectFlashUntouched();
  EXPECT_EQ(State(), InUse());
}

TEST_P(UpdateTest, DifferentFlashIsNamedByItsFirstAddress) {
  Bytes flash = image_;
  flash[300] = static_cast<unsigned char>(flash[300] ^ 0xFFU);
  StoreFlash(flash);
  PlugIn();
  const Outcome outcome = Companion("verify", "image.bin");
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_EQ(outcome.out,
            ModuleLine() + ImageLines() + "flash: \"" + Stamp(2024) + "\"\n" + StateLines() +
                "The flash differs from address 0x00012c on (" + Hex(flash[300]) + " instead of " +
                Hex(image_[300]) + "), in 1 page of 256 bytes.\n");
  EXPECT_EQ(outcome.err, "");
  ExpectFlashUntouched();
}

TEST_P(UpdateTest, WholeFlashIsRead) {
  PlugIn();
  const Outcome outcome = Companion("read", "contents.bin");
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(instrument_.ReadFile("contents.bin"), instrument_.ReadFile("flash.bin"));
  EXPECT_THAT(outcome.out,
              testing::StartsWith(ModuleLine() + StateLines() +
                                  "file: \"contents.bin\"\nRead: 16777216 bytes, SHA-256 "));
  EXPECT_EQ(outcome.err, "");
  ExpectFlashUntouched();
  EXPECT_EQ(State(), InUse());
}

TEST_P(UpdateTest, PartOfTheFlashIsRead) {
  PlugIn();
  const Outcome outcome = Companion("read", "contents.bin", "--length 1000");
  EXPECT_EQ(outcome.exitCode, 0);
  Bytes expected = old_;
  expected.resize(1000);
  EXPECT_EQ(instrument_.ReadFile("contents.bin"), expected);
}

TEST_P(UpdateTest, FlashWithTheStampOfTheImageIsWrittenAllTheSame) {
  Bytes flash = image_;
  flash[590] = static_cast<unsigned char>(flash[590] ^ 0x01U);
  StoreFlash(flash);
  PlugIn();
  const Outcome outcome = Companion("update", "image.bin");
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.err,
            "tarnwickctl: the start of the flash is made to differ: tarnwick takes it for up to "
            "date\n");
  ExpectFlashRewritten();
}

INSTANTIATE_TEST_SUITE_P(EachType,
                         UpdateTest,
                         testing::Values(program_test::kWend,
                                         program_test::kDax,
                                         program_test::kPyx1,
                                         program_test::kPyx2),
                         program_test::WordOf);

}  // namespace
}  // namespace companion_test
