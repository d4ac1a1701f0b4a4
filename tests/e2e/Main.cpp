// A test program as usual; with --rows, a table that is reported row by row.
#include <gtest/gtest.h>

#include <iostream>
#include <string_view>

#include "tests/e2e/RowReport.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (argc > 1 && std::string_view(argv[1]) == "--rows") {
    testing::TestEventListeners& listeners = testing::UnitTest::GetInstance()->listeners();
    delete listeners.Release(listeners.default_result_printer());
    listeners.Append(new program_test::RowReport(std::cout));  // which GoogleTest then owns
  }
  return RUN_ALL_TESTS();
}
