// The files in which the head of the flash is dumped, when something stands in their place or they
// cannot be opened. Every test compares console, exit code, the whole log and the flash.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/e2e/ExpanderProgram.h"
#include "tests/e2e/Judgement.h"
#include "tests/e2e/RunLog.h"
#include "tests/e2e/WendProgram.h"

namespace {

using namespace program_test;
using namespace program_test::run_log;

// --- wend

class WendScratchFileTest : public wend::WendProgram {};

TEST_F(WendScratchFileTest, ShorterStaleDumpsAreOverwritten) {
  instrument_.WriteFile("FlashDevice.bin", Bytes(100, 0x5A));
  instrument_.WriteFile("FlashDevice_verif.bin", Bytes(100, 0x5A));
  PlugIn();
  ExpectUpdate(0,
               Join({wend::Decide(),
                     wend::UpdateSteps(),
                     wend::FinalSteps(20),
                     wend::kDone,
                     wend::End(kSuccess, 0)}));
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
  ExpectUpdate(1,
               Join({wend::Connect(),
                     {"open ./FlashDevice.bin O_WRONLY|O_CREAT 0600 = EACCES",
                      R"(stdout "Reading flash...")",
                      "close -1"},
                     ErrorLine("ERROR: Can't read Flash device !"),
                     wend::End(kConnectFailed, 1)}));
  ExpectFlashUntouched();
}

TEST_F(WendScratchFileTest, VerifyDumpThatCannotBeOpenedFailsAfterTheFlashWasWritten) {
  std::filesystem::create_directory(instrument_.File("FlashDevice_verif.bin"));
  PlugIn();
  ExpectUpdate(1,
               Join({wend::Decide(),
                     wend::EraseStep(),
                     wend::ProgramStep(),
                     {"open ./FlashDevice_verif.bin O_WRONLY|O_CREAT 0600 = EISDIR",
                      R"(stdout "Reading flash...")",
                      "close -1"},
                     ErrorLine("ERROR: Can't read Flash device !"),
                     wend::End(kConnectFailed, 1)}));
  ExpectFlashRewritten();
}

// --- The modules behind an expander

class ExpanderScratchFileTest : public expander::ExpanderProgram,
                                public testing::WithParamInterface<expander::Board> {
 protected:
  ExpanderScratchFileTest() : ExpanderProgram(GetParam()) {}

  void ExpectSuccess(const Lines& decision) {
    ExpectUpdate(0, Join({decision, Rewrite(), Restart(), End(FinalDirections(), kSuccess, 0)}));
    ExpectFlashRewritten();
  }

  /// The dump that cannot be opened for writing.
  Lines Unopened(const std::string& error) const {
    Lines lines = Dump();
    lines.resize(1);
    return Join({lines, {"open dumpflash.bin O_WRONLY|O_CREAT 0600 = " + error}});
  }
};

INSTANTIATE_TEST_SUITE_P(Boards,
                         ExpanderScratchFileTest,
                         testing::Values(expander::kDax, expander::kPyx1, expander::kPyx2),
                         [](const auto& row) { return std::string(row.param.word); });

TEST_P(ExpanderScratchFileTest, ShorterStaleDumpIsOverwritten) {
  instrument_.WriteFile("dumpflash.bin", Bytes(100, 0x5A));
  PlugIn();
  ExpectSuccess(Decide());
  ExpectContents("dumpflash.bin",
                 instrument_.ReadFile("dumpflash.bin"),
                 Bytes(old_.begin(), old_.begin() + 512));
}

TEST_P(ExpanderScratchFileTest, DumpThatCannotBeOpenedIsNotReportedAndTheStaleFileDecides) {
  instrument_.WriteFile("dumpflash.bin", Image(2024, 512));
  Fault("open:dumpflash.bin#1:EACCES");
  PlugIn();
  ExpectUpdate(11,
               Join({Connect(),
                     Unopened("EACCES"),
                     Compare("2024"),
                     Console(expander::kNoUpdate),
                     End(board_.directions, kUpToDate, 11)}));
  ExpectFlashUntouched();
}

TEST_P(ExpanderScratchFileTest, DumpThatCannotBeOpenedAtAllCountsAsWithoutStampOrEndsAPyx2) {
  Fault("open:dumpflash.bin:EACCES");
  PlugIn();
  const Lines start = Join({Connect(), Unopened("EACCES")});
  const Lines open = {"open dumpflash.bin O_RDONLY = EACCES"};
  if (IsPyx2()) {
    ExpectUpdate(134,
                 Join({start,
                       {R"(stdout "\n")"},
                       open,
                       UnreadableHeader("ERROR: Can't open file 'dumpflash.bin'")}));
    ExpectFlashUntouched();
  } else {
    ExpectSuccess(Join({start, open, Stamp("image.bin", "06/05/2024 07:08:09"), OpenCheck()}));
  }
}

TEST_P(ExpanderScratchFileTest, FullDiskIsNotReported) {
  Fault("write:dumpflash.bin:ENOSPC");
  PlugIn();
  const Outcome outcome = Update();
  // The dump stays empty; only a boot header is missed in it.
  ExpectExitCode(outcome, IsPyx2() ? 134 : 0);
  ExpectTrafficContains(outcome, "write dumpflash.bin +512 = ENOSPC\nclose dumpflash.bin\n");
  if (IsPyx2()) {
    ExpectErrStarts(outcome, "ERROR: Can't read file\n");
    ExpectFlashUntouched();
  } else {
    ExpectFlashRewritten();
  }
}

}  // namespace
