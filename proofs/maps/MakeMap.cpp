#include "proofs/maps/MakeMap.h"

#include <exception>
#include <fstream>
#include <iterator>
#include <set>
#include <stdexcept>
#include <string_view>

#include "proofs/maps/Words.h"

namespace maps {

namespace {

const std::vector<std::string> kColumns = {"exit", "last line", "flash", "afterwards"};

std::string Describe(const MapRun& run) {
  const Row& row = run.row;
  return row.target + " " + run.chip + ", " + row.step + ", " + row.event + ", " + row.what;
}

Table TableOf(const std::vector<const MapRun*>& runs) {
  Table table(kColumns);
  for (const MapRun* const run : runs) {
    if (!run->row.outcome.empty()) {
      table.Add(run->row, run->chip);
    }
  }
  return table;
}

/// Says which runs a document does not have so.
/// @return whether it has them all
bool Holds(const std::string& file, const std::set<std::string>& runs) {
  std::ifstream stream(file);
  const std::string text{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
  const std::set<std::string> known = Table::RunsIn(text);
  bool holds = true;
  for (const std::string& run : runs) {
    if (known.count(run) == 0) {
      std::cerr << "not in " << file << ": " << run << "\n";
      holds = false;
    }
  }
  return holds;
}

void WriteDocument(const std::string& file, const std::string& text) {
  std::ofstream stream(file, std::ios::binary);
  stream << text;
  if (!stream.flush()) {
    throw std::runtime_error("cannot write " + file);
  }
}

}  // namespace

MapOptions MapOptions::Parse(int count, char** words) {
  MapOptions options;
  for (int i = 1; i < count; i += 2) {
    const std::string_view name = words[i];
    const std::string value = i + 1 < count ? words[i + 1] : "";
    if (name == "--sample" && !value.empty()) {
      options.sample = std::stoul(value);
    } else if (name == "--write" && !value.empty()) {
      options.write = value;
    } else if (name == "--check" && !value.empty()) {
      options.check = value;
    } else {
      throw std::invalid_argument("usage: [--sample N] [--write FILE] [--check FILE]");
    }
  }
  return options;
}

std::vector<std::string> OutcomeOf(const Ending& ending, const Observation& seen) {
  return {ending.exit, ending.lastLine, std::string(WordFor(seen.flash)), StateWords(seen.state)};
}

std::string Tables(const std::vector<const MapRun*>& runs, const std::string& heading) {
  const Table table = TableOf(runs);
  std::string text;
  for (const char* const target : {"wend", "dax", "pyx1", "pyx2"}) {
    const std::string rows = table.Markdown(target);
    text += heading + target + "\n\n" + (rows.empty() ? "None.\n" : rows) + "\n";
  }
  return text;
}

int Finish(const MapOptions& options,
           const std::vector<const MapRun*>& runs,
           const std::function<std::string()>& head) {
  bool allWell = true;
  for (const MapRun* const run : runs) {
    for (const std::string& violation : run->violations) {
      std::cerr << Describe(*run) << ": " << violation << "\n";
      allWell = false;
    }
  }
  if (!options.write.empty() && allWell) {
    std::string text = head() + Tables(runs, "## ");
    text.pop_back();  // the line behind the last table
    WriteDocument(options.write, text);
  }
  if (!options.check.empty()) {
    allWell = Holds(options.check, TableOf(runs).Runs()) && allWell;
  }
  return allWell ? 0 : 1;
}

int Main(int count, char** words, int (*make)(const MapOptions&)) {
  constexpr int kTrouble = 2;
  try {
    return make(MapOptions::Parse(count, words));
  } catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return kTrouble;
  }
}

}  // namespace maps
