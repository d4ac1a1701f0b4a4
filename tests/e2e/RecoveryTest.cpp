// An update that was cut short behind the first page, and how the module is brought back.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "proofs/maps/Scenario.h"

namespace maps {
namespace {

class RecoveryTest : public testing::TestWithParam<Scenario> {
 protected:
  /// Updates one after the other, the first of them killed at the hundredth page.
  static Observation AfterCut(const std::vector<std::string>& images) {
    std::string command;
    for (const std::string& image : images) {
      command += UpdateCommand(GetParam(), image) + "; echo \"exit code $?\"; sleep 2; ";
    }
    return Observe(GetParam(), "", {"spi:PP#100:kill"}, command);
  }

  static std::string ExitCodes(const std::string& out) {
    constexpr std::string_view kStart = "exit code ";
    std::string codes;
    for (std::size_t at = out.find(kStart); at != std::string::npos;
         at = out.find(kStart, at + 1)) {
      const std::size_t begin = at + kStart.size();
      codes += out.substr(begin, out.find('\n', begin) - begin) + " ";
    }
    return codes;
  }
};

TEST_P(RecoveryTest, TheSameImageAgainIsTakenForUpToDate) {
  const Observation seen = AfterCut({"image.bin", "image.bin"});
  EXPECT_EQ(ExitCodes(seen.out), "137 11 ");
  EXPECT_EQ(seen.flash, Flash::kLooksNew);
}

TEST_P(RecoveryTest, AnotherImageAndThenTheRightOneMendIt) {
  const Observation seen = AfterCut({"image.bin", "image.bin", "other.bin", "image.bin"});
  EXPECT_EQ(ExitCodes(seen.out), "137 11 0 0 ");
  EXPECT_EQ(seen.flash, Flash::kImage);
  EXPECT_TRUE(seen.state.starts_with("done=1")) << seen.state;
}

INSTANTIATE_TEST_SUITE_P(Modules,
                         RecoveryTest,
                         testing::ValuesIn(AllScenarios()),
                         [](const auto& scenario) {
                           return scenario.param.target + "_" + scenario.param.chip;
                         });

}  // namespace
}  // namespace maps
