#include "programmers/Pyx1FlashProgrammer.h"

#include <iostream>

#include "programmers/ModuleSelector.h"

namespace {

constexpr ExpanderFlashProgrammer::Traits kTraits = {
    .readDeviceLine = "Pyx1FlashProgrammer ReadDevice ",
    .reportsExpanderConnect = false,
    .opensImageBeforeErasing = false,
    .resetsFpgaAfterWriting = true,
};

}  // namespace

Pyx1FlashProgrammer::Pyx1FlashProgrammer(PCA9535* expander,
                                         SPIDev* spi,
                                         GpioProgrammingInterface* lines,
                                         unsigned int module)
    : BitstreamFlashProgrammer(expander, spi, lines, module, kTraits) {
  static_cast<void>(Select_SPIMaster(Module()));  // Connect() shows whether it worked
}

Pyx1FlashProgrammer::~Pyx1FlashProgrammer() {
  ReleaseLines();
  static_cast<void>(Select_OTDR(Module()));  // it prints a line; the result stays as it is
}

int Pyx1FlashProgrammer::Select_SPIMaster(int module) {
  // Deliberate: on standard output, in this one of the four selections; fixed and observable; do
  // not change.
  return module_selector::Select(module, module_selector::kSpiMaster, std::cout);
}

int Pyx1FlashProgrammer::Select_OTDR(int module) {
  return module_selector::Select(module, module_selector::kOtdr, std::cerr);
}

void Pyx1FlashProgrammer::ReportNoTimeStamp(const std::string& file) {
  std::cerr << "No User Access Register found in file '" << file << "'" << std::endl;
}
