#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/unit/programmers/expander/ExpanderTest.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

const std::string kOldStamp = "\x30\x01\xA0\x01\x5A\x9E\x38\xC5";
const std::string kNewStamp = "\x30\x01\xA0\x01\x5A\x9E\x38\xC6";

constexpr const char* kOldDate =
    "out| User Access Register found in file dumpflash.bin with Time Stamp :  "
    "11/05/2015 03:35:05\n";
constexpr const char* kNewDate =
    "out| User Access Register found in file image with Time Stamp :  11/05/2015 03:35:06\n";
constexpr const char* kDaxNoFlashStamp = "out| No User Access Register found dumpflash.bin\n";
constexpr const char* kDaxNoImageStamp = "out| No User Access Register found image\n";
constexpr const char* kPyx1NoFlashStamp =
    "err| No User Access Register found in file 'dumpflash.bin'\n";
constexpr const char* kPyx1NoImageStamp = "err| No User Access Register found in file 'image'\n";
constexpr const char* kUpToDate = "out| No need to update Flash device \n";

/// A file with a boot header of a date.
std::string BootImage(const std::string& date) {
  std::string field = "u-boot-vexa.bin#" + date + "#";
  field.resize(76, '.');
  return std::string(76, 'h') + field + std::string(360, 'b');
}

class ExpanderProgramDeviceTest : public ExpanderTest {
 protected:
  /// Events that follow each other; compared whole.
  static Events Join(std::vector<Events> parts) {
    Events all;
    for (Events& part : parts) {
      all.insert(all.end(), part.begin(), part.end());
    }
    return all;
  }

  static Events DaxDump() {
    return {"out| DaxFlashProgrammer ReadDevice \n",
            "open dumpflash.bin 0101 0600 #1",
            "flash.ReadDevice 0 512 #1"};
  }

  static Events PyxDump() {
    return {"out| Pyx1FlashProgrammer ReadDevice \n",
            "open dumpflash.bin 0101 0600 #1",
            "flash.ReadDevice 0 512 #1"};
  }

  /// Both searches of a dax or pyx1 run, over these texts.
  static Events Searches(const std::string& flash, const std::string& image) {
    return {"open dumpflash.bin 00 #2", flash, "close #2", "open image 00 #3", image, "close #3"};
  }

  /// The write of an image, from unlocking to the final lock.
  static Events Rewrite() {
    return {"out| Unlocking flash memory ... \n",
            "flash.UnlockMemory",
            "out| Erasing device ... ",
            "flash.EraseDevice 0 image",
            "out| done.\nProgramming device ... ",
            "flash.ProgramDevice 0 image",
            "out| done.\n",
            "flash.Disconnect"};
  }

  static Events EraseThatFails() {
    return {"out| Unlocking flash memory ... \n",
            "flash.UnlockMemory",
            "out| Erasing device ... ",
            "flash.EraseDevice 0 image"};
  }

  static Events WriteThatFails() {
    return {"out| Unlocking flash memory ... \n",
            "flash.UnlockMemory",
            "out| Erasing device ... ",
            "flash.EraseDevice 0 image",
            "out| done.\nProgramming device ... ",
            "flash.ProgramDevice 0 image"};
  }

  template <typename Programmer>
  int Program() {
    auto& programmer = Ready<Programmer>();
    return Record([&] { return programmer.ProgramDevice("image"); });
  }

  void FlashHolds(std::string head) { script_->flashHead = std::move(head); }

  void DoneIsHigh() {
    script_->port = [](unsigned short bits) { return bits; };
  }
};

// --- dax ----------------------------------------------------------------------------------------

TEST_F(ExpanderProgramDeviceTest, DaxWithANewerImageIsWrittenAndNeitherResetNorAskedForDone) {
  FlashHolds(kOldStamp);
  WriteFile("image", kNewStamp);
  EXPECT_EQ(Program<DaxFlashProgrammer>(), 0);
  Events rewrite = Rewrite();
  rewrite.pop_back();
  EXPECT_THAT(Recorded(),
              ElementsAreArray(Join({DaxDump(),
                                     Searches(kOldDate, kNewDate),
                                     {"open image 00 #4"},
                                     rewrite,
                                     {"flash.Disconnect", "close #4"}})));
  EXPECT_EQ(ReadFile("dumpflash.bin"), kOldStamp);
  ExpectLeftOpen({1});
}

TEST_F(ExpanderProgramDeviceTest, DaxWithTheSameStampIsUpToDate) {
  FlashHolds(kNewStamp + "flash");
  WriteFile("image", kNewStamp + "image");
  EXPECT_EQ(Program<DaxFlashProgrammer>(), 11);
  EXPECT_THAT(Recorded(),
              ElementsAreArray(
                  Join({DaxDump(),
                        Searches("out| User Access Register found in file dumpflash.bin with Time "
                                 "Stamp :  11/05/2015 03:35:06\n",
                                 kNewDate),
                        {kUpToDate}})));
  ExpectLeftOpen({1});
}

TEST_F(ExpanderProgramDeviceTest, DaxWithAnOlderImageIsWrittenAsWell) {
  FlashHolds(kNewStamp);
  WriteFile("image", kOldStamp);
  EXPECT_EQ(Program<DaxFlashProgrammer>(), 0);
  static_cast<void>(Recorded());
  ExpectLeftOpen({1});
}

TEST_F(ExpanderProgramDeviceTest, DaxWithoutAnyStampIsUpToDate) {
  FlashHolds("flash...");
  WriteFile("image", "image...");
  EXPECT_EQ(Program<DaxFlashProgrammer>(), 11);
  EXPECT_THAT(Recorded(),
              ElementsAreArray(
                  Join({DaxDump(), Searches(kDaxNoFlashStamp, kDaxNoImageStamp), {kUpToDate}})));
  ExpectLeftOpen({1});
}

TEST_F(ExpanderProgramDeviceTest, DaxStampOfZeroEqualsAMissingOne) {
  FlashHolds(Bytes("\x30\x01\xA0\x01\0\0\0\0"));
  WriteFile("image", "image...");
  EXPECT_EQ(Program<DaxFlashProgrammer>(), 11);
  EXPECT_THAT(Recorded(),
              ElementsAreArray(
                  Join({DaxDump(),
                        Searches("out| User Access Register found in file dumpflash.bin with Time "
                                 "Stamp :  00/00/2000 00:00:00\n",
                                 kDaxNoImageStamp),
                        {kUpToDate}})));
  ExpectLeftOpen({1});
}

TEST_F(ExpanderProgramDeviceTest, DaxImageWithoutAStampIsWrittenOverAFlashWithOne) {
  FlashHolds(kOldStamp);
  WriteFile("image", "image...");
  EXPECT_EQ(Program<DaxFlashProgrammer>(), 0);
  EXPECT_THAT(Recorded(),
              ElementsAreArray(Join({DaxDump(),
                                     Searches(kOldDate, kDaxNoImageStamp),
                                     {"open image 00 #4"},
                                     Rewrite(),
                                     {"close #4"}})));
  ExpectLeftOpen({1});
}

TEST_F(ExpanderProgramDeviceTest, DaxMissingImageIsUpToDateWhenTheFlashHasNoStamp) {
  FlashHolds("flash...");
  EXPECT_EQ(Program<DaxFlashProgrammer>(), 11);
  EXPECT_THAT(Recorded(),
              ElementsAreArray(Join({DaxDump(),
                                     {"open dumpflash.bin 00 #2",
                                      kDaxNoFlashStamp,
                                      "close #2",
                                      "open image 00 failed",
                                      kUpToDate}})));
  ExpectLeftOpen({1});
}

TEST_F(ExpanderProgramDeviceTest, DaxMissingImageIsOpenFileFailedWhenTheFlashHasAStamp) {
  FlashHolds(kOldStamp);
  EXPECT_EQ(Program<DaxFlashProgrammer>(), 2);
  EXPECT_THAT(Recorded(),
              ElementsAreArray(Join({DaxDump(),
                                     {"open dumpflash.bin 00 #2",
                                      kOldDate,
                                      "close #2",
                                      "open image 00 failed",
                                      "open image 00 failed"}})));
  ExpectLeftOpen({1});
}

TEST_F(ExpanderProgramDeviceTest, DaxEraseThatFailsClosesTheImageAndIsEraseFailed) {
  FlashHolds(kOldStamp);
  WriteFile("image", kNewStamp);
  script_->flashErase = 3;
  EXPECT_EQ(Program<DaxFlashProgrammer>(), 3);
  EXPECT_THAT(Recorded(),
              ElementsAreArray(Join({DaxDump(),
                                     Searches(kOldDate, kNewDate),
                                     {"open image 00 #4"},
                                     EraseThatFails(),
                                     {"close #4"}})));
  ExpectLeftOpen({1});
}

TEST_F(ExpanderProgramDeviceTest, DaxWriteThatFailsClosesTheImageAndIsProgramFailed) {
  FlashHolds(kOldStamp);
  WriteFile("image", kNewStamp);
  script_->flashProgram = 4;
  EXPECT_EQ(Program<DaxFlashProgrammer>(), 6);
  EXPECT_THAT(Recorded(),
              ElementsAreArray(Join({DaxDump(),
                                     Searches(kOldDate, kNewDate),
                                     {"open image 00 #4"},
                                     WriteThatFails(),
                                     {"close #4"}})));
  ExpectLeftOpen({1});
}

TEST_F(ExpanderProgramDeviceTest, DaxDumpThatFailsLeavesTheDecisionToWhatTheFileHolds) {
  WriteFile("dumpflash.bin", kOldStamp);
  WriteFile("image", kOldStamp);
  script_->flashRead = 5;
  EXPECT_EQ(Program<DaxFlashProgrammer>(), 11);
  EXPECT_THAT(Recorded(),
              ElementsAre("out| DaxFlashProgrammer ReadDevice \n",
                          "open dumpflash.bin 0101 0600 #1",
                          "flash.ReadDevice 0 512 #1",
                          "close #1",
                          "open dumpflash.bin 00 #2",
                          kOldDate,
                          "close #2",
                          "open image 00 #3",
                          "out| User Access Register found in file image with Time Stamp :  "
                          "11/05/2015 03:35:05\n",
                          "close #3",
                          kUpToDate));
}

TEST_F(ExpanderProgramDeviceTest, DaxDumpThatCannotBeCreatedLeavesNoFlashStamp) {
  std::filesystem::create_symlink("missing/dumpflash.bin", "dumpflash.bin");
  WriteFile("image", kNewStamp);
  EXPECT_EQ(Program<DaxFlashProgrammer>(), 0);
  EXPECT_THAT(Recorded(),
              ElementsAreArray(Join({{"out| DaxFlashProgrammer ReadDevice \n",
                                      "open dumpflash.bin 0101 0600 failed",
                                      "open dumpflash.bin 00 failed",
                                      "open image 00 #1",
                                      kNewDate,
                                      "close #1",
                                      "open image 00 #2"},
                                     Rewrite(),
                                     {"close #2"}})));
}

TEST_F(ExpanderProgramDeviceTest, StampInTheTailOfALongerStaleDumpDecides) {
  WriteFile("dumpflash.bin", "........" + kNewStamp);
  WriteFile("image", kNewStamp);
  FlashHolds("flash...");
  EXPECT_EQ(Program<DaxFlashProgrammer>(), 11);
  static_cast<void>(Recorded());
  EXPECT_EQ(ReadFile("dumpflash.bin"), "flash..." + kNewStamp);
  ExpectLeftOpen({1});
}

// --- pyx1 ---------------------------------------------------------------------------------------

TEST_F(ExpanderProgramDeviceTest, Pyx1WithANewerImageIsWrittenResetAndDone) {
  FlashHolds(kOldStamp);
  WriteFile("image", kNewStamp);
  DoneIsHigh();
  EXPECT_EQ(Program<Pyx1FlashProgrammer>(), 0);
  EXPECT_THAT(Recorded(),
              ElementsAreArray(Join({PyxDump(),
                                     Searches(kOldDate, kNewDate),
                                     Rewrite(),
                                     {"out| Toggling reset ... ",
                                      "expander.setPortActually 0x2C00 0xEDDF",
                                      "usleep 10000",
                                      "expander.setPortActually 0x2C80 0xEDDF",
                                      "expander.connect 0x20 0xEDDF 0x0000 0xEDDF 0",
                                      "expander.getPort 0x0100",
                                      "out| done.\n"}})));
  ExpectLeftOpen({1});
}

TEST_F(ExpanderProgramDeviceTest, Pyx1WithoutDoneIsConfigDoneNotAsserted) {
  FlashHolds(kOldStamp);
  WriteFile("image", kNewStamp);
  script_->logsPolls = false;
  EXPECT_EQ(Program<Pyx1FlashProgrammer>(), 7);
  EXPECT_THAT(Recorded(),
              ElementsAreArray(Join({PyxDump(),
                                     Searches(kOldDate, kNewDate),
                                     Rewrite(),
                                     {"out| Toggling reset ... ",
                                      "expander.setPortActually 0x2C00 0xEDDF",
                                      "usleep 10000",
                                      "expander.setPortActually 0x2C80 0xEDDF",
                                      "expander.connect 0x20 0xEDDF 0x0000 0xEDDF 0"}})));
  EXPECT_EQ(script_->polls, 10000);
  ExpectLeftOpen({1});
}

TEST_F(ExpanderProgramDeviceTest, Pyx1WithTheSameStampIsUpToDate) {
  FlashHolds(kNewStamp);
  WriteFile("image", kNewStamp);
  EXPECT_EQ(Program<Pyx1FlashProgrammer>(), 11);
  EXPECT_THAT(Recorded(),
              ElementsAreArray(
                  Join({PyxDump(),
                        Searches("out| User Access Register found in file dumpflash.bin with Time "
                                 "Stamp :  11/05/2015 03:35:06\n",
                                 kNewDate),
                        {kUpToDate}})));
  ExpectLeftOpen({1});
}

TEST_F(ExpanderProgramDeviceTest, Pyx1WithoutAnyStampIsUpToDate) {
  FlashHolds("flash...");
  WriteFile("image", "image...");
  EXPECT_EQ(Program<Pyx1FlashProgrammer>(), 11);
  EXPECT_THAT(Recorded(),
              ElementsAreArray(
                  Join({PyxDump(), Searches(kPyx1NoFlashStamp, kPyx1NoImageStamp), {kUpToDate}})));
  ExpectLeftOpen({1});
}

TEST_F(ExpanderProgramDeviceTest, Pyx1MissingImageReachesTheEraseWhenTheFlashHasAStamp) {
  FlashHolds(kOldStamp);
  script_->flashErase = 1;
  EXPECT_EQ(Program<Pyx1FlashProgrammer>(), 3);
  EXPECT_THAT(Recorded(),
              ElementsAreArray(
                  Join({PyxDump(),
                        {"open dumpflash.bin 00 #2", kOldDate, "close #2", "open image 00 failed"},
                        EraseThatFails()})));
  ExpectLeftOpen({1});
}

TEST_F(ExpanderProgramDeviceTest, Pyx1WriteThatFailsIsProgramFailedWithoutReset) {
  FlashHolds(kOldStamp);
  WriteFile("image", kNewStamp);
  script_->flashProgram = 4;
  EXPECT_EQ(Program<Pyx1FlashProgrammer>(), 6);
  EXPECT_THAT(Recorded(),
              ElementsAreArray(Join({PyxDump(), Searches(kOldDate, kNewDate), WriteThatFails()})));
  ExpectLeftOpen({1});
}

TEST_F(ExpanderProgramDeviceTest, Pyx1DumpThatFailsLeavesTheDecisionToWhatTheFileHolds) {
  WriteFile("dumpflash.bin", kOldStamp);
  WriteFile("image", kOldStamp);
  script_->flashRead = 5;
  EXPECT_EQ(Program<Pyx1FlashProgrammer>(), 11);
  EXPECT_THAT(Recorded(),
              ElementsAre("out| Pyx1FlashProgrammer ReadDevice \n",
                          "open dumpflash.bin 0101 0600 #1",
                          "flash.ReadDevice 0 512 #1",
                          "close #1",
                          "open dumpflash.bin 00 #2",
                          kOldDate,
                          "close #2",
                          "open image 00 #3",
                          "out| User Access Register found in file image with Time Stamp :  "
                          "11/05/2015 03:35:05\n",
                          "close #3",
                          kUpToDate));
}

// --- pyx2 ---------------------------------------------------------------------------------------

ExpanderLog::Events Pyx2Comparison(const std::string& flashDate, const std::string& imageDate) {
  return {"open dumpflash.bin 00 #2",
          "close #2",
          "out| Flash header build date: " + flashDate + "\n",
          "open image 00 #3",
          "close #3",
          "out| Binary  file build date: " + imageDate + "\n"};
}

class ExpanderPyx2ProgramDeviceTest : public ExpanderProgramDeviceTest {
 protected:
  /// Text that reaches the log at the same event stands there as one.
  void ExpectRecorded(const Events& dump, Events comparison, const Events& rest) {
    comparison.insert(comparison.begin(), "out| \n");
    const Events expected = Join({dump, comparison, rest});
    EXPECT_THAT(Merged(Recorded()), ElementsAreArray(Merged(expected)));
  }

  /// Joins neighbouring texts of one stream.
  static Events Merged(const Events& events) {
    Events merged;
    for (const std::string& event : events) {
      const std::string stream = event.substr(0, 5);
      if (!merged.empty() && (stream == "out| " || stream == "err| ") &&
          merged.back().starts_with(stream)) {
        merged.back() += event.substr(5);
      } else {
        merged.push_back(event);
      }
    }
    return merged;
  }
};

TEST_F(ExpanderPyx2ProgramDeviceTest, ImageOfAnotherDateIsWrittenResetAndDone) {
  FlashHolds(BootImage("old"));
  WriteFile("image", BootImage("new"));
  DoneIsHigh();
  EXPECT_EQ(Program<Pyx2FlashProgrammer>(), 0);
  ExpectRecorded(PyxDump(),
                 Pyx2Comparison("old", "new"),
                 Join({Rewrite(),
                       {"out| Toggling reset ... ",
                        "expander.setPortActually 0x0000 0x0A17",
                        "sleep 5",
                        "expander.connect 0x20 0x0A17 0x0000 0x0A17 0",
                        "expander.getPort 0x0001",
                        "out| done.\n"}}));
  ExpectLeftOpen({1});
}

TEST_F(ExpanderPyx2ProgramDeviceTest, ImageOfTheSameDateIsUpToDate) {
  FlashHolds(BootImage("same") + "flash");
  WriteFile("image", BootImage("same") + "image");
  EXPECT_EQ(Program<Pyx2FlashProgrammer>(), 11);
  ExpectRecorded(PyxDump(), Pyx2Comparison("same", "same"), {kUpToDate});
  ExpectLeftOpen({1});
}

TEST_F(ExpanderPyx2ProgramDeviceTest, NoDoneIsConfigDoneNotAsserted) {
  FlashHolds(BootImage("old"));
  WriteFile("image", BootImage("new"));
  script_->logsPolls = false;
  EXPECT_EQ(Program<Pyx2FlashProgrammer>(), 7);
  ExpectRecorded(PyxDump(),
                 Pyx2Comparison("old", "new"),
                 Join({Rewrite(),
                       {"out| Toggling reset ... ",
                        "expander.setPortActually 0x0000 0x0A17",
                        "sleep 5",
                        "expander.connect 0x20 0x0A17 0x0000 0x0A17 0"}}));
  EXPECT_EQ(script_->polls, 10000);
  ExpectLeftOpen({1});
}

TEST_F(ExpanderPyx2ProgramDeviceTest, EraseThatFailsIsEraseFailed) {
  FlashHolds(BootImage("old"));
  WriteFile("image", BootImage("new"));
  script_->flashErase = 3;
  EXPECT_EQ(Program<Pyx2FlashProgrammer>(), 3);
  ExpectRecorded(PyxDump(), Pyx2Comparison("old", "new"), EraseThatFails());
  ExpectLeftOpen({1});
}

TEST_F(ExpanderPyx2ProgramDeviceTest, WriteThatFailsIsProgramFailedWithoutReset) {
  FlashHolds(BootImage("old"));
  WriteFile("image", BootImage("new"));
  script_->flashProgram = 4;
  EXPECT_EQ(Program<Pyx2FlashProgrammer>(), 6);
  ExpectRecorded(PyxDump(), Pyx2Comparison("old", "new"), WriteThatFails());
  ExpectLeftOpen({1});
}

TEST_F(ExpanderPyx2ProgramDeviceTest, DumpThatFailsLeavesTheDecisionToWhatTheFileHolds) {
  WriteFile("dumpflash.bin", BootImage("same"));
  WriteFile("image", BootImage("same"));
  script_->flashRead = 5;
  EXPECT_EQ(Program<Pyx2FlashProgrammer>(), 11);
  Events dump = PyxDump();
  dump.push_back("close #1");
  ExpectRecorded(dump, Pyx2Comparison("same", "same"), {kUpToDate});
}

TEST_F(ExpanderPyx2ProgramDeviceTest, MissingImagePassesTheExceptionOnBeforeAnythingIsErased) {
  FlashHolds(BootImage("old"));
  EXPECT_THROW(Program<Pyx2FlashProgrammer>(), std::logic_error);
  ExpectRecorded(PyxDump(),
                 {"open dumpflash.bin 00 #2",
                  "close #2",
                  "out| Flash header build date: old\n",
                  "open image 00 failed",
                  "err| ERROR: Can't open file 'image'\n"},
                 {});
  ExpectLeftOpen({1});
}

TEST_F(ExpanderPyx2ProgramDeviceTest, EmptyDumpPassesTheExceptionOnAndLeavesTheFileOpen) {
  script_->flashRead = 5;
  WriteFile("image", BootImage("new"));
  EXPECT_THROW(Program<Pyx2FlashProgrammer>(), std::logic_error);
  Events dump = PyxDump();
  dump.push_back("close #1");
  ExpectRecorded(dump, {"open dumpflash.bin 00 #2", "err| ERROR: Can't read file\n"}, {});
  ExpectLeftOpen({2});
}

}  // namespace
