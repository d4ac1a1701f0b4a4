// The main function of a test program. With --rows it reports row by row; with --write-golden it
// writes its golden logs.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <string_view>

#include "tests/e2e/GoldenLog.h"
#include "tests/e2e/RowReport.h"

namespace {

/// Golden logs are checked by a person, and come from the program that is built with the tests.
const char* WhyGoldenLogsStay() {
  if (std::getenv("CI") != nullptr) {
    return "not with CI in the environment";
  }
  if (std::getenv("TARNWICK_BINARY") != nullptr) {
    return "not with TARNWICK_BINARY in the environment";
  }
  return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  const std::string_view word = argc > 1 ? argv[1] : "";
  if (word == "--rows") {
    testing::TestEventListeners& listeners = testing::UnitTest::GetInstance()->listeners();
    delete listeners.Release(listeners.default_result_printer());
    listeners.Append(new program_test::RowReport(std::cout));  // GoogleTest owns it then
  } else if (word == "--write-golden") {
    if (const char* const reason = WhyGoldenLogsStay(); reason != nullptr) {
      std::cerr << argv[0] << ": --write-golden: " << reason << "\n";
      return 2;
    }
    program_test::golden_log::WriteFromNowOn();
  } else if (argc > 1) {
    std::cerr << argv[0] << ": unknown option '" << word << "'\n";
    return 2;
  }
  return RUN_ALL_TESTS();
}
