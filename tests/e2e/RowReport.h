#pragma once

#include <gtest/gtest.h>

#include <iosfwd>

namespace program_test {

/// Reports each test as a row of a table: nothing for one that holds, a line with its name for one
/// that fails, then what differs. The last line is two numbers: all rows, and those that hold.
class RowReport : public testing::EmptyTestEventListener {
 public:
  explicit RowReport(std::ostream& out) : out_(out) {}

  void OnTestEnd(const testing::TestInfo& row) override;
  void OnTestProgramEnd(const testing::UnitTest& table) override;

 private:
  std::ostream& out_;
};

}  // namespace program_test
