#include "proofs/maps/Table.h"

#include <algorithm>
#include <sstream>

namespace maps {

namespace {

constexpr const char* kBothChips = "both";
constexpr const char* kBetweenFaults = "; ";
constexpr std::size_t kColumnsInFront = 3;  // step, event, what
constexpr std::size_t kColumnsBehind = 2;   // chips, runs

const std::vector<std::string> kSteps = {"all along",
                                         "discovery",
                                         "set-up",
                                         "connect",
                                         "compare",
                                         "unlock",
                                         "erase",
                                         "program",
                                         "after the write",
                                         "reset",
                                         "end"};

std::size_t PlaceOf(const std::string& step) {
  return static_cast<std::size_t>(std::find(kSteps.begin(), kSteps.end(), step) - kSteps.begin());
}

std::string Joined(const std::vector<std::string>& words, const std::string& between) {
  std::string text;
  for (const std::string& word : words) {
    text += (text.empty() ? "" : between) + word;
  }
  return text;
}

std::vector<std::string> Split(const std::string& text, const std::string& between) {
  std::vector<std::string> words;
  std::size_t start = 0;
  for (;;) {
    const std::size_t end = text.find(between, start);
    words.push_back(text.substr(start, end - start));
    if (end == std::string::npos) {
      return words;
    }
    start = end + between.size();
  }
}

std::string MarkdownRow(const std::vector<std::string>& cells) {
  return "| " + Joined(cells, " | ") + " |\n";
}

std::string RunLine(const Row& row, const std::string& chip) {
  return row.target + " | " + chip + " | " + row.step + " | " + row.event + " | " + row.what +
         " | " + Joined(row.outcome, " | ");
}

std::vector<std::string> Chips(const std::string& cell) {
  return cell == kBothChips ? std::vector<std::string>{"micron", "macronix"}
                            : std::vector<std::string>{cell};
}

/// Several faults of one event with one outcome.
struct Group {
  std::string step;
  std::string event;
  std::vector<std::string> outcome;
  std::string chips;
  std::vector<std::string> whats;
  int runs = 0;
  std::size_t order = 0;
};

}  // namespace

void Table::Add(const Row& row, const std::string& chip) {
  const std::size_t order = rows_.size();
  const auto [place, isNew] = rows_.try_emplace(row);
  if (isNew) {
    place->second.order = order;
  }
  place->second.chips.insert(chip);
  ++place->second.runs;
}

std::string Table::Markdown(const std::string& target) const {
  std::vector<std::pair<Row, Seen>> rows;
  for (const auto& [row, seen] : rows_) {
    if (row.target == target) {
      rows.emplace_back(row, seen);
    }
  }
  std::sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) {
    return a.second.order < b.second.order;
  });

  if (rows.empty()) {
    return "";
  }
  std::vector<Group> groups;
  for (const auto& [row, seen] : rows) {
    const std::string chips = seen.chips.size() > 1 ? kBothChips : *seen.chips.begin();
    const auto same =
        std::find_if(groups.begin(), groups.end(), [&row = row, &chips](const Group& group) {
          return group.step == row.step && group.event == row.event &&
                 group.outcome == row.outcome && group.chips == chips;
        });
    Group& group = same != groups.end() ? *same
                                        : groups.emplace_back(Group{.step = row.step,
                                                                    .event = row.event,
                                                                    .outcome = row.outcome,
                                                                    .chips = chips,
                                                                    .order = seen.order});
    group.whats.push_back(row.what);
    group.runs += seen.runs;
  }
  // Rows of one event stand together, in the order in which the events come up in an update.
  std::map<std::pair<std::string, std::string>, std::size_t> firsts;
  for (const Group& group : groups) {
    firsts.try_emplace({group.step, group.event}, group.order);
  }
  std::stable_sort(groups.begin(), groups.end(), [&firsts](const Group& a, const Group& b) {
    return std::tuple(PlaceOf(a.step), firsts.at({a.step, a.event})) <
           std::tuple(PlaceOf(b.step), firsts.at({b.step, b.event}));
  });

  std::vector<std::string> titles = {"step", "event", "what goes wrong"};
  titles.insert(titles.end(), columns_.begin(), columns_.end());
  titles.insert(titles.end(), {"chips", "runs"});
  std::string text = MarkdownRow(titles) + "|" +
                     Joined(std::vector<std::string>(titles.size(), "---"), "|") + "|\n";
  for (const Group& group : groups) {
    std::vector<std::string> cells = {group.step, group.event, Joined(group.whats, kBetweenFaults)};
    cells.insert(cells.end(), group.outcome.begin(), group.outcome.end());
    cells.insert(cells.end(), {group.chips, std::to_string(group.runs)});
    text += MarkdownRow(cells);
  }
  return text;
}

std::set<std::string> Table::Runs() const {
  std::set<std::string> runs;
  for (const auto& [row, seen] : rows_) {
    for (const std::string& chip : seen.chips) {
      runs.insert(RunLine(row, chip));
    }
  }
  return runs;
}

std::set<std::string> Table::RunsIn(const std::string& markdown) {
  std::set<std::string> runs;
  std::string target;
  std::istringstream lines(markdown);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("## ")) {
      target = line.substr(3);
    }
    if (!line.starts_with("| ") || !line.ends_with(" |")) {
      continue;
    }
    const std::vector<std::string> cells = Split(line.substr(2, line.size() - 4), " | ");
    const bool isHeader = cells.back() == "runs";
    if (cells.size() <= kColumnsInFront + kColumnsBehind || isHeader) {
      continue;
    }
    Row row{.target = target, .step = cells[0], .event = cells[1]};
    row.outcome.assign(cells.begin() + kColumnsInFront, cells.end() - kColumnsBehind);
    for (const std::string& chip : Chips(cells[cells.size() - kColumnsBehind])) {
      for (const std::string& what : Split(cells[2], kBetweenFaults)) {
        row.what = what;
        runs.insert(RunLine(row, chip));
      }
    }
  }
  return runs;
}

}  // namespace maps
