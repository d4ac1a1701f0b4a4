#include "tests/e2e/RowReport.h"

#include <iostream>
#include <sstream>
#include <string>

namespace program_test {

namespace {

/// The text of an ADD_FAILURE of our own begins with this line.
constexpr const char* kPlainFailure = "Failed\n";

std::string Indented(const std::string& message) {
  std::istringstream text(message.rfind(kPlainFailure, 0) == 0 ? message.substr(7) : message);
  std::string indented;
  std::string indent = "    ";
  for (std::string line; std::getline(text, line); indent = "        ") {
    indented.append(indent).append(line).append("\n");
  }
  return indented;
}

}  // namespace

void RowReport::OnTestEnd(const testing::TestInfo& row) {
  const testing::TestResult& result = *row.result();
  if (result.Passed()) {
    return;
  }
  out_ << "FAILS " << row.test_suite_name() << "." << row.name() << "\n";
  for (int part = 0; part < result.total_part_count(); ++part) {
    if (result.GetTestPartResult(part).failed()) {
      out_ << Indented(result.GetTestPartResult(part).message());
    }
  }
}

void RowReport::OnTestProgramEnd(const testing::UnitTest& table) {
  out_ << table.test_to_run_count() << " " << table.successful_test_count() << std::endl;
}

}  // namespace program_test
