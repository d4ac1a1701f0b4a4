#include "companion/report/TextReport.h"

#include <sstream>

#include "companion/image/Quoted.h"
#include "companion/report/Console.h"
#include "companion/report/Summary.h"

namespace companion {

namespace {

void AddModule(std::ostream& text, const ModuleResult& result) {
  text << "module: " << result.target << " in slot " << result.slot;
  if (!result.names.spiDev.empty()) {
    text << ", " << Quoted(result.names.i2cBus) << ", " << Quoted(result.names.spiDev);
  }
  text << '\n';
}

void AddImage(std::ostream& text, const ModuleResult& result) {
  if (!result.image) {
    return;
  }
  text << "image: " << Quoted(result.image->path) << ", " << result.image->bytes << " bytes, "
       << (result.image->stamp ? Quoted(*result.image->stamp) : "without a stamp") << '\n'
       << "SHA-256 of the image: " << result.image->sha256 << '\n';
}

const char* ProtectionOf(const Chip& chip) {
  if (chip.IsLockedWhole()) {
    return "protected whole";
  }
  return chip.IsProtected() ? "protected in part" : "not protected";
}

void AddChip(std::ostream& text, const ModuleResult& result) {
  if (const std::optional<Chip> chip = ChipOf(result)) {
    text << "chip: " << IdOf(*chip) << ", " << ProtectionOf(*chip) << '\n';
  }
}

void AddDone(std::ostream& text, DoneLine before, DoneLine after) {
  text << "DONE: " << NameOf(before);
  if (after != before) {
    text << ", then " << NameOf(after);
  }
  text << '\n';
}

void AddState(std::ostream& text,
              const ModuleResult& result,
              DoneLine doneAfter,
              Endpoint endpointAfter) {
  if (!result.readings.empty()) {
    AddDone(text, DoneBefore(result), doneAfter);
    if (endpointAfter != Endpoint::kNone) {
      text << "PCIe endpoint: " << NameOf(endpointAfter) << '\n';
    }
  }
  if (result.unfinished) {
    text << "an earlier update of this slot was not finished\n";
  }
}

std::string StampLine(const std::optional<std::string>& stamp) {
  return stamp ? Quoted(*stamp) : "without a stamp";
}

void AddRuns(std::ostream& text, const UpdateResult& result) {
  for (const RunFacts& facts : result.runs) {
    text << "attempt " << facts.attempt << ": tarnwick ";
    if (facts.run.exitCode) {
      text << "ended with " << *facts.run.exitCode << '\n';
    } else if (!facts.run.problem.empty()) {
      text << "could not be started\n";
    } else {
      text << "was ended by signal " << facts.run.signal << '\n';
    }
  }
}

}  // namespace

std::string ReadText(const ReadResult& result) {
  std::ostringstream text;
  AddModule(text, result);
  AddChip(text, result);
  AddState(text, result, DoneAfter(result), EndpointAfter(result));
  if (!result.sha256.empty()) {
    text << "file: " << Quoted(result.file) << '\n';
  }
  text << AsOneLine(result.verdict) << '\n';
  return text.str();
}

std::string VerifyText(const VerifyResult& result) {
  std::ostringstream text;
  AddModule(text, result);
  AddImage(text, result);
  if (result.equal) {
    text << "flash: " << StampLine(result.stampThere) << '\n';
  }
  AddChip(text, result);
  AddState(text, result, DoneAfter(result), EndpointAfter(result));
  text << AsOneLine(result.verdict) << '\n';
  return text.str();
}

std::string UpdateText(const UpdateResult& result) {
  std::ostringstream text;
  AddModule(text, result);
  AddImage(text, result);
  if (!result.readings.empty() && result.holds != FlashHolds::kNotRead) {
    text << "flash before: " << StampLine(result.stampBefore) << '\n';
  }
  AddRuns(text, result);
  AddChip(text, result);
  AddState(text, result, DoneAfter(result), EndpointAfter(result));
  text << AsOneLine(result.verdict) << '\n';
  return text.str();
}

}  // namespace companion
