#include "companion/update/Sequence.h"

#include <string.h>

#include <algorithm>
#include <utility>

#include "companion/image/Decision.h"
#include "companion/image/Hex.h"

namespace companion {

namespace {

constexpr const char* kLooksSilent =
    "the whole flash reads as zeros, as a line does that nobody drives";
constexpr std::size_t kLongestName = 255;
constexpr unsigned char kFirstPrintable = 0x20;
constexpr unsigned char kDelete = 0x7F;

bool IsControl(unsigned char character) {
  return character < kFirstPrintable || character == kDelete;
}

}  // namespace

ImageFacts FactsOf(const ImageFile& image, std::string_view target) {
  return {.path = image.path,
          .fileBytes = image.fileBytes,
          .fileSha256 = image.fileSha256,
          .bytes = image.bytes.size(),
          .sha256 = image.sha256,
          .stamp = StampText(target, image.bytes)};
}  // GCOVR_EXCL_BR_LINE: clean-up after an exception

std::string WhyUnfit(std::string_view target, const std::string& why) {
  return "the image is unfit for a " + std::string(target) + ": " + why +
         ". See tarnwickctl image.";
}

std::string WhyNotAName(std::string_view name) {
  if (name.empty()) {
    return "is empty";
  }
  if (name.size() > kLongestName) {
    return "is longer than " + std::to_string(kLongestName) + " bytes";
  }
  if (name.find('/') != std::string_view::npos) {
    return "contains '/'";
  }
  if (name == "." || name == "..") {
    return "is the name of a folder";
  }
  if (std::any_of(name.begin(), name.end(), [](char character) {
        return IsControl(static_cast<unsigned char>(character));
      })) {
    return "contains a control character";
  }
  return "";
}

std::string NameOfSignal(int signal) {
  const char* const name = ::sigabbrev_np(signal);
  return name == nullptr ? "signal " + std::to_string(signal) : std::string("SIG") + name;
}

std::string TextOf(const Difference& difference) {
  constexpr int kDigits = 2;
  return "differs from address " + HexAddress(difference.firstAddress) + " on (" +
         Hex(difference.found, kDigits) + " instead of " + Hex(difference.expected, kDigits) +
         "), in " + std::to_string(difference.pages) +
         (difference.pages == 1 ? " page" : " pages") + " of 256 bytes";
}

Sequence::Sequence(Services services, ModuleResult& result, int signalsThatEnd)
    : services_(std::move(services)), result_(result), signalsThatEnd_(signalsThatEnd) {
  services_.module.OnPsMode(
      [this] { Note("DONE has been low for 10 s: the FPGA goes through PS mode"); });
}

Sequence::~Sequence() { services_.module.OnPsMode({}); }

void Sequence::Note(const std::string& line) {
  result_.notes.push_back(line);
  services_.say(line);
}

std::optional<Ending> Sequence::FindModule() {
  ModuleNames& names = result_.names;
  const Problem problem = services_.module.Find(names);
  if (auto end = StoppedBeforeReading()) {
    return end;
  }
  if (problem) {
    return Ending{ExitCode::kUnreachable,
                  "The module cannot be found: " + problem.text +
                      ". The flash was not changed. Check the platform's services."};
  }
  if (!names.populated) {
    return Ending{ExitCode::kRefused,
                  "Refused: slot " + std::to_string(result_.slot) +
                      " is not in the inventory. Check MODULE, and that it is switched on."};
  }
  for (const auto& [what, name] :
       {std::pair("I2C bus", &names.i2cBus), std::pair("SPI device", &names.spiDev)}) {
    if (name->empty()) {
      return Ending{ExitCode::kUnreachable,
                    std::string("The module cannot be reached: the bus names no ") + what +
                        ". The flash was not changed."};
    }
    if (const std::string why = WhyNotAName(*name); !why.empty()) {
      return Ending{ExitCode::kRefused,
                    std::string("Refused: the name of the ") + what +
                        " that the bus gives is not used: it " + why + "."};
    }
  }
  return std::nullopt;
}

std::optional<Ending> Sequence::TakeLock(const std::string& command, unsigned waitSeconds) {
  const StateInterface::Locking locking =
      services_.state.Lock(command + " " + result_.target + " " + std::to_string(result_.slot),
                           signals_ > 0 ? 0 : waitSeconds);
  if (locking.locked) {
    // The platform can have been started anew while the lock was waited for, with other names.
    return FindModule();
  }
  services_.fetchSignals();
  if (signals_ > 0) {
    return Ending{ExitCode::kStopped,
                  "Stopped by a signal. The flash was neither read nor changed."};
  }
  if (!locking.problem.empty()) {
    return Ending{ExitCode::kRefused,
                  "Refused: " + locking.problem + ". Choose another folder with --state."};
  }
  return Ending{ExitCode::kLocked,
                "Locked by " + locking.holder + ". Try again later, or wait with --wait."};
}

ModuleReading Sequence::Read(std::size_t length, std::span<const std::uint8_t> expected) {
  const std::chrono::milliseconds begin = services_.now();
  ModuleReading reading =
      services_.module.Read(result_.names, length, expected, services_.progress);
  ReadingFacts facts = {.bytes = length, .took = services_.now() - begin};
  std::vector<std::uint8_t> contents = std::move(reading.contents);
  reading.contents.clear();
  facts.found = reading;
  result_.readings.push_back(std::move(facts));
  reading.contents = std::move(contents);
  notGivenBack_ = GiveBackAgain(reading.notGivenBack);
  services_.fetchSignals();
  return reading;
}

std::string Sequence::GiveBackAgain(const Problem& before) {
  if (!before) {
    return "";
  }
  Note("not given back: " + before.text + "; it is tried again");
  const Problem after = services_.module.GiveBack(result_.names);
  if (after) {
    Note("not given back: " + after.text);
  }
  return after.text;
}

void Sequence::StopReading(int signal) {
  ++signals_;
  if (signals_ == 1) {
    Note("stopped by " + NameOfSignal(signal) + ": the module is given back");
    services_.module.Stop();
  }
}

std::optional<Ending> Sequence::StoppedBeforeReading() {
  services_.fetchSignals();
  if (!MustEndNow()) {
    return std::nullopt;
  }
  return Ending{ExitCode::kStopped, "Stopped by a signal. The flash was not changed."};
}

std::optional<Ending> Sequence::JudgeReading(const ModuleReading& reading) {
  std::string why = WhyUncertain(reading);
  if (why.empty() && reading.looksSilent) {
    why = kLooksSilent;
  }
  if (!why.empty() && signals_ > 0) {
    return StoppedBeforeReading();
  }
  if (!why.empty()) {
    return Ending{ExitCode::kUnreachable,
                  "The module cannot be read for certain: " + why + ". The flash was not changed."};
  }
  if (!notGivenBack_.empty()) {
    return Ending{ExitCode::kUnreachable,
                  "The module was read, but could not be given back: " + notGivenBack_ +
                      ". The flash was not changed. Switch the module off and on."};
  }
  return std::nullopt;
}

std::string Sequence::WhyUncertain(const ModuleReading& reading) {
  if (reading.problem) {
    return reading.problem.text;
  }
  if (reading.unsteadyAddress) {
    return "the flash reads differently each time at address " +
           HexAddress(*reading.unsteadyAddress) + " (lower SPI_CLOCK_SPEED)";
  }
  // That it is not the image is certain all the same, and `tarnwick` may write it.
  if (reading.looksSilent && !reading.difference) {
    return kLooksSilent;
  }
  return "";
}

}  // namespace companion
