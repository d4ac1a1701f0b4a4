// `read` and `verify` write nothing to the flash and its chip, and reset no FPGA that runs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "tests/e2e/companion/Bench.h"

namespace companion_test {
namespace {

using testing::AnyOf;
using testing::Eq;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

/// A type of module, a chip, and what its DONE does.
struct Module {
  Board board;
  const char* chip;
  const char* done;
};

void PrintTo(const Module& module, std::ostream* out) {
  *out << module.board.word << ", " << module.chip << ", DONE " << module.done;
}

std::string NameOf(const testing::TestParamInfo<Module>& row) {
  return std::string(row.param.board.word) + "_" + row.param.chip + "_" + row.param.done;
}

std::vector<Module> EveryModule() {
  std::vector<Module> modules;
  for (const Board& board : {kWend, kDax, kPyx1, kPyx2}) {
    for (const char* const chip : {"micron", "macronix"}) {
      for (const char* const done : {"auto", "high"}) {
        modules.push_back({board, chip, done});
      }
    }
    modules.push_back({board, "macronix", "low"});
  }
  return modules;
}

/// How often the line that holds the FPGA in reset is driven low.
class ResetWatch {
 public:
  explicit ResetWatch(const Board& board)
      : isWend_(board.word == std::string_view(kWend.word)),
        line_(board.word == std::string_view(kPyx2.word) ? 0x0200U : 0x0080U) {}

  int Count(const Lines& log) {
    int resets = 0;
    for (const std::string& event : log) {
      resets += static_cast<int>(isWend_ ? event.starts_with("write /sys/") &&
                                               event.find("zynq_hw_reset_n") != std::string::npos
                                         : DrivesLow(event));
    }
    return resets;
  }

 private:
  /// "i2c /dev/i2c-4 0x20 w 02 bd 3e": registers 2 and 3 are the outputs, 6 and 7 the directions.
  bool DrivesLow(const std::string& event) {
    std::istringstream words(event);
    std::string kind;
    std::string node;
    std::string address;
    std::string access;
    unsigned number = 0;
    words >> kind >> node >> address >> access >> std::hex >> number;
    if (kind != "i2c" || access != "w" || event.find(" = ") != std::string::npos) {
      return false;
    }
    for (unsigned byte = 0; number < registers_.size() && words >> byte; number ^= 1U) {
      registers_[number] = byte;
    }
    const unsigned outputs = registers_[3] << 8U | registers_[2];
    const unsigned inputs = registers_[7] << 8U | registers_[6];
    return ((outputs | inputs) & line_) == 0;
  }

  bool isWend_;
  unsigned line_;
  std::array<unsigned, 8> registers_{0, 0, 0xFF, 0xFF, 0, 0, 0xFF, 0xFF};
};

class ReadOnlyTest : public testing::TestWithParam<Module> {
 protected:
  ReadOnlyTest() : bench_(GetParam().board) {
    bench_.Key(std::string("chip=") + GetParam().chip);
    bench_.Key(std::string("done=") + GetParam().done);
  }

  bool IsLow() const { return GetParam().done == std::string_view("low"); }

  /// A dax or pyx1 whose DONE is low has to be reset for its flash to be read.
  bool MayBeReset() const {
    const std::string_view word = GetParam().board.word;
    return IsLow() && (word == kDax.word || word == kPyx1.word);
  }

  /// A dax that was reset may still be loading the flash when the run ends.
  std::string State() const {
    std::string state = bench_.InUse();
    if (!IsLow()) {
      return state;
    }
    const bool mayBeLoading = GetParam().board.word == std::string_view(kDax.word);
    return "done=0" + state.substr(state.find(' '), state.find(" loaded=") - state.find(' ')) +
           " loaded=" + (mayBeLoading ? "(current|none)" : "current");
  }

  void ExpectUntouched(const Ended& ended) {
    EXPECT_THAT(FlashWrites(ended.log), IsEmpty());
    ExpectFlash(ended, bench_.Old());
    EXPECT_THAT(ended.state, MatchesRegex(State()));
    const int resets = ResetWatch(GetParam().board).Count(ended.log);
    if (MayBeReset()) {
      EXPECT_GT(resets, 0);
      EXPECT_THAT(ended.out + ended.err, HasSubstr("PS mode"));
    } else {
      EXPECT_EQ(resets, 0);
    }
  }

  Bench bench_;
};

INSTANTIATE_TEST_SUITE_P(Modules, ReadOnlyTest, testing::ValuesIn(EveryModule()), NameOf);

TEST_P(ReadOnlyTest, VerifyOfAnotherImageSaysThatItDiffers) {
  const Ended ended = bench_.Run(bench_.Verify());
  EXPECT_EQ(ended.exitCode, 1) << ended.out << ended.err;
  ExpectUntouched(ended);
}

TEST_P(ReadOnlyTest, ReadStoresTheContents) {
  const Ended ended = bench_.Run(bench_.Read("--length 100001"));
  EXPECT_EQ(ended.exitCode, 0) << ended.out << ended.err;
  const std::string text = bench_.ReadText("read.bin");
  Bytes old = bench_.Old();
  old.resize(100'001);
  EXPECT_TRUE(Bytes(text.begin(), text.end()) == old);
  ExpectUntouched(ended);
}

/// A module whose FPGA runs an older image than the flash holds: any reset would load the new one.
class NotInUseTest : public testing::TestWithParam<Board> {};

INSTANTIATE_TEST_SUITE_P(Boards,
                         NotInUseTest,
                         testing::Values(kWend, kPyx1, kPyx2),
                         program_test::WordOf);

TEST_P(NotInUseTest, VerifyOfTheImageLeavesTheFpgaWithWhatItHasLoaded) {
  Bench bench(GetParam());
  bench.Fault(GetParam().word == std::string_view(kWend.word)   ? "write:zynq_hw_reset_n#1:kill"
              : GetParam().word == std::string_view(kPyx1.word) ? "i2c:w 02 20 3e#1:kill"
                                                                : "i2c:w 02 e8 f5#1:kill");
  const Ended ended = bench.Run(bench.Tarnwick() + " >/dev/null 2>&1; " + bench.Verify());
  EXPECT_EQ(ended.exitCode, 0) << ended.out << ended.err;
  ExpectFlash(ended, bench.New());
  EXPECT_EQ(ended.state, bench.Resting("other"));
}

/// An update whose tarnwick was killed while it waited for DONE after the reset.
TEST(BootingTest, FpgaIsAwaitedAndNotReset) {
  Bench bench(kPyx1);
  bench.Fault("sleep:1 ms#1:kill");
  const Ended ended = bench.Run(bench.Tarnwick() + " >/dev/null 2>&1; " + bench.Verify());
  EXPECT_EQ(ended.exitCode, 0) << ended.out << ended.err;
  EXPECT_EQ(ended.state, bench.InUse());
  const auto killed = std::ranges::find(ended.log, "sleep 1 ms = kill");
  const Lines afterwards(killed, ended.log.end());
  ASSERT_GT(CountLines(afterwards, "i2c /dev/i2c-4 0x20 w 00 r c0 2d"), 0);  // DONE, at last
  EXPECT_EQ(ResetWatch(kPyx1).Count(afterwards), 0);
}

// --- One fault

struct FaultKind {
  const char* kind;
  const char* action;
};

constexpr FaultKind kFaultKinds[] = {{"spi", "EIO"},
                                     {"spi", "lost"},
                                     {"spi", R"(data:\xff\xff\xff\xff)"},
                                     {"i2c", "ENXIO"},
                                     {"i2c", "lost"},
                                     {"open", "EACCES"},
                                     {"read", "EIO"},
                                     {"write", "EIO"},
                                     {"write", "lost"},
                                     {"ioctl", "EIO"},
                                     {"dbus", "error"},
                                     {"any", "kill"}};

/// How many events of each kind are hit, one a run. A number in the environment selects another one,
/// for longer runs.
std::size_t SampleSize() {
  const char* const text = std::getenv("TARNWICKCTL_READ_FAULTS");
  return text == nullptr ? 1 : std::strtoul(text, nullptr, 10);
}

bool IsOfKind(const std::string& event, const std::string& kind) {
  if (kind == "any") {
    return !event.starts_with("stdout") && !event.starts_with("stderr") &&
           !event.starts_with("exit");
  }
  return event.starts_with(kind + " ") && event.find(" speed ") == std::string::npos;
}

/// The numbers of the events that are hit, spread over all of them.
std::vector<std::size_t> Sample(std::size_t events) {
  const std::size_t size = std::min(events, SampleSize());
  std::vector<std::size_t> numbers;
  for (std::size_t i = 0; i < size; ++i) {
    numbers.push_back((2 * i + 1) * events / (2 * size) + 1);
  }
  return numbers;
}

class ReadOnlyFaultTest : public testing::TestWithParam<Board> {
 protected:
  /// The rules of a sample of the faults that can hit a run.
  static std::vector<std::string> Rules(const Lines& log) {
    std::vector<std::string> rules;
    for (const FaultKind& fault : kFaultKinds) {
      const auto events = static_cast<std::size_t>(std::ranges::count_if(
          log, [&](const std::string& event) { return IsOfKind(event, fault.kind); }));
      for (const std::size_t number : Sample(events)) {
        rules.push_back(std::string(fault.kind) + "#" + std::to_string(number) + ":" +
                        fault.action);
      }
    }
    return rules;
  }

  void Prepare(Bench& bench, const std::string& rule, const Bytes& flash) const {
    bench.StoreFlash(flash);
    bench.Option({"--allow-unhit"});
    if (!rule.empty()) {
      bench.Fault(rule);
    }
  }

  void ExpectUntouched(const Bench& bench, const Ended& ended) const {
    EXPECT_THAT(FlashWrites(ended.log), IsEmpty());
    ExpectFlash(ended, bench.Old());
    EXPECT_EQ(ended.state, bench.InUse());
    EXPECT_EQ(ResetWatch(GetParam()).Count(ended.log), 0);
  }
};

INSTANTIATE_TEST_SUITE_P(Boards,
                         ReadOnlyFaultTest,
                         testing::Values(kWend, kDax, kPyx1, kPyx2),
                         program_test::WordOf);

TEST_P(ReadOnlyFaultTest, VerifyNeverSaysThatTheImageDiffersNorTouchesTheModule) {
  Lines clean;
  {
    Bench bench(GetParam());
    Prepare(bench, "", bench.Image());
    clean = bench.Run(bench.Verify()).log;
  }
  const std::vector<std::string> rules = Rules(clean);
  EXPECT_GE(rules.size(), 8U);
  for (const std::string& rule : rules) {
    SCOPED_TRACE(rule);
    Bench bench(GetParam());
    Prepare(bench, rule, bench.Image());
    const Ended ended = bench.Run(bench.Verify());
    EXPECT_THAT(ended.exitCode, AnyOf(Eq(0), Eq(2), Eq(6), Eq(137))) << ended.out << ended.err;
    ExpectUntouched(bench, ended);
  }
}

TEST_P(ReadOnlyFaultTest, VerifyNeverSaysEqualOverAnotherImage) {
  Lines clean;
  {
    Bench bench(GetParam());
    Prepare(bench, "", bench.Build(2023));
    clean = bench.Run(bench.Verify()).log;
  }
  const std::vector<std::string> rules = Rules(clean);
  EXPECT_GE(rules.size(), 8U);
  for (const std::string& rule : rules) {
    SCOPED_TRACE(rule);
    Bench bench(GetParam());
    Prepare(bench, rule, bench.Build(2023));
    const Ended ended = bench.Run(bench.Verify());
    EXPECT_THAT(ended.exitCode, AnyOf(Eq(1), Eq(2), Eq(6), Eq(137))) << ended.out << ended.err;
    ExpectUntouched(bench, ended);
  }
}

}  // namespace
}  // namespace companion_test
