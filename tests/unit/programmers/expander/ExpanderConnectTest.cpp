#include <type_traits>

#include "tests/unit/programmers/expander/ExpanderDistinctLines.h"
#include "tests/unit/programmers/expander/ExpanderTest.h"

namespace {

using testing::ElementsAre;

constexpr const char* kDoneDetected =
    "out| FPGA DONE detected, do not reset the FPGA  and try to read the flash header \n";
constexpr const char* kDoneNotDetected =
    "out| FPGA DONE not detected, force FPGA is PS mode to keep clock management \n";

class ExpanderConnectTest : public ExpanderTest {
 protected:
  void DoneIs(unsigned short level) {
    script_->port = [level](unsigned short) { return level; };
  }

  template <typename Programmer>
  std::unique_ptr<Programmer> OverDistinctLines(unsigned int module) {
    auto made = Record(
        [&] { return std::make_unique<Programmer>(&expander_, spi(), &distinctLines_, module); });
    static_cast<void>(Recorded());
    return made;
  }

  /// The first word of the log after Connect() of a programmer in a slot.
  template <typename Programmer>
  std::string ExpanderConnectOf(unsigned int module) {
    DoneIs(0x0100);
    auto& programmer = Ready<Programmer>(module);
    Record([&] { return programmer.Connect(); });
    return Recorded().front();
  }

  ExpanderDistinctLines distinctLines_;
};

TEST_F(ExpanderConnectTest, DaxWithDoneHighReportsTheExpanderAndTakesTheFlash) {
  DoneIs(0x0100);
  auto& programmer = Ready<DaxFlashProgrammer>();
  EXPECT_EQ(Record([&] { return programmer.Connect(); }), 0);
  EXPECT_THAT(Recorded(),
              ElementsAre("expander.connect 0x21 0x0140 0x2C80 0xEDDF 0",
                          "out| Connect:101\n",
                          "expander.getPort 0x0100",
                          kDoneDetected,
                          "expander.setPortActually 0x2C9D 0xEDDF",
                          "flash.Connect true"));
}

TEST_F(ExpanderConnectTest, DaxWithDoneLowGoesThroughPsModeAndLeavesTheSpiAtTheFpga) {
  DoneIs(0);
  auto& programmer = Ready<DaxFlashProgrammer>();
  EXPECT_EQ(Record([&] { return programmer.Connect(); }), 0);
  EXPECT_THAT(Recorded(),
              ElementsAre("expander.connect 0x21 0x0140 0x2C80 0xEDDF 0",
                          "out| Connect:101\n",
                          "expander.getPort 0x0100",
                          kDoneNotDetected,
                          "expander.setPortActually 0xEC1D 0xEDDF",
                          "sleep 1",
                          "expander.setPortActually 0xEC9D 0xEDDF",
                          "flash.Connect true"));
}

TEST_F(ExpanderConnectTest, DaxWhoseExpanderDoesNotAnswerReports121AndFails) {
  script_->connectResults = {false};
  auto& programmer = Ready<DaxFlashProgrammer>();
  EXPECT_EQ(Record([&] { return programmer.Connect(); }), 1);
  EXPECT_THAT(Recorded(),
              ElementsAre("expander.connect 0x21 0x0140 0x2C80 0xEDDF 0", "out| Connect:121\n"));
}

TEST_F(ExpanderConnectTest, DaxWhoseFlashDoesNotAnswerHandsTheBusBackAndFails) {
  DoneIs(0x0100);
  script_->flashConnect = 1;
  auto& programmer = Ready<DaxFlashProgrammer>();
  EXPECT_EQ(Record([&] { return programmer.Connect(); }), 1);
  EXPECT_THAT(Recorded(),
              ElementsAre("expander.connect 0x21 0x0140 0x2C80 0xEDDF 0",
                          "out| Connect:101\n",
                          "expander.getPort 0x0100",
                          kDoneDetected,
                          "expander.setPortActually 0x2C9D 0xEDDF",
                          "flash.Connect true",
                          "expander.setPortActually 0x2C80 0xEDDF"));
}

TEST_F(ExpanderConnectTest, Pyx1WithDoneHighTakesTheFlash) {
  DoneIs(0x0100);
  auto& programmer = Ready<Pyx1FlashProgrammer>();
  EXPECT_EQ(Record([&] { return programmer.Connect(); }), 0);
  EXPECT_THAT(Recorded(),
              ElementsAre("expander.connect 0x20 0x0140 0x2C80 0xEDDF 0",
                          "expander.getPort 0x0100",
                          kDoneDetected,
                          "expander.setPortActually 0x2C9D 0xEDDF",
                          "flash.Connect true"));
}

TEST_F(ExpanderConnectTest, Pyx1WithDoneLowGoesThroughPsModeAndLeavesTheSpiAtTheFpga) {
  DoneIs(0);
  auto& programmer = Ready<Pyx1FlashProgrammer>();
  EXPECT_EQ(Record([&] { return programmer.Connect(); }), 0);
  EXPECT_THAT(Recorded(),
              ElementsAre("expander.connect 0x20 0x0140 0x2C80 0xEDDF 0",
                          "expander.getPort 0x0100",
                          kDoneNotDetected,
                          "expander.setPortActually 0xEC1D 0xEDDF",
                          "sleep 1",
                          "expander.setPortActually 0xEC9D 0xEDDF",
                          "flash.Connect true"));
}

TEST_F(ExpanderConnectTest, Pyx1WhoseExpanderDoesNotAnswerFailsSilently) {
  script_->connectResults = {false};
  auto& programmer = Ready<Pyx1FlashProgrammer>();
  EXPECT_EQ(Record([&] { return programmer.Connect(); }), 1);
  EXPECT_THAT(Recorded(), ElementsAre("expander.connect 0x20 0x0140 0x2C80 0xEDDF 0"));
}

TEST_F(ExpanderConnectTest, Pyx1WhoseFlashDoesNotAnswerAfterPsModeHandsTheBusBackAndFails) {
  DoneIs(0);
  script_->flashConnect = 1;
  auto& programmer = Ready<Pyx1FlashProgrammer>();
  EXPECT_EQ(Record([&] { return programmer.Connect(); }), 1);
  EXPECT_THAT(Recorded(),
              ElementsAre("expander.connect 0x20 0x0140 0x2C80 0xEDDF 0",
                          "expander.getPort 0x0100",
                          kDoneNotDetected,
                          "expander.setPortActually 0xEC1D 0xEDDF",
                          "sleep 1",
                          "expander.setPortActually 0xEC9D 0xEDDF",
                          "flash.Connect true",
                          "expander.setPortActually 0x2C80 0xEDDF"));
}

TEST_F(ExpanderConnectTest, Pyx2TakesTheFlashWithoutReadingDone) {
  auto& programmer = Ready<Pyx2FlashProgrammer>();
  EXPECT_EQ(Record([&] { return programmer.Connect(); }), 0);
  EXPECT_THAT(Recorded(),
              ElementsAre("expander.connect 0x20 0x0813 0x0200 0x0A17 0",
                          "expander.setPortActually 0x0604 0x0A17",
                          "flash.Connect true"));
}

TEST_F(ExpanderConnectTest, Pyx2WhoseExpanderDoesNotAnswerFailsSilently) {
  script_->connectResults = {false};
  auto& programmer = Ready<Pyx2FlashProgrammer>();
  EXPECT_EQ(Record([&] { return programmer.Connect(); }), 1);
  EXPECT_THAT(Recorded(), ElementsAre("expander.connect 0x20 0x0813 0x0200 0x0A17 0"));
}

TEST_F(ExpanderConnectTest, Pyx2WhoseFlashDoesNotAnswerHandsTheBusBackAndFails) {
  script_->flashConnect = 1;
  auto& programmer = Ready<Pyx2FlashProgrammer>();
  EXPECT_EQ(Record([&] { return programmer.Connect(); }), 1);
  EXPECT_THAT(Recorded(),
              ElementsAre("expander.connect 0x20 0x0813 0x0200 0x0A17 0",
                          "expander.setPortActually 0x0604 0x0A17",
                          "flash.Connect true",
                          "expander.setPortActually 0x0200 0x0A17"));
}

TEST_F(ExpanderConnectTest, EveryNonZeroFlashResultFails) {
  for (const int result : {-1, 1, 2, 5}) {
    script_->flashConnect = result;
    auto programmer = OverDistinctLines<Pyx2FlashProgrammer>(3);
    EXPECT_EQ(Record([&] { return programmer->Connect(); }), 1) << result;
    static_cast<void>(Recorded());
  }
}

TEST_F(ExpanderConnectTest, DaxInSlot5IsOneAddressUp) {
  EXPECT_EQ(ExpanderConnectOf<DaxFlashProgrammer>(5),
            "expander.connect 0x22 0x0140 0x2C80 0xEDDF 0");
}

TEST_F(ExpanderConnectTest, Pyx1InSlot5IsOneAddressUp) {
  EXPECT_EQ(ExpanderConnectOf<Pyx1FlashProgrammer>(5),
            "expander.connect 0x21 0x0140 0x2C80 0xEDDF 0");
}

TEST_F(ExpanderConnectTest, Pyx2InSlot5IsOneAddressUp) {
  EXPECT_EQ(ExpanderConnectOf<Pyx2FlashProgrammer>(5),
            "expander.connect 0x21 0x0813 0x0200 0x0A17 0");
}

class ExpanderConnectOtherSlotTest : public ExpanderConnectTest,
                                     public testing::WithParamInterface<unsigned int> {};

TEST_P(ExpanderConnectOtherSlotTest, DaxIsAtTheAddressOfTheMap) {
  EXPECT_EQ(ExpanderConnectOf<DaxFlashProgrammer>(GetParam()),
            "expander.connect 0x21 0x0140 0x2C80 0xEDDF 0");
}

TEST_P(ExpanderConnectOtherSlotTest, Pyx1IsAtTheAddressOfTheMap) {
  EXPECT_EQ(ExpanderConnectOf<Pyx1FlashProgrammer>(GetParam()),
            "expander.connect 0x20 0x0140 0x2C80 0xEDDF 0");
}

TEST_P(ExpanderConnectOtherSlotTest, Pyx2IsAtTheAddressOfTheMap) {
  EXPECT_EQ(ExpanderConnectOf<Pyx2FlashProgrammer>(GetParam()),
            "expander.connect 0x20 0x0813 0x0200 0x0A17 0");
}

INSTANTIATE_TEST_SUITE_P(Slots,
                         ExpanderConnectOtherSlotTest,
                         testing::Values(0U, 1U, 2U, 3U, 4U, 6U, 4294967295U));

// --- Which entry of the map is taken ------------------------------------------------------------

TEST_F(ExpanderConnectTest, DaxWithDoneLowTakesThesePatternsOfTheMapAndItsAddressCutToAByte) {
  DoneIs(0);
  script_->flashConnect = 1;
  auto programmer = OverDistinctLines<DaxFlashProgrammer>(3);
  EXPECT_EQ(Record([&] { return programmer->Connect(); }), 1);
  EXPECT_THAT(Recorded(),
              ElementsAre("expander.connect 0x31 0x1002 0x1004 0x1003 0",
                          "out| Connect:101\n",
                          "expander.getPort 0x100B",
                          kDoneNotDetected,
                          "expander.setPortActually 0x100A 0x1003",
                          "sleep 1",
                          "expander.setPortActually 0x1008 0x1003",
                          "flash.Connect true",
                          "expander.setPortActually 0x1004 0x1003"));
}

TEST_F(ExpanderConnectTest, Pyx1WithDoneHighTakesThesePatternsOfTheMap) {
  DoneIs(0x0001);
  script_->flashConnect = 1;
  auto programmer = OverDistinctLines<Pyx1FlashProgrammer>(5);
  EXPECT_EQ(Record([&] { return programmer->Connect(); }), 1);
  EXPECT_THAT(Recorded(),
              ElementsAre("expander.connect 0x32 0x1002 0x1004 0x1003 0",
                          "expander.getPort 0x100B",
                          kDoneDetected,
                          "expander.setPortActually 0x1009 0x1003",
                          "flash.Connect true",
                          "expander.setPortActually 0x1004 0x1003"));
}

TEST_F(ExpanderConnectTest, Pyx2TakesThesePatternsOfTheMap) {
  script_->flashConnect = 1;
  auto programmer = OverDistinctLines<Pyx2FlashProgrammer>(5);
  EXPECT_EQ(Record([&] { return programmer->Connect(); }), 1);
  EXPECT_THAT(Recorded(),
              ElementsAre("expander.connect 0x32 0x1002 0x1004 0x1003 0",
                          "expander.setPortActually 0x1009 0x1003",
                          "flash.Connect true",
                          "expander.setPortActually 0x1004 0x1003"));
}

// --- IsProgrammed -------------------------------------------------------------------------------

template <typename Programmer>
class ExpanderDoneLineTest : public ExpanderConnectTest {
 protected:
  static constexpr bool kIsPyx2 = std::is_same_v<Programmer, Pyx2FlashProgrammer>;
  static constexpr const char* kRead =
      kIsPyx2 ? "expander.getPort 0x0001" : "expander.getPort 0x0100";
  static constexpr unsigned short kDone = kIsPyx2 ? 0x0001 : 0x0100;
};

using Programmers = testing::Types<DaxFlashProgrammer, Pyx1FlashProgrammer, Pyx2FlashProgrammer>;
TYPED_TEST_SUITE(ExpanderDoneLineTest, Programmers);

TYPED_TEST(ExpanderDoneLineTest, HighMeansProgrammed) {
  this->DoneIs(this->kDone);
  auto& programmer = this->template Ready<TypeParam>();
  EXPECT_TRUE(this->Record([&] { return programmer.IsProgrammed(); }));
  EXPECT_THAT(this->Recorded(), ElementsAre(this->kRead));
}

TYPED_TEST(ExpanderDoneLineTest, LowMeansNotProgrammed) {
  this->DoneIs(0);
  auto& programmer = this->template Ready<TypeParam>();
  EXPECT_FALSE(this->Record([&] { return programmer.IsProgrammed(); }));
  EXPECT_THAT(this->Recorded(), ElementsAre(this->kRead));
}

TYPED_TEST(ExpanderDoneLineTest, OptionalOperationsSayThatTheyAreNotImplemented) {
  auto& programmer = this->template Ready<TypeParam>();
  EXPECT_EQ(this->Record([&] { return programmer.OptionalOperationA(); }), 6);
  EXPECT_EQ(this->Record([&] { return programmer.OptionalOperationB(); }), 6);
  EXPECT_EQ(this->Record([&] { return programmer.OptionalOperationC(); }), 6);
  EXPECT_THAT(this->Recorded(),
              ElementsAre("err| Function Not Implemented\n",
                          "err| Function Not Implemented\n",
                          "err| Function Not Implemented\n"));
}

}  // namespace
