#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "tests/doubles/Console.h"
#include "tests/doubles/KernelCall.h"
#include "tests/doubles/ScriptedKernel.h"

/// A test of objects that make system calls: each call is scripted, and so is each byte on the
/// console. The objects must be gone when the fixture is torn down.
class KernelTest : public testing::Test {
 protected:
  void Expect(const std::vector<KernelCall>& calls) { kernel_.Expect(calls); }

  /// Compares what has been printed since the last call, whole and flushed.
  void ExpectConsole(const std::string& out, const std::string& err) {
    EXPECT_EQ(console_.TakeOut(), out);
    EXPECT_EQ(console_.TakeErr(), err);
  }

  void TearDown() override {
    kernel_.Verify();
    if (!HasFailure()) {
      ExpectConsole("", "");
    }
  }

  Console console_;
  ScriptedKernel kernel_;
};
