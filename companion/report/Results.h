#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "companion/module/ModuleInterface.h"
#include "companion/process/ProgramInterface.h"
#include "companion/report/ExitCode.h"

namespace companion {

/// What is known of an image file once it has been examined.
struct ImageFacts {
  std::string path;
  std::uint64_t fileBytes = 0;
  std::string fileSha256;            ///< of the file as it is
  std::size_t bytes = 0;             ///< of the image itself, decompressed
  std::string sha256;                ///< of the image itself
  std::optional<std::string> stamp;  ///< build stamp or date, as StampText()
};

/// One reading of the module.
struct ReadingFacts {
  std::size_t bytes = 0;  ///< how many were asked for, from address 0
  std::chrono::milliseconds took{0};
  ModuleReading found;  ///< without its contents
};

/// What all commands with a module report.
struct ModuleResult {
  ExitCode exit = ExitCode::kRefused;
  std::string verdict;  ///< one line
  std::string target;
  unsigned slot = 0;
  ModuleNames names;
  std::optional<ImageFacts> image;
  std::vector<ReadingFacts> readings;
  bool unfinished = false;         ///< an earlier update of the slot had not been finished
  std::vector<std::string> notes;  ///< the diagnostics, one line each
  std::chrono::milliseconds took{0};
};

/// What `read` reports.
struct ReadResult : ModuleResult {
  std::string file;
  std::size_t bytes = 0;  ///< read, and stored with exit code 0
  std::string sha256;     ///< of them; empty unless they are certain
};

/// What `verify` reports.
struct VerifyResult : ModuleResult {
  std::optional<bool> equal;              ///< nothing: not known
  std::optional<std::string> stampThere;  ///< build stamp or date in the flash
};

/// What the flash is known to hold, from address 0 in the image's length.
enum class FlashHolds {
  kNotRead,      ///< not read for certain; this run has changed nothing
  kOther,        ///< read for certain: not the image; this run has changed nothing
  kImage,        ///< read for certain: the image
  kNotTheImage,  ///< read for certain: not the image, or a part of it; this run has changed it
  kNotKnown,     ///< this run has changed it, and has not read it for certain since
};

/// Whether the module uses the image that its flash holds.
enum class InUse {
  kNo,
  kFoundSo,    ///< it did already
  kTaken,      ///< it was reset, and configured itself from the flash
  kAtPowerOn,  ///< a dax: at its next power-on
};

/// One attempt to take the image into use.
struct IntoUseFacts {
  std::chrono::milliseconds took{0};
  IntoUse found;
};

/// One run of `tarnwick`, and the attempt that it belongs to.
struct RunFacts {
  unsigned attempt = 0;  ///< from 1
  ProgramRun run;
};

/// What `update` reports.
struct UpdateResult : ModuleResult {
  FlashHolds holds = FlashHolds::kNotRead;
  InUse inUse = InUse::kNo;
  std::string provenSha256;  ///< of what the flash was read to hold, when it is the image
  bool written = false;      ///< this run has changed, or may have changed, the flash
  unsigned attempts = 0;     ///< to write that were begun
  std::optional<std::string> stampBefore;  ///< in the flash, at the first certain reading
  unsigned headWrites = 0;                 ///< how often the start of the flash was made to differ
  std::vector<std::string> causes;         ///< why the flash did not hold the image after a write
  std::vector<RunFacts> runs;
  std::vector<IntoUseFacts> intoUse;
  std::optional<bool> lockedWhole;  ///< of a lockable chip, at the end
  int signals = 0;                  ///< that asked it to stop
};

}  // namespace companion
