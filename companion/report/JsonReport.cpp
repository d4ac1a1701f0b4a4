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

Json NamesJson(const ModuleNames& names) {
  return {{"i2c_bus", TextOrNull(names.i2cBus)}, {"spi_device", TextOrNull(names.spiDev)}};
}

Json ImageFactsJson(const std::optional<ImageFacts>& image) {
  if (!image) {
    return nullptr;
  }
  return {{"path", image->path},
          {"file_bytes", image->fileBytes},
          {"file_sha256", TextOrNull(image->fileSha256)},
          {"bytes", image->bytes},
          {"sha256", TextOrNull(image->sha256)},
          {"stamp", OrNull(image->stamp)}};
}

Json ChipJson(const std::optional<Chip>& chip) {
  if (!chip) {
    return nullptr;
  }
  return {{"id", IdOf(*chip)},
          {"status", chip->status},
          {"configuration", OrNull(chip->config)},
          {"lockable", chip->IsLockable()},
          {"protected", chip->IsProtected()},
          {"locked_whole", chip->IsLockedWhole()}};
}

Json DifferenceJson(const std::optional<Difference>& difference) {
  if (!difference) {
    return nullptr;
  }
  return {{"address", difference->firstAddress},
          {"expected", difference->expected},
          {"found", difference->found},
          {"pages", difference->pages}};
}

Json ReadingJson(const ReadingFacts& facts) {
  const ModuleReading& found = facts.found;
  return {{"bytes", facts.bytes},
          {"milliseconds", facts.took.count()},
          {"problem", TextOrNull(found.problem.text)},
          {"console", found.problem.console},
          {"unsteady_address", OrNull(found.unsteadyAddress)},
          {"difference", DifferenceJson(found.difference)},
          {"blocks_read_again", found.blocksReadAgain},
          {"looks_silent", found.looksSilent},
          {"ps_mode", found.psMode},
          {"done_before", NameOf(found.done)},
          {"done_after", NameOf(found.doneAfter)},
          {"endpoint", NameOf(found.endpoint)},
          {"not_given_back", TextOrNull(found.notGivenBack.text)}};
}

Json RunJson(const RunFacts& facts) {
  const ProgramRun& run = facts.run;
  return {{"attempt", facts.attempt},
          {"exit_code", OrNull(run.exitCode)},
          {"signal", run.signal == 0 ? Json(nullptr) : Json(run.signal)},
          {"timed_out", run.timedOut},
          {"killed", run.killed},
          {"problem", TextOrNull(run.problem)},
          {"milliseconds", run.took.count()},
          {"stdout", run.out},
          {"stderr", run.err}};
}

Json IntoUseJson(const IntoUseFacts& facts) {
  return {{"milliseconds", facts.took.count()},
          {"problem", TextOrNull(facts.found.problem.text)},
          {"console", facts.found.problem.console},
          {"done_seen_low", facts.found.seenLow},
          {"done", NameOf(facts.found.done)},
          {"endpoint", NameOf(facts.found.endpoint)},
          {"not_given_back", TextOrNull(facts.found.notGivenBack.text)}};
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
  return {{"command", command},
          {"target", result.target},
          {"module", result.slot},
          {"exit_code", static_cast<int>(result.exit)},
          {"verdict", VerdictWord(command, result.exit)},
          {"reason", result.verdict},
          {"notes", result.notes},
          {"milliseconds", result.took.count()},
          {"names", NamesJson(result.names)},
          {"chip", ChipJson(ChipOf(result))},
          {"done_before", NameOf(DoneBefore(result))},
          {"done_after", NameOf(doneAfter)},
          {"endpoint", NameOf(endpointAfter)},
          {"unfinished", result.unfinished},
          {"readings", ListOf(result.readings, ReadingJson)}};
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
