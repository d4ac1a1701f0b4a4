#include "companion/update/UpdateSequence.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "companion/image/Decision.h"

namespace companion {

namespace {

/// Name of the image in the work folder.
constexpr const char* kImageName = "image.bin";
/// Exit code of `tarnwick` after all its steps.
constexpr int kProgrammed = 0;
/// Exit code of `tarnwick` when it could not erase the flash.
constexpr int kNotErased = 3;
/// The first lets what has begun come to its end.
constexpr int kSignalsThatEnd = 2;

bool EqualHex(std::string_view left, std::string_view right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(), [](char l, char r) {
    return std::tolower(static_cast<unsigned char>(l)) ==
           std::tolower(static_cast<unsigned char>(r));
  });
}

std::string Times(unsigned count) {
  return std::to_string(count) + (count == 1 ? " attempt" : " attempts");
}

/// "ended with 7", for a reader
std::string TextOf(const ProgramRun& run) {
  if (!run.problem.empty()) {
    return "tarnwick could not be started: " + run.problem;
  }
  if (run.timedOut) {
    return "tarnwick was ended: it had used up its time (give it more with --timeout)";
  }
  if (run.exitCode) {
    return "tarnwick ended with " + std::to_string(*run.exitCode);
  }
  return "tarnwick was ended by signal " + std::to_string(run.signal);
}

/// Whether the endpoint is as it must be, or is not to be seen.
bool MayBeEnabled(Endpoint endpoint) {
  return endpoint == Endpoint::kNone || endpoint == Endpoint::kNotListed ||
         endpoint == Endpoint::kEnabled;
}

}  // namespace

UpdateSequence::UpdateSequence(UpdateRequest request,
                               Services services,
                               ProgramInterface& program,
                               std::function<std::string()> checkTransferLimit)
    : Sequence(std::move(services), update_, kSignalsThatEnd),
      request_(std::move(request)),
      program_(program),
      checkTransferLimit_(std::move(checkTransferLimit)) {
  update_.target = request_.target;
  update_.slot = request_.slot;
  update_.image = FactsOf(request_.image, request_.target);
}

void UpdateSequence::Signalled(int signal) {
  ++signals_;
  if (signals_ > kSignalsThatEnd) {
    return;
  }
  if (signals_ == kSignalsThatEnd) {
    Note("stopped by " + NameOfSignal(signal) +
         ": what runs is ended as soon as the module can be given back");
    program_.Kill();
    services_.module.Stop();
    return;
  }
  Note(NameOfSignal(signal) +
       " asks to stop: what has begun is brought to its end; a second signal ends it early");
}

UpdateResult UpdateSequence::Run() {
  const std::chrono::milliseconds begin = services_.now();
  Ending ending = RunSteps();
  update_.exit = ending.exit;
  update_.verdict = std::move(ending.verdict);
  update_.signals = signals_;
  update_.took = services_.now() - begin;
  return update_;
}

Ending UpdateSequence::RunSteps() {
  if (auto end = Preflight()) {
    return *end;
  }
  if (auto end = TakeLock("update", request_.waitSeconds)) {
    return *end;
  }
  return RunLocked();
}

// --- 1: preflight, and 3: the work folder -------------------------------------------------------

std::optional<Ending> UpdateSequence::Preflight() {
  if (auto end = CheckImage()) {
    return end;
  }
  if (const std::string why = checkTransferLimit_(); !why.empty()) {
    return Ending{ExitCode::kRefused, "Refused: " + why + "."};
  }
  if (auto end = FindModule()) {
    return end;
  }
  const std::string why = program_.Check();
  if (auto end = StoppedBeforeReading()) {
    return end;
  }
  if (!why.empty()) {
    return Ending{ExitCode::kRefused, "Refused: " + why + ". Name tarnwick with --program."};
  }
  return std::nullopt;  // after one signal, too: the flash may hold the image
}

std::optional<Ending> UpdateSequence::CheckImage() {
  const ImageFile& image = request_.image;
  if (const auto why = UnfitReason(image, request_.target, request_.force)) {
    return Ending{ExitCode::kRefused, "Refused: " + WhyUnfit(request_.target, *why)};
  }
  if (!request_.sha256.empty() && !EqualHex(request_.sha256, image.fileSha256)) {
    return Ending{ExitCode::kRefused,
                  "Refused: the SHA-256 of the file is " + image.fileSha256 +
                      ", not that of --sha256. Get the file again."};
  }
  return std::nullopt;
}

Ending UpdateSequence::RunLocked() {
  isAlone_ = true;
  const std::string why = services_.state.MakeWorkFolder(kImageName, request_.image.bytes);
  Ending ending = why.empty() ? RunInWorkFolder()
                              : Ending{ExitCode::kRefused,
                                       "Refused: " + why + ". Make room there, or choose --state."};
  if (const std::string left = services_.state.RemoveWorkFolder(); !left.empty()) {
    Note("the work folder is left: " + left);
  }
  return ending;
}

Ending UpdateSequence::RunInWorkFolder() {
  isMarked_ = services_.state.IsMarked(request_.slot);
  update_.unfinished = isMarked_;
  if (auto end = ProveFlash()) {
    if (!MustEndNow()) {
      ProtectChip();
    }
    return *end;
  }
  update_.provenSha256 = request_.image.sha256;
  Ending ending = IsDax() ? FinishDax() : FinishInUse();
  if (MustEndNow() && ending.exit != ExitCode::kDone) {
    return Stopped();
  }
  ProtectChip();
  return ending;
}

// --- 4: read ------------------------------------------------------------------------------------

void UpdateSequence::ReadImageLength() {
  const bool isFirst = update_.readings.empty();
  reading_ = Read(request_.image.bytes.size(), request_.image.bytes);
  if (isFirst) {
    doneAtStart_ = reading_.done;
  }
  const bool isCertain = WhyUncertain(reading_).empty();
  if (isCertain && !update_.written && !update_.stampBefore) {
    update_.stampBefore = StampText(request_.target, reading_.contents);
  }
  if (!isCertain) {
    update_.holds = update_.written ? FlashHolds::kNotKnown : FlashHolds::kNotRead;
  } else if (!reading_.difference) {
    update_.holds = FlashHolds::kImage;
  } else {
    update_.holds = update_.written ? FlashHolds::kNotTheImage : FlashHolds::kOther;
  }
}

bool UpdateSequence::HoldsImage() const { return update_.holds == FlashHolds::kImage; }

/// Reads, and writes until the flash holds the image.
/// @return how the command ends when it does not; nothing: it does
std::optional<Ending> UpdateSequence::ProveFlash() {
  ReadImageLength();
  for (;;) {
    if (auto end = JudgeFlash()) {
      return end;
    }
    if (HoldsImage()) {
      return std::nullopt;
    }
    ++update_.attempts;
    if (WhyUncertain(reading_).empty()) {
      if (auto end = WriteOnce()) {
        return end;
      }
    }
    if (MustEndNow()) {
      return Stopped();
    }
    ReadImageLength();
    if (update_.written && !HoldsImage()) {
      AddCause(CauseOf(reading_));
    }
  }
}

/// What a reading allows.
/// @return how the command ends; nothing: the flash holds the image, or an attempt may begin
std::optional<Ending> UpdateSequence::JudgeFlash() {
  if (MustEndNow()) {
    return Stopped();
  }
  if (HoldsImage()) {
    return std::nullopt;
  }
  if (!update_.written) {
    if (const std::string why = WhyUncertain(reading_); !why.empty()) {
      return Ending{
          ExitCode::kUnreachable,
          "The module cannot be read for certain: " + why + ". The flash was not changed."};
    }
    if (auto end = CheckFormatThere()) {
      return end;
    }
    if (signals_ > 0) {
      return Stopped();
    }
  }
  if (update_.attempts == request_.attempts || signals_ > 0) {
    return NotProven();
  }
  return std::nullopt;
}

/// A module of another type can answer at the same address. A mark does not overrule that: it outlives
/// an update whose image never came into use, and the module can have been exchanged since.
std::optional<Ending> UpdateSequence::CheckFormatThere() {
  if (request_.force) {
    return std::nullopt;
  }
  if (!ReadHead()) {
    return HeadNotCertain();
  }
  const ImageFormat there = FormatIn(reading_.contents);
  if (there == ImageFormat::kNeither || there == FormatOf(request_.target)) {
    return std::nullopt;
  }
  return Ending{ExitCode::kRefused,
                "Refused: the flash now holds a " + std::string(NameOf(there)) + ", and a " +
                    request_.target + " takes a " + std::string(NameOf(FormatOf(request_.target))) +
                    ". Check TARGET and MODULE; --force overrules this."};
}

// --- 5: mark, and a head that differs -----------------------------------------------------------

/// @return how the command ends when there is no mark, and nothing has been changed; nothing: go on
std::optional<Ending> UpdateSequence::SetMark() {
  if (isMarked_) {
    return std::nullopt;
  }
  const std::string why =
      services_.state.Mark(request_.slot, request_.target + " " + request_.image.sha256 + "\n");
  if (!why.empty()) {
    return Ending{ExitCode::kRefused,
                  "Refused: " + why + ". Nothing was changed. Make room there, or choose --state."};
  }
  isMarked_ = true;
  return std::nullopt;
}

/// Has the last reading's contents reach as far as `tarnwick` dumps, and as shows their format, where
/// the image is shorter.
/// @return false when they cannot be read for certain
bool UpdateSequence::ReadHead() {
  const std::size_t headBytes = std::max(DumpedHeadBytes(request_.target), FormatBytes());
  if (reading_.contents.size() >= headBytes) {
    return true;
  }
  ModuleReading head = Read(headBytes, {});
  if (head.problem || head.unsteadyAddress || head.contents.size() < headBytes) {
    return false;
  }
  reading_.contents = std::move(head.contents);
  return true;
}

Ending UpdateSequence::HeadNotCertain() {
  return {ExitCode::kUnreachable,
          "The start of the flash cannot be read for certain. It was not changed."};
}

/// `tarnwick` takes its decision from its own dump. When that goes wrong, the reading after it shows
/// that nothing was written.
bool UpdateSequence::WouldWrite(std::span<const std::uint8_t> head) {
  return !head.empty() && !FindsUpToDate(request_.target, head, request_.image.bytes);
}

/// Over a head with the image's stamp `tarnwick` would write nothing.
/// @return true when it will write
bool UpdateSequence::MakeHeadDiffer() {
  Note("the start of the flash is made to differ: tarnwick takes it for up to date");
  std::vector<std::uint8_t> expected = PageThatDiffers(request_.target, request_.image.bytes);
  update_.written = true;
  update_.holds = FlashHolds::kNotKnown;
  ++update_.headWrites;
  const Problem problem = services_.module.WriteHead(result_.names, expected);
  services_.fetchSignals();
  if (problem) {
    AddCause("the start of the flash could not be made to differ: " + problem.text);
  }
  if (MustEndNow()) {
    return false;
  }
  expected.resize(std::max(expected.size(), DumpedHeadBytes(request_.target)), kErased);
  const ModuleReading head = Read(expected.size(), expected);
  return WhyUncertain(head).empty() && WouldWrite(head.contents);
}

/// @return how the command ends when nothing could be begun; nothing: the flash is to be read
std::optional<Ending> UpdateSequence::WriteOnce() {
  const bool isHeadRead = ReadHead();
  services_.fetchSignals();
  if (MustEndNow() || (signals_ > 0 && !update_.written)) {
    return Stopped();
  }
  if (!isHeadRead) {
    return update_.written ? std::nullopt : std::optional(HeadNotCertain());
  }
  if (auto end = SetMark()) {
    return end;
  }
  if (WouldWrite(reading_.contents) || MakeHeadDiffer()) {
    return RunProgram();
  }
  return std::nullopt;
}

// --- 6: tarnwick writes -------------------------------------------------------------------------

/// @return how the command ends when nothing was changed; nothing: the flash is to be read
std::optional<Ending> UpdateSequence::RunProgram() {
  ProgramRun run = program_.Update(request_.target, request_.slot, kImageName);
  services_.fetchSignals();
  const bool isStarted = run.problem.empty();
  const bool isWhole = run.exitCode == kProgrammed;
  const std::string text = TextOf(run);
  if (!isWhole) {
    Note(text);
  }
  update_.runs.push_back({.attempt = update_.attempts, .run = std::move(run)});
  if (!isStarted) {
    return update_.written ? std::nullopt : std::optional(NotBegun(text));
  }
  update_.written = true;
  update_.holds = FlashHolds::kNotKnown;
  if (isWhole) {
    return std::nullopt;
  }
  // It leaves lines, selector and `qspi_prg` as they are when it is ended half-way.
  if (const Problem left = services_.module.GiveBack(result_.names)) {
    Note("not given back: " + left.text);
  }
  return std::nullopt;
}

/// The mark is there already. Only an earlier update needs it.
Ending UpdateSequence::NotBegun(const std::string& why) {
  if (!update_.unfinished) {
    RemoveMark();
  }
  if (signals_ > 0) {
    return Stopped();
  }
  return {ExitCode::kRefused,
          "Refused: " + why + ". The flash was not changed. Name tarnwick with --program."};
}

/// Why the flash does not hold the image after a write, where that shows.
std::string UpdateSequence::CauseOf(const ModuleReading& reading) {
  std::string difference = TextOfDifference(reading);
  if (update_.runs.empty() || update_.runs.back().attempt != update_.attempts ||
      update_.runs.back().run.exitCode == kProgrammed) {
    return difference;
  }
  return TextOf(update_.runs.back().run) + "; " + difference;
}

/// What the reading after a write shows.
std::string UpdateSequence::TextOfDifference(const ModuleReading& reading) {
  if (std::string why = WhyUncertain(reading); !why.empty()) {
    pageThatDiffered_.reset();
    return why;
  }
  const auto page = static_cast<std::uint32_t>(reading.difference->firstAddress / kPageBytes);
  const bool isSamePage = pageThatDiffered_ == page;
  pageThatDiffered_ = page;
  std::string cause = "the flash " + TextOf(*reading.difference);
  // `tarnwick` locks a lockable chip in the end: only when it could not erase does that tell why.
  const bool couldNotErase =
      !update_.runs.empty() && update_.runs.back().run.exitCode == kNotErased;
  if (reading.chip.IsProtected() && (!reading.chip.IsLockable() || couldNotErase)) {
    cause += "; the chip is protected against writing";
  }
  if (isSamePage) {
    cause += "; the same page as after the attempt before";
  }
  return cause;
}

void UpdateSequence::AddCause(const std::string& cause) {
  lastCause_ = cause;
  const std::string line = "attempt " + std::to_string(update_.attempts) + ": " + cause;
  update_.causes.push_back(line);
  Note(line);
}

// --- 7: into use --------------------------------------------------------------------------------

/// A dax takes its image into use at its next power-on; nothing resets it here.
Ending UpdateSequence::FinishDax() {
  RemoveMark();
  if (doneAtStart_ == DoneLine::kHigh && reading_.doneAfter == DoneLine::kLow) {
    return PowerCycle("DONE was high and is low");
  }
  if (!notGivenBack_.empty()) {
    return PowerCycle("the module could not be given back: " + notGivenBack_);
  }
  update_.inUse = InUse::kAtPowerOn;
  return {ExitCode::kDone,
          std::string("The flash holds the image. ") +
              (update_.written ? "" : "It was not written. ") +
              "The module uses it from its next power-on."};
}

/// @return true when the module need not be touched to use the image
bool UpdateSequence::IsInUse() {
  const bool isUp =
      reading_.done == DoneLine::kHigh && reading_.doneAfter == DoneLine::kHigh &&
      (reading_.endpoint == Endpoint::kNone || reading_.endpoint == Endpoint::kEnabled);
  return !update_.written && !isMarked_ && !request_.restart && isUp && notGivenBack_.empty();
}

Ending UpdateSequence::FinishInUse() {
  if (IsInUse()) {
    update_.inUse = InUse::kFoundSo;
    return {ExitCode::kDone, "The flash holds the image, and it is in use. Nothing was written."};
  }
  // Also where nothing is written: a reset that is cut short is finished by the next update.
  if (auto end = SetMark()) {
    return *end;
  }
  return BringIntoUse();
}

/// The flash is proven: it is not written again for the sake of a reset.
Ending UpdateSequence::BringIntoUse() {
  for (unsigned attempt = 1; attempt <= request_.attempts; ++attempt) {
    if (TakeIntoUseOnce()) {
      update_.inUse = InUse::kTaken;
      RemoveMark();
      return {ExitCode::kDone,
              std::string("The flash holds the image, and it was taken into use.") +
                  (update_.written ? "" : " It was not written.")};
    }
    if (signals_ > 0) {
      break;
    }
  }
  return PowerCycle(whyNotInUse_);
}

bool UpdateSequence::TakeIntoUseOnce() {
  const std::chrono::milliseconds begin = services_.now();
  const IntoUse found = services_.module.TakeIntoUse(result_.names);
  update_.intoUse.push_back({.took = services_.now() - begin, .found = found});
  notGivenBack_ = GiveBackAgain(found.notGivenBack);
  services_.fetchSignals();
  whyNotInUse_.clear();
  if (found.problem) {
    whyNotInUse_ = found.problem.text;
  } else if (!found.seenLow) {
    whyNotInUse_ = "DONE did not fall in reset";
  } else if (found.done != DoneLine::kHigh) {
    whyNotInUse_ = "DONE does not rise";
  } else if (!MayBeEnabled(found.endpoint)) {
    whyNotInUse_ = "the PCIe endpoint is not enabled";
  } else if (!notGivenBack_.empty()) {
    whyNotInUse_ = "the module could not be given back: " + notGivenBack_;
  }
  if (!whyNotInUse_.empty()) {
    Note("not in use: " + whyNotInUse_);
  }
  return whyNotInUse_.empty();
}

void UpdateSequence::RemoveMark() {
  if (!isMarked_) {
    return;
  }
  if (const std::string why = services_.state.Unmark(request_.slot); !why.empty()) {
    Note("the mark of an unfinished update is left, so the next update resets the module: " + why);
    return;
  }
  isMarked_ = false;
}

// --- 8: protection ------------------------------------------------------------------------------

/// Protects a lockable chip that the last reading does not show as protected. A chip of a module that
/// is neither written nor holds the image is not touched.
/// @return why that could not be done; empty when there is nothing left to do
std::string UpdateSequence::ProtectChip() {
  const bool isRead = !reading_.problem;
  if ((!update_.written && !HoldsImage()) || (isRead && !reading_.chip.IsLockable())) {
    return "";
  }
  // `tarnwick` unlocks it before it writes, so what was read before that says nothing.
  const bool isReadSince = isRead && update_.holds != FlashHolds::kNotKnown;
  if (isReadSince && reading_.chip.IsLockedWhole()) {
    update_.lockedWhole = true;
    return "";
  }
  const Problem problem = services_.module.Lock(result_.names);
  update_.lockedWhole = !problem;
  if (problem) {
    Note("the chip could not be protected: " + problem.text);
  }
  return problem.text;
}

// --- 9: how it ends -----------------------------------------------------------------------------

std::string UpdateSequence::WhatTheFlashHolds() const {
  switch (update_.holds) {
    case FlashHolds::kNotRead:
      return "The flash was not changed.";
    case FlashHolds::kOther:
      return "The flash was not changed; it does not hold the image.";
    case FlashHolds::kImage:
      return update_.written ? "The flash holds the image; whether it is in use is not known."
                             : "The flash holds the image; it was not changed.";
    case FlashHolds::kNotTheImage:
      return "The flash was changed; it holds part of the image at most. Update again.";
    case FlashHolds::kNotKnown:
      return "The flash may have been changed; what it holds now is not known. Update again.";
  }
  return "";  // GCOVR_EXCL_LINE: every value has a case
}

Ending UpdateSequence::Stopped() {
  std::string verdict = "Stopped by a signal. " + WhatTheFlashHolds();
  if (MustEndNow() && isAlone_) {
    if (const Problem left = services_.module.GiveBack(result_.names)) {
      Note("not given back: " + left.text);
    }
    if (update_.written && !ProtectChip().empty()) {
      verdict += " The chip may be left without its protection.";
    }
  }
  return {ExitCode::kStopped, verdict};
}

Ending UpdateSequence::NotProven() const {
  return {ExitCode::kNot,
          "Not proven after " + Times(update_.attempts) + ": " + lastCause_ + ". Update again."};
}

Ending UpdateSequence::PowerCycle(const std::string& why) const {
  return {ExitCode::kPowerCycle,
          "The flash holds the image, but it is not in use: " + why +
              ". Switch the module off and on."};
}

}  // namespace companion
