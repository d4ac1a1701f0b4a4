#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

namespace maps {

/// What one run showed, a column each.
struct Row {
  std::string target;
  std::string step;
  std::string event;
  std::string what;  ///< what went wrong
  std::vector<std::string> outcome;

  auto operator<=>(const Row&) const = default;
};

/// Rows of many runs. Those that agree become one, with what went wrong listed, the chips named
/// and the runs counted.
class Table {
 public:
  /// @param columns  titles of the outcome's columns
  explicit Table(std::vector<std::string> columns) : columns_(std::move(columns)) {}

  void Add(const Row& row, const std::string& chip);

  /// The rows of one target in Markdown, by steps; empty when there are none.
  [[nodiscard]] std::string Markdown(const std::string& target) const;

  /// @return every run as a line of its own, also those of a table that was written as Markdown
  [[nodiscard]] std::set<std::string> Runs() const;

  /// Reads Markdown back, "## TARGET" above each table.
  static std::set<std::string> RunsIn(const std::string& markdown);

 private:
  struct Seen {
    std::set<std::string> chips;
    int runs = 0;
    std::size_t order = 0;
  };

  std::vector<std::string> columns_;
  std::map<Row, Seen> rows_;
};

}  // namespace maps
