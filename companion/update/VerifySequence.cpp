#include "companion/update/VerifySequence.h"

#include <utility>

#include "companion/image/Decision.h"

namespace companion {

VerifySequence::VerifySequence(VerifyRequest request, Services services)
    : Sequence(std::move(services), verify_, 1), request_(std::move(request)) {
  verify_.target = request_.target;
  verify_.slot = request_.slot;
  verify_.image = FactsOf(request_.image, request_.target);
}

void VerifySequence::Signalled(int signal) { StopReading(signal); }

VerifyResult VerifySequence::Run() {
  const std::chrono::milliseconds begin = services_.now();
  Ending ending = RunSteps();
  verify_.exit = ending.exit;
  verify_.verdict = std::move(ending.verdict);
  verify_.took = services_.now() - begin;
  return verify_;
}

Ending VerifySequence::RunSteps() {
  // An image of another format may be compared: it differs.
  if (const auto why = UnfitReason(request_.image, request_.target, true)) {
    return {ExitCode::kRefused, "Refused: " + WhyUnfit(request_.target, *why)};
  }
  if (auto end = FindModule()) {
    return *end;
  }
  if (auto end = TakeLock("verify", request_.waitSeconds)) {
    return *end;
  }
  verify_.unfinished = services_.state.IsMarked(request_.slot);
  return Compare();
}

Ending VerifySequence::Compare() {
  const ModuleReading reading = Read(request_.image.bytes.size(), request_.image.bytes);
  if (auto end = JudgeReading(reading)) {
    return *end;
  }
  verify_.stampThere = StampText(request_.target, reading.contents);
  verify_.equal = !reading.difference;
  if (reading.difference) {
    return {ExitCode::kNot, "The flash " + TextOf(*reading.difference) + "."};
  }
  return {ExitCode::kDone, "The flash holds the image."};
}

}  // namespace companion
