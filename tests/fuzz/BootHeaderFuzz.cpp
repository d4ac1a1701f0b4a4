// The searches in a boot header and the decision about an upgrade: dump, image and the outcome of
// every file call come from the fuzzer.
//   input: disturbances (length byte, bytes), dump length (2 bytes), dump, image
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

#include "devices/I2CDev.h"
#include "platform/PCA9535.h"
#include "programmers/BootHeader.h"
#include "programmers/Pyx2FlashProgrammer.h"
#include "programmers/lines/Pyx2GpioProgramming.h"
#include "tests/doubles/Console.h"
#include "tests/doubles/FileKernel.h"
#include "tests/doubles/Require.h"
#include "tests/fuzz/Disturbances.h"
#include "tests/fuzz/HostileBytes.h"
#include "tests/fuzz/Reference.h"

namespace {

using Header = std::optional<reference::BootHeader>;

struct Input {
  HostileBytes disturbances;
  std::string dump;
  std::string image;
};

/// A programmer, used for its searches only. It is never destroyed: its destructor would use the
/// expander, and there is none.
Pyx2FlashProgrammer& Programmer() {
  static I2CDev bus("");
  static PCA9535 expander(&bus, 1);
  static Pyx2GpioProgramming lines;
  static auto* const programmer = new Pyx2FlashProgrammer(&expander, nullptr, &lines, 0);
  return *programmer;
}

/// Runs one function of the program over the two files.
/// @param expected  called with both headers, when both files are long enough
template <typename Function, typename Expected>
void Compare(const Input& input, Function function, Expected expected) {
  HostileBytes disturbances = input.disturbances;
  FileKernel kernel(nullptr, DisturbedBy(disturbances));
  kernel.files = {{"dump", input.dump}, {"image", input.image}};
  const Console console;
  const Header dump = reference::FindBootHeader(input.dump);
  const Header image = reference::FindBootHeader(input.image);
  try {
    const auto found = function();
    Require(!kernel.Disturbed() && dump && image, "a header that cannot be read throws");
    Require(found == expected(*dump, *image), "the result is the reference's");
    Require(kernel.OpenFiles().empty() || !dump->hasDelimiter || !image->hasDelimiter,
            "files with a delimiter are closed");
  } catch (const std::logic_error&) {
    Require(kernel.Disturbed() || !dump || !image, "a header that can be read does not throw");
    Require(console.Err().starts_with("ERROR: Can't ") ||
                console.Err().find("\nERROR: Can't ") != std::string::npos,
            "one line says why it throws");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Pyx2FlashProgrammer& pyx2 = Programmer();
  HostileBytes bytes(data, size);
  const HostileBytes disturbances = bytes.Part();
  const std::uint16_t dumpBytes = bytes.Word();
  const std::string dump = bytes.Text(dumpBytes);
  const Input input = {.disturbances = disturbances, .dump = dump, .image = bytes.RestAsText()};

  // With one of the files in both places.
  const Input dumpOnly = {.disturbances = disturbances, .dump = dump, .image = dump};
  Compare(
      dumpOnly,
      [] { return SearchFilenameInUDFHeader("dump"); },
      [](const auto& header, const auto&) { return header.filename; });
  Compare(
      dumpOnly,
      [] { return SearchBuildDateInUDFHeader("dump"); },
      [](const auto& header, const auto&) { return header.buildDate; });
  Compare(
      input,
      [] { return IsFlashUpgradeRequired("dump", "image"); },
      [](const auto& dumped, const auto& image) {
        return reference::BuildDatesDiffer(dumped, image);
      });
  Compare(
      input,
      [] { return pyx2.IsFlashUpgradeRequired("dump", "image"); },
      [](const auto& dumped, const auto& image) {
        return reference::BuildDatesDiffer(dumped, image);
      });
  return 0;
}
