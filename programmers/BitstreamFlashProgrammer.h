#pragma once

#include <string>

#include "programmers/ExpanderFlashProgrammer.h"

/// What the dax and pyx1 programmers share: their flash holds a Xilinx bitstream, compared by its
/// USR_ACCESS time stamp, and an FPGA that is not configured is first brought into PS mode.
class BitstreamFlashProgrammer : public ExpanderFlashProgrammer {
 public:
  /// Finds the build time stamp of a bitstream: the word after a write of one word to USR_ACCESS
  /// (type-1 packet header 0x3001A001, configuration user guide UG470, "Configuration Packets"),
  /// at an offset that is a multiple of 4. Prints what it found. The file is read as it is, never
  /// decompressed, and to its end: a read that fails is made again, without end on a directory.
  /// @return day (bits 31..27), month (26..23), year - 2000 (22..17), hour (16..12), minute
  ///         (11..6), second (5..0); 0 when the file cannot be opened or holds none
  unsigned int FindTimeStampInFile(std::string file);

 protected:
  using ExpanderFlashProgrammer::ExpanderFlashProgrammer;

 private:
  /// Prints that a file holds no time stamp.
  virtual void ReportNoTimeStamp(const std::string& file) = 0;

  void TakeFlashOver() override;
  void PulseReset() override;
  bool CompareBuilds(const std::string& dumpPath, const std::string& imagePath) override;
};
