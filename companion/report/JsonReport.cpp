#include "companion/report/JsonReport.h"

#include "companion/report/Summary.h"

#include <nlohmann/json.hpp>

namespace companion {

namespace {

using Json = nlohmann::ordered_json;

std::string Dump(const Json& object) {
  constexpr int kIndent = 2;
  return object.dump(kIndent, ' ', false, Json::error_handler_t::replace) + '\n';
}

template <typename T>
Json OrNull(const std::optional<T>& value) {
  return value ? Json(*value) : Json(nullptr);
}

Json TextOrNull(const std::string& text) { return text.empty() ? Json(nullptr) : Json(text); }

// Objects are filled key by key: of a list in braces, each element would be built and taken apart.

Json NamesJson(const ModuleNames& names) {
  Json object;
  object["i2c_bus"] = TextOrNull(names.i2cBus);
  object["spi_device"] = TextOrNull(names.spiDev);
  return object;
}

Json ImageFactsJson(const std::optional<ImageFacts>& image) {
  if (!image) {
    return nullptr;
  }
  Json object;
  object["path"] = image->path;
  object["file_bytes"] = image->fileBytes;
  object["file_sha256"] = TextOrNull(image->fileSha256);
  object["bytes"] = image->bytes;
  object["sha256"] = TextOrNull(image->sha256);
  object["stamp"] = OrNull(image->stamp);
  return object;
}

Json ChipJson(const std::optional<Chip>& chip) {
  if (!chip) {
    return nullptr;
  }
  Json object;
  object["id"] = IdOf(*chip);
  object["status"] = chip->status;
  object["configuration"] = OrNull(chip->config);
  object["lockable"] = chip->IsLockable();
  object["protected"] = chip->IsProtected();
  object["locked_whole"] = chip->IsLockedWhole();
  return object;
}

Json DifferenceJson(const std::optional<Difference>& difference) {
  if (!difference) {
    return nullptr;
  }
  Json object;
  object["address"] = difference->firstAddress;
  object["expected"] = difference->expected;
  object["found"] = difference->found;
  object["pages"] = difference->pages;
  return object;
}

Json ReadingJson(const ReadingFacts& facts) {
  const ModuleReading& found = facts.found;
  Json object;
  object["bytes"] = facts.bytes;
  object["milliseconds"] = facts.took.count();
  object["problem"] = TextOrNull(found.problem.text);
  object["console"] = found.problem.console;
  object["unsteady_address"] = OrNull(found.unsteadyAddress);
  object["difference"] = DifferenceJson(found.difference);
  object["blocks_read_again"] = found.blocksReadAgain;
  object["looks_silent"] = found.looksSilent;
  object["ps_mode"] = found.psMode;
  object["done_before"] = NameOf(found.done);
  object["done_after"] = NameOf(found.doneAfter);
  object["endpoint"] = NameOf(found.endpoint);
  object["not_given_back"] = TextOrNull(found.notGivenBack.text);
  return object;
}

Json RunJson(const RunFacts& facts) {
  const ProgramRun& run = facts.run;
  Json object;
  object["attempt"] = facts.attempt;
  object["exit_code"] = OrNull(run.exitCode);
  object["signal"] = run.signal == 0 ? Json(nullptr) : Json(run.signal);
  object["timed_out"] = run.timedOut;
  object["killed"] = run.killed;
  object["problem"] = TextOrNull(run.problem);
  object["milliseconds"] = run.took.count();
  object["stdout"] = run.out;
  object["stderr"] = run.err;
  return object;
}

Json IntoUseJson(const IntoUseFacts& facts) {
  Json object;
  object["milliseconds"] = facts.took.count();
  object["problem"] = TextOrNull(facts.found.problem.text);
  object["console"] = facts.found.problem.console;
  object["done_seen_low"] = facts.found.seenLow;
  object["done"] = NameOf(facts.found.done);
  object["endpoint"] = NameOf(facts.found.endpoint);
  object["not_given_back"] = TextOrNull(facts.found.notGivenBack.text);
  return object;
}

template <typename Facts>
Json ListOf(const std::vector<Facts>& list, Json (*json)(const Facts&)) {
  Json array = Json::array();
  for (const Facts& facts : list) {
    array.push_back(json(facts));
  }
  return array;
}

/// What all commands with a module have.
Json ModuleJson(const char* command,
                const ModuleResult& result,
                DoneLine doneAfter,
                Endpoint endpointAfter) {
  Json object;
  object["command"] = command;
  object["target"] = result.target;
  object["module"] = result.slot;
  object["exit_code"] = static_cast<int>(result.exit);
  object["verdict"] = VerdictWord(command, result.exit);
  object["reason"] = result.verdict;
  object["notes"] = result.notes;
  object["milliseconds"] = result.took.count();
  object["names"] = NamesJson(result.names);
  object["chip"] = ChipJson(ChipOf(result));
  object["done_before"] = NameOf(DoneBefore(result));
  object["done_after"] = NameOf(doneAfter);
  object["endpoint"] = NameOf(endpointAfter);
  object["unfinished"] = result.unfinished;
  object["readings"] = ListOf(result.readings, ReadingJson);
  return object;
}

}  // namespace

std::string ReadJson(const ReadResult& result) {
  Json object = ModuleJson("read", result, DoneAfter(result), EndpointAfter(result));
  object["file"] = result.file;
  object["bytes"] = result.sha256.empty() ? Json(nullptr) : Json(result.bytes);
  object["sha256"] = TextOrNull(result.sha256);
  return Dump(object);
}

std::string VerifyJson(const VerifyResult& result) {
  Json object = ModuleJson("verify", result, DoneAfter(result), EndpointAfter(result));
  object["image"] = ImageFactsJson(result.image);
  object["equal"] = OrNull(result.equal);
  object["stamp_there"] = OrNull(result.stampThere);
  return Dump(object);
}

std::string UpdateJson(const UpdateResult& result) {
  Json object = ModuleJson("update", result, DoneAfter(result), EndpointAfter(result));
  object["image"] = ImageFactsJson(result.image);
  object["holds"] = NameOf(result.holds);
  object["in_use"] = NameOf(result.inUse);
  object["proven_sha256"] = TextOrNull(result.provenSha256);
  object["written"] = result.written;
  object["attempts"] = result.attempts;
  object["stamp_before"] = OrNull(result.stampBefore);
  object["head_writes"] = result.headWrites;
  object["causes"] = result.causes;
  object["runs"] = ListOf(result.runs, RunJson);
  object["into_use"] = ListOf(result.intoUse, IntoUseJson);
  object["locked_whole"] = OrNull(result.lockedWhole);
  object["signals"] = result.signals;
  return Dump(object);
}

}  // namespace companion
