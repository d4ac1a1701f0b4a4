#include "programmers/DaxFlashProgrammer.h"

#include <cstdio>

namespace {

// Deliberate: a dax is neither reset nor asked for DONE after the write; fixed and observable; do
// not change.
constexpr ExpanderFlashProgrammer::Traits kTraits = {
    .readDeviceLine = "DaxFlashProgrammer ReadDevice ",
    .reportsExpanderConnect = true,
    .opensImageBeforeErasing = true,
    .resetsFpgaAfterWriting = false,
};

}  // namespace

DaxFlashProgrammer::DaxFlashProgrammer(PCA9535* expander,
                                       SPIDev* spi,
                                       GpioProgrammingInterface* lines,
                                       unsigned int module)
    : BitstreamFlashProgrammer(expander, spi, lines, module, kTraits) {}

DaxFlashProgrammer::~DaxFlashProgrammer() { ReleaseLines(); }

int DaxFlashProgrammer::Select_SPIMaster(int /*module*/) { return 0; }

int DaxFlashProgrammer::Select_OTDR(int /*module*/) { return 0; }

void DaxFlashProgrammer::ReportNoTimeStamp(const std::string& file) {
  std::printf("No User Access Register found %s\n", file.c_str());
  static_cast<void>(std::fflush(stdout));
}
