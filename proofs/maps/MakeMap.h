#pragma once

#include <cstddef>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

#include "proofs/maps/Jobs.h"
#include "proofs/maps/Scenario.h"
#include "proofs/maps/Table.h"
#include "proofs/maps/Verdict.h"

namespace maps {

/// How a map is made: "--sample N" takes every Nth run only, "--write FILE" writes the document,
/// "--check FILE" compares with it.
struct MapOptions {
  std::size_t sample = 1;
  std::string write;  ///< empty: not
  std::string check;  ///< empty: not

  /// @throw std::invalid_argument
  static MapOptions Parse(int count, char** words);
};

/// A run of a map. Without an outcome in its row it could not be made.
struct MapRun {
  Row row;
  std::string chip;
  Flash flash = Flash::kOld;
  std::vector<std::string> violations;
};

/// What a run showed, in the columns of every map.
std::vector<std::string> OutcomeOf(const Ending& ending, const Observation& seen);

/// The rows of some runs in Markdown, a table for each target.
/// @param heading  of each table: "## " for those that are read back
std::string Tables(const std::vector<const MapRun*>& runs, const std::string& heading);

template <typename Run>
std::vector<const MapRun*> Select(const std::vector<Run>& runs,
                                  const std::function<bool(const Run&)>& wanted) {
  std::vector<const MapRun*> selected;
  for (const Run& run : runs) {
    if (wanted(run)) {
      selected.push_back(&run);
    }
  }
  return selected;
}

/// A row of the summary: how many runs are so.
template <typename Run>
std::string Count(const std::vector<Run>& runs,
                  const std::function<bool(const Run&)>& wanted,
                  const std::string& how) {
  return "| " + std::to_string(Select(runs, wanted).size()) + " | " + how + " |\n";
}

/// Shows what runs did that none may do, writes or compares the document, as asked for. Nothing is
/// written unless all is well.
/// @param head  what the document says above the tables of all runs
/// @return the exit status of the program
int Finish(const MapOptions& options,
           const std::vector<const MapRun*>& runs,
           const std::function<std::string()>& head);

/// Makes a map: carries the jobs out, on all cores.
/// @param carry  names its run before it does anything that can fail
/// @return the exit status of the program
template <typename Job, typename Run>
int MakeMap(const MapOptions& options,
            const std::vector<Job>& jobs,
            void (*carry)(const Job&, Run&),
            std::string (*head)(const std::vector<Run>&)) {
  std::vector<Job> taken;
  for (std::size_t i = 0; i < jobs.size(); i += options.sample) {
    taken.push_back(jobs[i]);
  }
  std::cerr << taken.size() << " of " << jobs.size() << " runs\n";
  std::vector<Run> runs(taken.size());
  RunJobs(taken.size(), [&](std::size_t i) {
    try {
      carry(taken[i], runs[i]);
    } catch (const std::exception& error) {
      runs[i].violations.emplace_back(error.what());
    }
  });
  return Finish(
      options, Select<Run>(runs, [](const Run&) { return true; }), [&] { return head(runs); });
}

/// The main function of a program that makes a map.
int Main(int count, char** words, int (*make)(const MapOptions&));

}  // namespace maps
