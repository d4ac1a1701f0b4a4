#include <unistd.h>

#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

#include "tests/unit/programmers/expander/ExpanderTest.h"

namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::Matcher;
using testing::StrEq;

/// What ExitWithLogOnTerminate() prints. The language leaves it to the compiler whether an
/// exception that may not leave a destructor unwinds it first, and with it destroys the flash
/// driver.
Matcher<const std::string&> TerminatedAfter(const std::string& events) {
  return AnyOf(StrEq(events + "\n"), StrEq(events + "[flash.destroy]\n"));
}

class ExpanderLifeCycleTest : public ExpanderTest {
 protected:
  template <typename Programmer>
  std::unique_ptr<Programmer> Build(GpioProgrammingInterface& lines, unsigned int module) {
    return Record([&] { return std::make_unique<Programmer>(&expander_, spi(), &lines, module); });
  }

  /// Puts what has been recorded on standard error and exits with 42.
  static void ExitWithLogOnTerminate() {
    std::set_terminate([] {
      ExpanderLog& log = ExpanderLog::Instance();
      log.Stop();
      for (const std::string& event : log.Take()) {
        std::cerr << "[" << event << "]";
      }
      std::cerr << std::endl;
      ::_exit(42);
    });
  }

  DaxGpioProgramming daxLines_;
  Pyx1GpioProgramming pyx1Lines_;
  Pyx2GpioProgramming pyx2Lines_;
};

TEST_F(ExpanderLifeCycleTest, DaxConstructionCreatesTheFlashDriverOnly) {
  const auto programmer = Build<DaxFlashProgrammer>(daxLines_, 4);
  EXPECT_THAT(Recorded(), ElementsAre("flash.create"));
}

TEST_F(ExpanderLifeCycleTest, DaxDestructionReleasesTheLinesThenDestroysTheFlashDriver) {
  auto programmer = Build<DaxFlashProgrammer>(daxLines_, 4);
  static_cast<void>(Recorded());
  Record([&] { programmer.reset(); });
  EXPECT_THAT(Recorded(), ElementsAre("expander.disconnect 0xEDDF", "flash.destroy"));
}

TEST_F(ExpanderLifeCycleTest, Pyx1ConstructionCreatesTheFlashDriverThenSelectsTheSpiMaster) {
  const auto programmer = Build<Pyx1FlashProgrammer>(pyx1Lines_, 4);
  EXPECT_THAT(Recorded(),
              ElementsAre("flash.create",
                          "selector.open /sys/platform/module_selector/slotA w",
                          "selector.insert SPIFIFO",
                          "nanosleep 0 100000000",
                          "selector.write SPIFIFO",
                          "selector.close"));
}

TEST_F(ExpanderLifeCycleTest,
       Pyx1DestructionReleasesTheLinesSelectsOtdrThenDestroysTheFlashDriver) {
  auto programmer = Build<Pyx1FlashProgrammer>(pyx1Lines_, 4);
  static_cast<void>(Recorded());
  Record([&] { programmer.reset(); });
  EXPECT_THAT(Recorded(),
              ElementsAre("expander.disconnect 0xEDDF",
                          "selector.open /sys/platform/module_selector/slotA w",
                          "selector.insert SPILVDS",
                          "nanosleep 0 100000000",
                          "selector.write SPILVDS",
                          "selector.close",
                          "flash.destroy"));
}

TEST_F(ExpanderLifeCycleTest, Pyx2ConstructionCreatesTheFlashDriverThenSelectsTheSpiMaster) {
  const auto programmer = Build<Pyx2FlashProgrammer>(pyx2Lines_, 3);
  EXPECT_THAT(Recorded(),
              ElementsAre("flash.create",
                          "selector.open /sys/platform/module_selector/slotB w",
                          "selector.insert SPIFIFO",
                          "nanosleep 0 100000000",
                          "selector.write SPIFIFO",
                          "selector.close"));
}

TEST_F(ExpanderLifeCycleTest,
       Pyx2DestructionReleasesTheLinesSelectsOtdrThenDestroysTheFlashDriver) {
  auto programmer = Build<Pyx2FlashProgrammer>(pyx2Lines_, 3);
  static_cast<void>(Recorded());
  Record([&] { programmer.reset(); });
  EXPECT_THAT(Recorded(),
              ElementsAre("expander.disconnect 0x0A17",
                          "selector.open /sys/platform/module_selector/slotB w",
                          "selector.insert SPILVDS",
                          "nanosleep 0 100000000",
                          "selector.write SPILVDS",
                          "selector.close",
                          "flash.destroy"));
}

TEST_F(ExpanderLifeCycleTest, Pyx1GoesOnWhenItsSlotHasNoSelector) {
  script_->selectorMissing = true;
  auto programmer = Build<Pyx1FlashProgrammer>(pyx1Lines_, 3);
  EXPECT_THAT(Recorded(),
              ElementsAre("flash.create",
                          "selector.open /sys/platform/module_selector/slotB w",
                          "out| Could not open the module_selector file\n"));
  Record([&] { programmer.reset(); });
  EXPECT_THAT(Recorded(),
              ElementsAre("expander.disconnect 0xEDDF",
                          "selector.open /sys/platform/module_selector/slotB w",
                          "err| Could not open the module_selector file\n",
                          "flash.destroy"));
}

TEST_F(ExpanderLifeCycleTest, Pyx2GoesOnWhenItsSlotHasNoSelector) {
  script_->selectorMissing = true;
  auto programmer = Build<Pyx2FlashProgrammer>(pyx2Lines_, 3);
  EXPECT_THAT(Recorded(),
              ElementsAre("flash.create",
                          "selector.open /sys/platform/module_selector/slotB w",
                          "err| Could not open the module_selector file\n"));
  Record([&] { programmer.reset(); });
  EXPECT_THAT(Recorded(),
              ElementsAre("expander.disconnect 0x0A17",
                          "selector.open /sys/platform/module_selector/slotB w",
                          "err| Could not open the module_selector file\n",
                          "flash.destroy"));
}

TEST_F(ExpanderLifeCycleTest, Pyx1SelectionThatThrowsDestroysTheFlashDriverOnlyAndPassesOn) {
  script_->onNanosleep = [] { throw std::domain_error("selection"); };
  EXPECT_THROW(Build<Pyx1FlashProgrammer>(pyx1Lines_, 4), std::domain_error);
  EXPECT_THAT(Recorded(),
              ElementsAre("flash.create",
                          "selector.open /sys/platform/module_selector/slotA w",
                          "selector.insert SPIFIFO",
                          "nanosleep 0 100000000",
                          "selector.write SPIFIFO",
                          "selector.close",
                          "flash.destroy"));
}

TEST_F(ExpanderLifeCycleTest, Pyx2SelectionThatThrowsDestroysTheFlashDriverOnlyAndPassesOn) {
  script_->onNanosleep = [] { throw std::domain_error("selection"); };
  EXPECT_THROW(Build<Pyx2FlashProgrammer>(pyx2Lines_, 4), std::domain_error);
  EXPECT_THAT(Recorded(),
              ElementsAre("flash.create",
                          "selector.open /sys/platform/module_selector/slotA w",
                          "selector.insert SPIFIFO",
                          "nanosleep 0 100000000",
                          "selector.write SPIFIFO",
                          "selector.close",
                          "flash.destroy"));
}

TEST_F(ExpanderLifeCycleTest, DestroyingThroughTheInterfaceReleasesTheLines) {
  std::unique_ptr<FpgaProgrammerInterface> programmer = Build<DaxFlashProgrammer>(daxLines_, 3);
  static_cast<void>(Recorded());
  Record([&] { programmer.reset(); });
  EXPECT_THAT(Recorded(), ElementsAre("expander.disconnect 0xEDDF", "flash.destroy"));
}

using ExpanderLifeCycleDeathTest = ExpanderLifeCycleTest;

TEST_F(ExpanderLifeCycleDeathTest, DaxTerminatesWhenReleasingTheLinesThrows) {
  auto programmer = Build<DaxFlashProgrammer>(daxLines_, 3);
  static_cast<void>(Recorded());
  EXPECT_EXIT(
      {
        ExitWithLogOnTerminate();
        script_->disconnectThrows = true;
        Record([&] { programmer.reset(); });
      },
      testing::ExitedWithCode(42),
      TerminatedAfter("[expander.disconnect 0xEDDF]"));
}

TEST_F(ExpanderLifeCycleDeathTest, Pyx1TerminatesWhenReleasingTheLinesThrows) {
  auto programmer = Build<Pyx1FlashProgrammer>(pyx1Lines_, 3);
  static_cast<void>(Recorded());
  EXPECT_EXIT(
      {
        ExitWithLogOnTerminate();
        script_->disconnectThrows = true;
        Record([&] { programmer.reset(); });
      },
      testing::ExitedWithCode(42),
      TerminatedAfter("[expander.disconnect 0xEDDF]"));
}

TEST_F(ExpanderLifeCycleDeathTest, Pyx1TerminatesWhenSelectingOtdrThrows) {
  auto programmer = Build<Pyx1FlashProgrammer>(pyx1Lines_, 3);
  static_cast<void>(Recorded());
  EXPECT_EXIT(
      {
        ExitWithLogOnTerminate();
        script_->onNanosleep = [] { throw std::domain_error("selection"); };
        Record([&] { programmer.reset(); });
      },
      testing::ExitedWithCode(42),
      TerminatedAfter("[expander.disconnect 0xEDDF]"
                      "[selector.open /sys/platform/module_selector/slotB w]"
                      "[selector.insert SPILVDS][nanosleep 0 100000000][selector.write "
                      "SPILVDS][selector.close]"));
}

TEST_F(ExpanderLifeCycleDeathTest, Pyx2TerminatesWhenReleasingTheLinesThrows) {
  auto programmer = Build<Pyx2FlashProgrammer>(pyx2Lines_, 3);
  static_cast<void>(Recorded());
  EXPECT_EXIT(
      {
        ExitWithLogOnTerminate();
        script_->disconnectThrows = true;
        Record([&] { programmer.reset(); });
      },
      testing::ExitedWithCode(42),
      TerminatedAfter("[expander.disconnect 0x0A17]"));
}

TEST_F(ExpanderLifeCycleDeathTest, Pyx2TerminatesWhenSelectingOtdrThrows) {
  auto programmer = Build<Pyx2FlashProgrammer>(pyx2Lines_, 3);
  static_cast<void>(Recorded());
  EXPECT_EXIT(
      {
        ExitWithLogOnTerminate();
        script_->onNanosleep = [] { throw std::domain_error("selection"); };
        Record([&] { programmer.reset(); });
      },
      testing::ExitedWithCode(42),
      TerminatedAfter("[expander.disconnect 0x0A17]"
                      "[selector.open /sys/platform/module_selector/slotB w]"
                      "[selector.insert SPILVDS][nanosleep 0 100000000][selector.write "
                      "SPILVDS][selector.close]"));
}

}  // namespace
