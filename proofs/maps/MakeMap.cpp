#include "proofs/maps/MakeMap.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstddef>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <mutex>
#include <ostream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <thread>

namespace maps {

namespace {

constexpr const char* kHelp = R"( [OPTION]...
Makes the runs of a map on all cores, and fails when one of them breaks a rule.

  --sample N    makes every Nth run only
  --parts N     of every Nth part of the map only: a kind of module, and how it starts
  --write FILE  writes the data of the map to FILE, unless a run broke a rule
  --check FILE  fails when a run is not in the data in FILE
  --help        shows this text
)";

struct Options {
  std::size_t sample = 1;
  std::size_t parts = 1;
  std::string write;  ///< a path, or ""
  std::string check;  ///< a path, or ""
  bool help = false;
};

std::size_t Count(const std::string& text) {
  std::size_t count = 0;
  const char* const end = text.data() + text.size();
  if (std::from_chars(text.data(), end, count).ptr != end || count == 0) {
    throw std::invalid_argument("not a number above 0: '" + text + "'");
  }
  return count;
}

/// @throw std::invalid_argument
void Take(const std::string& name, const std::string& value, Options& options) {
  if (name == "--sample") {
    options.sample = Count(value);
  } else if (name == "--parts") {
    options.parts = Count(value);
  } else {
    (name == "--write" ? options.write : options.check) = value;
  }
}

/// @throw std::invalid_argument
Options Parse(const std::vector<std::string>& words) {
  const std::set<std::string> names = {"--sample", "--parts", "--write", "--check"};
  Options options;
  for (std::size_t i = 0; i < words.size(); i += 2) {
    const std::string& name = words[i];
    if (name == "--help") {
      return {.help = true};
    }
    if (names.count(name) == 0) {
      throw std::invalid_argument("unknown option '" + name + "'");
    }
    if (i + 1 == words.size()) {
      throw std::invalid_argument("option '" + name + "' needs a value");
    }
    Take(name, words[i + 1], options);
  }
  return options;
}

std::string Joined(const std::vector<std::string>& words, const char* between) {
  std::string text;
  for (const std::string& word : words) {
    text += (text.empty() ? "" : between) + word;
  }
  return text;
}

/// The line of a run in the data, without the number of runs.
std::string DataLine(const MapRun& run) {
  return Joined(run.fault, "\t") + "\t" + Joined(run.outcome, "\t");
}

/// Does something `count` times, on all cores.
/// @param one  takes its number, from 0 on; must not throw
template <typename One>
void OnAllCores(std::size_t count, One one) {
  std::atomic<std::size_t> next = 0;
  std::vector<std::jthread> workers;
  const unsigned cores = std::max(1U, std::thread::hardware_concurrency());
  for (unsigned core = 0; core < cores; ++core) {
    workers.emplace_back([&] {
      for (std::size_t number = next++; number < count; number = next++) {
        one(number);
      }
    });
  }
}

void ShowViolations(const MapRun& run, std::ostream& err) {
  const std::string how = run.how.empty() ? "" : " (" + run.how + ")";
  for (const std::string& violation : run.violations) {
    err << Joined(run.fault, ", ") << how << ": " << violation << std::endl;
  }
}

/// @param err  gets the violations as they are found: a map takes long
std::vector<MapRun> Make(const std::vector<Job>& jobs, std::ostream& err) {
  std::vector<MapRun> runs(jobs.size());
  std::mutex errLock;
  OnAllCores(jobs.size(), [&](std::size_t number) {
    MapRun& run = runs[number];
    try {
      jobs[number](run);
    } catch (const std::exception& error) {
      run.violations.emplace_back(error.what());
    }
    const std::lock_guard lock(errLock);
    ShowViolations(run, err);
  });
  return runs;
}

/// Every Nth. The first of them differ from part to part, so that parts that are alike do not all
/// have the same ones.
std::vector<Job> Thinned(std::vector<Job> jobs, std::size_t every, std::size_t part) {
  std::vector<Job> kept;
  for (std::size_t i = part % every; i < jobs.size(); i += every) {
    kept.push_back(std::move(jobs[i]));
  }
  return kept;
}

/// @throw std::runtime_error when the runs of a part cannot be found
std::vector<Job> JobsOf(const std::vector<Part>& parts, std::size_t everyPart) {
  std::vector<std::vector<Job>> jobs(parts.size());
  std::vector<std::string> problems(parts.size());
  OnAllCores(parts.size(), [&](std::size_t number) {
    if (number % everyPart != 0) {
      return;
    }
    try {
      jobs[number] = Thinned(parts[number].jobs(), parts[number].every, number);
    } catch (const std::exception& error) {
      problems[number] = error.what();
    }
  });
  std::vector<Job> all;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (!problems[i].empty()) {
      throw std::runtime_error(problems[i]);
    }
    std::move(jobs[i].begin(), jobs[i].end(), std::back_inserter(all));
  }
  return all;
}

/// @return the number of runs that are not in the data of a file
std::size_t ShowUnknown(const std::string& file,
                        const std::vector<MapRun>& runs,
                        std::ostream& err) {
  std::ifstream stream(file);
  std::set<std::string> known;
  for (std::string line; std::getline(stream, line);) {
    known.insert(line.substr(0, line.rfind('\t')));
  }
  std::size_t count = 0;
  for (const MapRun& run : runs) {
    if (!run.outcome.empty() && known.count(DataLine(run)) == 0) {
      err << "not in " << file << ": " << DataLine(run) << "\n";
      ++count;
    }
  }
  return count;
}

/// The runs as tab-separated values below a line of titles. Runs that are equal are one line, which
/// counts them, at the place of the first one.
std::string DataOf(const std::string& titles, const std::vector<MapRun>& runs) {
  std::vector<std::string> lines;
  std::map<std::string, std::size_t> counts;
  for (const MapRun& run : runs) {
    if (run.outcome.empty()) {
      continue;
    }
    const std::string line = DataLine(run);
    if (++counts[line] == 1) {
      lines.push_back(line);
    }
  }
  std::string text = titles + "\texit\tlast line\tflash\tafterwards\truns\n";
  for (const std::string& line : lines) {
    text += line + "\t" + std::to_string(counts[line]) + "\n";
  }
  return text;
}

void Write(const std::string& file, const std::string& text) {
  std::ofstream stream(file, std::ios::binary);
  stream << text;
  if (!stream.flush()) {
    throw std::runtime_error("cannot write " + file);
  }
}

int Carry(const Options& options, const Map& map, std::ostream& err) {
  const std::vector<Job> all = JobsOf(map.parts(), options.parts);
  std::vector<Job> jobs;
  for (std::size_t i = 0; i < all.size(); i += options.sample) {
    jobs.push_back(all[i]);
  }
  err << jobs.size() << " of " << all.size() << " runs\n";
  const std::vector<MapRun> runs = Make(jobs, err);
  auto bad = static_cast<std::size_t>(std::count_if(
      runs.begin(), runs.end(), [](const MapRun& run) { return !run.violations.empty(); }));
  if (!options.write.empty() && bad == 0) {
    Write(options.write, DataOf(map.titles, runs));
  }
  if (!options.check.empty()) {
    bad += ShowUnknown(options.check, runs, err);
  }
  return bad == 0 ? 0 : 1;
}

std::string_view WordFor(Flash flash) {
  switch (flash) {
    case Flash::kOld:
      return "unchanged";
    case Flash::kImage:
      return "image";
    case Flash::kDamaged:
      return "damaged";
    case Flash::kLooksNew:
      return "damaged, looks new";
  }
  return "";
}

std::string WordsFor(const std::string& name, const std::string& value) {
  if (name == "done") {
    return "DONE " + value;
  }
  if (name == "driven") {
    return value == "0x0000" ? "released" : "drives " + value;
  }
  if (name == "registers") {
    // As they should be: of a chip without a lock, and of a lockable chip that is protected whole.
    return value == "00:00" || value == "24:0f" ? "" : "registers " + value;
  }
  if (name == "pcie") {
    return "PCIe " + value;
  }
  return name == "selector" ? value : name + " " + value;
}

/// "done=1 driven=0x0000 loaded=current" is "DONE 1, released, loaded current".
std::string StateWords(const std::string& state) {
  std::string text;
  std::istringstream words(state);
  for (std::string word; words >> word;) {
    const std::size_t equals = word.find('=');
    const std::string shown = WordsFor(word.substr(0, equals), word.substr(equals + 1));
    text += (text.empty() || shown.empty() ? "" : ", ") + shown;
  }
  return text;
}

}  // namespace

std::vector<std::string> OutcomeOf(const Ending& ending, const Observation& seen) {
  return {ending.exit, ending.lastLine, std::string(WordFor(seen.flash)), StateWords(seen.state)};
}

int Main(const std::vector<std::string>& words,
         const Map& map,
         std::ostream& out,
         std::ostream& err) {
  constexpr int kTrouble = 2;
  const std::string program = std::filesystem::path(words.front()).filename();
  try {
    const Options options = Parse({std::next(words.begin()), words.end()});
    if (options.help) {
      out << "Usage: " << program << kHelp;
      return 0;
    }
    return Carry(options, map, err);
  } catch (const std::invalid_argument& error) {
    err << program << ": " << error.what() << "\nTry '" << program << " --help'.\n";
  } catch (const std::exception& error) {
    err << program << ": " << error.what() << "\n";
  }
  return kTrouble;
}

}  // namespace maps
