#include "simulator/trace/SummaryText.h"

#include <algorithm>
#include <cstddef>
#include <iomanip>
#include <sstream>
#include <string_view>
#include <utility>
#include <vector>

namespace orvane {

namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
constexpr std::int64_t kNanosecondsPerMillisecond = 1'000'000;

/// A decimal fraction that shows each nanosecond.
/// @param unit  a power of ten; the 1 in front of the rest keeps its leading zeros
std::string In(std::int64_t unit, std::chrono::nanoseconds time) {
  std::string digits = std::to_string(unit + time.count() % unit);
  digits[0] = '.';
  return std::to_string(time.count() / unit) + digits;
}

/// A time in a table. One that is 0 does not hide the others.
std::string Cell(std::chrono::nanoseconds time) {
  return time.count() == 0 ? "-" : In(kNanosecondsPerMillisecond, time);
}

/// Columns that are as wide as needed. The first one is aligned at its left side, the others are at their
/// right side.
class Table {
 public:
  explicit Table(std::vector<std::string> row) { Add(std::move(row)); }

  /// @param row  as many cells as the first one has
  void Add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }

  void Write(std::ostream& out) const {
    std::vector<std::size_t> widths(rows_.front().size());
    for (const auto& row : rows_) {
      for (std::size_t i = 0; i < row.size(); ++i) {
        widths[i] = std::max(widths[i], row[i].size());
      }
    }
    for (const auto& row : rows_) {
      out << std::left << std::setw(static_cast<int>(widths[0])) << row[0] << std::right;
      for (std::size_t i = 1; i < row.size(); ++i) {
        out << "  " << std::setw(static_cast<int>(widths[i])) << row[i];
      }
      out << '\n';
    }
  }

 private:
  std::vector<std::vector<std::string>> rows_;
};

std::vector<std::string> TimeRow(std::string_view name,
                                 const TimeTotals& times,
                                 const std::vector<Cause>& causes) {
  std::vector<std::string> row = {std::string(name), Cell(times.Sum())};
  for (const Cause cause : causes) {
    row.push_back(Cell(times.Of(cause)));
  }
  return row;
}

void WriteTimes(std::ostream& out, const RunFigures& figures) {
  std::vector<Cause> causes;  // those that there are
  std::vector<std::string> head = {"times in ms", "total"};
  for (std::size_t i = 0; i < kCauses; ++i) {
    const auto cause = static_cast<Cause>(i);
    if (figures.times.Of(cause).count() > 0) {
      causes.push_back(cause);
      head.emplace_back(CauseName(cause));
    }
  }
  Table table(std::move(head));
  for (const StepTimes& step : figures.steps) {
    table.Add(TimeRow(step.name, step.times, causes));
  }
  if (figures.steps.size() > 1) {
    table.Add(TimeRow("total", figures.times, causes));
  }
  table.Write(out);
}

void WriteCommands(std::ostream& out, const RunFigures& figures) {
  if (figures.commands.empty()) {
    return;
  }
  Table table({"SPI command", "messages", "bytes"});
  CommandCount all;
  for (const CommandCount& command : figures.commands) {
    table.Add({command.name, std::to_string(command.messages), std::to_string(command.bytes)});
    all.messages += command.messages;
    all.bytes += command.bytes;
  }
  if (figures.commands.size() > 1) {
    table.Add({"total", std::to_string(all.messages), std::to_string(all.bytes)});
  }
  out << '\n';
  table.Write(out);
}

/// "1 page", "2 pages"
std::string Some(std::uint64_t number, std::string_view what) {
  return std::to_string(number) + " " + std::string(what) + (number == 1 ? "" : "s");
}

void WriteOthers(std::ostream& out, const RunFigures& figures) {
  out << "\nI2C: " << Some(figures.i2cTransfers, "transfer") << ", "
      << Some(figures.i2cBytes, "byte") << "; control files: " << Some(figures.fileReads, "read")
      << ", " << Some(figures.fileWrites, "write") << "; D-Bus: " << Some(figures.dbusCalls, "call")
      << '\n';
}

/// In the largest unit that expresses it as a whole number: "19 MHz".
std::string Rate(std::uint32_t hertz) {
  constexpr std::uint32_t kThousand = 1'000;
  std::string_view unit = "Hz";
  for (const std::string_view larger : {"kHz", "MHz"}) {
    if (hertz == 0 || hertz % kThousand != 0) {
      break;
    }
    hertz /= kThousand;
    unit = larger;
  }
  return std::to_string(hertz) + " " + std::string(unit);
}

/// "235 pages, 1 sector of 64 KiB"
std::string Written(const RunFigures& figures) {
  const std::pair<std::uint64_t, std::string> all[] = {
      {figures.pages, Some(figures.pages, "page")},
      {figures.sectors, Some(figures.sectors, "sector") + " of 64 KiB"},
      {figures.subsectors, Some(figures.subsectors, "sector") + " of 4 KiB"},
      {figures.chipErases, Some(figures.chipErases, "whole chip")}};
  std::string text;
  for (const auto& [number, words] : all) {
    if (number > 0) {
      text += (text.empty() ? "" : ", ") + words;
    }
  }
  return text;
}

void WriteLimit(std::ostream& out, const RunFigures& figures) {
  if (figures.limit.count() == 0) {
    out << "Nothing was programmed or erased.\n";
    return;
  }
  const double ratio =
      static_cast<double>(figures.times.Sum().count()) / static_cast<double>(figures.limit.count());
  out << "Programmed and erased: " << Written(figures) << ".\nThat takes at least "
      << In(kNanosecondsPerSecond, figures.limit) << " s at " << Rate(figures.hertz)
      << "; this took " << std::fixed << std::setprecision(3) << ratio << " times as long.\n";
}

}  // namespace

std::string SummaryText(const RunFigures& figures) {
  std::ostringstream out;
  out << "orvane-sim: on the instrument this took "
      << In(kNanosecondsPerSecond, figures.times.Sum()) << " s (--timing " << Word(figures.timing)
      << ")\n";
  WriteTimes(out, figures);
  WriteCommands(out, figures);
  WriteOthers(out, figures);
  WriteLimit(out, figures);
  return out.str();
}

}  // namespace orvane
