#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <string>
#include <vector>

#include "companion/module/EndpointFiles.h"
#include "tests/doubles/EventLog.h"
#include "tests/doubles/FileKernel.h"
#include "tests/doubles/PlatformDoubles.h"

namespace companion {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kAddress = "/sys/bus/pci/slots/4/address";
constexpr const char* kEnable = "/sys/bus/pci/devices/0000:04:00.0/enable";

/// Slot 4 with an endpoint that the platform's switch removes, finds and enables. What it did shows
/// in the files when the next one is opened.
class EndpointFilesTest : public testing::Test {
 protected:
  EndpointFilesTest() {
    kernel_.files[kAddress] = "0000:04:00\n";
    kernel_.files[kEnable] = "1\n";
    kernel_.decide = [this](const char* call, const std::string& path) {
      Follow();
      return fate_ ? fate_(call, path) : FileKernel::Fate{};
    };
  }

  void Follow() {
    for (const std::string& event : log_.Take()) {
      if (!event.starts_with("switch: ") || event.ends_with("struct") ||
          event.ends_with("destroy")) {
        continue;
      }
      const std::string step = event.substr(8);
      calls_.push_back(step);
      if (std::erase(lost_, step) != 0) {
        continue;
      }
      if (step == "RemoveDevice 4") {
        kernel_.files.erase(kEnable);
      } else if (step == "RescanPciBus 4") {
        kernel_.files[kEnable] = found_;
      } else if (kernel_.files.contains(kEnable)) {
        kernel_.files[kEnable] = "1\n";
      }
    }
  }

  /// @return the calls of the switch
  std::vector<std::string> Calls() {
    Follow();
    return calls_;
  }

  EventLog log_;
  PlatformDoubles platform_{log_};
  FileKernel kernel_;
  FileKernel::Decide fate_;
  std::vector<std::string> calls_;
  std::vector<std::string> lost_;  ///< steps that have no effect, once each
  std::string found_ = "0\n";      ///< the enable count after a rescan
  EndpointFiles endpoint_{4};
};

TEST_F(EndpointFilesTest, StateIsTheEnableCount) {
  EXPECT_EQ(endpoint_.State(), Endpoint::kEnabled);
  kernel_.files[kEnable] = "12\n";
  EXPECT_EQ(endpoint_.State(), Endpoint::kEnabled);
  kernel_.files[kEnable] = "0\n";
  EXPECT_EQ(endpoint_.State(), Endpoint::kDisabled);
  kernel_.files.erase(kEnable);
  EXPECT_EQ(endpoint_.State(), Endpoint::kAbsent);
}

TEST_F(EndpointFilesTest, SlotThatIsNotFoundIsNotListed) {
  kernel_.files.erase(kAddress);
  EXPECT_EQ(endpoint_.State(), Endpoint::kNotListed);
}

TEST_F(EndpointFilesTest, SlotWhoseAddressIsNoneIsUnknown) {
  kernel_.files[kAddress] = "nowhere\n";
  EXPECT_EQ(endpoint_.State(), Endpoint::kUnknown);
}

TEST_F(EndpointFilesTest, EndpointThatCannotBeLookedAtIsNotBelievedToBeEnabled) {
  kernel_.files[kEnable] = "yes\n";
  EXPECT_EQ(endpoint_.EnumerateAgain(), "the PCIe endpoint cannot be looked at");
  EXPECT_TRUE(Calls().empty());
}

TEST_F(EndpointFilesTest, CountThatIsNoNumberIsUnknown) {
  kernel_.files[kEnable] = "yes\n";
  EXPECT_EQ(endpoint_.State(), Endpoint::kUnknown);
  kernel_.files[kEnable] = "";
  EXPECT_EQ(endpoint_.State(), Endpoint::kUnknown);
  kernel_.files[kEnable] = "-1\n";
  EXPECT_EQ(endpoint_.State(), Endpoint::kUnknown);
}

TEST_F(EndpointFilesTest, OneWrongLookDoesNotCount) {
  int reads = 0;
  fate_ = [&](const char* call, const std::string& path) {
    const bool spoilt = call == std::string("read") && path == kEnable && ++reads == 2;
    return FileKernel::Fate{.error = spoilt ? EIO : 0};
  };
  EXPECT_EQ(endpoint_.State(), Endpoint::kEnabled);
}

TEST_F(EndpointFilesTest, LooksThatNeverAgreeAreUnknown) {
  int reads = 0;
  fate_ = [&](const char* call, const std::string& path) {
    if (call == std::string("open") && path == kEnable) {
      kernel_.files[kEnable] = ++reads % 2 == 0 ? "0\n" : "1\n";
    }
    return FileKernel::Fate{};
  };
  EXPECT_EQ(endpoint_.State(), Endpoint::kUnknown);
}

TEST_F(EndpointFilesTest, EndpointIsRemovedFoundAndEnabled) {
  EXPECT_EQ(endpoint_.EnumerateAgain(), "");
  EXPECT_THAT(Calls(), ElementsAre("RemoveDevice 4", "RescanPciBus 4", "EnableDevice 4"));
  EXPECT_EQ(endpoint_.State(), Endpoint::kEnabled);
}

TEST_F(EndpointFilesTest, EndpointThatIsNotThereIsNotRemovedFirst) {
  kernel_.files.erase(kEnable);
  EXPECT_EQ(endpoint_.EnumerateAgain(), "");
  EXPECT_THAT(Calls(), ElementsAre("RescanPciBus 4", "EnableDevice 4"));
}

TEST_F(EndpointFilesTest, EndpointThatIsEnabledWhenItIsFoundIsEnabledAllTheSame) {
  found_ = "1\n";
  EXPECT_EQ(endpoint_.EnumerateAgain(), "");
  EXPECT_THAT(Calls(), ElementsAre("RemoveDevice 4", "RescanPciBus 4", "EnableDevice 4"));
}

TEST_F(EndpointFilesTest, StepWithoutEffectIsRepeatedAlsoWhenItReportsSuccess) {
  lost_ = {"RemoveDevice 4", "RescanPciBus 4", "EnableDevice 4", "EnableDevice 4"};
  EXPECT_EQ(endpoint_.EnumerateAgain(), "");
  EXPECT_THAT(Calls(),
              ElementsAre("RemoveDevice 4",
                          "RemoveDevice 4",
                          "RescanPciBus 4",
                          "RescanPciBus 4",
                          "EnableDevice 4",
                          "EnableDevice 4"));
}

TEST_F(EndpointFilesTest, StepThatReportsFailureButHadItsEffectIsDone) {
  platform_.removed = false;
  platform_.rescanned = false;
  platform_.enabled = false;
  EXPECT_EQ(endpoint_.EnumerateAgain(), "");
}

TEST_F(EndpointFilesTest, EndpointThatIsNeverRemovedIsAProblem) {
  fate_ = [&](const char* /*call*/, const std::string& /*path*/) {
    kernel_.files[kEnable] = "1\n";
    return FileKernel::Fate{};
  };
  EXPECT_EQ(endpoint_.EnumerateAgain(), "the PCIe endpoint is not removed");
  EXPECT_EQ(Calls().size(), 3U);
}

TEST_F(EndpointFilesTest, EndpointThatIsNeverFoundIsAProblem) {
  fate_ = [&](const char* /*call*/, const std::string& /*path*/) {
    kernel_.files.erase(kEnable);
    return FileKernel::Fate{};
  };
  EXPECT_EQ(endpoint_.EnumerateAgain(), "the PCIe endpoint is not found when its bus is scanned");
  EXPECT_EQ(Calls().size(), 3U);
}

TEST_F(EndpointFilesTest, EndpointThatIsNeverEnabledIsAProblem) {
  kernel_.files.erase(kEnable);
  fate_ = [&](const char* /*call*/, const std::string& /*path*/) {
    if (kernel_.files.contains(kEnable)) {
      kernel_.files[kEnable] = "0\n";
    }
    return FileKernel::Fate{};
  };
  EXPECT_EQ(endpoint_.EnumerateAgain(), "the PCIe endpoint is not enabled");
}

/// The slot is not found below /sys/bus/pci.
class EndpointFilesWithoutASlotTest : public EndpointFilesTest {
 protected:
  EndpointFilesWithoutASlotTest() { kernel_.files.clear(); }
};

TEST_F(EndpointFilesWithoutASlotTest, WhatTheSwitchReturnsDecides) {
  EXPECT_EQ(endpoint_.EnumerateAgain(), "");
  EXPECT_THAT(Calls(), ElementsAre("RemoveDevice 4", "RescanPciBus 4", "EnableDevice 4"));
}

TEST_F(EndpointFilesWithoutASlotTest, EndpointThatCannotBeRemovedIsAProblem) {
  platform_.removed = false;
  EXPECT_EQ(endpoint_.EnumerateAgain(), "the PCIe endpoint cannot be removed");
  EXPECT_EQ(Calls().size(), 9U);
}

TEST_F(EndpointFilesWithoutASlotTest, BusThatCannotBeScannedIsAProblem) {
  platform_.rescanned = false;
  EXPECT_EQ(endpoint_.EnumerateAgain(), "the PCIe bus cannot be scanned again");
}

TEST_F(EndpointFilesWithoutASlotTest, EndpointThatCannotBeEnabledIsAProblem) {
  platform_.enabled = false;
  EXPECT_EQ(endpoint_.EnumerateAgain(), "the PCIe endpoint cannot be enabled");
}

}  // namespace
}  // namespace companion
