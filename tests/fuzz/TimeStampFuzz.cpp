// The search for a bitstream's time stamp: the file and the outcome of every file call come from
// the fuzzer.
//   input: disturbances (length byte, bytes), file
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

#include "devices/I2CDev.h"
#include "platform/PCA9535.h"
#include "programmers/DaxFlashProgrammer.h"
#include "programmers/lines/DaxGpioProgramming.h"
#include "tests/doubles/Console.h"
#include "tests/doubles/FileKernel.h"
#include "tests/doubles/Require.h"
#include "tests/fuzz/Disturbances.h"
#include "tests/fuzz/HostileBytes.h"
#include "tests/fuzz/Reference.h"

namespace {

/// A programmer, used for its search only. It is never destroyed: its destructor would use the
/// expander, and there is none.
DaxFlashProgrammer& Programmer() {
  static I2CDev bus("");
  static PCA9535 expander(&bus, 1);
  static DaxGpioProgramming lines;
  static auto* const programmer = new DaxFlashProgrammer(&expander, nullptr, &lines, 0);
  return *programmer;
}

std::string FoundLine(std::uint32_t stamp) {
  char line[160];
  static_cast<void>(std::snprintf(
      line,
      sizeof line,
      "User Access Register found in file file with Time Stamp :  %02u/%02u/%04u %02u:%02u:%02u\n",
      stamp / 0x8000000U,
      stamp / 0x800000U % 16,
      2000 + stamp / 0x20000U % 64,
      stamp / 0x1000U % 32,
      stamp / 0x40U % 64,
      stamp % 64));
  return line;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static DaxFlashProgrammer& programmer = Programmer();
  HostileBytes bytes(data, size);
  HostileBytes disturbances = bytes.Part();
  bool opened = false;
  FileKernel kernel(nullptr, [&](const std::string& call, const std::string& /*path*/) {
    const FileKernel::Fate fate = FateOf(disturbances.Byte());
    opened = opened || (call == "open" && fate.error == 0);
    return fate;
  });
  kernel.files = {{"file", bytes.RestAsText()}};
  const Console console(nullptr, Console::Takes::kStreamsAndStdio);

  const unsigned int found = programmer.FindTimeStampInFile("file");

  Require(kernel.OpenFiles().empty(), "the file is closed");
  if (!opened) {
    Require(found == 0 && console.Out().empty(),
            "a file that cannot be opened gives 0, in silence");
    return 0;
  }
  // Reads that fail or return less change nothing: they are repeated, and their bytes joined.
  const std::optional<std::uint32_t> expected = reference::FindTimeStamp(kernel.files.at("file"));
  Require(found == expected.value_or(0), "the stamp is the reference's");
  Require(
      console.Out() == (expected ? FoundLine(*expected) : "No User Access Register found file\n"),
      "a stamp is printed as a date, and its absence is reported");
  return 0;
}
