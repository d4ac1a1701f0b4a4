// The text of the spidev module's parameter bufsiz: what the file holds comes from the fuzzer.
//   input: the file
#include <cstddef>
#include <cstdint>
#include <string>

#include "devices/SPIDev.h"
#include "tests/doubles/Console.h"
#include "tests/doubles/RedirectedFile.h"
#include "tests/doubles/Require.h"
#include "tests/fuzz/HostileBytes.h"
#include "tests/fuzz/Reference.h"

namespace {

constexpr const char* kPath = "/sys/module/spidev/parameters/bufsiz";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = HostileBytes(data, size).RestAsText();
  const RedirectedFile file(kPath, text);
  const Console console;

  const std::size_t bufsiz = SPIDev::GetBufsiz();

  const reference::BufsizText expected = reference::ReadBufsiz(text);
  Require(bufsiz == expected.bytes, "the size is the reference's");
  Require(
      console.Err() == (expected.isNumber ? "" : "Can't convert bufsiz: " + expected.line + "\n"),
      "a line that is no number is reported");
  Require(file.Openings() == 1, "the file is opened once");
  const SPIDev device("/dev/spidev1.0", 1'000'000, 0, 8);
  Require(device.GetMaxTransferSize() == expected.bytes, "every device takes the size over");
  return 0;
}
