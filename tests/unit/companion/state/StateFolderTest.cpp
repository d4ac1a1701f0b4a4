#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "companion/state/StateFolder.h"
#include "tests/doubles/ScratchDirectory.h"
#include "tests/doubles/TemporaryDirectory.h"
#include "tests/unit/companion/FailingCalls.h"

namespace fs = std::filesystem;

namespace {

/// What the calls below are told, apart from failing. Set anew for each test.
struct Seam {
  bool endsPollsAtOnce = false;
  int polls = 0;             // that have been ended at once
  int pollMilliseconds = 0;  // of the last one
  bool writesHalf = false;   // of what it is given
  std::function<void()> afterSynchronising = [] {};
  std::vector<std::string> synchronised;  // paths
} seam;

}  // namespace

FAILING_CALL(int, close, (int file), (file))
FAILING_CALL(int, flock, (int file, int operation), (file, operation))
FAILING_CALL(int, fstat, (int file, struct stat* status), (file, status))
FAILING_CALL(int,
             fstatat,
             (int folder, const char* name, struct stat* status, int flags),
             (folder, name, status, flags))
FAILING_CALL(int, ftruncate, (int file, off_t length), (file, length))
FAILING_CALL(int, mkdir, (const char* path, mode_t mode), (path, mode))
FAILING_CALL(int, mkdirat, (int folder, const char* name, mode_t mode), (folder, name, mode))
FAILING_CALL(int, unlinkat, (int folder, const char* name, int flags), (folder, name, flags))

extern "C" {

DIR* __real_fdopendir(int folder);
DIR* __wrap_fdopendir(int folder) {
  return FailingCalls::Fails("fdopendir") ? nullptr : __real_fdopendir(folder);
}

int __real_fsync(int file);
int __wrap_fsync(int file) {
  seam.synchronised.push_back(fs::read_symlink("/proc/self/fd/" + std::to_string(file)));
  const int result = FailingCalls::Fails("fsync") ? -1 : __real_fsync(file);
  seam.afterSynchronising();
  return result;
}

int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return FailingCalls::Fails("open") ? -1 : __real_open(path, flags, mode);
}

int __real_openat(int folder, const char* path, int flags, ...);
int __wrap_openat(int folder, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return FailingCalls::Fails("openat") ? -1 : __real_openat(folder, path, flags, mode);
}

int __real_poll(pollfd* descriptors, nfds_t count, int milliseconds);
int __wrap_poll(pollfd* descriptors, nfds_t count, int milliseconds) {
  if (!seam.endsPollsAtOnce) {
    return __real_poll(descriptors, count, milliseconds);
  }
  ++seam.polls;
  seam.pollMilliseconds = milliseconds;
  return __real_poll(descriptors, count, 0);
}

ssize_t __real_read(int file, void* buffer, size_t count);
ssize_t __wrap_read(int file, void* buffer, size_t count) {
  return FailingCalls::Fails("read") ? -1 : __real_read(file, buffer, count);
}

ssize_t __real_pwrite(int file, const void* buffer, size_t count, off_t offset);
ssize_t __wrap_pwrite(int file, const void* buffer, size_t count, off_t offset) {
  const size_t part = seam.writesHalf ? (count + 1) / 2 : count;
  return FailingCalls::Fails("pwrite") ? -1 : __real_pwrite(file, buffer, part, offset);
}

}  // extern "C"

namespace {

using companion::StateFolder;
using Locking = StateFolder::Locking;

constexpr uid_t kOrdinaryUser = 65534;

class StateFolderTest : public testing::Test {
 protected:
  StateFolderTest() { seam = {}; }

  [[nodiscard]] std::string Path() const { return scratch_.Path() + "/state"; }
  [[nodiscard]] std::string InFolder(const std::string& name) const { return Path() + "/" + name; }
  [[nodiscard]] std::string Outside(const std::string& name) const {
    return scratch_.Path() + "/" + name;
  }

  /// @return the problem; empty: locked
  static std::string Lock(StateFolder& state) {
    const Locking locking = state.Lock("update dax 2", 0);
    EXPECT_EQ(locking.locked, locking.problem.empty() && locking.holder.empty());
    return locking.problem;
  }
  [[nodiscard]] std::string LockProblem() const {
    StateFolder state(Path(), {});
    return Lock(state);
  }

  static unsigned Mode(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777U;
  }
  static bool IsThere(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0;
  }

  void MakeFolder() const { fs::create_directory(Path()); }

  /// Runs `check` in a process that is not root.
  /// @return its result; 128 + the signal that ended it
  static int AsOrdinaryUser(const std::function<int()>& check) {
    const pid_t id = ::fork();
    if (id == 0) {
      if (::geteuid() == 0 && (::setresgid(kOrdinaryUser, kOrdinaryUser, kOrdinaryUser) != 0 ||
                               ::setresuid(kOrdinaryUser, kOrdinaryUser, kOrdinaryUser) != 0)) {
        ::_exit(100);
      }
      ::_exit(check());
    }
    int status = 0;
    ::waitpid(id, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

  /// Makes the folder, and everything above it that is ours, the ordinary user's.
  void GiveToOrdinaryUser() const {
    if (::geteuid() == 0) {
      ASSERT_EQ(::chown(scratch_.Path().c_str(), kOrdinaryUser, kOrdinaryUser), 0);
      if (IsThere(Path())) {
        ASSERT_EQ(::chown(Path().c_str(), kOrdinaryUser, kOrdinaryUser), 0);
      }
    }
  }

  const TemporaryDirectory scratch_;
  const std::vector<std::uint8_t> image_ = {0xAA, 0x99, 0x55, 0x66, 0x00, 0xFF};
};

// --- The folder ---------------------------------------------------------------------------------

TEST_F(StateFolderTest, FolderIsMadeForItsOwnerAlone) {
  EXPECT_EQ(LockProblem(), "");
  EXPECT_EQ(Mode(Path()), 0700U);
}

TEST_F(StateFolderTest, NewFolderIsSynchronisedWithItsParent) {
  EXPECT_EQ(LockProblem(), "");
  EXPECT_EQ(seam.synchronised, std::vector<std::string>{scratch_.Path()});
}

TEST_F(StateFolderTest, FolderThatIsThereIsUsedAsItIs) {
  MakeFolder();
  ::chmod(Path().c_str(), 0755);
  EXPECT_EQ(LockProblem(), "");
  EXPECT_EQ(Mode(Path()), 0755U);
}

TEST_F(StateFolderTest, RelativePathIsOneOfTheWorkingDirectory) {
  const ScratchDirectory directory;
  StateFolder state("state", {});
  EXPECT_EQ(Lock(state), "");
  EXPECT_EQ(Mode("state"), 0700U);
}

TEST_F(StateFolderTest, MissingParentIsRefused) {
  StateFolder state(Outside("missing/state"), {});
  EXPECT_EQ(Lock(state),
            "cannot create '" + Outside("missing/state") + "': No such file or directory");
}

TEST_F(StateFolderTest, FileInPlaceOfTheFolderIsRefused) {
  WriteFile(Path(), "x");
  EXPECT_EQ(LockProblem(), "cannot open '" + Path() + "': Not a directory");
  EXPECT_EQ(ReadFile(Path()), "x");
}

TEST_F(StateFolderTest, LinkInPlaceOfTheFolderIsRefused) {
  fs::create_directory(Outside("other"));
  fs::create_directory_symlink("other", Path());
  EXPECT_EQ(LockProblem(), "'" + Path() + "' is a link, not a folder");
  EXPECT_TRUE(fs::is_empty(Outside("other")));
}

TEST_F(StateFolderTest, LinkIsRefusedWithASlashBehindIt) {
  fs::create_directory(Outside("other"));
  fs::create_directory_symlink("other", Path());
  StateFolder state(Path() + "//", {});
  EXPECT_EQ(Lock(state), "'" + Path() + "' is a link, not a folder");
}

TEST_F(StateFolderTest, LinkThatLeadsNowhereIsRefused) {
  fs::create_symlink("nowhere", Path());
  EXPECT_EQ(LockProblem(), "'" + Path() + "' is a link, not a folder");
  EXPECT_FALSE(IsThere(Outside("nowhere")));
}

TEST_F(StateFolderTest, FolderThatIsGoneWhenItIsOpenedIsReported) {
  const FailingCalls there("mkdir", EEXIST);
  EXPECT_EQ(LockProblem(), "cannot open '" + Path() + "': No such file or directory");
}

TEST_F(StateFolderTest, RootFolderIsNotTakenForAnEmptyPath) {
  StateFolder state("/", {});
  EXPECT_EQ(state.WorkFolder(), "//work");
}

TEST_F(StateFolderTest, FolderOfAnotherUserIsRefused) {
  std::string foreign = "/usr";
  if (::geteuid() == 0) {
    foreign = Path();
    MakeFolder();
    ASSERT_EQ(::chown(Path().c_str(), kOrdinaryUser, kOrdinaryUser), 0);
  }
  StateFolder state(foreign, {});
  EXPECT_EQ(Lock(state), "the folder '" + foreign + "' belongs to another user");
}

TEST_F(StateFolderTest, FolderThatItsGroupCanWriteIsRefused) {
  MakeFolder();
  ::chmod(Path().c_str(), 0720);
  EXPECT_EQ(LockProblem(), "the folder '" + Path() + "' can be written by others: chmod go-w it");
  EXPECT_TRUE(fs::is_empty(Path()));
}

TEST_F(StateFolderTest, FolderThatOthersCanWriteIsRefused) {
  MakeFolder();
  ::chmod(Path().c_str(), 0702);
  EXPECT_EQ(LockProblem(), "the folder '" + Path() + "' can be written by others: chmod go-w it");
}

TEST_F(StateFolderTest, FolderThatItsOwnerCannotWriteIsRefused) {
  MakeFolder();
  GiveToOrdinaryUser();
  ::chmod(Path().c_str(), 0500);
  EXPECT_EQ(
      AsOrdinaryUser([this] {
        return LockProblem() == "cannot open '" + InFolder("lock") + "': Permission denied" ? 7 : 0;
      }),
      7);
}

// --- The lock -----------------------------------------------------------------------------------

TEST_F(StateFolderTest, LockHoldsWhoHasItForItsOwnerAlone) {
  StateFolder state(Path(), {});
  EXPECT_EQ(Lock(state), "");
  EXPECT_EQ(ReadFile(InFolder("lock")), "update dax 2, process " + std::to_string(::getpid()));
  EXPECT_EQ(Mode(InFolder("lock")), 0600U);
}

TEST_F(StateFolderTest, SecondIsToldWhoHasTheLock) {
  StateFolder first(Path(), {});
  ASSERT_EQ(Lock(first), "");
  StateFolder second(Path(), {});
  const Locking locking = second.Lock("verify dax 2", 0);
  EXPECT_FALSE(locking.locked);
  EXPECT_EQ(locking.holder, "update dax 2, process " + std::to_string(::getpid()));
  EXPECT_EQ(locking.problem, "");
  EXPECT_EQ(seam.polls, 0);
}

TEST_F(StateFolderTest, HolderThatHasNotSaidWhoItIsIsAnotherProcess) {
  StateFolder first(Path(), {});
  ASSERT_EQ(Lock(first), "");
  ASSERT_EQ(::truncate(InFolder("lock").c_str(), 0), 0);
  StateFolder second(Path(), {});
  EXPECT_EQ(second.Lock("verify dax 2", 0).holder, "another process");
}

TEST_F(StateFolderTest, HolderIsShownAsPrintableASCII) {
  StateFolder first(Path(), {});
  ASSERT_EQ(Lock(first), "");
  ASSERT_EQ(::truncate(InFolder("lock").c_str(), 0), 0);
  const FileDescriptor lock(::open(InFolder("lock").c_str(), O_WRONLY));
  ASSERT_EQ(::write(lock.Get(), "a\x1B[2J\n\x7F~ \xC3\xA4\0b", 13), 13);
  StateFolder second(Path(), {});
  EXPECT_EQ(second.Lock("verify dax 2", 0).holder, "a?[2J??~ ???b");
}

TEST_F(StateFolderTest, HolderIsCutAt200Bytes) {
  StateFolder first(Path(), {});
  ASSERT_TRUE(first.Lock(std::string(300, 'x'), 0).locked);
  StateFolder second(Path(), {});
  EXPECT_EQ(second.Lock("verify dax 2", 0).holder, std::string(200, 'x'));
}

TEST_F(StateFolderTest, HolderThatCannotBeWrittenKeepsTheLock) {
  StateFolder first(Path(), {});
  {
    const FailingCalls fullDisk("pwrite", ENOSPC);
    EXPECT_EQ(Lock(first), "");
  }
  StateFolder second(Path(), {});
  EXPECT_EQ(second.Lock("verify dax 2", 0).holder, "another process");
}

TEST_F(StateFolderTest, LockIsReleasedAtTheEndAndNamesNobody) {
  {
    StateFolder state(Path(), {});
    ASSERT_EQ(Lock(state), "");
  }
  EXPECT_EQ(ReadFile(InFolder("lock")), "");
  EXPECT_EQ(LockProblem(), "");
}

TEST_F(StateFolderTest, OneThatDoesNotGetTheLockLeavesItsHolderNamed) {
  StateFolder first(Path(), {});
  ASSERT_EQ(Lock(first), "");
  {
    StateFolder second(Path(), {});
    ASSERT_FALSE(second.Lock("verify dax 2", 0).locked);
  }
  EXPECT_EQ(ReadFile(InFolder("lock")), "update dax 2, process " + std::to_string(::getpid()));
}

TEST_F(StateFolderTest, WaitTakesItsTimeInSteps) {
  StateFolder first(Path(), {});
  ASSERT_EQ(Lock(first), "");
  seam.endsPollsAtOnce = true;
  StateFolder second(Path(), {});
  EXPECT_FALSE(second.Lock("verify dax 2", 3).locked);
  EXPECT_EQ(seam.polls, 60);
  EXPECT_EQ(seam.pollMilliseconds, 50);
}

/// A stop that has arrived from the start, and what it decides.
class StopTest : public StateFolderTest {
 protected:
  StopTest() {
    std::array<int, 2> ends{};
    EXPECT_EQ(::pipe(ends.data()), 0);
    reader_ = ends[0];
    writer_ = ends[1];
    EXPECT_EQ(::write(writer_, "x", 1), 1);
    first_.emplace(Path(), StateFolder::Stop{});
    EXPECT_EQ(Lock(*first_), "");
  }
  ~StopTest() override {
    ::close(reader_);
    ::close(writer_);
  }

  int reader_ = -1;
  int writer_ = -1;
  std::optional<StateFolder> first_;
};

TEST_F(StopTest, StopEndsTheWait) {
  int asked = 0;
  StateFolder second(Path(), {.descriptor = reader_, .hasArrived = [&] { return ++asked == 2; }});
  const Locking locking = second.Lock("verify dax 2", 1000);
  EXPECT_FALSE(locking.locked);
  EXPECT_EQ(locking.problem, "");
  EXPECT_EQ(asked, 2);
}

TEST_F(StopTest, WaitEndsWithTheLockWhenItIsReleased) {
  StateFolder second(Path(), {.descriptor = reader_, .hasArrived = [&] {
                                first_.reset();
                                return false;
                              }});
  EXPECT_TRUE(second.Lock("verify dax 2", 1000).locked);
  EXPECT_EQ(ReadFile(InFolder("lock")), "verify dax 2, process " + std::to_string(::getpid()));
}

TEST_F(StopTest, LockThatWasRemovedMeanwhileIsRefused) {
  StateFolder second(Path(), {.descriptor = reader_, .hasArrived = [&] {
                                ::unlink(InFolder("lock").c_str());
                                first_.reset();
                                return false;
                              }});
  const Locking locking = second.Lock("verify dax 2", 1000);
  EXPECT_FALSE(locking.locked);
  EXPECT_EQ(locking.problem,
            "'" + InFolder("lock") + "' is no regular file with one link: remove it");
}

/// The shell has no descriptors but the standard ones and those that it inherits.
[[noreturn]] void RunShell(const std::array<int, 2>& orders, const std::array<int, 2>& reports) {
  ::dup2(orders[0], STDIN_FILENO);
  ::dup2(reports[1], STDOUT_FILENO);
  for (const int descriptor : {orders[0], orders[1], reports[0], reports[1]}) {
    ::close(descriptor);
  }
  ::execl("/bin/sh", "sh", "-c", "echo started; read word", static_cast<char*>(nullptr));
  ::_exit(1);
}

TEST_F(StateFolderTest, ProcessThatIsStartedKeepsTheLockOfAKilledHolder) {
  std::array<int, 2> orders{};
  std::array<int, 2> reports{};
  ASSERT_EQ(::pipe(orders.data()), 0);
  ASSERT_EQ(::pipe(reports.data()), 0);
  const pid_t holder = ::fork();
  if (holder == 0) {
    StateFolder state(Path(), {});
    if (state.Lock("update dax 2", 0).locked && ::fork() == 0) {
      RunShell(orders, reports);
    }
    ::close(reports[1]);
    ::pause();
  }
  ::close(orders[0]);
  ::close(reports[1]);
  char report = '\0';
  EXPECT_EQ(::read(reports[0], &report, 1), 1);  // the shell runs
  ::kill(holder, SIGKILL);
  ::waitpid(holder, nullptr, 0);

  StateFolder next(Path(), {});
  EXPECT_EQ(next.Lock("verify dax 2", 0).holder, "update dax 2, process " + std::to_string(holder));
  ::close(orders[1]);  // the shell ends
  EXPECT_TRUE(next.Lock("verify dax 2", 100).locked);
  ::close(reports[0]);
}

// --- The work folder ----------------------------------------------------------------------------

class WorkFolderTest : public StateFolderTest {
 protected:
  WorkFolderTest() {
    EXPECT_EQ(Lock(state_), "");
    WriteFile(Outside("file"), "kept");
    fs::create_directory(Outside("folder"));
    WriteFile(Outside("folder/file"), "kept");
  }
  ~WorkFolderTest() override {
    EXPECT_EQ(ReadFile(Outside("file")), "kept");
    EXPECT_EQ(ReadFile(Outside("folder/file")), "kept");
  }

  std::string Make() { return state_.MakeWorkFolder("image", image_); }
  [[nodiscard]] std::string InWork(const std::string& name) const {
    return InFolder("work") + "/" + name;
  }
  [[nodiscard]] std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(InFolder("work"))) {
      names.push_back(entry.path().filename());
    }
    return names;
  }
  void ExpectFresh() {
    EXPECT_EQ(Names(), std::vector<std::string>{"image"});
    EXPECT_EQ(ReadFile(InWork("image")), std::string("\xAA\x99\x55\x66\x00\xFF", 6));
  }

  StateFolder state_{Path(), {}};
};

TEST_F(WorkFolderTest, WorkFolderHoldsTheImageForItsOwnerAlone) {
  EXPECT_EQ(state_.WorkFolder(), InFolder("work"));
  EXPECT_EQ(Make(), "");
  ExpectFresh();
  EXPECT_EQ(Mode(InFolder("work")), 0700U);
  EXPECT_EQ(Mode(InWork("image")), 0600U);
}

TEST_F(WorkFolderTest, ImageIsSynchronised) {
  seam.synchronised.clear();
  EXPECT_EQ(Make(), "");
  EXPECT_EQ(seam.synchronised, std::vector<std::string>{InWork("image")});
}

TEST_F(WorkFolderTest, DescriptorLeadsToTheWorkFolder) {
  EXPECT_EQ(state_.WorkFolderDescriptor(), -1);
  EXPECT_EQ(Make(), "");
  EXPECT_EQ(fs::read_symlink("/proc/self/fd/" + std::to_string(state_.WorkFolderDescriptor())),
            InFolder("work"));
  EXPECT_EQ(::fcntl(state_.WorkFolderDescriptor(), F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(state_.RemoveWorkFolder(), "");
  EXPECT_EQ(state_.WorkFolderDescriptor(), -1);
}

TEST_F(WorkFolderTest, ImageLargerThanTheBufferOfTheComparisonIsWritten) {
  const std::vector<std::uint8_t> large(200'000, 0x5A);
  EXPECT_EQ(state_.MakeWorkFolder("image", large), "");
  EXPECT_EQ(ReadFile(InWork("image")), std::string(200'000, 'Z'));
}

TEST_F(WorkFolderTest, ImageIsWrittenWholeWhereEachCallWritesAPart) {
  seam.writesHalf = true;
  EXPECT_EQ(Make(), "");
  seam.writesHalf = false;
  ExpectFresh();
}

TEST_F(WorkFolderTest, SecondWorkFolderHoldsNothingOfTheFirst) {
  ASSERT_EQ(Make(), "");
  WriteFile(InWork("dumpflash.bin"), "old");
  EXPECT_EQ(Make(), "");
  ExpectFresh();
}

TEST_F(WorkFolderTest, WorkFolderIsRemovedWithEverythingInIt) {
  ASSERT_EQ(Make(), "");
  WriteFile(InWork("dumpflash.bin"), "old");
  fs::create_directories(InWork("a/b/c"));
  WriteFile(InWork("a/b/file"), "x");
  EXPECT_EQ(state_.RemoveWorkFolder(), "");
  EXPECT_FALSE(IsThere(InFolder("work")));
}

TEST_F(WorkFolderTest, NoWorkFolderIsRemovedWithoutAProblem) {
  EXPECT_EQ(state_.RemoveWorkFolder(), "");
}

TEST_F(WorkFolderTest, LinksInItAreRemovedAndNotFollowed) {
  ASSERT_EQ(Make(), "");
  fs::create_symlink(Outside("file"), InWork("link"));
  fs::create_directory_symlink(Outside("folder"), InWork("folder"));
  fs::create_hard_link(Outside("file"), InWork("second-name"));
  EXPECT_EQ(Make(), "");
  ExpectFresh();
}

TEST_F(WorkFolderTest, LinkAtTheImagesNameIsRemovedAndNotFollowed) {
  fs::create_directory(InFolder("work"));
  fs::create_symlink(Outside("file"), InWork("image"));
  EXPECT_EQ(Make(), "");
  ExpectFresh();
}

TEST_F(WorkFolderTest, PipeInItIsRemoved) {
  ASSERT_EQ(Make(), "");
  ASSERT_EQ(::mkfifo(InWork("pipe").c_str(), 0600), 0);
  EXPECT_EQ(Make(), "");
  ExpectFresh();
}

TEST_F(WorkFolderTest, LinkInItsPlaceIsRemovedAndNotFollowed) {
  fs::create_directory_symlink(Outside("folder"), InFolder("work"));
  EXPECT_EQ(Make(), "");
  EXPECT_FALSE(fs::is_symlink(InFolder("work")));
  ExpectFresh();
}

TEST_F(WorkFolderTest, FileInItsPlaceIsRemoved) {
  WriteFile(InFolder("work"), "x");
  EXPECT_EQ(Make(), "");
  ExpectFresh();
}

TEST_F(StateFolderTest, FoldersThatCannotBeReadOrWrittenAreRemovedToo) {
  GiveToOrdinaryUser();
  EXPECT_EQ(AsOrdinaryUser([this] {
              StateFolder state(Path(), {});
              if (!Lock(state).empty()) {
                return 1;
              }
              fs::create_directories(InFolder("work/read-only/closed"));
              WriteFile(InFolder("work/read-only/closed/file"), "x");
              ::chmod(InFolder("work/read-only/closed").c_str(), 0);
              ::chmod(InFolder("work/read-only").c_str(), 0500);
              ::chmod(InFolder("work").c_str(), 0500);
              return state.RemoveWorkFolder().empty() && !IsThere(InFolder("work")) ? 7 : 2;
            }),
            7);
}

TEST_F(StateFolderTest, NextHolderRemovesTheWorkFolderOfAKilledOne) {
  const pid_t holder = ::fork();
  if (holder == 0) {
    StateFolder state(Path(), {});
    static_cast<void>(state.Lock("update dax 2", 0));
    static_cast<void>(state.MakeWorkFolder("image", image_));
    ::raise(SIGKILL);
  }
  ::waitpid(holder, nullptr, 0);
  ASSERT_TRUE(IsThere(InFolder("work/image")));
  EXPECT_EQ(LockProblem(), "");
  EXPECT_FALSE(IsThere(InFolder("work")));
}

TEST_F(StateFolderTest, WorkFolderBesideOtherFilesWithoutALockIsSomebodyElsesAndKept) {
  MakeFolder();
  WriteFile(InFolder("letter"), "kept");
  fs::create_directory(InFolder("work"));
  WriteFile(InFolder("work/file"), "kept");
  const std::string refusal =
      "'" + Path() + "' holds a 'work' and no 'lock': use a folder of its own";
  EXPECT_EQ(LockProblem(), refusal);
  EXPECT_EQ(LockProblem(), refusal);  // the first one has made no lock
  EXPECT_EQ(ReadFile(InFolder("work/file")), "kept");
}

TEST_F(StateFolderTest, WorkFolderAloneWithoutALockIsSomebodyElsesAndKept) {
  fs::create_directories(InFolder("work/folder"));
  EXPECT_EQ(LockProblem(),
            "'" + Path() + "' holds a 'work' and no 'lock': use a folder of its own");
  EXPECT_TRUE(IsThere(InFolder("work/folder")));
}

TEST_F(StateFolderTest, WorkFolderBesideMarksIsRemovedWithoutALock) {
  fs::create_directories(InFolder("work/folder"));
  WriteFile(InFolder("slot-2.unfinished"), "");
  EXPECT_EQ(LockProblem(), "");
  EXPECT_FALSE(IsThere(InFolder("work")));
}

TEST_F(StateFolderTest, WorkFolderBesideOtherFilesIsRemovedWithALock) {
  fs::create_directories(InFolder("work/folder"));
  WriteFile(InFolder("letter"), "kept");
  WriteFile(InFolder("lock"), "");
  EXPECT_EQ(LockProblem(), "");
  EXPECT_FALSE(IsThere(InFolder("work")));
  EXPECT_EQ(ReadFile(InFolder("letter")), "kept");
}

TEST_F(StateFolderTest, WorkFolderInAFolderThatCannotBeListedIsRefused) {
  fs::create_directories(InFolder("work"));
  {
    const FailingCalls failing("fdopendir", ENOMEM);
    EXPECT_EQ(LockProblem(), "cannot list '" + Path() + "': Cannot allocate memory");
    EXPECT_EQ(failing.Failed(), 3);
  }
  EXPECT_TRUE(IsThere(InFolder("work")));
  EXPECT_FALSE(IsThere(InFolder("lock")));
}

TEST_F(StateFolderTest, WorkFolderThatCannotBeRemovedIsRefusedAndTheLockReleased) {
  MakeFolder();
  WriteFile(InFolder("lock"), "");
  fs::create_directory(InFolder("work"));
  StateFolder state(Path(), {});
  {
    const FailingCalls busy("unlinkat", EBUSY);
    EXPECT_EQ(Lock(state), "cannot remove '" + InFolder("work") + "': Device or resource busy");
  }
  EXPECT_EQ(LockProblem(), "");
}

TEST_F(WorkFolderTest, FileSizeLimitIsReported) {
  rlimit former{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &former), 0);
  const rlimit small = {.rlim_cur = 3, .rlim_max = former.rlim_max};
  ::signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  const std::string problem = Make();
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &former), 0);
  ::signal(SIGXFSZ, SIG_DFL);
  EXPECT_EQ(problem, "cannot write '" + InWork("image") + "': File too large");
}

/// What the disk has made of the image.
class SpoiltImageTest : public WorkFolderTest, public testing::WithParamInterface<std::string> {};

TEST_P(SpoiltImageTest, IsReported) {
  seam.afterSynchronising = [this] { WriteFile(InWork("image"), GetParam()); };
  EXPECT_EQ(Make(), "'" + InWork("image") + "' does not hold what was written to it");
  seam = {};
}

INSTANTIATE_TEST_SUITE_P(Contents,
                         SpoiltImageTest,
                         testing::Values(std::string("\xAA\x99\x55\x66\x01\xFF", 6),
                                         std::string("\xAA\x99\x55\x66\x00", 5),
                                         std::string("\xAA\x99\x55\x66\x00\xFF\x00", 7),
                                         std::string()));

TEST_F(WorkFolderTest, ImageThatDiffersOnceIsWrittenAgain) {
  int times = 0;
  seam.afterSynchronising = [&] {
    if (++times == 1) {
      WriteFile(InWork("image"), "x");
    }
  };
  EXPECT_EQ(Make(), "");
  seam = {};
  ExpectFresh();
}

TEST_F(WorkFolderTest, EmptyImageIsWritten) {
  EXPECT_EQ(state_.MakeWorkFolder("image", {}), "");
  EXPECT_EQ(ReadFile(InWork("image")), "");
}

// --- The marks ----------------------------------------------------------------------------------

class MarkTest : public StateFolderTest {
 protected:
  MarkTest() {
    EXPECT_EQ(Lock(state_), "");
    seam.synchronised.clear();
  }

  [[nodiscard]] std::string MarkPath() const { return InFolder("slot-2.unfinished"); }

  StateFolder state_{Path(), {}};
};

TEST_F(MarkTest, SlotIsNotMarkedAtFirst) { EXPECT_FALSE(state_.IsMarked(2)); }

TEST_F(MarkTest, MarkHoldsItsTextForItsOwnerAlone) {
  EXPECT_EQ(state_.Mark(2, "dax image.bin"), "");
  EXPECT_EQ(ReadFile(MarkPath()), "dax image.bin\n");
  EXPECT_EQ(Mode(MarkPath()), 0600U);
}

TEST_F(MarkTest, MarkIsSynchronisedAndThenItsFolder) {
  EXPECT_EQ(state_.Mark(2, "text"), "");
  EXPECT_EQ(seam.synchronised, (std::vector<std::string>{MarkPath(), Path()}));
}

TEST_F(MarkTest, MarkIsOfOneSlot) {
  EXPECT_EQ(state_.Mark(2, "text"), "");
  EXPECT_TRUE(state_.IsMarked(2));
  EXPECT_FALSE(state_.IsMarked(1));
  EXPECT_FALSE(state_.IsMarked(20));
}

TEST_F(MarkTest, SecondMarkReplacesTheText) {
  EXPECT_EQ(state_.Mark(2, "a long text"), "");
  EXPECT_EQ(state_.Mark(2, "text"), "");
  EXPECT_EQ(ReadFile(MarkPath()), "text\n");
}

TEST_F(MarkTest, MarkThatCannotBeWrittenIsNotLeft) {
  for (const char* const function : {"pwrite", "fsync", "ftruncate"}) {
    const FailingCalls failing(function, ENOSPC, 3);
    EXPECT_EQ(state_.Mark(2, "text"), "cannot write '" + MarkPath() + "': No space left on device");
    EXPECT_FALSE(IsThere(MarkPath())) << function;
  }
}

TEST_F(MarkTest, MarkThatWasThereStaysWhereItCannotBeWrittenAnew) {
  ASSERT_EQ(state_.Mark(2, "text"), "");
  const FailingCalls failing("pwrite", ENOSPC);
  EXPECT_EQ(state_.Mark(2, "other"), "cannot write '" + MarkPath() + "': No space left on device");
  EXPECT_TRUE(state_.IsMarked(2));
}

TEST_F(MarkTest, MarkIsRemovedAndThenItsFolderSynchronised) {
  ASSERT_EQ(state_.Mark(2, "text"), "");
  seam.synchronised.clear();
  EXPECT_EQ(state_.Unmark(2), "");
  EXPECT_FALSE(state_.IsMarked(2));
  EXPECT_FALSE(IsThere(MarkPath()));
  EXPECT_EQ(seam.synchronised, std::vector<std::string>{Path()});
}

TEST_F(MarkTest, MarkThatIsNotThereIsRemovedWithoutAProblem) { EXPECT_EQ(state_.Unmark(2), ""); }

TEST_F(MarkTest, FolderUnderItsNameIsNotRemoved) {
  fs::create_directory(MarkPath());
  EXPECT_EQ(state_.Unmark(2), "cannot remove '" + MarkPath() + "': Is a directory");
  EXPECT_TRUE(IsThere(MarkPath()));
}

TEST_F(MarkTest, LinkUnderItsNameIsRemovedAndNotWhatItLeadsTo) {
  WriteFile(Outside("file"), "kept");
  fs::create_symlink(Outside("file"), MarkPath());
  EXPECT_EQ(state_.Unmark(2), "");
  EXPECT_FALSE(IsThere(MarkPath()));
  EXPECT_EQ(ReadFile(Outside("file")), "kept");
}

TEST_F(StateFolderTest, SlotCountsAsMarkedWhereTheFolderIsNotOpen) {
  StateFolder state(Path(), {});
  EXPECT_TRUE(state.IsMarked(2));
}

TEST_F(MarkTest, SlotThatCannotBeLookedAtCountsAsMarked) {
  const FailingCalls broken("fstatat", EIO);
  EXPECT_TRUE(state_.IsMarked(2));
  EXPECT_EQ(broken.Failed(), 3);
}

TEST_F(MarkTest, SlotThatCannotBeLookedAtTwiceIsNotMarked) {
  const FailingCalls broken("fstatat", EIO, 2);
  EXPECT_FALSE(state_.IsMarked(2));
}

// --- What is planted at the names of files ------------------------------------------------------

struct Plant {
  const char* name;
  void (*put)(const std::string& path, const std::string& outside);
  const char* said;
};

class PlantTest : public StateFolderTest, public testing::WithParamInterface<Plant> {
 protected:
  PlantTest() {
    WriteFile(Outside("file"), "kept");
    MakeFolder();
  }
  ~PlantTest() override {
    EXPECT_EQ(ReadFile(Outside("file")), "kept");
    EXPECT_FALSE(IsThere(Outside("nowhere")));
  }

  void Put(const std::string& name) const { GetParam().put(InFolder(name), scratch_.Path()); }
  [[nodiscard]] std::string Refusal(const std::string& name) const {
    return "'" + InFolder(name) + GetParam().said;
  }
};

TEST_P(PlantTest, IsNotTakenForTheLock) {
  Put("lock");
  EXPECT_EQ(LockProblem(), Refusal("lock"));
}

TEST_P(PlantTest, CountsAsAMarkAndIsRefusedUnlessItIsALink) {
  Put("slot-2.unfinished");
  StateFolder state(Path(), {});
  ASSERT_EQ(Lock(state), "");
  EXPECT_TRUE(state.IsMarked(2));
  if (fs::is_symlink(InFolder("slot-2.unfinished"))) {
    EXPECT_EQ(state.Mark(2, "text"), "");
    EXPECT_FALSE(fs::is_symlink(InFolder("slot-2.unfinished")));
    EXPECT_EQ(ReadFile(InFolder("slot-2.unfinished")), "text\n");
  } else {
    EXPECT_EQ(state.Mark(2, "text"), Refusal("slot-2.unfinished"));
  }
  EXPECT_TRUE(IsThere(InFolder("slot-2.unfinished")));
}

TEST_F(MarkTest, LinkUnderItsNameThatCannotBeRemovedIsNotFollowed) {
  WriteFile(Outside("file"), "kept");
  fs::create_symlink(Outside("file"), MarkPath());
  const FailingCalls failing("unlinkat", EIO);
  EXPECT_EQ(state_.Mark(2, "text"),
            "'" + MarkPath() + "' is no regular file with one link: remove it");
  EXPECT_EQ(ReadFile(Outside("file")), "kept");
}

INSTANTIATE_TEST_SUITE_P(
    Kinds,
    PlantTest,
    testing::Values(Plant{"Link",
                          [](const std::string& path, const std::string& outside) {
                            fs::create_symlink(outside + "/file", path);
                          },
                          "' is no regular file with one link: remove it"},
                    Plant{"LinkThatLeadsNowhere",
                          [](const std::string& path, const std::string& outside) {
                            fs::create_symlink(outside + "/nowhere", path);
                          },
                          "' is no regular file with one link: remove it"},
                    Plant{"Folder",
                          [](const std::string& path, const std::string& /*outside*/) {
                            fs::create_directory(path);
                          },
                          "' is no regular file with one link: remove it"},
                    Plant{"SecondName",
                          [](const std::string& path, const std::string& outside) {
                            fs::create_hard_link(outside + "/file", path);
                          },
                          "' is no regular file with one link: remove it"},
                    Plant{"Pipe",
                          [](const std::string& path, const std::string& /*outside*/) {
                            ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
                          },
                          "' is no regular file with one link: remove it"}),
    [](const auto& row) { return std::string(row.param.name); });

// --- Calls that fail ----------------------------------------------------------------------------

/// What is done with a folder in which nothing has been done yet.
using Operation = std::string (*)(StateFolder& state);

std::string LockIt(StateFolder& state) { return state.Lock("update dax 2", 0).problem; }
std::string MakeWork(StateFolder& state) {
  const std::vector<std::uint8_t> image = {1, 2, 3};
  return state.MakeWorkFolder("image", image);
}
std::string RemoveWork(StateFolder& state) { return state.RemoveWorkFolder(); }
std::string MarkIt(StateFolder& state) { return state.Mark(2, "text"); }
std::string UnmarkIt(StateFolder& state) { return state.Unmark(2); }

struct Fault {
  const char* name;
  Operation operation;
  const char* function;
  int error;
  int spared;           // calls before the ones that fail
  int last;             // how many failed calls the operation overcomes
  const char* problem;  // when all fail; @ is the folder
};

class FaultTest : public StateFolderTest, public testing::WithParamInterface<Fault> {
 protected:
  FaultTest() {
    MakeFolder();
    if (GetParam().operation != LockIt) {
      EXPECT_EQ(Lock(state_), "");
    }
    if (GetParam().spared < 0) {
      WriteFile(InFolder("lock"), "");
    }
    if (GetParam().operation == UnmarkIt) {
      EXPECT_EQ(state_.Mark(2, "text"), "");
    }
    if (GetParam().operation == RemoveWork) {
      fs::create_directories(InFolder("work/folder"));
    }
  }

  [[nodiscard]] std::string Problem() const {
    std::string problem = GetParam().problem;
    const std::size_t at = problem.find('@');
    return problem.replace(at, 1, Path());
  }

  StateFolder state_{Path(), {}};
};

TEST_P(FaultTest, ThatDoesNotLastIsOvercome) {
  const Fault& fault = GetParam();
  const FailingCalls failing(fault.function, fault.error, fault.last, fault.spared);
  EXPECT_EQ(fault.operation(state_), "");
  EXPECT_EQ(failing.Failed(), fault.last);
}

TEST_P(FaultTest, ThatLastsIsReported) {
  const Fault& fault = GetParam();
  const FailingCalls failing(fault.function, fault.error, FailingCalls::kAll, fault.spared);
  EXPECT_EQ(fault.operation(state_), Problem());
  EXPECT_GE(failing.Failed(), 3);
}

INSTANTIATE_TEST_SUITE_P(
    Calls,
    FaultTest,
    testing::Values(
        Fault{"MakingTheFolder",
              LockIt,
              "mkdir",
              EROFS,
              0,
              2,
              "cannot create '@': Read-only file system"},
        Fault{"OpeningTheFolder",
              LockIt,
              "open",
              EMFILE,
              0,
              2,
              "cannot open '@': Too many open files"},
        Fault{"ExaminingTheFolder",
              LockIt,
              "fstat",
              EIO,
              0,
              2,
              "cannot examine '@': Input/output error"},
        Fault{"OpeningTheLock",
              LockIt,
              "openat",
              EROFS,
              0,
              2,
              "cannot open '@/lock': Read-only file system"},
        Fault{"ExaminingTheLock",
              LockIt,
              "fstat",
              EIO,
              1,
              2,
              "cannot examine '@/lock': Input/output error"},
        Fault{"Locking", LockIt, "flock", ENOLCK, 0, 2, "cannot lock '@/lock': No locks available"},
        Fault{"OpeningALockThatIsThere",
              LockIt,
              "openat",
              EMFILE,
              -1,
              2,
              "cannot open '@/lock': Too many open files"},
        Fault{"ExaminingTheLockAgain",
              LockIt,
              "fstat",
              EIO,
              2,
              2,
              "cannot examine '@/lock': Input/output error"},
        Fault{"RemovingTheWorkFolderOfAnother",
              LockIt,
              "unlinkat",
              EIO,
              0,
              2,
              "cannot remove '@/work': Input/output error"},
        Fault{"RemovingTheWorkFolder",
              RemoveWork,
              "unlinkat",
              EBUSY,
              0,
              2,
              "cannot remove '@/work': Device or resource busy"},
        Fault{"OpeningTheWorkFolderToEmptyIt",
              RemoveWork,
              "openat",
              EMFILE,
              0,
              2,
              "cannot remove '@/work': Too many open files"},
        Fault{"ListingTheWorkFolder",
              RemoveWork,
              "fdopendir",
              ENOMEM,
              0,
              2,
              "cannot remove '@/work': Cannot allocate memory"},
        Fault{"RemovingAFolderInTheWorkFolder",
              RemoveWork,
              "unlinkat",
              EBUSY,
              2,
              1,
              "cannot remove '@/work': Device or resource busy"},
        Fault{"MakingTheWorkFolder",
              MakeWork,
              "mkdirat",
              EDQUOT,
              0,
              2,
              "cannot create '@/work': Disk quota exceeded"},
        Fault{"OpeningTheWorkFolder",
              MakeWork,
              "openat",
              EIO,
              0,
              1,
              "cannot remove '@/work': Input/output error"},
        Fault{"CreatingTheImage",
              MakeWork,
              "openat",
              EIO,
              1,
              1,
              "cannot remove '@/work': Input/output error"},
        Fault{"WritingTheImage",
              MakeWork,
              "pwrite",
              ENOSPC,
              0,
              2,
              "cannot write '@/work/image': No space left on device"},
        Fault{"SynchronisingTheImage",
              MakeWork,
              "fsync",
              EIO,
              0,
              2,
              "cannot write '@/work/image': Input/output error"},
        Fault{"ClosingTheImage",
              MakeWork,
              "close",
              ENOSPC,
              0,
              2,
              "cannot write '@/work/image': No space left on device"},
        Fault{"OpeningTheImageAgain",
              MakeWork,
              "openat",
              EIO,
              2,
              1,
              "cannot remove '@/work': Input/output error"},
        Fault{"ReadingTheImage",
              MakeWork,
              "read",
              EIO,
              0,
              2,
              "cannot read '@/work/image': Input/output error"},
        Fault{"OpeningTheMark",
              MarkIt,
              "openat",
              EROFS,
              0,
              2,
              "cannot open '@/slot-2.unfinished': Read-only file system"},
        Fault{"ExaminingTheMark",
              MarkIt,
              "fstat",
              EIO,
              0,
              2,
              "cannot examine '@/slot-2.unfinished': Input/output error"},
        Fault{"EmptyingTheMark",
              MarkIt,
              "ftruncate",
              EIO,
              0,
              2,
              "cannot write '@/slot-2.unfinished': Input/output error"},
        Fault{"WritingTheMark",
              MarkIt,
              "pwrite",
              ENOSPC,
              0,
              2,
              "cannot write '@/slot-2.unfinished': No space left on device"},
        Fault{"SynchronisingTheMark",
              MarkIt,
              "fsync",
              EIO,
              0,
              2,
              "cannot write '@/slot-2.unfinished': Input/output error"},
        Fault{"SynchronisingTheFolderOfTheMark",
              MarkIt,
              "fsync",
              EIO,
              1,
              1,
              "cannot write '@/slot-2.unfinished': Input/output error"},
        Fault{"RemovingTheMark",
              UnmarkIt,
              "unlinkat",
              EROFS,
              0,
              2,
              "cannot remove '@/slot-2.unfinished': Read-only file system"},
        Fault{"SynchronisingTheFolderWithoutTheMark",
              UnmarkIt,
              "fsync",
              EIO,
              0,
              2,
              "cannot synchronise '@': Input/output error"}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
