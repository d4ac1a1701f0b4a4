#include "tests/e2e/GoldenLog.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <fstream>
#include <regex>
#include <stdexcept>

namespace program_test::golden_log {

using run_log::Lines;

namespace {

const std::string kIndent = "    ";
constexpr std::size_t kLongestBlock = 8;
constexpr std::size_t kFewestTimes = 3;
constexpr std::size_t kFewestLinesSaved = 4;

bool isWritten = false;

std::string PathOf(const std::string& name) {
  return std::string(TARNWICK_GOLDEN_DIR "/").append(name).append(".log");
}

const std::regex& Address() {
  static const std::regex expression("\\b0x[0-9a-f]{6}\\b");
  return expression;
}

std::string Hex24(unsigned number) {
  char text[16];
  static_cast<void>(std::snprintf(text, sizeof text, "0x%06x", number));
  return text;
}

/// The line with its address increased by so much, if it has one.
std::string Moved(const std::string& line, unsigned distance) {
  std::smatch found;
  if (distance == 0 || !std::regex_search(line, found, Address())) {
    return line;
  }
  const auto address = static_cast<unsigned>(std::stoul(found.str(), nullptr, 16));
  return found.prefix().str() + Hex24(address + distance) + found.suffix().str();
}

/// The difference between the first address of the next block and that of a block; 0 without
/// address.
unsigned StepOf(const Lines& log, std::size_t first, std::size_t block) {
  for (std::size_t line = first; line < first + block; ++line) {
    std::smatch here;
    std::smatch next;
    if (std::regex_search(log[line], here, Address()) &&
        std::regex_search(log[line + block], next, Address())) {
      return static_cast<unsigned>(std::stoul(next.str(), nullptr, 16) -
                                   std::stoul(here.str(), nullptr, 16));
    }
  }
  return 0;
}

struct Run {
  std::size_t block = 1;  // lines
  std::size_t times = 1;
  unsigned step = 0;

  std::size_t Covered() const { return block * times; }
};

Run RunOf(const Lines& log, std::size_t first, std::size_t block) {
  Run run{.block = block};
  if (first + 2 * block > log.size()) {
    return run;
  }
  run.step = StepOf(log, first, block);
  for (std::size_t line = first; line + block < log.size(); ++line) {
    if (log[line + block] != Moved(log[line], run.step)) {
      break;
    }
    run.times = 1 + (line + 1 - first) / block;
  }
  return run;
}

/// The repetition from a line on that covers the most lines; one line if none makes the file
/// shorter.
Run LongestRun(const Lines& log, std::size_t first) {
  Run longest;
  for (std::size_t block = 1; block <= kLongestBlock; ++block) {
    const Run run = RunOf(log, first, block);
    if (run.times >= kFewestTimes && run.Covered() >= block + 1 + kFewestLinesSaved &&
        run.Covered() > longest.Covered()) {
      longest = run;
    }
  }
  return longest;
}

}  // namespace

void WriteFromNowOn() { isWritten = true; }

bool IsWritten() { return isWritten; }

Lines Folded(const Lines& log) {
  Lines text;
  for (std::size_t line = 0; line < log.size();) {
    const Run run = LongestRun(log, line);
    const bool repeats = run.times > 1;
    if (repeats) {
      text.push_back(std::to_string(run.times) + " times" +
                     (run.step == 0 ? "" : ", " + Hex24(run.step) + " further each") + ":");
    }
    for (std::size_t i = 0; i < run.block; ++i) {
      text.push_back((repeats ? kIndent : "") + log[line + i]);
    }
    line += run.Covered();
  }
  return text;
}

Lines Unfolded(const Lines& text) {
  static const std::regex head("([0-9]+) times(, (0x[0-9a-f]{6}) further each)?:");
  Lines log;
  for (std::size_t line = 0; line < text.size();) {
    std::smatch found;
    if (!std::regex_match(text[line], found, head)) {
      log.push_back(text[line++]);
      continue;
    }
    Lines block;
    for (++line; line < text.size() && text[line].starts_with(kIndent); ++line) {
      block.push_back(text[line].substr(kIndent.size()));
    }
    const auto times = static_cast<unsigned>(std::stoul(found[1]));
    const unsigned step =
        found[3].matched ? static_cast<unsigned>(std::stoul(found[3], nullptr, 16)) : 0;
    for (unsigned time = 0; time < times; ++time) {
      for (const std::string& repeated : block) {
        log.push_back(Moved(repeated, time * step));
      }
    }
  }
  return log;
}

Lines Read(const std::string& name) {
  std::ifstream file(PathOf(name), std::ios::binary);
  if (!file) {
    throw std::runtime_error("cannot read " + PathOf(name) + ": --write-golden writes it");
  }
  Lines text;
  for (std::string line; std::getline(file, line);) {
    text.push_back(line);
  }
  return Unfolded(text);
}

void Write(const std::string& name, const Lines& log) {
  const Lines text = Folded(log);
  if (Unfolded(text) != log) {
    throw std::runtime_error("cannot fold the log of " + name);
  }
  std::ofstream file(PathOf(name), std::ios::binary);
  file << run_log::Text(text);
  if (!file.flush()) {
    throw std::runtime_error("cannot write " + PathOf(name));
  }
}

}  // namespace program_test::golden_log
