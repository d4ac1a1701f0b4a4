#include <functional>
#include <ostream>
#include <streambuf>
#include <string>

#include "programmers/ModuleSelector.h"
#include "tests/unit/programmers/expander/ExpanderTest.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

constexpr const char* kOpenA = "selector.open /sys/platform/module_selector/slotA w";
constexpr const char* kOpenB = "selector.open /sys/platform/module_selector/slotB w";
constexpr const char* kWait = "nanosleep 0 100000000";
constexpr const char* kNotOpen = "Could not open the module_selector file\n";

/// One of the four selections of the pyx programmers.
struct Selection {
  const char* name;
  std::function<int(Pyx1FlashProgrammer&, Pyx2FlashProgrammer&, int module)> select;
  const char* text;
  const char* notOpen;  ///< the line for a file that cannot be opened, with its stream
  const char* failed;   ///< the line for a stream that stays bad
};

const Selection kSelections[] = {
    {"Pyx1SpiMaster",
     [](auto& pyx1, auto&, int module) { return pyx1.Select_SPIMaster(module); },
     "SPIFIFO",
     "out| ",
     "err| Select_SPIMaster failed\n"},
    {"Pyx1Otdr",
     [](auto& pyx1, auto&, int module) { return pyx1.Select_OTDR(module); },
     "SPILVDS",
     "err| ",
     "err| Select_OTDR failed\n"},
    {"Pyx2SpiMaster",
     [](auto&, auto& pyx2, int module) { return pyx2.Select_SPIMaster(module); },
     "SPIFIFO",
     "err| ",
     "err| Select_SPIMaster failed\n"},
    {"Pyx2Otdr",
     [](auto&, auto& pyx2, int module) { return pyx2.Select_OTDR(module); },
     "SPILVDS",
     "err| ",
     "err| Select_OTDR failed\n"},
};

class ExpanderModuleSelectorTest : public ExpanderTest,
                                   public testing::WithParamInterface<Selection> {
 protected:
  ExpanderModuleSelectorTest()
      : pyx1_(MakeQuietly<Pyx1FlashProgrammer>(pyx1Lines_)),
        pyx2_(MakeQuietly<Pyx2FlashProgrammer>(pyx2Lines_)) {
    std::filesystem::remove_all(slots_.path());
    std::filesystem::create_directory(slots_.path());
  }

  ~ExpanderModuleSelectorTest() override {
    const ExpanderLog::Recording recording;
    pyx2_.reset();
    pyx1_.reset();
  }

  int Select(int module) {
    return Record([&] { return GetParam().select(*pyx1_, *pyx2_, module); });
  }

  [[nodiscard]] std::string Insert() const {
    return std::string("selector.insert ") + GetParam().text;
  }

  [[nodiscard]] std::string Write() const {
    return std::string("selector.write ") + GetParam().text;
  }

  [[nodiscard]] std::string SlotA() const { return slots_.path() + "/slotA"; }
  [[nodiscard]] std::string SlotB() const { return slots_.path() + "/slotB"; }

 private:
  template <typename Programmer>
  std::unique_ptr<Programmer> MakeQuietly(GpioProgrammingInterface& lines) {
    auto made = Record([&] { return std::make_unique<Programmer>(&expander_, spi(), &lines, 1); });
    static_cast<void>(Recorded());
    return made;
  }

  Pyx1GpioProgramming pyx1Lines_;
  Pyx2GpioProgramming pyx2Lines_;
  std::unique_ptr<Pyx1FlashProgrammer> pyx1_;
  std::unique_ptr<Pyx2FlashProgrammer> pyx2_;
};

INSTANTIATE_TEST_SUITE_P(Selections,
                         ExpanderModuleSelectorTest,
                         testing::ValuesIn(kSelections),
                         [](const auto& row) { return row.param.name; });

TEST_P(ExpanderModuleSelectorTest, Module4InsertsWaitsThenWritesSlotAAtTheClose) {
  EXPECT_EQ(Select(4), 0);
  EXPECT_THAT(Recorded(), ElementsAre(kOpenA, Insert(), kWait, Write(), "selector.close"));
  EXPECT_EQ(ReadFile(SlotA()), GetParam().text);
  EXPECT_FALSE(std::filesystem::exists(SlotB()));
}

TEST_P(ExpanderModuleSelectorTest, EveryOtherModuleWritesSlotB) {
  for (const int module : {0, 1, 2, 3, 5, 6, -1, 2147483647}) {
    std::filesystem::remove(SlotB());
    EXPECT_EQ(Select(module), 0) << module;
    EXPECT_THAT(Recorded(), ElementsAre(kOpenB, Insert(), kWait, Write(), "selector.close"))
        << module;
    EXPECT_EQ(ReadFile(SlotB()), GetParam().text) << module;
  }
  EXPECT_FALSE(std::filesystem::exists(SlotA()));
}

TEST_P(ExpanderModuleSelectorTest, LongerTextInTheFileIsReplacedBySevenBytes) {
  WriteFile(SlotA(), "SPISOMETHING\n");
  EXPECT_EQ(Select(4), 0);
  static_cast<void>(Recorded());
  EXPECT_EQ(ReadFile(SlotA()).size(), 7U);
  EXPECT_EQ(ReadFile(SlotA()), GetParam().text);
}

TEST_P(ExpanderModuleSelectorTest, FileThatCannotBeOpenedIsReportedWithoutAWait) {
  script_->selectorMissing = true;
  EXPECT_EQ(Select(4), -1);
  EXPECT_THAT(Recorded(), ElementsAre(kOpenA, std::string(GetParam().notOpen) + kNotOpen));
}

TEST_P(ExpanderModuleSelectorTest, WriteThatFailsAtTheCloseIsNotReported) {
  script_->selectorWriteFails = true;
  EXPECT_EQ(Select(4), 0);
  EXPECT_THAT(Recorded(), ElementsAre(kOpenA, Insert(), kWait, Write(), "selector.close"));
}

TEST_P(ExpanderModuleSelectorTest, WaitInterruptedBySignalsGoesOnForTheTimeThatIsLeft) {
  script_->interruptedSleepsLeave = {60'000'000, 1};
  EXPECT_EQ(Select(4), 0);
  EXPECT_THAT(Recorded(),
              ElementsAre(kOpenA,
                          Insert(),
                          "nanosleep 0 100000000",
                          "nanosleep 0 60000000",
                          "nanosleep 0 1",
                          Write(),
                          "selector.close"));
}

TEST_P(ExpanderModuleSelectorTest, StreamThatStaysBadIsTried21TimesReportedThenClosed) {
  script_->selectorInsertFails = true;
  EXPECT_EQ(Select(4), -1);
  Events expected(21, kWait);
  expected.insert(expected.begin(), {kOpenA, Insert()});  // a bad stream takes no more
  expected.insert(expected.end(), {GetParam().failed, "selector.close"});
  EXPECT_THAT(Recorded(), ElementsAreArray(expected));
  EXPECT_EQ(ReadFile(SlotA()), "");
}

// --- The attempts, over a stream that the test can break ---------------------------------------

class LoggingBuffer : public std::streambuf {
 public:
  bool broken = false;

 protected:
  std::streamsize xsputn(const char* text, std::streamsize count) override {
    ExpanderLog::Instance().Add("insert " + std::string(text, static_cast<std::size_t>(count)));
    return broken ? 0 : count;
  }

  int_type overflow(int_type /*character*/) override {
    ExpanderLog::Instance().Add("overflow");
    return traits_type::eof();
  }

  int sync() override {
    ExpanderLog::Instance().Add("flush");
    return 0;
  }
};

class ExpanderSelectorAttemptTest : public ExpanderTest {
 protected:
  bool InsertAndWait() {
    return Record([&] { return module_selector::InsertAndWait(stream_, "SPIFIFO"); });
  }

  /// Sets the stream's state when the given wait begins, counted from 1.
  void SetStateInWait(int wait, std::ios_base::iostate state) {
    script_->onNanosleep = [this, wait, state] {
      if (++waits_ == wait) {
        stream_.clear(state);
      }
    };
  }

  LoggingBuffer buffer_;
  std::ostream stream_{&buffer_};
  int waits_ = 0;
};

TEST_F(ExpanderSelectorAttemptTest, GoodStreamTakesTheTextOnceWithoutAFlush) {
  EXPECT_TRUE(InsertAndWait());
  EXPECT_THAT(Recorded(), ElementsAre("insert SPIFIFO", kWait));
}

TEST_F(ExpanderSelectorAttemptTest, InsertionThatBreaksTheStreamIsTried21Times) {
  buffer_.broken = true;
  EXPECT_FALSE(InsertAndWait());
  Events expected(21, kWait);
  expected.insert(expected.begin(), "insert SPIFIFO");
  EXPECT_THAT(Recorded(), ElementsAreArray(expected));
}

TEST_F(ExpanderSelectorAttemptTest, BadStreamThatRecoversInItsFirstWaitIsTaken) {
  stream_.setstate(std::ios_base::badbit);
  SetStateInWait(1, std::ios_base::goodbit);
  EXPECT_TRUE(InsertAndWait());
  EXPECT_THAT(Recorded(), ElementsAre(kWait));
}

TEST_F(ExpanderSelectorAttemptTest, BadStreamThatRecoversInAttempt3IsTakenAfterThreeWaits) {
  stream_.setstate(std::ios_base::badbit);
  SetStateInWait(3, std::ios_base::goodbit);
  EXPECT_TRUE(InsertAndWait());
  EXPECT_THAT(Recorded(), ElementsAre(kWait, kWait, kWait));
}

TEST_F(ExpanderSelectorAttemptTest, BadStreamThatRecoversInAttempt21IsTaken) {
  stream_.setstate(std::ios_base::badbit);
  SetStateInWait(21, std::ios_base::goodbit);
  EXPECT_TRUE(InsertAndWait());
  EXPECT_THAT(Recorded(), ElementsAreArray(Events(21, kWait)));
}

TEST_F(ExpanderSelectorAttemptTest, BadStreamThatWouldRecoverInAttempt22IsGivenUp) {
  stream_.setstate(std::ios_base::badbit);
  SetStateInWait(22, std::ios_base::goodbit);
  EXPECT_FALSE(InsertAndWait());
  EXPECT_THAT(Recorded(), ElementsAreArray(Events(21, kWait)));
}

TEST_F(ExpanderSelectorAttemptTest, FailBitAloneEndsAfterOneWait) {
  stream_.setstate(std::ios_base::failbit);
  EXPECT_FALSE(InsertAndWait());
  EXPECT_THAT(Recorded(), ElementsAre(kWait));
}

TEST_F(ExpanderSelectorAttemptTest, FailBitLeftOverFromABadStreamEndsTheAttempts) {
  stream_.setstate(std::ios_base::badbit);
  SetStateInWait(4, std::ios_base::failbit);
  EXPECT_FALSE(InsertAndWait());
  EXPECT_THAT(Recorded(), ElementsAre(kWait, kWait, kWait, kWait));
}

// --- dax ----------------------------------------------------------------------------------------

class ExpanderDaxSelectorTest : public ExpanderTest {};

TEST_F(ExpanderDaxSelectorTest, SelectingDoesNothingAndSucceeds) {
  auto& programmer = Ready<DaxFlashProgrammer>();
  for (const int module : {0, 4, 5}) {
    EXPECT_EQ(Record([&] { return programmer.Select_SPIMaster(module); }), 0);
    EXPECT_EQ(Record([&] { return programmer.Select_OTDR(module); }), 0);
  }
  EXPECT_TRUE(std::filesystem::is_empty(slots_.path()));
}

}  // namespace
