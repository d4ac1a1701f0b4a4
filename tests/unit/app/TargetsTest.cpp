// The table of the module types. What a run does with each is shown by the whole-program tables.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <typeinfo>
#include <vector>

#include "app/Targets.h"
#include "devices/SPIDevOwner.h"
#include "platform/PCA9535.h"
#include "programmers/DaxFlashProgrammer.h"
#include "programmers/Pyx1FlashProgrammer.h"
#include "programmers/Pyx2FlashProgrammer.h"
#include "programmers/ZynqFlashProgrammer.h"
#include "programmers/lines/DaxGpioProgramming.h"
#include "programmers/lines/Pyx1GpioProgramming.h"
#include "programmers/lines/Pyx2GpioProgramming.h"
#include "tests/doubles/Console.h"
#include "tests/doubles/EventLog.h"
#include "tests/doubles/FileKernel.h"
#include "tests/doubles/PlatformDoubles.h"
#include "tests/doubles/RedirectedFile.h"

namespace {

using testing::ElementsAre;

class TargetsTest : public testing::Test {
 protected:
  TargetsTest() {
    platform_.locations = {3};
    platform_.i2cBus = "no-such-bus";
  }

  /// Creates the programmer of a module in slot 3, and compares the types of what is created.
  template <typename Programmer>
  ModuleProgrammer Create(const std::string& word) {
    ModuleProgrammer module = FindTarget(word)->createProgrammer(&expander_, spi_.Get(), 3);
    const FpgaProgrammerInterface& programmer = *module.programmer;
    EXPECT_EQ(typeid(programmer), typeid(Programmer));
    EXPECT_EQ(dynamic_cast<FpgaProgrammerInterface*>(module.route), module.programmer.get());
    return module;
  }

  EventLog log_;
  Console console_{&log_};
  PlatformDoubles platform_{log_};
  FileKernel kernel_{&log_};
  RedirectedFile bufsiz_{"/sys/module/spidev/parameters/bufsiz", "4096\n"};
  RedirectedFile slotB_{"/sys/platform/module_selector/slotB"};
  PCA9535 expander_{nullptr, 1};
  SPIDevOwner spi_{"/dev/spidev1.0", 19'000'000, 0, 8};
};

TEST_F(TargetsTest, AllAreThoseOfTheTableInItsOrder) {
  std::vector<std::string> words;
  for (const Target& target : AllTargets()) {
    words.emplace_back(target.word);
    EXPECT_EQ(FindTarget(target.word), &target);
  }
  EXPECT_THAT(words, ElementsAre("wend", "dax", "pyx1", "pyx2"));
}

TEST_F(TargetsTest, OtherWordNamesNoTarget) {
  EXPECT_EQ(FindTarget("WEND"), nullptr);
  EXPECT_EQ(FindTarget("pyx"), nullptr);
  EXPECT_EQ(FindTarget(""), nullptr);
}

TEST_F(TargetsTest, RouteIsTheProgrammerItself) {
  EXPECT_EQ(Create<ZynqFlashProgrammer>("wend").lines, nullptr);
  const ModuleProgrammer dax = Create<DaxFlashProgrammer>("dax");
  EXPECT_NE(dynamic_cast<DaxGpioProgramming*>(dax.lines.get()), nullptr);
  const ModuleProgrammer pyx1 = Create<Pyx1FlashProgrammer>("pyx1");
  EXPECT_NE(dynamic_cast<Pyx1GpioProgramming*>(pyx1.lines.get()), nullptr);
  const ModuleProgrammer pyx2 = Create<Pyx2FlashProgrammer>("pyx2");
  EXPECT_NE(dynamic_cast<Pyx2GpioProgramming*>(pyx2.lines.get()), nullptr);
}

TEST_F(TargetsTest, BusOfAModuleWithoutAMuxIsItsOwn) {
  EXPECT_EQ(FindI2CBusName(*FindTarget("wend"), 3), "no-such-bus");
  EXPECT_EQ(FindI2CBusName(*FindTarget("pyx1"), 3), "no-such-bus");
  EXPECT_EQ(FindI2CBusName(*FindTarget("pyx2"), 3), "no-such-bus");
}

TEST_F(TargetsTest, BusOfADaxIsThatOfAMuxChannel) {
  EXPECT_EQ(FindI2CBusName(*FindTarget("dax"), 3), "");
}

TEST_F(TargetsTest, ModuleThatIsNotPopulatedHasNoBus) {
  EXPECT_EQ(FindI2CBusName(*FindTarget("pyx1"), 4), "");
}

}  // namespace
