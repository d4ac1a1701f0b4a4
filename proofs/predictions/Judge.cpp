#include "proofs/predictions/Judge.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include "companion/image/Decision.h"
#include "companion/image/ImageFile.h"
#include "tests/e2e/VirtualInstrument.h"

namespace predictions {

namespace {

using companion::ImageFile;
using companion::Prediction;
using program_test::Outcome;
using program_test::VirtualInstrument;

constexpr std::size_t kSectorBytes = std::size_t{64} * 1024;
constexpr std::uint8_t kErased = 0xFF;
constexpr int kProgramFailed = 6;

Bytes PaddedTo(std::size_t count, Bytes bytes) {
  bytes.resize(std::max(bytes.size(), count), kErased);
  return bytes;
}

/// @return whether the flash is erased and written, by the prediction
bool IsWritten(const Prediction& prediction) {
  return prediction.end == Prediction::End::kExit &&
         (prediction.exitCode == 0 || prediction.exitCode == kProgramFailed);
}

/// What the whole flash is to hold after the run.
Bytes ExpectedFlash(const Prediction& prediction, const ImageFile& image, Bytes before) {
  Bytes flash = PaddedTo(companion::kFlashBytes, std::move(before));
  if (IsWritten(prediction)) {
    const std::size_t sectors = (image.bytes.size() + kSectorBytes - 1) / kSectorBytes;
    std::fill_n(flash.begin(), sectors * kSectorBytes, kErased);
    std::copy(image.bytes.begin(), image.bytes.end(), flash.begin());
  }
  return flash;
}

int ExpectedExitCode(const Prediction& prediction) {
  switch (prediction.end) {
    case Prediction::End::kExit:
    case Prediction::End::kException:
      return prediction.exitCode;
    case Prediction::End::kNever:
      return program_test::kOutOfTime;
    case Prediction::End::kUnknown:
      break;
  }
  return -1;  // no triple is so large
}

std::string Difference(const Prediction& prediction,
                       const Outcome& outcome,
                       const Bytes& expected,
                       const Bytes& flash) {
  if (outcome.exitCode != ExpectedExitCode(prediction)) {
    return "it ended with " + std::to_string(outcome.exitCode) + ", standard error '" +
           outcome.err + "'";
  }
  if (flash != expected) {
    const auto at = std::mismatch(expected.begin(), expected.end(), flash.begin(), flash.end());
    return "the flash holds something else at " + std::to_string(at.first - expected.begin());
  }
  return "";
}

}  // namespace

Comparison Compare(const Triple& triple) {
  VirtualInstrument instrument;
  instrument.WriteFile("image.bin", triple.file);
  instrument.WriteFile("flash.bin", triple.flash);
  const companion::ImageReading reading =
      companion::ReadImageFile(instrument.File("image.bin").string());
  if (!reading.image) {
    throw std::runtime_error(reading.refusal);
  }
  Comparison result;
  result.prediction =
      companion::Predict(*reading.image,
                         triple.target,
                         PaddedTo(companion::DumpedHeadBytes(triple.target), triple.flash));
  // DONE stays high: whether an FPGA starts from the image is not predicted.
  const std::string slot = std::to_string(triple.slot);
  instrument.Option({"--module",
                     triple.target + "@" + slot + ",chip=" + triple.chip +
                         ",done=high,flash=" + instrument.File("flash.bin").string()});
  const std::vector<std::string> words = {triple.target, "-sf", slot, "image.bin"};
  // Any other run has the time that the instrument gives it: with sanitizers it takes much more.
  const bool isEndless = result.prediction.end == Prediction::End::kNever;
  const Outcome outcome = isEndless ? instrument.RunLimited(words) : instrument.Run(words);
  result.wrong = Difference(result.prediction,
                            outcome,
                            ExpectedFlash(result.prediction, *reading.image, triple.flash),
                            PaddedTo(companion::kFlashBytes, instrument.ReadFile("flash.bin")));
  return result;
}

}  // namespace predictions
