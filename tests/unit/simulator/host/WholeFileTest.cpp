#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <span>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "simulator/host/FilePlace.h"
#include "simulator/host/WholeFile.h"
#include "tests/doubles/ScratchDirectory.h"
#include "tests/doubles/TemporaryDirectory.h"
#include "tests/unit/simulator/host/FileCalls.h"
#include "tests/unit/simulator/host/ProblemWith.h"

namespace orvane {
namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;

namespace fs = std::filesystem;

constexpr uid_t kNobody = 65534;

std::span<const std::uint8_t> Bytes(const std::string& text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

WholeFile At(const std::string& path) { return {FilePlace(path, ""), "cannot write 'x'"}; }

std::string ProblemOfCheck(const std::string& path) {
  return ProblemWith([&] { At(path).Check(); });
}

/// Runs `call` in a process of its own. @return its status as of waitpid()
template <typename Call>
int InChild(const Call& call) {
  const pid_t child = ::fork();
  if (child == 0) {
    call();
    ::_exit(0);
  }
  int status = -1;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  return status;
}

class WholeFileTest : public testing::Test {
 protected:
  std::string In(const std::string& name) const { return folder_.Path() + "/" + name; }
  std::string Create(const std::string& name, const std::string& contents) const {
    return folder_.File(name, contents);
  }
  /// Sorted.
  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder_.Path())) {
      names.push_back(entry.path().filename());
    }
    std::ranges::sort(names);
    return names;
  }

 private:
  ::TemporaryDirectory folder_;
};

mode_t ModeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::stat(path.c_str(), &status), 0);
  return status.st_mode & 07777;
}

TEST_F(WholeFileTest, NewFileHasTheModeThatTheUmaskLeaves) {
  const mode_t before = ::umask(027);
  At(In("file")).Write(Bytes("new"));
  ::umask(before);
  EXPECT_EQ(ReadFile(In("file")), "new");
  EXPECT_EQ(ModeOf(In("file")), 0640U);
  EXPECT_THAT(Names(), ElementsAre("file"));
}

TEST_F(WholeFileTest, ModeIsKept) {
  const std::string file = Create("file", "old");
  ASSERT_EQ(::chmod(file.c_str(), 06751), 0);
  At(file).Write(Bytes("new"));
  EXPECT_EQ(ReadFile(file), "new");
  EXPECT_EQ(ModeOf(file), 06751U);
}

TEST_F(WholeFileTest, OwnerAndGroupAreKept) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root gives files away";
  }
  const std::string file = Create("file", "old");
  ASSERT_EQ(::chown(file.c_str(), kNobody, 7), 0);
  At(file).Write(Bytes("new"));
  struct stat status {};
  ASSERT_EQ(::stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, kNobody);
  EXPECT_EQ(status.st_gid, 7U);
}

TEST_F(WholeFileTest, OwnerThatCannotBeKeptIsNoError) {
  const std::string file = Create("file", "old");
  FileCalls calls;
  calls.failingName = "fchown";
  calls.failure = EPERM;
  At(file).Write(Bytes("new"));
  EXPECT_EQ(ReadFile(file), "new");
}

TEST_F(WholeFileTest, SymbolicLinkStays) {
  Create("below/file", "old");
  fs::create_symlink("below/file", In("link"));
  At(In("link")).Write(Bytes("new"));
  EXPECT_TRUE(fs::is_symlink(In("link")));
  EXPECT_EQ(ReadFile(In("below/file")), "new");
  EXPECT_THAT(Names(), ElementsAre("below", "link"));
}

TEST_F(WholeFileTest, LinkToNoFileGetsItsTarget) {
  fs::create_symlink("file", In("link"));
  At(In("link")).Write(Bytes("new"));
  EXPECT_TRUE(fs::is_symlink(In("link")));
  EXPECT_EQ(ReadFile(In("file")), "new");
}

TEST_F(WholeFileTest, OtherHardLinkKeepsTheOldContents) {
  const std::string file = Create("file", "old");
  fs::create_hard_link(file, In("other"));
  At(file).Write(Bytes("new"));
  EXPECT_EQ(ReadFile(file), "new");
  EXPECT_EQ(ReadFile(In("other")), "old");
}

TEST_F(WholeFileTest, LongestNameIsTaken) {
  for (const int unnamedFailure : {0, EOPNOTSUPP}) {
    FileCalls calls;
    calls.unnamedFailure = unnamedFailure;
    const std::string name(255, 'n');
    Create(name, "old");
    At(In(name)).Write(Bytes("new"));
    EXPECT_EQ(ReadFile(In(name)), "new");
    EXPECT_THAT(Names(), ElementsAre(name));
  }
}

TEST_F(WholeFileTest, TemporaryNameHasAsManyWholeCharactersAsFit) {
  // 255 less the dot, ".orvane-sim-" and ten digits: 232 bytes.
  const std::string mark = ".orvane-sim-" + std::to_string(::getpid());
  for (const std::string start : {"", "n"}) {
    std::string name = start;
    while (name.size() < 254) {
      name += "\xC3\xA4";
    }
    std::string temporary;
    const WholeFile whole = At(In(name));
    FileCalls calls;
    calls.before = [&](const std::string& call) {
      temporary = call == "renameat" ? Names().at(0) : temporary;
    };
    whole.Write(Bytes("new"));
    fs::remove(In(name));
    EXPECT_EQ(temporary, "." + name.substr(0, start.empty() ? 232 : 231) + mark);
  }
}

// --- Errors and ends ----------------------------------------------------------------------------

TEST_F(WholeFileTest, PartsAndInterruptionsOfAWriteAreContinued) {
  FileCalls calls;
  calls.mostWritten = 2;
  calls.interruptedWrites = 3;
  At(In("file")).Write(Bytes("contents"));
  EXPECT_EQ(ReadFile(In("file")), "contents");
  EXPECT_EQ(std::ranges::count(calls.names, "write"), 3 + 4);
}

TEST_F(WholeFileTest, NewContentsAreSynchronisedBeforeTheyReplaceTheOld) {
  const std::string file = Create("file", "old");
  const WholeFile whole = At(file);
  FileCalls calls;
  whole.Write(Bytes("new"));
  EXPECT_THAT(calls.names,
              ElementsAre("unlinkat",
                          "tmpfile",
                          "write",
                          "fchown",
                          "fchmod",
                          "fsync",
                          "linkat",
                          "renameat",
                          "openat",
                          "fsync"));
}

/// How files come into being: without a name at first, or with one.
class WholeFileEndTest : public WholeFileTest, public testing::WithParamInterface<int> {
 protected:
  /// @return how many calls a whole write makes
  int CountCalls() {
    const std::string file = Create("file", "old");
    const WholeFile whole = At(file);
    FileCalls calls;
    calls.unnamedFailure = GetParam();
    calls.mostWritten = 2;
    whole.Write(Bytes("new contents"));
    fs::remove(file);
    return static_cast<int>(calls.names.size());
  }
};

TEST_P(WholeFileEndTest, KilledAtAnyCallLeavesOldOrNewContents) {
  const int count = CountCalls();
  ASSERT_GT(count, 10);
  int withOld = 0;
  for (int at = 1; at <= count; ++at) {
    const std::string file = Create("file", "old");
    const int status = InChild([&] {
      const WholeFile whole = At(file);
      FileCalls calls;
      calls.unnamedFailure = GetParam();
      calls.mostWritten = 2;
      calls.killAt = at;
      whole.Write(Bytes("new contents"));
    });
    EXPECT_TRUE(WIFSIGNALED(status)) << at;
    EXPECT_THAT(ReadFile(file), AnyOf("old", "new contents")) << at;
    withOld += ReadFile(file) == "old" ? 1 : 0;
    At(file).RemoveLeftovers();
    EXPECT_THAT(Names(), ElementsAre("file")) << at;
  }
  EXPECT_EQ(withOld, count - 2);  // the last two are those that synchronise the folder
}

TEST_P(WholeFileEndTest, FailureAtAnyCallKeepsTheOldContentsAndLeavesNothing) {
  const int count = CountCalls();
  for (int at = 1; at <= count; ++at) {
    const std::string file = Create("file", "old");
    const WholeFile whole = At(file);
    std::string name;
    std::string problem;
    {
      FileCalls calls;
      calls.unnamedFailure = GetParam();
      calls.mostWritten = 2;
      calls.failAt = at;
      calls.failure = ENOSPC;
      problem = ProblemWith([&] { whole.Write(Bytes("new contents")); });
      name = calls.names.at(static_cast<std::size_t>(at - 1));
    }
    EXPECT_THAT(Names(), ElementsAre("file")) << at;
    if (problem.empty()) {  // what is tried only
      EXPECT_THAT(name, AnyOf("unlinkat", "fchown", "openat")) << at;
      EXPECT_EQ(ReadFile(file), "new contents") << at;
    } else {
      EXPECT_EQ(problem, "cannot write 'x': No space left on device") << at;
      EXPECT_EQ(ReadFile(file), at == count ? "new contents" : "old") << at;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Files, WholeFileEndTest, testing::Values(0, EOPNOTSUPP, EISDIR, ENOENT), [](const auto& row) {
      return row.param == 0 ? "WithoutAName" : "Named" + std::string(strerrorname_np(row.param));
    });

TEST_F(WholeFileTest, LimitOnTheSizeOfFilesIsAnError) {
  const std::string file = Create("file", "old");
  ASSERT_NE(::signal(SIGXFSZ, SIG_IGN), SIG_ERR);  // as orvane-sim does
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit limit{.rlim_cur = 4, .rlim_max = before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
  const std::string problem = ProblemWith([&] { At(file).Write(Bytes("new contents")); });
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
  EXPECT_EQ(problem, "cannot write 'x': File too large");
  EXPECT_EQ(ReadFile(file), "old");
}

TEST_F(WholeFileTest, LastCheckCanKeepTheOldContents) {
  const std::string file = Create("file", "old");
  EXPECT_EQ(
      ProblemWith([&] { At(file).Write(Bytes("new"), [] { throw std::runtime_error("no"); }); }),
      "no");
  EXPECT_EQ(ReadFile(file), "old");
  EXPECT_THAT(Names(), ElementsAre("file"));
}

TEST_F(WholeFileTest, FolderThatCannotBeSynchronisedOnThisFileSystemIsNoError) {
  const WholeFile whole = At(In("file"));
  FileCalls calls;
  calls.before = [&](const std::string& call) {
    calls.failAt = call == "openat" ? static_cast<int>(calls.names.size()) + 2 : calls.failAt;
  };
  calls.failure = EINVAL;
  EXPECT_EQ(ProblemWith([&] { whole.Write(Bytes("new")); }), "");
  EXPECT_EQ(calls.names.back(), "fsync");
}

TEST_F(WholeFileTest, FileOfAProcessWithOurNumberIsRemovedBeforeTheWrite) {
  Create(".file.orvane-sim-" + std::to_string(::getpid()), "rest");
  At(In("file")).Write(Bytes("new"));
  EXPECT_THAT(Names(), ElementsAre("file"));
}

// --- What is left -------------------------------------------------------------------------------

TEST_F(WholeFileTest, TemporaryOfAProcessIsRemoved) {
  Create("below/file", "old");
  fs::create_symlink("below/file", In("link"));
  Create("below/.file.orvane-sim-17", "new");
  Create("below/.file.orvane-sim-18", "new");
  WholeFile::RemoveTemporary(In("link"), 17);
  EXPECT_FALSE(fs::exists(In("below/.file.orvane-sim-17")));
  EXPECT_TRUE(fs::exists(In("below/.file.orvane-sim-18")));
}

TEST_F(WholeFileTest, NothingIsRemovedWhereThereIsNoFolder) {
  EXPECT_NO_THROW(WholeFile::RemoveTemporary(In("none/file"), 17));
}

TEST_F(WholeFileTest, LeftoversAreThoseOfProcessesThatAreGone) {
  const std::string file = Create("file", "old");
  const std::string gone = std::to_string(std::numeric_limits<pid_t>::max());  // above all limits
  Create(".file.orvane-sim-" + gone, "");
  Create(".file.orvane-sim-1", "");
  Create(".file.orvane-sim-" + gone + "x", "");
  Create(".file.orvane-sim-", "");
  Create(".other.orvane-sim-" + gone, "");
  At(file).RemoveLeftovers();
  EXPECT_THAT(Names(),
              ElementsAre(".file.orvane-sim-",
                          ".file.orvane-sim-1",
                          ".file.orvane-sim-" + gone + "x",
                          ".other.orvane-sim-" + gone,
                          "file"));
}

// --- The check ----------------------------------------------------------------------------------

TEST_F(WholeFileTest, CheckLeavesNoTrace) {
  const std::string file = Create("file", "old");
  const auto before = fs::last_write_time(In(""));
  EXPECT_EQ(ProblemOfCheck(file), "");
  EXPECT_EQ(ProblemOfCheck(In("none")), "");
  EXPECT_EQ(fs::last_write_time(In("")), before);
  EXPECT_THAT(Names(), ElementsAre("file"));
  EXPECT_EQ(ReadFile(file), "old");
}

TEST_F(WholeFileTest, CheckRefusesWhatIsNoRegularFile) {
  ASSERT_EQ(::mkfifo(In("pipe").c_str(), 0600), 0);
  const FileDescriptor reader(::open(In("pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  EXPECT_EQ(ProblemOfCheck(In("pipe")), "cannot write 'x': Invalid argument");
  EXPECT_EQ(ProblemOfCheck(In("")), "cannot write 'x': Is a directory");
}

TEST_F(WholeFileTest, CheckRefusesAFolderThatTakesNoFile) {
  const std::string file = Create("file", "old");
  for (const int failure : {EROFS, EACCES, EDQUOT}) {
    const WholeFile whole = At(file);
    FileCalls calls;
    calls.unnamedFailure = failure;
    EXPECT_EQ(ProblemWith([&] { whole.Check(); }),
              std::string("cannot write 'x': ") + std::strerror(failure));
  }
}

TEST_F(WholeFileTest, CheckLooksAtThePermissionsWhereFilesNeedAName) {
  const std::string file = Create("file", "old");
  const WholeFile whole = At(file);
  FileCalls calls;
  calls.unnamedFailure = EOPNOTSUPP;
  EXPECT_EQ(ProblemWith([&] { whole.Check(); }), "");
}

/// As a user without privileges.
class WholeFileUserTest : public WholeFileTest {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) {
      GTEST_SKIP() << "only root has files of two users";
    }
    ASSERT_EQ(::chmod(In("").c_str(), 0755), 0);
  }
  void BecomeNobody() { ASSERT_EQ(::seteuid(kNobody), 0); }
  void TearDown() override { static_cast<void>(::seteuid(::getuid())); }
};

TEST_F(WholeFileUserTest, CheckRefusesAFolderThatIsNotWritable) {
  const std::string file = Create("file", "old");
  ASSERT_EQ(::chmod(file.c_str(), 0666), 0);
  BecomeNobody();
  EXPECT_EQ(ProblemOfCheck(file), "cannot write 'x': Permission denied");
  EXPECT_EQ(ProblemOfCheck(In("none")), "cannot write 'x': Permission denied");
  FileCalls calls;
  calls.unnamedFailure = EOPNOTSUPP;
  EXPECT_EQ(ProblemOfCheck(file), "cannot write 'x': Permission denied");
}

TEST_F(WholeFileUserTest, CheckRefusesAFileThatIsNotWritable) {
  const std::string file = Create("file", "old");
  ASSERT_EQ(::chmod(In("").c_str(), 0777), 0);
  BecomeNobody();
  EXPECT_EQ(ProblemOfCheck(file), "cannot write 'x': Permission denied");
}

TEST_F(WholeFileUserTest, CheckRefusesAnothersFileInAStickyFolder) {
  const std::string file = Create("file", "old");
  ASSERT_EQ(::chmod(file.c_str(), 0666), 0);
  ASSERT_EQ(::chmod(In("").c_str(), 01777), 0);
  BecomeNobody();
  EXPECT_EQ(ProblemOfCheck(file), "cannot write 'x': Operation not permitted");
  EXPECT_EQ(ProblemWith([&] { At(file).Write(Bytes("new")); }),
            "cannot write 'x': Operation not permitted");
  EXPECT_EQ(ProblemOfCheck(In("none")), "");
}

TEST_F(WholeFileUserTest, OwnerChangesToTheOneWhoWrites) {
  const std::string file = Create("file", "old");
  ASSERT_EQ(::chmod(file.c_str(), 0666), 0);
  ASSERT_EQ(::chmod(In("").c_str(), 0777), 0);
  BecomeNobody();
  At(file).Write(Bytes("new"));
  struct stat status {};
  ASSERT_EQ(::stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, kNobody);
  EXPECT_EQ(status.st_mode & 07777U, 0666U);
}

TEST_F(WholeFileTest, CheckRefusesAFileThatIsMounted) {
  constexpr int kNoMounts = 77;
  const std::string file = Create("file", "old");
  const std::string other = Create("other", "");
  const int status = InChild([&] {
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount(other.c_str(), file.c_str(), nullptr, MS_BIND, nullptr) != 0) {
      ::_exit(kNoMounts);
    }
    ::_exit(ProblemOfCheck(file) == "cannot write 'x': Device or resource busy" ? 0 : 1);
  });
  if (WEXITSTATUS(status) == kNoMounts) {
    GTEST_SKIP() << "this user may not mount";
  }
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace orvane
