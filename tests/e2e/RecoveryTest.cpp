// An update that was cut short, and how the module is repaired.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "proofs/maps/Scenario.h"

namespace maps {
namespace {

/// Updates one after the other, the first of them killed.
/// @return what the runs did; standard output has only the exit codes
Observation AfterCut(const Scenario& scenario,
                     const std::string& rule,
                     const std::vector<std::string>& images) {
  std::string command;
  for (const std::string& image : images) {
    command += UpdateCommand(scenario, image) + " >&2; echo $?; sleep 2; ";
  }
  return Observe(scenario, "", {rule}, command);
}

class RecoveryTest : public testing::TestWithParam<Scenario> {
 protected:
  static constexpr const char* kRule = "spi:PP#100:kill";
};

TEST_P(RecoveryTest, TheSameImageAgainIsTakenForUpToDate) {
  const Observation seen = AfterCut(GetParam(), kRule, {"image.bin", "image.bin"});
  EXPECT_EQ(seen.out, "137\n11\n");
  EXPECT_EQ(seen.flash, Flash::kLooksNew);
}

TEST_P(RecoveryTest, AnotherImageAndThenTheRightOneMendIt) {
  const Observation seen =
      AfterCut(GetParam(), kRule, {"image.bin", "image.bin", "other.bin", "image.bin"});
  EXPECT_EQ(seen.out, "137\n11\n0\n0\n");
  EXPECT_EQ(seen.flash, Flash::kImage);
  EXPECT_TRUE(seen.state.starts_with("done=1")) << seen.state;
}

INSTANTIATE_TEST_SUITE_P(Modules,
                         RecoveryTest,
                         testing::ValuesIn(AllScenarios()),
                         [](const auto& scenario) {
                           return scenario.param.target + "_" + scenario.param.chip;
                         });

/// An update that was killed after it had written the image.
struct OutOfUse {
  const char* name;
  Scenario scenario;
  const char* rule;  ///< kills the update
  const char* left;  ///< the module after an update with nothing to write
  const char* ends;  ///< exit codes of two updates that write
  const char* back;  ///< the module after them
};

class OutOfUseTest : public testing::TestWithParam<OutOfUse> {};

TEST_P(OutOfUseTest, UpdateWithNothingToWriteLeavesTheModule) {
  const OutOfUse& cut = GetParam();
  const Observation seen = AfterCut(cut.scenario, cut.rule, {"image.bin", "image.bin"});
  EXPECT_EQ(seen.out, "137\n11\n");
  EXPECT_EQ(seen.flash, Flash::kImage);
  EXPECT_EQ(seen.state, cut.left);
}

TEST_P(OutOfUseTest, UpdatesThatWriteBringBackAllButAnAbsentEndpoint) {
  const OutOfUse& cut = GetParam();
  const Observation seen =
      AfterCut(cut.scenario, cut.rule, {"image.bin", "other.bin", "image.bin"});
  EXPECT_EQ(seen.out, std::string("137\n") + cut.ends);
  EXPECT_EQ(seen.flash, Flash::kImage);
  EXPECT_EQ(seen.state, cut.back);
}

constexpr const char* kPyxInUse =
    "done=1 driven=0x0000 pcie=enabled selector=SPILVDS loaded=current";
constexpr const char* kEndpointAbsent =
    "done=1 driven=0x0000 pcie=absent selector=SPILVDS loaded=current";
constexpr const char* kEndpointPresent =
    "done=1 driven=0x0000 pcie=present selector=SPILVDS loaded=current";

const OutOfUse kCuts[] = {
    {"wendInReset",
     {"wend", 1, "micron"},
     "sleep:5 s#1:kill",
     "done=0 qspi_prg=1 loaded=none",
     "0\n0\n",
     "done=1 qspi_prg=0 loaded=current"},
    {"pyx2InReset",
     {"pyx2", 5, "macronix"},
     "sleep:5 s#1:kill",
     "done=0 driven=0x0000 pcie=enabled selector=SPILVDS loaded=none",
     "0\n0\n",
     kPyxInUse},
    {"pyx1WithEndpointAbsent",
     {"pyx1", 4, "micron"},
     "write:/rescan#1:kill",
     kEndpointAbsent,
     "10\n10\n",
     kEndpointAbsent},
    {"pyx2WithEndpointPresent",
     {"pyx2", 5, "micron"},
     "write:/enable#1:kill",
     kEndpointPresent,
     "0\n0\n",
     kPyxInUse},
};

INSTANTIATE_TEST_SUITE_P(Cuts, OutOfUseTest, testing::ValuesIn(kCuts), [](const auto& cut) {
  return std::string(cut.param.name);
});

}  // namespace
}  // namespace maps
