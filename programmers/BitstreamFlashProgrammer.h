#pragma once

#include <string>

#include "programmers/ExpanderFlashProgrammer.h"

/// What the dax and pyx1 programmers share: their flash holds a Xilinx bitstream, compared by its
/// USR_ACCESS time stamp, and an FPGA that is not configured is first brought into PS mode.
class BitstreamFlashProgrammer : public ExpanderFlashProgrammer {
 public:
  /// Finds the build time stamp of a bitstream (UserAccess.h) and prints what it found. A file that
  /// cannot be read is read again, without end on a directory.
  /// @return the time stamp; 0 when the file cannot be opened or holds none
  unsigned int FindTimeStampInFile(std::string file);

  void RouteInPsMode() override;

 protected:
  using ExpanderFlashProgrammer::ExpanderFlashProgrammer;

 private:
  /// Prints that a file holds no time stamp.
  virtual void ReportNoTimeStamp(const std::string& file) = 0;

  void TakeFlashOver() override;
  void PulseReset() override;
  bool CompareBuilds(const std::string& dumpPath, const std::string& imagePath) override;
};
