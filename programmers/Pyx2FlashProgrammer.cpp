#include "programmers/Pyx2FlashProgrammer.h"

#include <unistd.h>

#include <iostream>

#include "programmers/BootHeader.h"
#include "programmers/ModuleSelector.h"

namespace {

constexpr unsigned kResetPulseSeconds = 5;

constexpr ExpanderFlashProgrammer::Traits kTraits = {
    // Deliberate: the text of the pyx1; fixed and observable; do not change.
    .readDeviceLine = "Pyx1FlashProgrammer ReadDevice ",
    .reportsExpanderConnect = false,
    .opensImageBeforeErasing = false,
    .resetsFpgaAfterWriting = true,
};

}  // namespace

Pyx2FlashProgrammer::Pyx2FlashProgrammer(PCA9535* expander,
                                         SPIDev* spi,
                                         GpioProgrammingInterface* lines,
                                         unsigned int module)
    : ExpanderFlashProgrammer(expander, spi, lines, module, kTraits) {
  static_cast<void>(Select_SPIMaster(Module()));  // Connect() shows whether it worked
}

Pyx2FlashProgrammer::~Pyx2FlashProgrammer() {
  ReleaseLines();
  static_cast<void>(Select_OTDR(Module()));  // it prints a line; the result stays as it is
}

std::string Pyx2FlashProgrammer::SearchBuildDateInUDFHeader(std::string file) {
  return boot_header::FindBuildDate(file, "Can't find delimiter # in BOOTHEADER");
}

bool Pyx2FlashProgrammer::IsFlashUpgradeRequired(std::string dump, std::string image) {
  std::cout << std::endl;
  return boot_header::ReportBuildDates(
      dump, image, [this](const std::string& file) { return SearchBuildDateInUDFHeader(file); });
}

int Pyx2FlashProgrammer::Select_SPIMaster(int module) {
  return module_selector::Select(module, module_selector::kSpiMaster, std::cerr);
}

int Pyx2FlashProgrammer::Select_OTDR(int module) {
  return module_selector::Select(module, module_selector::kOtdr, std::cerr);
}

void Pyx2FlashProgrammer::TakeFlashOver() { RouteToController(); }

void Pyx2FlashProgrammer::PulseReset() {
  // Deliberate: the run pattern is never driven. What ends the reset is the connect at the end of
  // toggleReset(), which makes the lines inputs.
  HoldReset();
  ::sleep(kResetPulseSeconds);
}

bool Pyx2FlashProgrammer::CompareBuilds(const std::string& dumpPath, const std::string& imagePath) {
  return !IsFlashUpgradeRequired(dumpPath, imagePath);
}
