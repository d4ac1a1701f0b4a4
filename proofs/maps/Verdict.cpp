#include "proofs/maps/Verdict.h"

#include <algorithm>
#include <array>
#include <map>
#include <string_view>

namespace maps {

namespace {

struct Result {
  std::string_view line;
  int exitCode;
};

constexpr std::array kResults = {
    Result{"FPGA programmed successfully.", 0},
    Result{"Could not connect to the device. Check Module # and power.", 1},
    Result{"Could not open source file.", 2},
    Result{"Could not erase the device.", 3},
    Result{"Programming operation failed.", 6},
    Result{"FPGA did not assert configuration completed.", 7},
    Result{"Non-fatal: The number of PCIe BARs in system inventory does not match eeprom contents.",
           9},
    Result{"Unable to update PCIe endpoint.", 10},
    Result{"FPGA is up to date.", 11},
    Result{"Could not run program with command line parameters provided.", 255},
};

constexpr int kUpToDate = 11;

bool Contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

/// Every result line in a text, in their order, also one with other words before it on its line.
std::vector<Result> ResultsIn(std::string_view out) {
  std::map<std::size_t, Result> found;
  for (const Result& result : kResults) {
    const std::string line = std::string(result.line) + "\n";
    for (std::size_t at = out.find(line); at != std::string_view::npos;
         at = out.find(line, at + 1)) {
      found.emplace(at, result);
    }
  }
  std::vector<Result> results;
  results.reserve(found.size());
  for (const auto& [at, result] : found) {
    results.push_back(result);
  }
  return results;
}

std::string LastLine(std::string text) {
  while (text.ends_with('\n')) {
    text.pop_back();
  }
  text.erase(0, text.rfind('\n') + 1);
  const std::size_t first = text.find_first_not_of(' ');
  return first == std::string::npos ? ""
                                    : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

bool Changes(const std::string& line) {
  return line.starts_with("spi ") && (Contains(line, " SE ") || Contains(line, " PP ") ||
                                      Contains(line, " SSE ") || Contains(line, " CE"));
}

/// Whether the fault hits an access that releases the lines: to a register of the expander, or all
/// transfers from some point on.
bool HitsRelease(const MappedFault& fault) {
  return Contains(fault.event, " the directions") ||
         (fault.lasts && !fault.rules.empty() && fault.rules.front().starts_with("i2c#"));
}

bool HitsSelector(const MappedFault& fault) { return Contains(fault.event, "module selector"); }

/// The two ways in which a run ends without a result line.
bool MayLackResult(const Scenario& scenario, const Observation& observation) {
  const bool isUncaughtException =
      observation.log.back() == "killed SIGABRT" &&
      Contains(observation.err, "terminate called after throwing an instance of");
  const bool isControlFile =
      scenario.target == "wend" && observation.exitCode == 1 && !observation.err.empty();
  return isUncaughtException || isControlFile;
}

}  // namespace

Ending EndingOf(const std::string& out, const std::string& err, const std::string& lastEvent) {
  const std::vector<Result> results = ResultsIn(out);
  Ending ending{.exit = lastEvent.starts_with("exit ") ? lastEvent.substr(5) : lastEvent,
                .lastLine = LastLine(err),
                .hasResult = !results.empty()};
  if (ending.hasResult) {
    ending.lastLine = results.back().line;
  }
  return ending;
}

std::vector<std::string> ViolationsOf(const Scenario& scenario,
                                      const MappedFault& fault,
                                      const Observation& observation) {
  std::vector<std::string> violations;
  const auto expect = [&violations](bool holds, const std::string& otherwise) {
    if (!holds) {
      violations.push_back(otherwise);
    }
  };
  expect(observation.log.back() != "killed SIGKILL", "it does not end");
  expect(!Contains(observation.err, "orvane-sim: "), "the instrument reports:\n" + observation.err);
  expect(!Contains(observation.err, "Sanitizer") && !Contains(observation.err, "runtime error:"),
         "a sanitizer reports:\n" + observation.err);

  const std::vector<Result> results = ResultsIn(observation.out);
  if (results.empty()) {
    expect(MayLackResult(scenario, observation), "there is no result line");
  } else {
    expect(results.size() == 1, "there is more than one result line");
    expect(observation.exitCode == results.back().exitCode,
           "exit code " + std::to_string(observation.exitCode) + " with '" +
               std::string(results.back().line) + "'");
    expect(observation.out.ends_with(std::string(results.back().line) + "\n"),
           "the result line is not the last");
    const bool hasExpander = scenario.target != "wend";
    expect(!hasExpander || HitsRelease(fault) || Contains(observation.state, "driven=0x0000"),
           "the expander still drives lines: " + observation.state);
    const bool hasSelector = scenario.target.starts_with("pyx");
    expect(!hasSelector || HitsSelector(fault) || Contains(observation.state, "selector=SPILVDS"),
           "the selector is not on SPILVDS: " + observation.state);
  }
  expect(observation.exitCode != kUpToDate ||
             std::none_of(observation.log.begin(), observation.log.end(), Changes),
         "a flash that is up to date is touched");
  return violations;
}

}  // namespace maps
