// Several updates at once, and updates whose companion was killed.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <optional>
#include <ostream>
#include <string>
#include <system_error>
#include <utility>

#include "base/FileDescriptor.h"
#include "tests/e2e/companion/Bench.h"
#include "tests/e2e/companion/Gate.h"

namespace companion_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr Board kOtherPyx1 = {"pyx1", 6};  // shares its selector with every pyx outside slot 4

// --- tarnwick

constexpr std::size_t kMoreThanAPipeHolds = 100'000;

// zlib's gzread() takes 8 KiB out of the pipe, then no less than 16 KiB each time. So when one byte
// more has been taken, the pages of these 8 KiB are programmed, and the flash is ready again.
constexpr int kBytesOfPages = 8192;

/// A `tarnwick` that stops after its first pages. Its image comes through pipes, one each time it
/// opens it.
class HeldTarnwick {
 public:
  /// @param name        the process, as of InBackground(), and the image NAME.bin
  /// @param descriptor  of the script, for the pipes
  HeldTarnwick(const Bench& bench, std::string name, std::string descriptor)
      : start_(bench.Tarnwick(name + ".pipe") + " 3>&-"),  // or another one's pipe has no end
        name_(std::move(name)),
        descriptor_(std::move(descriptor)) {
    const std::string pipe = bench.File(PipeOfPages());
    if (::mkfifo(pipe.c_str(), 0600) != 0) {
      throw std::system_error(errno, std::generic_category(), "mkfifo");
    }
    pages_.emplace(::open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    capacity_ = ::fcntl(pages_->Get(), F_SETPIPE_SZ, 1);  // the least: a page, 4 KiB here
    if (capacity_ < 1) {
      throw std::system_error(errno, std::generic_category(), "F_SETPIPE_SZ");
    }
  }

  /// Starts it in the background. When the script goes on, it has erased the flash and programmed
  /// 8 KiB, and waits for more. Nothing is under way on its buses.
  [[nodiscard]] std::string UpToThePages() const {
    const std::string pipe = name_ + ".pipe";
    const std::string feed = "cat " + name_ + ".bin" + To() + " 2>/dev/null";
    return Script("mkfifo " + name_ + "1 " + name_ + "2; ln " + name_ + "1 " + pipe,
                  InBackground(name_, start_),
                  // Looks for the stamp, and reads no further.
                  Open() + "; ln -f " + name_ + "2 " + pipe + "; " + feed + "; " + Close(),
                  // A dax opens the image before the erase without reading it. What does not fit
                  // into a pipe has been read for the erase.
                  Open() + "; " + feed + "; ln -f " + PipeOfPages() + " " + pipe + "; " + Close(),
                  // Ends when all but what the pipe holds has been read.
                  Open() + "; head -c " + std::to_string(Fed()) + " " + name_ + ".bin" + To());
  }

  [[nodiscard]] std::string Rest() const {
    return Script(
        "tail -c +" + std::to_string(Fed() + 1) + " " + name_ + ".bin" + To() + "; " + Close(),
        ExitCodeOf(name_));
  }

 private:
  [[nodiscard]] std::string PipeOfPages() const { return name_ + "3"; }
  [[nodiscard]] std::string To() const { return " >&" + descriptor_; }
  [[nodiscard]] std::string Open() const { return "exec " + descriptor_ + ">" + name_ + ".pipe"; }
  [[nodiscard]] std::string Close() const { return "exec " + descriptor_ + ">&-"; }
  [[nodiscard]] int Fed() const { return kBytesOfPages + 1 + capacity_; }

  std::string start_;
  std::string name_;
  std::string descriptor_;
  std::optional<FileDescriptor> pages_;  // a pipe that nobody has open forgets its capacity
  int capacity_ = 0;
};

TEST(TwoTarnwicksTest, InOneSlotBothSucceedOverASpoiltFlash) {
  Bench bench(kDax);
  const Bytes other = bench.Build(2025, kMoreThanAPipeHolds);
  bench.StoreImage(bench.Build(2024, kMoreThanAPipeHolds));
  bench.WriteFile("first.bin", bench.Image());
  bench.WriteFile("second.bin", other);
  const HeldTarnwick first(bench, "first", "3");
  const HeldTarnwick second(bench, "second", "4");
  const Ended ended =
      bench.Run(Script(first.UpToThePages(), second.UpToThePages(), first.Rest(), second.Rest()));
  EXPECT_EQ(ended.out, "0\n0\n");
  ExpectFlashIsNeither(ended, bench);
  EXPECT_FALSE(ended.flash == program_test::Flashed(other, bench.Old()));
}

TEST(TwoTarnwicksTest, OnTwoPyxThatShareASelectorBothSucceedOverASpoiltFlash) {
  Bench bench(kOtherPyx1);
  bench.StoreImage(bench.Build(2024, kMoreThanAPipeHolds));
  bench.WriteFile("first.bin", bench.Image());
  bench.PlugIn("pyx1@5");  // its blank flash has no stamp, so it is written
  const HeldTarnwick first(bench, "first", "3");
  const Ended ended =
      bench.Run(Script(first.UpToThePages(),
                       Quoted(Bench::TarnwickPath()) + " pyx1 -sf 5 image.bin >second.out; echo $?",
                       first.Rest()));
  EXPECT_EQ(ended.out, "0\n0\n");
  ExpectFlashIsNeither(ended, bench);
}

// --- tarnwickctl

class ConcurrencyTest : public testing::Test {
 protected:
  ConcurrencyTest() { PutGate(bench_); }

  /// Image in flash and written once, nothing left.
  void ExpectWrittenOnce(const Ended& ended) {
    ExpectFlash(ended, bench_.New());
    EXPECT_EQ(CountStarts(ended.log, "spi /dev/spidev4.0 SE 0x000000"), 1);
    EXPECT_EQ(ended.state, bench_.InUse());
    EXPECT_FALSE(std::filesystem::exists(bench_.StateFolder() / "work"));
    EXPECT_FALSE(std::filesystem::exists(bench_.StateFolder() / "slot-4.unfinished"));
  }

  Bench bench_{kPyx1};
};

TEST_F(ConcurrencyTest, SecondUpdateIsToldWhoHoldsTheLock) {
  const Ended ended = bench_.Run(Script(MakeGate(),
                                        InBackground("first", bench_.Update()),
                                        AwaitArrival(),
                                        bench_.Update(">second.out 2>second.err; echo $?"),
                                        OpenGate(),
                                        "echo $first >first.id",
                                        ExitCodeOf("first")));
  EXPECT_EQ(ended.out, "4\n0\n") << bench_.ReadText("first.err") << bench_.ReadText("second.err");
  std::string holder = bench_.ReadText("first.id");
  holder.pop_back();
  const std::string told = bench_.ReadText("second.out") + bench_.ReadText("second.err");
  EXPECT_THAT(told, HasSubstr("update pyx1 4"));
  EXPECT_THAT(told, HasSubstr(holder));
  ExpectWrittenOnce(ended);
}

TEST_F(ConcurrencyTest, ReadAndVerifyTakeTheSameLock) {
  const Ended ended = bench_.Run(Script(MakeGate(),
                                        InBackground("first", bench_.Update()),
                                        AwaitArrival(),
                                        bench_.Verify(">/dev/null 2>&1; echo $?"),
                                        bench_.Read(">/dev/null 2>&1; echo $?"),
                                        OpenGate(),
                                        ExitCodeOf("first")));
  EXPECT_EQ(ended.out, "4\n4\n0\n") << bench_.ReadText("first.err");
  EXPECT_FALSE(std::filesystem::exists(bench_.File("read.bin")));
  ExpectWrittenOnce(ended);
}

TEST_F(ConcurrencyTest, SecondUpdateOfAnotherModuleIsLockedOut) {
  bench_.PlugIn("pyx1@5");
  const std::string other = Bench::Companion("update pyx1 5 image.bin --state ") +
                            Quoted(bench_.StateFolder()) + " --program " +
                            Quoted(Bench::TarnwickPath());
  const Ended ended = bench_.Run(Script(MakeGate(),
                                        InBackground("first", bench_.Update()),
                                        AwaitArrival(),
                                        other + " >/dev/null 2>&1; echo $?",
                                        OpenGate(),
                                        ExitCodeOf("first"),
                                        other + " >/dev/null 2>&1; echo $?"));
  EXPECT_EQ(ended.out, "4\n0\n0\n") << bench_.ReadText("first.err");
  ExpectWrittenOnce(ended);
}

TEST_F(ConcurrencyTest, SecondUpdateWaitsAndFindsTheWorkDone) {
  const Ended ended = bench_.Run(Script(MakeGate(),
                                        InBackground("first", bench_.Update()),
                                        AwaitArrival(),
                                        InBackground("second", bench_.Update("--wait 60")),
                                        OpenGate(),
                                        ExitCodeOf("first"),
                                        ExitCodeOf("second")));
  EXPECT_EQ(ended.out, "0\n0\n") << bench_.ReadText("first.err") << bench_.ReadText("second.err");
  ExpectWrittenOnce(ended);
}

TEST_F(ConcurrencyTest, TwoPyxThatShareASelectorAreUpdatedOneAfterTheOther) {
  bench_.PlugIn("pyx1@5");
  bench_.PlugIn("pyx1@6");
  const auto update = [&](const std::string& slot) {
    return Bench::Companion("update pyx1 ") + slot + " image.bin --wait 60 --state " +
           Quoted(bench_.StateFolder()) + " --program " + Quoted(Bench::TarnwickPath());
  };
  const Ended ended = bench_.Run(Script(InBackground("first", update("5")),
                                        InBackground("second", update("6")),
                                        ExitCodeOf("first"),
                                        ExitCodeOf("second")));
  EXPECT_EQ(ended.out, "0\n0\n") << bench_.ReadText("first.err") << bench_.ReadText("second.err");
  EXPECT_EQ(ended.states.at(1), "5 " + bench_.InUse());
  EXPECT_EQ(ended.states.at(2), "6 " + bench_.InUse());
}

TEST_F(ConcurrencyTest, OfTenUpdatesOneDoesTheWork) {
  std::string others;
  for (int i = 0; i < 9; ++i) {
    const std::string name = "other" + std::to_string(i);
    others += InBackground(name, bench_.Update()) + "\n";
  }
  for (int i = 0; i < 9; ++i) {
    others += ExitCodeOf("other" + std::to_string(i)) + "\n";
  }
  const Ended ended = bench_.Run(Script(MakeGate(),
                                        InBackground("first", bench_.Update()),
                                        AwaitArrival(),
                                        others,
                                        OpenGate(),
                                        ExitCodeOf("first")));
  EXPECT_EQ(ended.out, "4\n4\n4\n4\n4\n4\n4\n4\n4\n0\n") << bench_.ReadText("first.err");
  ExpectWrittenOnce(ended);
}

TEST_F(ConcurrencyTest, OfTenUpdatesThatWaitAllSucceed) {
  std::string start;
  std::string end;
  for (int i = 0; i < 10; ++i) {
    const std::string name = "update" + std::to_string(i);
    start += InBackground(name, bench_.Update("--wait 120")) + "\n";
    end += ExitCodeOf(name) + "\n";
  }
  const Ended ended = bench_.Run(Script(MakeGate(), start, AwaitArrival(), OpenGate(), end));
  EXPECT_EQ(ended.out, "0\n0\n0\n0\n0\n0\n0\n0\n0\n0\n");
  ExpectWrittenOnce(ended);
}

TEST_F(ConcurrencyTest, KilledCompanionLeavesTheLockToItsTarnwickWhichStillWrites) {
  const Ended ended = bench_.Run(Script(MakeGate(),
                                        InBackground("first", bench_.Update()),
                                        AwaitArrival(),
                                        "kill -KILL $first",
                                        ExitCodeOf("first"),
                                        InBackground("second", bench_.Update("--wait 60")),
                                        bench_.Update(">third.out 2>third.err; echo $?"),
                                        OpenGate(),
                                        ExitCodeOf("second")));
  EXPECT_EQ(ended.out, "137\n4\n0\n") << bench_.ReadText("second.err");
  ExpectWrittenOnce(ended);  // by the one whose companion was killed
}

TEST_F(ConcurrencyTest, OrphanThatHangsIsEndedByItsTimeLimit) {
  PutGate(bench_, WaitForEver());
  const Ended ended =
      bench_.Run(Script(MakeGate(),
                        InBackground("first", bench_.Update("--timeout 1")),
                        AwaitArrival(),
                        "kill -KILL $first",
                        ExitCodeOf("first"),
                        bench_.Update("--wait 60 >second.out 2>second.err; echo $?")));
  EXPECT_EQ(ended.out, "137\n0\n") << bench_.ReadText("second.err");
  ExpectWrittenOnce(ended);
}

// --- The companion is killed with its tarnwick

struct Kill {
  Board board;
  const char* rule;  ///< kills `tarnwick` between the last page and the reset
};

void PrintTo(const Kill& kill, std::ostream* out) { *out << kill.board.word; }

class KilledUpdateTest : public testing::TestWithParam<Kill> {};

INSTANTIATE_TEST_SUITE_P(Boards,
                         KilledUpdateTest,
                         testing::Values(Kill{kWend, "write:zynq_hw_reset_n#1:kill"},
                                         Kill{kPyx1, "i2c:w 02 20 3e#1:kill"},
                                         Kill{kPyx2, "i2c:w 02 e8 f5#1:kill"}),
                         [](const auto& row) { return std::string(row.param.board.word); });

TEST_P(KilledUpdateTest, BeforeTheResetIsBroughtIntoUseByTheNextWithoutAWrite) {
  const Kill& kill = GetParam();
  Bench bench(kill.board);
  bench.BeforeTarnwick("\"$tarnwick\" \"$@\"; kill -KILL $PPID; exit 1");
  bench.Fault(kill.rule);
  const Ended ended = bench.Run(Script(bench.Update(">first.out 2>first.err; echo $?"),
                                       bench.Update(">second.out 2>second.err; echo $?")));
  EXPECT_EQ(ended.out, "137\n0\n") << bench.ReadText("second.err");
  ExpectFlash(ended, bench.New());
  EXPECT_EQ(CountStarts(ended.log,
                        "spi /dev/spidev" + std::to_string(kill.board.slot) + ".0 SE 0x000000"),
            1);
  EXPECT_EQ(ended.state, bench.InUse());
  EXPECT_THAT(Bench::NamesIn(bench.StateFolder()), ElementsAre("lock"));
}

}  // namespace
}  // namespace companion_test
