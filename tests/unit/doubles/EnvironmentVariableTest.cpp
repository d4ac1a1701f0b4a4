#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/doubles/EnvironmentVariable.h"

namespace {

constexpr const char* kName = "TARNWICK_TEST_VARIABLE";

TEST(EnvironmentVariableTest, WhatWasThereReturns) {
  {
    const EnvironmentVariable outer(kName, "outer");
    {
      const EnvironmentVariable inner(kName, "inner");
      EXPECT_STREQ(std::getenv(kName), "inner");
    }
    EXPECT_STREQ(std::getenv(kName), "outer");
  }
  EXPECT_EQ(std::getenv(kName), nullptr);
}

}  // namespace
