#include <sys/stat.h>

#include <string>
#include <type_traits>

#include "tests/unit/programmers/expander/ExpanderTest.h"

namespace {

using testing::ElementsAre;

template <typename Programmer>
class ExpanderReadDeviceTest : public ExpanderTest {
 protected:
  static constexpr const char* kLine = std::is_same_v<Programmer, DaxFlashProgrammer>
                                           ? "out| DaxFlashProgrammer ReadDevice \n"
                                           : "out| Pyx1FlashProgrammer ReadDevice \n";

  int ReadDevice(const std::string& path, int size) {
    auto& programmer = Ready<Programmer>();
    return Record([&] { return programmer.ReadDevice(path, size); });
  }
};

using Programmers = testing::Types<DaxFlashProgrammer, Pyx1FlashProgrammer, Pyx2FlashProgrammer>;
TYPED_TEST_SUITE(ExpanderReadDeviceTest, Programmers);

TYPED_TEST(ExpanderReadDeviceTest, CreatesTheFileAndLeavesItOpen) {
  this->script_->flashHead = "head of flash";
  EXPECT_EQ(this->ReadDevice("dump", 13), 0);
  EXPECT_THAT(this->Recorded(),
              ElementsAre(this->kLine, "open dump 0101 0600 #1", "flash.ReadDevice 0 13 #1"));
  EXPECT_EQ(ReadFile("dump"), "head of flash");
  this->ExpectLeftOpen({1});
}

TYPED_TEST(ExpanderReadDeviceTest, CreatedFileIsForItsOwnerAlone) {
  EXPECT_EQ(this->ReadDevice("dump", 4), 0);
  static_cast<void>(this->Recorded());
  struct stat status {};
  ASSERT_EQ(::stat("dump", &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
  this->ExpectLeftOpen({1});
}

TYPED_TEST(ExpanderReadDeviceTest, FailureOfTheFlashClosesTheFileAndIsProgramFailed) {
  this->script_->flashRead = 5;
  EXPECT_EQ(this->ReadDevice("dump", 512), 6);
  EXPECT_THAT(
      this->Recorded(),
      ElementsAre(this->kLine, "open dump 0101 0600 #1", "flash.ReadDevice 0 512 #1", "close #1"));
}

TYPED_TEST(ExpanderReadDeviceTest, FileThatCannotBeCreatedIsOpenFileFailed) {
  EXPECT_EQ(this->ReadDevice("missing/dump", 512), 2);
  EXPECT_THAT(this->Recorded(), ElementsAre(this->kLine, "open missing/dump 0101 0600 failed"));
}

TYPED_TEST(ExpanderReadDeviceTest, LongerFileOfAnEarlierRunKeepsItsTail) {
  WriteFile("dump", "0123456789");
  this->script_->flashHead = "abcd";
  EXPECT_EQ(this->ReadDevice("dump", 4), 0);
  static_cast<void>(this->Recorded());
  EXPECT_EQ(ReadFile("dump"), "abcd456789");
  this->ExpectLeftOpen({1});
}

}  // namespace
