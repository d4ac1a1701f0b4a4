// Every exit code of `tarnwickctl`, with what it prints.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/e2e/companion/Bench.h"
#include "tests/e2e/companion/Gate.h"

namespace companion_test {
namespace {

constexpr const char* kSha256 = "d34c5dd37d28a7d19937d98428f3488b9d1a78a74b4a52121a1be59baf639289";

/// The lines that name module and image.
std::string ModuleLine(const std::string& words = "pyx1 in slot 4, \"i2c-4\", \"spidev4.0\"") {
  return "module: " + words + "\n";
}

std::string ImageLines() {
  return std::string("image: \"image.bin\", 600 bytes, \"06/05/2024 07:08:09\"\n") +
         "SHA-256 of the image: " + kSha256 + "\n";
}

constexpr const char* kFlashOfOldBuild = "flash: \"06/05/2023 07:08:09\"\n";
constexpr const char* kBeforeOfOldBuild = "flash before: \"06/05/2023 07:08:09\"\n";
constexpr const char* kPyxRuns =
    "chip: 20ba18, not protected\nDONE: high\nPCIe endpoint: enabled\n";

constexpr const char* kPsMode =
    "tarnwickctl: DONE has been low for 10 s: the FPGA goes through PS mode\n";

/// What `tarnwick` prints when it writes a pyx1 in slot 4.
/// @param done    what it says when it connects
/// @param stamp   in the flash
/// @param result  its last lines
std::string WritesPyx1(const std::string& done,
                       const std::string& stamp,
                       const std::string& result) {
  return "programming mode: -sf\nmodule number: 4\nFPGA bitstream: 'image.bin'\n"
         "SPI clock rate =19MHz\nPyx1 Gpio Programming\nConnecting ...\n" +
         done +
         "Flash Manufacturer ID   : 0x20\nFlash Memory Type       : 0xba\n"
         "Flash Memory Capacity   : 0x18\nPyx1FlashProgrammer ReadDevice \n"
         "User Access Register found in file dumpflash.bin with Time Stamp :  " +
         stamp +
         "\nUser Access Register found in file image.bin with Time Stamp :  06/05/2024 07:08:09\n"
         "Unlocking flash memory ... \nErasing device ... done.\nProgramming device ... done.\n"
         "Toggling reset ... " +
         result;
}

constexpr const char* kDone =
    "FPGA DONE detected, do not reset the FPGA  and try to read the flash header \n";
constexpr const char* kNoDone =
    "FPGA DONE not detected, force FPGA is PS mode to keep clock management \n";
constexpr const char* kOldStamp = "06/05/2023 07:08:09";
constexpr const char* kProgrammed = "done.\nFPGA programmed successfully.\n";

void ExpectEnd(const Ended& ended, int exitCode, const std::string& out, const std::string& err) {
  EXPECT_EQ(ended.exitCode, exitCode);
  EXPECT_EQ(ended.out, out);
  EXPECT_EQ(ended.err, err);
}

class ExitCodesTest : public testing::Test {
 protected:
  Bench bench_{kPyx1};
};

/// What `image` says of image.bin before its verdict.
std::string ImageReport() {
  const std::string boots = " (written; 7 when the FPGA does not start from it)\n";
  const std::string looks = " (written, but it looks for the date in the file as it is)\n";
  const auto answers = [](const std::string& blank, const std::string& same) {
    return "  bare tarnwick over a blank flash: " + blank +
           "  over one that holds this image: " + same +
           "  over one with another stamp or date: " + blank;
  };
  const std::string upToDate = "11 (up to date, nothing is written)\n";
  return std::string("file: \"image.bin\", a regular file of 600 bytes\n") +
         "SHA-256 of the file: " + kSha256 + "\npacking: plain\nimage: 600 bytes\n" +
         "format: bitstream, synchronisation word at byte 48\n"
         "build date (wend, pyx2): none\ntime stamp (dax, pyx1): \"06/05/2024 07:08:09\"\n"
         "wend: unfit: it is a bitstream; a wend takes a Zynq boot image\n" +
         answers("6" + looks, "6" + looks) + "dax: fit\n" +
         answers("0 (written; in use at the next power-on)\n", upToDate) + "pyx1: fit\n" +
         answers("0" + boots, upToDate) +
         "pyx2: unfit: it is a bitstream; a pyx2 takes a Zynq boot image\n" +
         answers("0" + boots, "0" + boots);
}

// --- 0

TEST_F(ExitCodesTest, FitImageEndsIn0) {
  ExpectEnd(bench_.Run(Bench::Companion("image image.bin --target pyx1")),
            0,
            ImageReport() + "fit\n",
            "");
}

TEST_F(ExitCodesTest, ReadEndsIn0) {
  ExpectEnd(bench_.Run(bench_.Read("--length 512")),
            0,
            ModuleLine() + kPyxRuns +
                "file: \"read.bin\"\n"
                "Read: 512 bytes, SHA-256 "
                "c75e769f9cbed37497c6da88d3d9124582d6d726d2063d4e16ab5eeada872a12.\n",
            "");
}

TEST_F(ExitCodesTest, VerifyOfAnEqualImageEndsIn0) {
  bench_.StoreFlash(bench_.Image());
  ExpectEnd(bench_.Run(bench_.Verify()),
            0,
            ModuleLine() + ImageLines() + "flash: \"06/05/2024 07:08:09\"\n" + kPyxRuns +
                "The flash holds the image.\n",
            "");
}

TEST_F(ExitCodesTest, UpdateThatWritesEndsIn0) {
  ExpectEnd(bench_.Run(bench_.Update()),
            0,
            WritesPyx1(kDone, kOldStamp, kProgrammed) + ModuleLine() + ImageLines() +
                kBeforeOfOldBuild + "attempt 1: tarnwick ended with 0\n" + kPyxRuns +
                "The flash holds the image, and it was taken into use.\n",
            "");
}

TEST_F(ExitCodesTest, UpdateWithNothingToWriteEndsIn0) {
  bench_.StoreFlash(bench_.Image());
  ExpectEnd(bench_.Run(bench_.Update()),
            0,
            ModuleLine() + ImageLines() + "flash before: \"06/05/2024 07:08:09\"\n" + kPyxRuns +
                "The flash holds the image, and it is in use. Nothing was written.\n",
            "");
}

TEST_F(ExitCodesTest, UpdateOfADaxWithNothingToWriteEndsIn0) {
  Bench bench(kDax);
  bench.StoreFlash(bench.Image());
  ExpectEnd(bench.Run(bench.Update()),
            0,
            ModuleLine("dax in slot 2, \"i2c-11\", \"spidev2.0\"") + ImageLines() +
                "flash before: \"06/05/2024 07:08:09\"\nchip: 20ba18, not protected\nDONE: high\n"
                "The flash holds the image. It was not written. The module uses it from its next "
                "power-on.\n",
            "");
}

TEST_F(ExitCodesTest, ReportThatCannotBeWrittenIsSaidAndLeavesTheExitCode) {
  const std::string line = "tarnwickctl: cannot write to standard output\n";
  ExpectEnd(bench_.Run(Bench::Companion("image image.bin --target pyx1 >/dev/full")), 0, "", line);
  ExpectEnd(bench_.Run(bench_.Verify("--json >/dev/full")), 1, "", line);
}

// --- 1

TEST_F(ExitCodesTest, UnfitImageEndsIn1) {
  ExpectEnd(bench_.Run(Bench::Companion("image image.bin --target wend")),
            1,
            ImageReport() + "unfit: it is a bitstream; a wend takes a Zynq boot image\n",
            "");
}

TEST_F(ExitCodesTest, VerifyOfAnotherImageEndsIn1) {
  ExpectEnd(bench_.Run(bench_.Verify()),
            1,
            ModuleLine() + ImageLines() + kFlashOfOldBuild + kPyxRuns +
                "The flash differs from address 0x00003c on (0xad instead of 0xca), in 3 pages of "
                "256 bytes.\n",
            "");
}

TEST_F(ExitCodesTest, UpdateOverAWornPageEndsIn1) {
  bench_.Key("worn-page=0x100");
  const std::string differs =
      "the flash differs from address 0x000100 on (0xff instead of 0x5f), in 1 page of 256 bytes";
  ExpectEnd(bench_.Run(bench_.Update("--attempts 2")),
            1,
            WritesPyx1(kDone, kOldStamp, kProgrammed) +
                WritesPyx1(kDone, "01/01/2000 00:00:00", kProgrammed) + ModuleLine() +
                ImageLines() + kBeforeOfOldBuild +
                "attempt 1: tarnwick ended with 0\nattempt 2: tarnwick ended with 0\n" + kPyxRuns +
                "Not proven after 2 attempts: " + differs +
                "; the same page as after the attempt before. Update again.\n",
            "tarnwickctl: attempt 1: " + differs +
                "\ntarnwickctl: the start of the flash is made to differ: tarnwick takes it for up "
                "to date\ntarnwickctl: attempt 2: " +
                differs + "; the same page as after the attempt before\n");
}

// --- 2

TEST_F(ExitCodesTest, MissingWordEndsIn2) {
  ExpectEnd(bench_.Run(Bench::Companion("update pyx1 4")),
            2,
            "",
            "tarnwickctl: a word is missing: IMAGE\nTry 'tarnwickctl --help'.\n");
}

TEST_F(ExitCodesTest, MissingImageEndsIn2) {
  std::filesystem::remove(bench_.File("image.bin"));
  ExpectEnd(bench_.Run(bench_.Update()),
            2,
            ModuleLine("pyx1 in slot 4") +
                "Refused: cannot open \"image.bin\": No such file or directory.\n",
            "");
}

TEST_F(ExitCodesTest, MissingFileOfImageEndsIn2) {
  ExpectEnd(bench_.Run(Bench::Companion("image none")),
            2,
            "refused: cannot open \"none\": No such file or directory\n",
            "");
}

TEST_F(ExitCodesTest, SlotThatIsNotInTheInventoryEndsIn2) {
  bench_.Fault("dbus:GetModuleLocations:data:1 2");
  ExpectEnd(bench_.Run(bench_.Verify()),
            2,
            ModuleLine("pyx1 in slot 4") + ImageLines() +
                "Refused: slot 4 is not in the inventory. Check MODULE, and that it is switched "
                "on.\n",
            "");
}

class WrongModuleTest : public ExitCodesTest, public testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Words, WrongModuleTest, testing::Values("2x", "2.9", "", " 2", "+2"));

TEST_P(WrongModuleTest, EndsIn2) {
  ExpectEnd(bench_.Run(Bench::Companion("update pyx1 ") + Quoted(GetParam()) + " image.bin"),
            2,
            "",
            std::string("tarnwickctl: MODULE: '") + GetParam() +
                "' is no whole number from 0 to 4294967295\nTry 'tarnwickctl --help'.\n");
}

TEST_F(ExitCodesTest, ModuleBelowZeroEndsIn2) {
  ExpectEnd(bench_.Run(Bench::Companion("update pyx1 -1 image.bin")),
            2,
            "",
            "tarnwickctl: unknown option '-1'\nTry 'tarnwickctl --help'.\n");
}

// --- 3

TEST_F(ExitCodesTest, FpgaThatDoesNotComeUpEndsIn3) {
  bench_.Key("done=low");
  const std::string reason =
      "not in use: the FPGA's DONE does not rise within 10 s after its reset";
  ExpectEnd(
      bench_.Run(bench_.Update("--attempts 1")),
      3,
      WritesPyx1(kNoDone, kOldStamp, "FPGA did not assert configuration completed.\n") +
          ModuleLine() + ImageLines() + kBeforeOfOldBuild +
          "attempt 1: tarnwick ended with 7\nchip: 20ba18, not protected\nDONE: low\n"
          "PCIe endpoint: enabled\nThe flash holds the image, but it is " +
          reason + ". Switch the module off and on.\n",
      std::string(kPsMode) + "tarnwickctl: tarnwick ended with 7\ntarnwickctl: " + reason + "\n");
}

TEST_F(ExitCodesTest, EndpointThatDoesNotComeBackEndsIn3) {
  bench_.Fault("write:/rescan:lost");
  const std::string reason = "not in use: the PCIe endpoint is not found when its bus is scanned";
  ExpectEnd(bench_.Run(bench_.Update("--attempts 2")),
            3,
            WritesPyx1(kDone, kOldStamp, "done.\nUnable to update PCIe endpoint.\n") +
                ModuleLine() + ImageLines() + kBeforeOfOldBuild +
                "attempt 1: tarnwick ended with 10\nchip: 20ba18, not protected\nDONE: high\n"
                "PCIe endpoint: absent\nThe flash holds the image, but it is " +
                reason + ". Switch the module off and on.\n",
            "tarnwickctl: tarnwick ended with 10\ntarnwickctl: " + reason +
                "\ntarnwickctl: " + reason + "\n");
}

// --- 4

TEST_F(ExitCodesTest, LockOfAnotherEndsIn4) {
  PutGate(bench_);
  const Ended ended = bench_.Run(Script(MakeGate(),
                                        InBackground("first", bench_.Update()),
                                        AwaitArrival(),
                                        "printf %s $first >first.id",
                                        bench_.Verify(">second.out 2>second.err; echo $?"),
                                        OpenGate(),
                                        ExitCodeOf("first")));
  EXPECT_EQ(ended.out, "4\n0\n");
  EXPECT_EQ(bench_.ReadText("second.out"),
            ModuleLine() + ImageLines() + "Locked by update pyx1 4, process " +
                bench_.ReadText("first.id") + ". Try again later, or wait with --wait.\n");
  EXPECT_EQ(bench_.ReadText("second.err"), "");
}

// --- 5

TEST_F(ExitCodesTest, SecondSignalEndsIn5) {
  PutGate(bench_);
  const Ended ended = bench_.Run(Script(MakeGate(),
                                        InBackground("update", bench_.Update()),
                                        AwaitArrival(),
                                        "kill -HUP $update; kill -TERM $update",
                                        ExitCodeOf("update")));
  EXPECT_EQ(ended.out, "5\n");
  EXPECT_EQ(
      bench_.ReadText("update.out"),
      ModuleLine() + ImageLines() + kBeforeOfOldBuild +
          "attempt 1: tarnwick was ended by signal 9\n" + kPyxRuns +
          "Stopped by a signal. The flash may have been changed; what it holds now is not known. "
          "Update again.\n");
  EXPECT_EQ(bench_.ReadText("update.err"),
            "tarnwickctl: SIGHUP asks to stop: what has begun is brought to its end; a second "
            "signal ends it early\n"
            "tarnwickctl: stopped by SIGTERM: what runs is ended as soon as the module can be "
            "given back\n"
            "tarnwickctl: tarnwick was ended by signal 9\n");
}

// --- 6

TEST_F(ExitCodesTest, ChipThatDoesNotAnswerEndsIn6) {
  bench_.Key("flash-chip=absent");
  ExpectEnd(bench_.Run(bench_.Update()),
            6,
            ModuleLine() + ImageLines() +
                "DONE: low\nPCIe endpoint: enabled\nThe module cannot be read for certain: no "
                "flash chip answers (identification 00 00 00). The flash was not changed.\n",
            kPsMode);
}

TEST_F(ExitCodesTest, ExpanderThatDoesNotAnswerEndsIn6) {
  bench_.Key("expander=absent");
  const std::string left =
      "tarnwickctl: not given back: the GPIO expander on /dev/i2c-4 does not "
      "show whether its lines are released";
  ExpectEnd(bench_.Run(bench_.Verify()),
            6,
            ModuleLine() + ImageLines() +
                "DONE: unknown\nPCIe endpoint: enabled\nThe module cannot be read for certain: the "
                "GPIO expander on /dev/i2c-4 does not answer. The flash was not changed.\n",
            left + "; it is tried again\n" + left + "\n");
}

TEST_F(ExitCodesTest, MissingControlFilesEndIn6) {
  Bench bench(kWend);
  bench.Key("zynq-files=missing");
  const std::string left =
      "tarnwickctl: not given back: the module cannot be given back: could not open SYSFS QSPI_PRG "
      "value device: No such file or directory";
  ExpectEnd(bench.Run(bench.Read()),
            6,
            ModuleLine("wend in slot 1, \"i2c-1\", \"spidev1.0\"") +
                "DONE: unknown\nThe module cannot be read for certain: could not open SYSFS "
                "ZYNQ_DONE value device: No such file or directory. The flash was not changed.\n",
            left + "; it is tried again\n" + left + "\n");
}

TEST_F(ExitCodesTest, MissingBusEndsIn6) {
  bench_.Option({"--without", "bus"});
  ExpectEnd(bench_.Run(bench_.Verify()),
            6,
            ModuleLine("pyx1 in slot 4") + ImageLines() +
                "The module cannot be found: org.orvane.SystemInventory1: No such file or "
                "directory. The flash was not changed. Check the platform's services.\n",
            "");
}

}  // namespace
}  // namespace companion_test
