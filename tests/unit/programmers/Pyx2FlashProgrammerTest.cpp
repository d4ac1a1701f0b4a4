// What the pyx2 programmer has of its own: how it words the search of the boot header and the dump.
#include <string>

#include "programmers/Pyx2FlashProgrammer.h"
#include "tests/unit/programmers/ProgrammerTest.h"

namespace {

using testing::ElementsAre;

/// A file whose 76 bytes from 0x4C on are `field`, filled up with dots.
std::string WithField(std::string field) {
  field.resize(76, '.');
  return std::string(76, '#') + field;
}

class Pyx2FlashProgrammerTest : public ProgrammerTest {
 protected:
  std::unique_ptr<Pyx2FlashProgrammer> programmer_ = Make<Pyx2FlashProgrammer>();
};

TEST_F(Pyx2FlashProgrammerTest, FieldWithoutDelimiterIsReportedWithoutThePrefixAndStaysOpen) {
  kernel_.files["image"] = WithField("u-boot-vexa.bin");
  EXPECT_EQ(programmer_->SearchBuildDateInUDFHeader("image"), "");
  EXPECT_EQ(console_.TakeErr(), "Can't find delimiter # in BOOTHEADER\n");
  leftOpen_ = {"image"};
}

TEST_F(Pyx2FlashProgrammerTest, DateIsTheTextBetweenTheFirstTwoDelimiters) {
  kernel_.files["image"] = WithField("name#Nov 05 2015#x#");
  EXPECT_EQ(programmer_->SearchBuildDateInUDFHeader("image"), "Nov 05 2015");
  EXPECT_EQ(console_.TakeErr(), "");
}

TEST_F(Pyx2FlashProgrammerTest, DatesAloneDecideAndNoNameIsLookedFor) {
  kernel_.files = {{"dump", WithField("#date#")}, {"image", WithField("other#date#")}};
  EXPECT_FALSE(programmer_->IsFlashUpgradeRequired("dump", "image"));
  EXPECT_EQ(console_.TakeOut(), "\nFlash header build date: date\nBinary  file build date: date\n");
  kernel_.files["image"] = WithField("other#later#");
  EXPECT_TRUE(programmer_->IsFlashUpgradeRequired("dump", "image"));
}

TEST_F(Pyx2FlashProgrammerTest, DumpIsAnnouncedWithTheTextOfThePyx1) {
  EXPECT_EQ(programmer_->ReadDevice("dump", 0), 0);
  EXPECT_EQ(console_.TakeOut(), "Pyx1FlashProgrammer ReadDevice \n");
  leftOpen_ = {"dump"};
}

}  // namespace
