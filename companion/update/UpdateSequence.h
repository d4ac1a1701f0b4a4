#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "companion/image/ImageFile.h"
#include "companion/process/ProgramInterface.h"
#include "companion/report/Results.h"
#include "companion/update/Sequence.h"

namespace companion {

/// What `update` is asked to do.
struct UpdateRequest {
  std::string target;  ///< "wend", "dax", "pyx1" or "pyx2"
  unsigned slot = 0;
  const ImageFile& image;  ///< borrowed; plain bytes
  std::string sha256;      ///< what the file must have, 64 hexadecimal digits; empty: anything
  unsigned attempts = 3;   ///< to write, and to take into use, at least 1
  bool restart = false;    ///< take the image into use even where it seems to be in use
  bool force = false;      ///< overrules the format, of the image and of what the flash holds
  unsigned waitSeconds = 0;
};

/// `update`: brings the flash of a module to hold an image, proves it, and takes it into use. Makes
/// no system call: all of it happens behind the interfaces.
class UpdateSequence : private Sequence {
 public:
  /// @param program             the unmodified `tarnwick`, borrowed
  /// @param checkTransferLimit  why the SPI driver's limit does not suit, one line; empty: it does
  UpdateSequence(UpdateRequest request,
                 Services services,
                 ProgramInterface& program,
                 std::function<std::string()> checkTransferLimit);

  UpdateResult Run();

  /// One more signal asks the command to stop. May be called in every callback of the services and
  /// while an operation runs. The first lets the attempt come to its end, the second ends it.
  /// @param signal  its number
  void Signalled(int signal);

 private:
  /// Everything, step by step. Each step returns how the command ends there; nothing: go on.
  Ending RunSteps();
  std::optional<Ending> Preflight();
  std::optional<Ending> CheckImage();
  Ending RunLocked();
  Ending RunInWorkFolder();

  std::optional<Ending> ProveFlash();
  std::optional<Ending> JudgeFlash();
  std::optional<Ending> CheckFormatThere();
  std::optional<Ending> SetMark();
  std::optional<Ending> WriteOnce();
  bool MakeHeadDiffer();
  bool WouldWrite(std::span<const std::uint8_t> head);
  bool ReadHead();
  static Ending HeadNotCertain();
  std::optional<Ending> RunProgram();
  Ending NotBegun(const std::string& why);
  std::string CauseOf(const ModuleReading& reading);
  std::string TextOfDifference(const ModuleReading& reading);

  Ending FinishDax();
  Ending FinishInUse();
  Ending BringIntoUse();
  bool TakeIntoUseOnce();
  bool IsInUse();
  std::string ProtectChip();
  void RemoveMark();

  void ReadImageLength();
  void AddCause(const std::string& cause);
  [[nodiscard]] bool HoldsImage() const;
  [[nodiscard]] bool IsDax() const { return request_.target == "dax"; }
  [[nodiscard]] Ending Stopped();
  [[nodiscard]] Ending NotProven() const;
  [[nodiscard]] Ending PowerCycle(const std::string& why) const;
  [[nodiscard]] std::string WhatTheFlashHolds() const;

  UpdateRequest request_;
  ProgramInterface& program_;
  std::function<std::string()> checkTransferLimit_;
  UpdateResult update_;
  bool isAlone_ = false;   ///< has the lock
  ModuleReading reading_;  ///< the last one of the image's length; its contents can be longer
  DoneLine doneAtStart_ = DoneLine::kUnknown;
  bool isMarked_ = false;                          ///< by this run or an earlier one
  std::optional<std::uint32_t> pageThatDiffered_;  ///< after the write before
  std::string lastCause_;
  std::string whyNotInUse_;
};

}  // namespace companion
