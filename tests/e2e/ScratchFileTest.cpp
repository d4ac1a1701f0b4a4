// The dump files, when something else is in their place or they cannot be opened. Every test
// compares console, exit code, the whole log and the flash.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/e2e/Judgement.h"
#include "tests/e2e/ProgramTest.h"

namespace {

using namespace program_test;

// --- wend

class WendScratchFileTest : public ProgramTest {
 protected:
  WendScratchFileTest() : ProgramTest(kWend) {}
};

TEST_F(WendScratchFileTest, ShorterStaleDumpsAreOverwritten) {
  instrument_.WriteFile("FlashDevice.bin", Bytes(100, 0x5A));
  instrument_.WriteFile("FlashDevice_verif.bin", Bytes(100, 0x5A));
  PlugIn();
  ExpectUpdate(0, "micron-rewritten");
  ExpectContents("FlashDevice.bin",
                 instrument_.ReadFile("FlashDevice.bin"),
                 Bytes(old_.begin(), old_.begin() + 4096));
  ExpectContents("FlashDevice_verif.bin",
                 instrument_.ReadFile("FlashDevice_verif.bin"),
                 PaddedTo(4096, image_));
}

TEST_F(WendScratchFileTest, StaleDumpThatCannotBeOpenedDoesNotDecide) {
  instrument_.WriteFile("FlashDevice.bin", image_);
  Fault("open:./FlashDevice.bin:EACCES");
  PlugIn();
  ExpectUpdate(1, "unwritable-dump");
  ExpectFlashUntouched();
}

TEST_F(WendScratchFileTest, VerifyDumpThatCannotBeOpenedFailsAfterTheFlashWasWritten) {
  std::filesystem::create_directory(instrument_.File("FlashDevice_verif.bin"));
  PlugIn();
  ExpectUpdate(1, "verify-dump-is-a-directory");
  ExpectFlashRewritten();
}

// --- The modules behind an expander

class ExpanderScratchFileTest : public BoardTest {};

INSTANTIATE_TEST_SUITE_P(Boards,
                         ExpanderScratchFileTest,
                         testing::Values(kDax, kPyx1, kPyx2),
                         WordOf);

TEST_P(ExpanderScratchFileTest, ShorterStaleDumpIsOverwritten) {
  instrument_.WriteFile("dumpflash.bin", Bytes(100, 0x5A));
  PlugIn();
  ExpectUpdate(0, "micron-rewritten");
  ExpectFlashRewritten();
  ExpectContents("dumpflash.bin",
                 instrument_.ReadFile("dumpflash.bin"),
                 Bytes(old_.begin(), old_.begin() + 512));
}

TEST_P(ExpanderScratchFileTest, DumpThatCannotBeOpenedIsNotReportedAndTheStaleFileDecides) {
  instrument_.WriteFile("dumpflash.bin", Image(2024, 512));
  Fault("open:dumpflash.bin#1:EACCES");
  PlugIn();
  ExpectUpdate(11, "unwritable-dump");
  ExpectFlashUntouched();
}

TEST_P(ExpanderScratchFileTest, DumpThatCannotBeOpenedAtAllCountsAsWithoutStampOrEndsAPyx2) {
  Fault("open:dumpflash.bin:EACCES");
  PlugIn();
  ExpectUpdate(HasBootHeader() ? 134 : 0, "unreadable-dump");
  if (HasBootHeader()) {
    ExpectFlashUntouched();
  } else {
    ExpectFlashRewritten();
  }
}

// The dump stays empty; only a run that needs a boot header fails then.
TEST_P(ExpanderScratchFileTest, FullDiskIsNotReported) {
  Fault("write:dumpflash.bin:ENOSPC");
  PlugIn();
  ExpectUpdate(HasBootHeader() ? 134 : 0, "full-disk");
  if (HasBootHeader()) {
    ExpectFlashUntouched();
  } else {
    ExpectFlashRewritten();
  }
}

}  // namespace
