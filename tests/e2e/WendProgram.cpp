#include "tests/e2e/WendProgram.h"

#include "simulator/images/BootImage.h"

namespace program_test::wend {

Bytes Image(const std::string& date, std::size_t bytes) {
  return orvane::MakeZynqImage({.fileName = kName, .buildDate = date, .bytes = bytes});
}

// --- The steps of a run

Lines Find() { return Join({Request("image.bin"), Discovery(), Clock(), Programmer()}); }

Lines Connect() {
  return Join({Find(), Control("qspi_prg", "1"), OpenBus(), Identify("20 ba 18")});
}

Lines CompareWithOld() {
  return Compare("./FlashDevice.bin", kName, kOldDate, "image.bin", kNewDate);
}

Lines Decide() { return Join({Connect(), Dump("./FlashDevice.bin"), CompareWithOld()}); }

Lines EraseStep(int sectors) {
  return Join({kUnlocking, kErasing, kOpenImage, Erase(sectors), kDone});
}

Lines ProgramStep(int bytes) {
  return Join({kProgramming, kOpenImage, OpenBus(), Program(bytes), kCloseImage, kDone});
}

Lines VerifyStep() {
  return Join({Dump("./FlashDevice_verif.bin"),
               Compare("./FlashDevice_verif.bin", kName, kNewDate, "image.bin", kNewDate)});
}

Lines UpdateSteps() { return Join({EraseStep(), ProgramStep(), VerifyStep()}); }

Lines ResetStep() {
  return Join({{R"(stdout "Toggling reset ... ")"},
               Control("zynq_hw_reset_n", "0"),
               {"sleep 5 s"},
               Control("zynq_hw_reset_n", "1")});
}

Lines FinalSteps(int donePolls) {
  return Join({Control("qspi_prg", "0"), ResetStep(), Done(donePolls)});
}

Lines End(const std::string& result, int exitCode) {
  return Join({{"close /dev/spidev1.0", "close -1"},
               Console(result),
               {"close -1", "exit " + std::to_string(exitCode)}});
}

Lines EndWithoutSpi() {
  return Join({{"close -1"}, Console(kConnectFailed), {"close -1", "exit 1"}});
}

Lines CompareWithout(const std::string& scratch) {
  const Lines noDelimiter = Join({{"open " + scratch + " O_RDONLY"},
                                  ErrorLine("ERROR: Can't find delimiter # in BOOTHEADER")});
  return Join({{R"(stdout "\n")"},
               noDelimiter,
               ErrorLine("ERROR: Can't find uboot filename in dumpfile"),
               noDelimiter,
               ErrorLine("ERROR: Can't find uboot build date in dumpfile"),
               kImageDate});
}

}  // namespace program_test::wend
