// What the dax, pyx1 and pyx2 programmers have in common. The whole-program tables show the order
// of an update; these tests show what no command line reaches.
#include <fcntl.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "programmers/DaxFlashProgrammer.h"
#include "programmers/ExpanderFlashProgrammer.h"
#include "programmers/Pyx1FlashProgrammer.h"
#include "programmers/Pyx2FlashProgrammer.h"
#include "tests/unit/programmers/ProgrammerTest.h"

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;

constexpr const char* kWarning =
    "err| Warning: SPI speed >= 20MHz may prevent writing to the first 16Mebibytes on RQV-3000 "
    "platforms.\n";
constexpr const char* kDone = "expander: getPort 0x100B";
constexpr const char* kRelease = "expander: disconnect 0x1003";

class ExpanderFlashProgrammerTest : public ProgrammerTest {
 protected:
  /// The lines are low until the given poll, counted from 1, and high from there on.
  void HighFromPoll(int poll) {
    platform_.port = [this, poll](unsigned short bits) {
      return ++polls_ >= poll ? bits : static_cast<unsigned short>(0);
    };
  }

  int polls_ = 0;
};

// --- Which patterns of the map are driven, and where ---------------------------------------------

// The flash driver destroys the device that it cannot open.
const EventLog::Events kOpenInVain = {"open(\"/dev/spidev1.0\", 2)", "close(-1)"};

TEST_F(ExpanderFlashProgrammerTest,
       ConnectingADaxWithDoneLowDrivesThesePatternsAtTheAddressCutToAByte) {
  const auto programmer = Make<DaxFlashProgrammer>(3);
  EXPECT_EQ(programmer->Connect(), 1);
  EXPECT_THAT(log_.Take(),
              ElementsAre("expander: connect 0x31 0x1002 0x1004 0x1003 0",
                          "out| Connect:101\n",
                          kDone,
                          "out| FPGA DONE not detected, force FPGA is PS mode to keep clock "
                          "management \n",
                          "expander: setPortActually 0x100A 0x1003",
                          "sleep(1)",
                          "expander: setPortActually 0x1008 0x1003",
                          kOpenInVain[0],
                          kOpenInVain[1],
                          "expander: setPortActually 0x1004 0x1003"));
}

TEST_F(ExpanderFlashProgrammerTest, ConnectingAPyx1InSlot5WithDoneHighDrivesThesePatterns) {
  platform_.port = [](unsigned short) { return static_cast<unsigned short>(1); };
  const auto programmer = Make<Pyx1FlashProgrammer>();
  EXPECT_EQ(programmer->Connect(), 1);
  EXPECT_THAT(log_.Take(),
              ElementsAre("expander: connect 0x32 0x1002 0x1004 0x1003 0",
                          kDone,
                          "out| FPGA DONE detected, do not reset the FPGA  and try to read the "
                          "flash header \n",
                          "expander: setPortActually 0x1009 0x1003",
                          kOpenInVain[0],
                          kOpenInVain[1],
                          "expander: setPortActually 0x1004 0x1003"));
}

TEST_F(ExpanderFlashProgrammerTest, ConnectingAPyx2InSlot5DrivesThesePatternsWithoutReadingDone) {
  const auto programmer = Make<Pyx2FlashProgrammer>();
  EXPECT_EQ(programmer->Connect(), 1);
  EXPECT_THAT(log_.Take(),
              ElementsAre("expander: connect 0x32 0x1002 0x1004 0x1003 0",
                          "expander: setPortActually 0x1009 0x1003",
                          kOpenInVain[0],
                          kOpenInVain[1],
                          "expander: setPortActually 0x1004 0x1003"));
}

TEST_F(ExpanderFlashProgrammerTest, ResettingADaxOrPyx1InSlot5TogglesAtThePlainAddress) {
  const EventLog::Events reset = {"expander: setPortActually 0x1005 0x1003",
                                  "usleep(10000)",
                                  "expander: setPortActually 0x1004 0x1003",
                                  "expander: connect 0x31 0x1003 0x0000 0x1003 0"};
  const auto dax = Make<DaxFlashProgrammer>();
  EXPECT_TRUE(dax->toggleReset());
  EXPECT_EQ(log_.Take(), reset);
  const auto pyx1 = Make<Pyx1FlashProgrammer>();
  EXPECT_TRUE(pyx1->toggleReset());
  EXPECT_EQ(log_.Take(), reset);
}

TEST_F(ExpanderFlashProgrammerTest, ResettingAPyx2InSlot5NeverDrivesTheRunPattern) {
  const auto programmer = Make<Pyx2FlashProgrammer>();
  EXPECT_TRUE(programmer->toggleReset());
  EXPECT_THAT(log_.Take(),
              ElementsAre("expander: setPortActually 0x1005 0x1003",
                          "sleep(5)",
                          "expander: connect 0x31 0x1003 0x0000 0x1003 0"));
}

TEST_F(ExpanderFlashProgrammerTest, ResetFailsWhenTheExpanderDoesNotAnswerAtTheEnd) {
  const auto programmer = Make<DaxFlashProgrammer>();
  platform_.expanderAnswers = false;
  EXPECT_FALSE(programmer->toggleReset());
}

TEST_F(ExpanderFlashProgrammerTest, ResetWhoseFinalConnectFailsStillWaitsForDone) {
  const auto programmer = Make<Pyx2FlashProgrammer>();
  platform_.expanderAnswers = false;
  HighFromPoll(9999);
  EXPECT_EQ(programmer->toggleFpgaResetAndWaitForProgramDone(), 0);
  EXPECT_EQ(log_.Count(kDone), 9999);
}

// --- The route, one step at a time ----------------------------------------------------------------

TEST_F(ExpanderFlashProgrammerTest, ConnectedLinesOfADaxDriveTheRunPatternAtTheAddressOfTheSlot) {
  const auto programmer = Make<DaxFlashProgrammer>();
  FlashRouteInterface& route = *programmer;
  EXPECT_TRUE(route.ConnectLines());
  platform_.expanderAnswers = false;
  EXPECT_FALSE(route.ConnectLines());
  EXPECT_THAT(log_.Take(),
              ElementsAre("expander: connect 0x32 0x1002 0x1004 0x1003 0",
                          "out| Connect:101\n",
                          "expander: connect 0x32 0x1002 0x1004 0x1003 0",
                          "out| Connect:121\n"));
}

TEST_F(ExpanderFlashProgrammerTest, ConnectedLinesOfAPyxAreNotReported) {
  const auto programmer = Make<Pyx2FlashProgrammer>();
  EXPECT_TRUE(programmer->ConnectLines());
  EXPECT_THAT(log_.Take(), ElementsAre("expander: connect 0x32 0x1002 0x1004 0x1003 0"));
}

TEST_F(ExpanderFlashProgrammerTest, PsModeOfAPyx2IsTheRouteToTheController) {
  const auto programmer = Make<Pyx2FlashProgrammer>();
  programmer->RouteInPsMode();
  EXPECT_THAT(log_.Take(), ElementsAre("expander: setPortActually 0x1009 0x1003"));
}

// --- DONE ---------------------------------------------------------------------------------------

template <typename Programmer>
class ExpanderDoneLineTest : public ExpanderFlashProgrammerTest {};

using Programmers = testing::Types<DaxFlashProgrammer, Pyx1FlashProgrammer, Pyx2FlashProgrammer>;
TYPED_TEST_SUITE(ExpanderDoneLineTest, Programmers);

TYPED_TEST(ExpanderDoneLineTest, ProgrammedMeansThatDoneIsHigh) {
  this->HighFromPoll(2);
  const auto programmer = this->template Make<TypeParam>();
  EXPECT_FALSE(programmer->IsProgrammed());
  EXPECT_TRUE(programmer->IsProgrammed());
  EXPECT_THAT(this->log_.Take(), ElementsAre(kDone, kDone));
}

TYPED_TEST(ExpanderDoneLineTest, EachStepOfTheRouteDrivesOnePattern) {
  const auto programmer = this->template Make<TypeParam>();
  FlashRouteInterface& route = *programmer;
  route.RouteToController();
  route.HoldReset();
  route.ReleaseReset();
  route.RouteToFpga();
  EXPECT_THAT(this->log_.Take(),
              ElementsAre("expander: setPortActually 0x1009 0x1003",
                          "expander: setPortActually 0x1005 0x1003",
                          "expander: setPortActually 0x1004 0x1003",
                          "expander: setPortActually 0x1004 0x1003"));
}

template <typename Programmer>
class PsModeTest : public ExpanderFlashProgrammerTest {};

using BitstreamProgrammers = testing::Types<DaxFlashProgrammer, Pyx1FlashProgrammer>;
TYPED_TEST_SUITE(PsModeTest, BitstreamProgrammers);

TYPED_TEST(PsModeTest, HoldsTheFpgaInResetForASecondWithoutReadingDone) {
  const auto programmer = this->template Make<TypeParam>();
  programmer->RouteInPsMode();
  EXPECT_THAT(this->log_.Take(),
              ElementsAre("out| FPGA DONE not detected, force FPGA is PS mode to keep clock "
                          "management \n",
                          "expander: setPortActually 0x100A 0x1003",
                          "sleep(1)",
                          "expander: setPortActually 0x1008 0x1003"));
}

struct Wait {
  const char* name;
  milliseconds::rep timeout;
  int highFromPoll;  // 0: never
  bool high;
  int polls;
  int sleeps;
};

class ExpanderDoneTest : public ExpanderFlashProgrammerTest,
                         public testing::WithParamInterface<Wait> {};

TEST_P(ExpanderDoneTest, ResultPollsAndSleepsAreThoseOfTheRow) {
  const Wait& row = GetParam();
  const auto programmer = Make<DaxFlashProgrammer>();
  HighFromPoll(row.highFromPoll == 0 ? 100'000 : row.highFromPoll);
  EXPECT_EQ(programmer->waitForSignalToGoHigh(0x0004, milliseconds(row.timeout)), row.high);
  EXPECT_EQ(log_.Count("expander: getPort 0x0004"), row.polls);
  EXPECT_EQ(log_.Count("usleep(1000)"), row.sleeps);
}

INSTANTIATE_TEST_SUITE_P(
    Waits,
    ExpanderDoneTest,
    testing::Values(
        Wait{"ShortestThereIsReadsNothing", milliseconds::min().count(), 1, false, 0, 0},
        Wait{"NegativeReadsNothing", -1, 1, false, 0, 0},
        Wait{"Of0ReadsNothing", 0, 1, false, 0, 0},
        Wait{"Of1ReadsOnceAndIsTooLate", 1, 1, false, 1, 0},
        Wait{"Of1ReadsOnceAndSleepsOnceWhenLow", 1, 0, false, 1, 1},
        Wait{"Of2SeesALineThatIsHighAtOnce", 2, 1, true, 1, 0},
        Wait{"Of2IsTooLateOnPoll2", 2, 2, false, 2, 1},
        Wait{"Of50SeesALineOnPoll49", 50, 49, true, 49, 48},
        Wait{"Of50IsTooLateOnPoll50", 50, 50, false, 50, 49},
        Wait{"Of50PollsAndSleeps50Times", 50, 0, false, 50, 50}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(ExpanderFlashProgrammerTest, LineSeenHighOnTheLastPollCountsAsTimeout) {
  const auto programmer = Make<Pyx1FlashProgrammer>();
  HighFromPoll(10'000);
  EXPECT_EQ(programmer->toggleFpgaResetAndWaitForProgramDone(), 7);
  EXPECT_EQ(log_.Count(kDone), 10'000);
}

TEST_F(ExpanderFlashProgrammerTest, WaitTakesAnyOfTheWatchedLinesForHigh) {
  platform_.port = [](unsigned short) { return static_cast<unsigned short>(0x8000); };
  const auto programmer = Make<DaxFlashProgrammer>();
  EXPECT_TRUE(programmer->waitForSignalToGoHigh(0x8004, milliseconds(2)));
  EXPECT_THAT(log_.Take(), ElementsAre("expander: getPort 0x8004"));
}

// --- ReadDevice ---------------------------------------------------------------------------------

TEST_F(ExpanderFlashProgrammerTest, DumpIsCreatedForItsOwnerAndStaysOpen) {
  const auto programmer = Make<DaxFlashProgrammer>();
  EXPECT_EQ(programmer->ReadDevice("dump", 0), 0);
  EXPECT_THAT(log_.Take(),
              ElementsAre("out| DaxFlashProgrammer ReadDevice \n",
                          kernel::Open("dump", O_WRONLY | O_CREAT, 0600).text));
  leftOpen_ = {"dump"};
}

TEST_F(ExpanderFlashProgrammerTest, DumpThatCannotBeReadFromTheFlashIsClosedAndIsProgramFailed) {
  const auto programmer = Make<DaxFlashProgrammer>();
  EXPECT_EQ(programmer->ReadDevice("dump", 512), 6);
  EXPECT_EQ(log_.Count("close(100)"), 1);
}

TEST_F(ExpanderFlashProgrammerTest, DumpThatCannotBeCreatedIsOpenFileFailed) {
  const auto programmer = Make<DaxFlashProgrammer>();
  kernel_.decide = [](const char*, const std::string&) {
    return FileKernel::Fate{.error = EACCES};
  };
  EXPECT_EQ(programmer->ReadDevice("dump", 512), 2);
}

/// A device on whose flash every byte is zero.
class ZeroDevice : public SPIDev {
 public:
  ZeroDevice() : SPIDev("", kHz, 0, 8) {}
  int read(std::uint8_t* rx, std::size_t rxLen, std::uint8_t*, std::size_t) override {
    std::fill_n(rx, rxLen, std::uint8_t{0});
    return static_cast<int>(rxLen);
  }

 private:
  static constexpr unsigned kHz = 1'000'000;
};

TEST_F(ExpanderFlashProgrammerTest, StampInTheTailOfALongerStaleDumpDecides) {
  ZeroDevice device;
  DaxFlashProgrammer programmer(&expander_, &device, &lines_, 3);
  const std::string stamp = "\x30\x01\xA0\x01\x5A\x9E\x38\xC5";
  kernel_.files = {{"dumpflash.bin", std::string(512, 'x') + stamp}, {"image", stamp}};
  int result = 0;
  {
    const Console console(nullptr, Console::Takes::kStreamsAndStdio);
    result = programmer.ProgramDevice("image");
  }
  EXPECT_EQ(result, 11);
  EXPECT_EQ(kernel_.files["dumpflash.bin"], std::string(512, '\0') + stamp);
  leftOpen_ = {"dumpflash.bin"};
}

// --- Life cycle ---------------------------------------------------------------------------------

TEST_F(ExpanderFlashProgrammerTest, DaxCreatesTheFlashDriverAndDestroysItAfterReleasingTheLines) {
  {
    const DaxFlashProgrammer programmer(&expander_, spi_.Get(), &lines_, 4);
    EXPECT_THAT(log_.Take(), ElementsAre(kWarning));
  }
  EXPECT_THAT(log_.Take(), ElementsAre(kRelease, "close(-1)"));
}

template <typename Programmer>
class PyxLifeCycleTest : public ExpanderFlashProgrammerTest {
 protected:
  void ThrowWhileSelecting() {
    kernel_.decide = [](const char* call, const std::string&) -> FileKernel::Fate {
      if (std::string(call) == "nanosleep") {
        throw std::domain_error("selection");
      }
      return {};
    };
  }
};

using PyxProgrammers = testing::Types<Pyx1FlashProgrammer, Pyx2FlashProgrammer>;
TYPED_TEST_SUITE(PyxLifeCycleTest, PyxProgrammers);

TYPED_TEST(PyxLifeCycleTest, SelectsTheMasterBehindTheFlashDriverAndOtdrBeforeItGoes) {
  {
    const TypeParam programmer(&this->expander_, this->spi_.Get(), &this->lines_, 4);
    EXPECT_THAT(this->log_.Take(), ElementsAre(kWarning, "nanosleep(100000000)"));
    EXPECT_EQ(this->slotA_.Contents(), "SPIFIFO");
  }
  EXPECT_THAT(this->log_.Take(), ElementsAre(kRelease, "nanosleep(100000000)", "close(-1)"));
  EXPECT_EQ(this->slotA_.Contents(), "SPILVDS");
}

TYPED_TEST(PyxLifeCycleTest, SelectionThatThrowsDestroysTheFlashDriverOnlyAndPassesOn) {
  this->ThrowWhileSelecting();
  EXPECT_THROW(TypeParam(&this->expander_, this->spi_.Get(), &this->lines_, 4), std::domain_error);
  EXPECT_THAT(this->log_.Take(), ElementsAre(kWarning, "nanosleep(100000000)", "close(-1)"));
}

TYPED_TEST(PyxLifeCycleTest, SelectionThatThrowsInTheEndEndsTheProcess) {
  auto programmer = this->template Make<TypeParam>();
  EXPECT_EXIT(
      {
        this->ThrowWhileSelecting();
        programmer.reset();
      },
      testing::KilledBySignal(SIGABRT),
      "");
}

TYPED_TEST(ExpanderDoneLineTest, ExceptionFromReleasingTheLinesEndsTheProcess) {
  auto programmer = this->template Make<TypeParam>();
  EXPECT_EXIT(
      {
        this->platform_.throwAt = kRelease;
        programmer.reset();
      },
      testing::KilledBySignal(SIGABRT),
      "");
}

TEST_F(ExpanderFlashProgrammerTest, DaxSelectsNothingAndSucceeds) {
  const auto programmer = Make<DaxFlashProgrammer>();
  for (const int module : {0, 4, 5}) {
    EXPECT_EQ(programmer->Select_SPIMaster(module), 0);
    EXPECT_EQ(programmer->Select_OTDR(module), 0);
  }
  EXPECT_EQ(slotA_.Openings() + slotB_.Openings(), 0);
}

}  // namespace
