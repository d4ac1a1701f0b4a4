#include "programmers/BitstreamFlashProgrammer.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <iostream>
#include <optional>

#include "base/FileDescriptor.h"
#include "programmers/UserAccess.h"
#include "programmers/lines/GpioProgrammingInterface.h"

namespace {

constexpr useconds_t kResetPulseMicroseconds = 10'000;
constexpr unsigned kPsModeSeconds = 1;

}  // namespace

unsigned int BitstreamFlashProgrammer::FindTimeStampInFile(std::string file) {
  const FileDescriptor descriptor(::open(file.c_str(), O_RDONLY));
  if (!descriptor.IsOpen()) {
    return 0;
  }
  const std::optional<std::uint32_t> stamp = user_access::Find(descriptor.Get());
  if (!stamp) {
    ReportNoTimeStamp(file);
    return 0;
  }
  std::printf("User Access Register found in file %s with Time Stamp :  %s\n",
              file.c_str(),
              user_access::Describe(*stamp).c_str());
  static_cast<void>(std::fflush(stdout));
  return *stamp;
}

void BitstreamFlashProgrammer::RouteInPsMode() {
  std::cout << "FPGA DONE not detected, force FPGA is PS mode to keep clock management "
            << std::endl;
  Drive(Lines().spi_imx_to_flash_reset());
  ::sleep(kPsModeSeconds);
  Drive(Lines().spi_imx_to_fpga());
}

void BitstreamFlashProgrammer::TakeFlashOver() {
  if (!IsProgrammed()) {
    RouteInPsMode();
    return;
  }
  std::cout << "FPGA DONE detected, do not reset the FPGA  and try to read the flash header "
            << std::endl;
  RouteToController();
}

void BitstreamFlashProgrammer::PulseReset() {
  HoldReset();
  ::usleep(kResetPulseMicroseconds);
  ReleaseReset();
}

bool BitstreamFlashProgrammer::CompareBuilds(const std::string& dumpPath,
                                             const std::string& imagePath) {
  const unsigned int flashStamp = FindTimeStampInFile(dumpPath);
  const unsigned int imageStamp = FindTimeStampInFile(imagePath);
  return user_access::IsSameBuild(flashStamp, imageStamp);
}
