#include "companion/update/ReadSequence.h"

#include <utility>

namespace companion {

ReadSequence::ReadSequence(ReadRequest request, Services services, OutputServices output)
    : Sequence(std::move(services), read_, 1),
      request_(std::move(request)),
      output_(std::move(output)) {
  read_.target = request_.target;
  read_.slot = request_.slot;
  read_.file = request_.file;
}

void ReadSequence::Signalled(int signal) { StopReading(signal); }

ReadResult ReadSequence::Run() {
  const std::chrono::milliseconds begin = services_.now();
  Ending ending = RunSteps();
  read_.exit = ending.exit;
  read_.verdict = std::move(ending.verdict);
  read_.took = services_.now() - begin;
  return read_;
}

Ending ReadSequence::RunSteps() {
  if (const std::string why = output_.prepare(); !why.empty()) {
    return {ExitCode::kRefused, "Refused: " + why};
  }
  if (auto end = FindModule()) {
    return *end;
  }
  if (auto end = TakeLock("read", request_.waitSeconds)) {
    return *end;
  }
  read_.unfinished = services_.state.IsMarked(request_.slot);
  return ReadAndStore();
}

Ending ReadSequence::ReadAndStore() {
  const ModuleReading reading = Read(request_.length, {});
  if (auto end = JudgeReading(reading)) {
    return *end;
  }
  read_.bytes = reading.contents.size();
  read_.sha256 = Sha256(reading.contents.data(), reading.contents.size());
  if (const std::string why = output_.store(reading.contents); !why.empty()) {
    return {ExitCode::kRefused, "The flash was read, but not stored: " + why};
  }
  return {ExitCode::kDone,
          "Read: " + std::to_string(read_.bytes) + " bytes, SHA-256 " + read_.sha256 + "."};
}

}  // namespace companion
