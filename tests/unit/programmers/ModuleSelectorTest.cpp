#include <cerrno>
#include <ostream>
#include <streambuf>
#include <string>
#include <type_traits>

#include "programmers/ModuleSelector.h"
#include "programmers/Pyx1FlashProgrammer.h"
#include "programmers/Pyx2FlashProgrammer.h"
#include "tests/unit/programmers/ProgrammerTest.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

constexpr const char* kWait = "nanosleep(100000000)";
constexpr const char* kNotOpen = "Could not open the module_selector file\n";

// --- The four selections of the pyx programmers -------------------------------------------------

template <typename Programmer>
class ModuleSelectorTest : public ProgrammerTest {};

using Programmers = testing::Types<Pyx1FlashProgrammer, Pyx2FlashProgrammer>;
TYPED_TEST_SUITE(ModuleSelectorTest, Programmers);

TYPED_TEST(ModuleSelectorTest, TextReachesTheFileWhenItIsClosedBehindTheWait) {
  std::string inTheWait;
  const auto programmer = this->template Make<TypeParam>(4);
  this->kernel_.decide = [&](const char*, const std::string&) {
    inTheWait += "'" + this->slotA_.Contents() + "'";
    return FileKernel::Fate{};
  };
  EXPECT_EQ(programmer->Select_OTDR(4), 0);
  EXPECT_EQ(this->slotA_.Contents(), "SPILVDS");
  EXPECT_EQ(programmer->Select_SPIMaster(4), 0);
  EXPECT_EQ(this->slotA_.Contents(), "SPIFIFO");
  EXPECT_EQ(inTheWait, "''''");
  EXPECT_THAT(this->log_.Take(), ElementsAre(kWait, kWait));
  EXPECT_EQ(this->slotB_.Contents(), "SPISOMETHING\n");
}

TYPED_TEST(ModuleSelectorTest, EveryNumberBut4IsSlotB) {
  const auto programmer = this->template Make<TypeParam>();
  const int before = this->slotB_.Openings();
  for (const int module : {0, 1, 2, 3, 5, 6, -1, 2147483647}) {
    EXPECT_EQ(programmer->Select_SPIMaster(module), 0) << module;
  }
  EXPECT_EQ(this->slotB_.Openings(), before + 8);
  EXPECT_EQ(this->slotA_.Openings(), 0);
}

TYPED_TEST(ModuleSelectorTest, FileThatCannotBeOpenedIsReportedWithoutAWait) {
  const auto programmer = this->template Make<TypeParam>(4);
  this->slotA_.Remove();
  EXPECT_EQ(programmer->Select_SPIMaster(4), -1);
  EXPECT_EQ(programmer->Select_OTDR(4), -1);
  // Of a pyx1 the first of the two is on standard output.
  const bool isPyx1 = std::is_same_v<TypeParam, Pyx1FlashProgrammer>;
  EXPECT_THAT(this->log_.Take(),
              ElementsAre((isPyx1 ? "out| " : "err| ") + std::string(kNotOpen),
                          "err| " + std::string(kNotOpen)));
}

// --- The path ------------------------------------------------------------------------------------

TEST(ModuleSelectorPathTest, Module4IsSlotAAndEveryOtherNumberSlotB) {
  EXPECT_STREQ(module_selector::Path(4), "/sys/platform/module_selector/slotA");
  for (const int module : {0, 1, 2, 3, 5, 6, -1, 2147483647}) {
    EXPECT_STREQ(module_selector::Path(module), "/sys/platform/module_selector/slotB") << module;
  }
}

// --- The attempts, over a stream that the test can break ---------------------------------------

class LoggingBuffer : public std::streambuf {
 public:
  explicit LoggingBuffer(EventLog& log) : log_(log) {}

  bool broken = false;

 protected:
  std::streamsize xsputn(const char* text, std::streamsize count) override {
    log_.Add("insert " + std::string(text, static_cast<std::size_t>(count)));
    return broken ? 0 : count;
  }

  int_type overflow(int_type /*character*/) override {
    log_.Add("overflow");
    return traits_type::eof();
  }

  int sync() override {
    log_.Add("flush");
    return 0;
  }

 private:
  EventLog& log_;
};

class SelectorAttemptTest : public ProgrammerTest {
 protected:
  bool InsertAndWait() { return module_selector::InsertAndWait(stream_, "SPIFIFO"); }

  /// Sets the stream's state when the given wait begins, counted from 1.
  void SetStateInWait(int wait, std::ios_base::iostate state) {
    kernel_.decide = [this, wait, state](const char*, const std::string&) {
      if (++waits_ == wait) {
        stream_.clear(state);
      }
      return FileKernel::Fate{};
    };
  }

  LoggingBuffer buffer_{log_};
  std::ostream stream_{&buffer_};
  int waits_ = 0;
};

TEST_F(SelectorAttemptTest, GoodStreamTakesTheTextOnceWithoutAFlush) {
  EXPECT_TRUE(InsertAndWait());
  EXPECT_THAT(log_.Take(), ElementsAre("insert SPIFIFO", kWait));
}

TEST_F(SelectorAttemptTest, WaitInterruptedBySignalsGoesOnForTheTimeThatIsLeft) {
  kernel_.decide = [this](const char*, const std::string&) {
    return FileKernel::Fate{.error = ++waits_ < 3 ? EINTR : 0};
  };
  EXPECT_TRUE(InsertAndWait());
  EXPECT_THAT(log_.Take(),
              ElementsAre("insert SPIFIFO", kWait, "nanosleep(50000000)", "nanosleep(25000000)"));
}

TEST_F(SelectorAttemptTest, InsertionThatBreaksTheStreamIsTried21TimesThenReported) {
  buffer_.broken = true;
  EXPECT_EQ(module_selector::Apply(stream_, module_selector::kOtdr), -1);
  EventLog::Events expected(21, kWait);
  expected.insert(expected.begin(), "insert SPILVDS");  // a bad stream accepts no more
  expected.emplace_back("err| Select_OTDR failed\n");
  EXPECT_THAT(log_.Take(), ElementsAreArray(expected));
}

TEST_F(SelectorAttemptTest, BadStreamThatRecoversInAttempt21IsTaken) {
  stream_.setstate(std::ios_base::badbit);
  SetStateInWait(21, std::ios_base::goodbit);
  EXPECT_TRUE(InsertAndWait());
  EXPECT_THAT(log_.Take(), ElementsAreArray(EventLog::Events(21, kWait)));
}

TEST_F(SelectorAttemptTest, BadStreamThatWouldRecoverInAttempt22IsGivenUp) {
  stream_.setstate(std::ios_base::badbit);
  SetStateInWait(22, std::ios_base::goodbit);
  EXPECT_EQ(module_selector::Apply(stream_, module_selector::kSpiMaster), -1);
  EventLog::Events expected(21, kWait);
  expected.emplace_back("err| Select_SPIMaster failed\n");
  EXPECT_THAT(log_.Take(), ElementsAreArray(expected));
}

TEST_F(SelectorAttemptTest, FailBitAloneEndsAfterOneWait) {
  stream_.setstate(std::ios_base::failbit);
  EXPECT_FALSE(InsertAndWait());
  EXPECT_THAT(log_.Take(), ElementsAre(kWait));
}

TEST_F(SelectorAttemptTest, FailBitLeftOverFromABadStreamEndsTheAttempts) {
  stream_.setstate(std::ios_base::badbit);
  SetStateInWait(4, std::ios_base::failbit);
  EXPECT_FALSE(InsertAndWait());
  EXPECT_THAT(log_.Take(), ElementsAre(kWait, kWait, kWait, kWait));
}

}  // namespace
