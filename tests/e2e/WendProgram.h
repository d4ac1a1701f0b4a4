#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "tests/e2e/FlashContents.h"
#include "tests/e2e/Judgement.h"
#include "tests/e2e/ResultLines.h"
#include "tests/e2e/RunLog.h"
#include "tests/e2e/VirtualInstrument.h"

/// Runs on a wend in slot 1, whose flash holds an older image.
namespace program_test::wend {

using namespace run_log;

inline const std::string kName = "u-boot-vexa.bin";
inline const std::string kOldDate = "2023-01-02 03:04:05";
inline const std::string kNewDate = "2024-05-06 07:08:09";
inline constexpr int kImageBytes = 600;  // two pages and 88 bytes

inline const Lines kUnlocking = Console("Unlocking flash memory ... ");
inline const Lines kErasing = {R"(stdout "Erasing device ... ")"};
inline const Lines kProgramming = {R"(stdout "Programming device ... ")"};
inline const Lines kDone = Console("done.");
inline const Lines kOpenImage = {"open image.bin O_RDONLY"};
inline const Lines kCloseImage = {"close image.bin"};
inline const Lines kImageDate =
    Join({kOpenImage, kCloseImage, Console("Binary  file build date: " + kNewDate)});

inline const std::string kReadError = "SpiDev::Read() SPI_IOC_MESSAGE error, errno = 5";
inline const std::string kWriteError =
    "SpiDev::Write() SPI_IOC_MESSAGE error, errno = Input/output error file: /dev/spidev1.0";

Bytes Image(const std::string& date, std::size_t bytes);
Lines Find();
Lines Connect();
Lines CompareWithOld();
/// Everything until the flash is known to be older than the image.
Lines Decide();
Lines EraseStep(int sectors = 1);
Lines ProgramStep(int bytes = kImageBytes);
Lines VerifyStep();
Lines UpdateSteps();
Lines ResetStep();
Lines FinalSteps(int donePolls);
/// The programmer and the SPI device go before the result line, the I2C device after it.
Lines End(const std::string& result, int exitCode);
/// The driver has destroyed the SPI device, which could not be opened.
Lines EndWithoutSpi();
/// A scratch file whose field holds no '#'; name and date are missing.
Lines CompareWithout(const std::string& scratch);

class WendProgram : public testing::Test {
 protected:
  WendProgram() : old_(Image(kOldDate, 100'000)), image_(Image(kNewDate, kImageBytes)) {
    instrument_.WriteFile("flash.bin", old_);
    instrument_.WriteFile("image.bin", image_);
  }

  void Fault(const std::string& rule) { instrument_.Option({"--fault", rule}); }

  void PlugIn(const std::string& keys = "") {
    instrument_.Option(
        {"--module", "wend@1,flash=" + instrument_.File("flash.bin").string() + keys});
  }

  Outcome Update() { return instrument_.Run({"wend", "-sf", "1", "image.bin"}); }

  void ExpectUpdate(int exitCode, const Lines& log) { ExpectRun(Update(), exitCode, log); }

  void ExpectFlash(const Bytes& contents) {
    ExpectContents("flash", instrument_.ReadFile("flash.bin"), PaddedTo(kFlashBytes, contents));
  }

  void ExpectFlashUntouched() { ExpectFlash(old_); }
  void ExpectFlashRewritten() { ExpectFlash(Flashed(image_, old_)); }

  VirtualInstrument instrument_;
  Bytes old_;
  Bytes image_;
};

}  // namespace program_test::wend
