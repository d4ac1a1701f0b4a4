#include "companion/state/StateFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <system_error>
#include <utility>
#include <vector>

namespace companion {

namespace {

constexpr mode_t kFolderMode = 0700;
constexpr mode_t kFileMode = 0600;
constexpr const char* kLockName = "lock";
constexpr const char* kWorkName = "work";
constexpr const char* kMarkBegin = "slot-";

/// How often something is tried before it counts as failed.
constexpr int kAttempts = 3;

constexpr int kLockPollMilliseconds = 50;
constexpr std::uint64_t kLockPollsPerSecond = 20;

constexpr std::size_t kMaxHolderBytes = 200;
constexpr std::size_t kCompareBytes = 64 * std::size_t{1024};

/// @param operation  returns why it failed, or an empty text
template <typename Operation>
std::string Persistently(Operation operation) {
  std::string problem;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    problem = operation();
    if (problem.empty()) {
      break;
    }
  }
  return problem;
}

/// @param error  errno of the call
std::string Failure(std::string_view verb, std::string_view path, int error) {
  std::string text = "cannot ";
  text.append(verb).append(" '").append(path).append("': ");
  return text.append(std::generic_category().message(error));
}

std::string Quoted(std::string_view path) { return std::string("'").append(path).append("'"); }

std::string MarkName(unsigned module) {
  return kMarkBegin + std::to_string(module) + ".unfinished";
}

bool IsMarkName(std::string_view name) { return name.starts_with(kMarkBegin); }

bool IsOwnFile(const struct stat& status) {
  return S_ISREG(status.st_mode) && status.st_nlink == 1;
}

std::string NotOwnFile(const std::string& path) {
  return Quoted(path) + " is no regular file with one link: remove it";
}

/// Writes from the beginning of the file on.
/// @return false, with errno set, when not all could be written
bool WriteAll(int file, std::span<const std::uint8_t> bytes) {
  off_t offset = 0;
  while (!bytes.empty()) {
    const ssize_t count = ::pwrite(file, bytes.data(), bytes.size(), offset);
    if (count < 0) {
      return false;
    }
    bytes = bytes.subspan(static_cast<std::size_t>(count));
    offset += count;
  }
  return true;
}

bool WriteText(int file, const std::string& text) {
  return ::ftruncate(file, 0) == 0 &&
         WriteAll(file, {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

/// A path with a slash at its end would lead through a link.
std::string WithoutSlashesAtTheEnd(std::string path) {
  while (path.size() > 1 && path.back() == '/') {
    path.pop_back();
  }
  return path;
}

/// The new folder is to be there after a power cut too. Where this cannot be done, the folder was
/// there already or is as safe as its parent is.
void SyncParent(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  std::string parent = ".";
  if (slash != std::string::npos) {
    parent = path.substr(0, std::max(slash, std::size_t{1}));
  }
  const FileDescriptor folder(::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  static_cast<void>(::fsync(folder.Get()));
}

/// @param folder  as it has been opened; when it could not be, errno is still set
/// @param action  returns 0, or an errno
/// @return 0, or an errno: of an action, or because the folder cannot be read
template <typename Action>
int ForEachName(FileDescriptor folder, Action action) {
  if (!folder.IsOpen()) {
    return errno;
  }
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(::fdopendir(folder.Get()), &::closedir);
  if (stream == nullptr) {
    return errno;
  }
  static_cast<void>(folder.Release());  // the stream's now
  int error = 0;
  while (const dirent* const entry = ::readdir(stream.get())) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") {
      error = std::max(error, action(entry->d_name));
    }
  }
  return error;
}

// --- Removing -----------------------------------------------------------------------------------

/// @return a folder that can be read and emptied; without one, errno is set
FileDescriptor OpenToEmpty(int parent, const char* name) {
  const FileDescriptor found(::openat(parent, name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!found.IsOpen()) {
    return FileDescriptor();
  }
  // By this path, since a descriptor with O_PATH takes no fchmod. Whether it was needed, and has
  // worked, shows when the folder is emptied.
  const std::string path = "/proc/self/fd/" + std::to_string(found.Get());
  static_cast<void>(::chmod(path.c_str(), kFolderMode));
  return FileDescriptor(::openat(found.Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

/// Removes what is called `name`, with everything in it. A link is removed, not what it leads to.
/// @return 0, also when there is nothing; else the errno
int RemoveTree(int parent, const char* name) {
  if (::unlinkat(parent, name, 0) == 0 || errno == ENOENT) {
    return 0;
  }
  if (errno != EISDIR) {
    return errno;
  }
  FileDescriptor folder = OpenToEmpty(parent, name);
  const int descriptor = folder.Get();
  const int error = ForEachName(
      std::move(folder), [descriptor](const char* entry) { return RemoveTree(descriptor, entry); });
  if (error != 0) {
    return error;
  }
  return ::unlinkat(parent, name, AT_REMOVEDIR) == 0 ? 0 : errno;
}

}  // namespace

StateFolder::StateFolder(std::string path, Stop stop)
    : path_(WithoutSlashesAtTheEnd(std::move(path))), stop_(std::move(stop)) {}

StateFolder::~StateFolder() {
  if (isLocked_) {
    // So that nobody is told of a holder that has ended. What fails is only less exact.
    static_cast<void>(!::ftruncate(lock_->Get(), 0));
  }
}

int StateFolder::Folder() const { return folder_ ? folder_->Get() : FileDescriptor::kClosed; }

std::string StateFolder::PathOf(std::string_view name) const {
  return std::string(path_).append("/").append(name);
}

// --- The folder and its files -------------------------------------------------------------------

std::string StateFolder::OpenFolder() {
  if (::mkdir(path_.c_str(), kFolderMode) != 0 && errno != EEXIST) {
    return Failure("create", path_, errno);
  }
  FileDescriptor folder(::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!folder.IsOpen()) {
    const int error = errno;
    struct stat status {};
    if (::lstat(path_.c_str(), &status) == 0 && S_ISLNK(status.st_mode)) {
      return Quoted(path_) + " is a link, not a folder";
    }
    return Failure("open", path_, error);
  }
  std::string refusal = FolderRefusal(folder.Get());
  if (!refusal.empty()) {
    return refusal;
  }
  SyncParent(path_);
  folder_.emplace(std::move(folder));
  return "";
}

std::string StateFolder::FolderRefusal(int folder) const {
  struct stat status {};
  if (::fstat(folder, &status) != 0) {
    return Failure("examine", path_, errno);
  }
  if (status.st_uid != ::geteuid()) {
    return "the folder " + Quoted(path_) + " belongs to another user";
  }
  if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    return "the folder " + Quoted(path_) + " can be written by others: chmod go-w it";
  }
  return "";
}

StateFolder::Opened StateFolder::OpenFile(const std::string& name, int flags) const {
  // O_NONBLOCK: a pipe or a device in its place must not block. On a regular file it means nothing.
  FileDescriptor file(::openat(
      Folder(), name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | flags, kFileMode));
  if (file.IsOpen()) {
    std::string refusal = FileRefusal(name, file.Get());
    return {.file = std::move(file), .problem = std::move(refusal)};
  }
  const int error = errno;
  struct stat status {};
  if (::fstatat(Folder(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && !IsOwnFile(status)) {
    return {.problem = NotOwnFile(PathOf(name))};
  }
  return {.problem = Failure("open", PathOf(name), error)};
}  // GCOVR_EXCL_BR_LINE: clean-up after an exception

std::string StateFolder::FileRefusal(const std::string& name, int file) const {
  struct stat status {};
  if (::fstat(file, &status) != 0) {
    return Failure("examine", PathOf(name), errno);
  }
  if (!IsOwnFile(status)) {
    return NotOwnFile(PathOf(name));
  }
  return "";
}

std::string StateFolder::SyncFolder() const {
  if (::fsync(Folder()) != 0) {
    return Failure("synchronise", path_, errno);
  }
  return "";
}

// --- The lock -----------------------------------------------------------------------------------

StateInterface::Locking StateFolder::Lock(const std::string& purpose, unsigned waitSeconds) {
  std::string problem = Persistently([this] { return OpenFolder(); });
  if (problem.empty()) {
    problem = Persistently([this] { return OpenLock(); });
  }
  if (!problem.empty()) {
    return {.problem = problem};
  }
  Locking locking = AwaitLock(waitSeconds);
  if (locking.locked) {
    WriteHolder(purpose);
    locking.problem = RemoveWorkFolder();
    locking.locked = locking.problem.empty();
  }
  if (!locking.locked) {
    isLocked_ = false;
    lock_.reset();
  }
  return locking;
}  // GCOVR_EXCL_BR_LINE: clean-up after an exception

/// The work folder is removed with everything in it, so it must not be somebody else's. Ours stands
/// beside a lock or a mark: the lock is made before it, and never removed. The lock is looked for
/// later, since another process may just be making both.
std::string StateFolder::WorkFolderRefusal() const {
  struct stat status {};
  const auto isThere = [&](const char* name) {
    return ::fstatat(Folder(), name, &status, AT_SYMLINK_NOFOLLOW) == 0;
  };
  if (!isThere(kWorkName) || isThere(kLockName)) {
    return "";
  }
  const int error =
      ForEachName(FileDescriptor(::openat(Folder(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)),
                  [](const char* name) { return IsMarkName(name) ? EEXIST : 0; });
  if (error == EEXIST) {
    return "";
  }
  if (error != 0) {
    return Failure("list", path_, error);
  }
  return Quoted(path_) + " holds a '" + kWorkName + "' and no '" + kLockName +
         "': use a folder of its own";
}

std::string StateFolder::OpenLock() {
  std::string refusal = WorkFolderRefusal();
  if (!refusal.empty()) {
    return refusal;
  }
  Opened lock = OpenFile(kLockName, 0);  // no O_CLOEXEC: what is started keeps the lock
  if (lock.problem.empty()) {
    lock_.emplace(std::move(lock.file));
  }
  return lock.problem;
}

StateInterface::Locking StateFolder::AwaitLock(unsigned waitSeconds) {
  std::uint64_t attemptsLeft = waitSeconds * kLockPollsPerSecond;
  for (;;) {
    std::string problem = Persistently([this] { return TryLock(); });
    if (isLocked_) {
      // Somebody may have removed it while it was waited for.
      problem = Persistently([this] { return FileRefusal(kLockName, lock_->Get()); });
      return {.locked = problem.empty(), .problem = problem};
    }
    if (!problem.empty()) {
      return {.problem = problem};
    }
    if (!AwaitNextAttempt(attemptsLeft)) {
      return {.holder = Holder()};
    }
  }
}  // GCOVR_EXCL_BR_LINE: clean-up after an exception

std::string StateFolder::TryLock() {
  isLocked_ = ::flock(lock_->Get(), LOCK_EX | LOCK_NB) == 0;
  if (!isLocked_ && errno != EWOULDBLOCK) {
    return Failure("lock", PathOf(kLockName), errno);
  }
  return "";
}

/// @param attemptsLeft  counted instead of a time that a clock would tell
/// @return false when there are none left, or the wait is stopped
bool StateFolder::AwaitNextAttempt(std::uint64_t& attemptsLeft) const {
  if (attemptsLeft == 0) {
    return false;
  }
  --attemptsLeft;
  pollfd stop = {.fd = stop_.descriptor, .events = POLLIN, .revents = 0};
  return ::poll(&stop, 1, kLockPollMilliseconds) <= 0 || !stop_.hasArrived();
}

std::string StateFolder::Holder() const {
  std::array<char, kMaxHolderBytes> bytes{};
  const ssize_t count = ::pread(lock_->Get(), bytes.data(), bytes.size(), 0);
  std::string holder(bytes.data(), static_cast<std::size_t>(std::max(count, ssize_t{0})));
  std::replace_if(
      holder.begin(), holder.end(), [](char byte) { return byte < ' ' || byte > '~'; }, '?');
  if (holder.empty()) {
    return "another process";
  }
  return holder;
}

/// Only for readers: that the lock is held does not depend on it.
void StateFolder::WriteHolder(const std::string& purpose) const {
  const std::string holder = purpose + ", process " + std::to_string(::getpid());
  static_cast<void>(
      Persistently([&] { return WriteText(lock_->Get(), holder) ? "" : "not written"; }));
}

// --- The work folder ----------------------------------------------------------------------------

std::string StateFolder::WorkFolder() const { return PathOf(kWorkName); }

int StateFolder::WorkFolderDescriptor() const {
  return work_ ? work_->Get() : FileDescriptor::kClosed;
}

std::string StateFolder::RemoveWorkFolder() {
  work_.reset();
  return Persistently([this]() -> std::string {
    const int error = RemoveTree(Folder(), kWorkName);
    if (error != 0) {
      return Failure("remove", WorkFolder(), error);
    }
    return "";
  });
}

std::string StateFolder::MakeWorkFolder(const std::string& imageName,
                                        std::span<const std::uint8_t> image) {
  return Persistently([&] {
    std::string problem = RemoveWorkFolder();
    return problem.empty() ? FillWorkFolder(imageName, image) : problem;
  });
}

std::string StateFolder::FillWorkFolder(const std::string& imageName,
                                        std::span<const std::uint8_t> image) {
  if (::mkdirat(Folder(), kWorkName, kFolderMode) != 0) {
    return Failure("create", WorkFolder(), errno);
  }
  FileDescriptor work(
      ::openat(Folder(), kWorkName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!work.IsOpen()) {
    return Failure("open", WorkFolder(), errno);
  }
  work_.emplace(std::move(work));
  std::string problem = WriteImage(imageName, image);
  return problem.empty() ? CompareImage(imageName, image) : problem;
}

std::string StateFolder::WriteImage(const std::string& name,
                                    std::span<const std::uint8_t> image) const {
  const std::string path = WorkFolder() + "/" + name;
  FileDescriptor file(::openat(WorkFolderDescriptor(),
                               name.c_str(),
                               O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                               kFileMode));
  if (!file.IsOpen()) {
    return Failure("create", path, errno);
  }
  if (!WriteAll(file.Get(), image) || ::fsync(file.Get()) != 0 || file.Close() != 0) {
    return Failure("write", path, errno);
  }
  return "";
}

std::string StateFolder::CompareImage(const std::string& name,
                                      std::span<const std::uint8_t> image) const {
  const std::string path = WorkFolder() + "/" + name;
  const FileDescriptor file(
      ::openat(WorkFolderDescriptor(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  if (!file.IsOpen()) {
    return Failure("open", path, errno);
  }
  // Only advice: so that the bytes come from the disk again.
  static_cast<void>(::posix_fadvise(file.Get(), 0, 0, POSIX_FADV_DONTNEED));
  std::vector<std::uint8_t> bytes(kCompareBytes);
  std::span<const std::uint8_t> rest = image;
  for (;;) {
    const ssize_t count = ::read(file.Get(), bytes.data(), bytes.size());
    if (count < 0) {
      return Failure("read", path, errno);
    }
    const auto size = static_cast<std::size_t>(count);
    if (size == 0 && rest.empty()) {
      return "";
    }
    const std::span<const std::uint8_t> expected = rest.first(std::min(size, rest.size()));
    if (expected.empty() || !std::ranges::equal(expected, std::span(bytes).first(size))) {
      return Quoted(path) + " does not hold what was written to it";
    }
    rest = rest.subspan(size);
  }
}

// --- The marks ----------------------------------------------------------------------------------

bool StateFolder::IsMarked(unsigned module) {
  const std::string name = MarkName(module);
  struct stat status {};
  // Only when there is certainly nothing, there is no mark.
  return !Persistently([&] {
            const bool isThere =
                ::fstatat(Folder(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
            return isThere || errno != ENOENT ? "marked" : "";
          }).empty();
}

std::string StateFolder::Mark(unsigned module, const std::string& text) {
  const std::string name = MarkName(module);
  const bool wasMarked = IsMarked(module);
  std::string problem = Persistently([&] { return WriteMark(name, text); });
  if (!problem.empty() && !wasMarked) {
    static_cast<void>(Unmark(module));  // what stays counts as an unfinished update
  }
  return problem;
}

std::string StateFolder::WriteMark(const std::string& name, const std::string& text) const {
  struct stat status {};
  if (::fstatat(Folder(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
      S_ISLNK(status.st_mode)) {
    static_cast<void>(::unlinkat(Folder(), name.c_str(), 0));  // or else it is refused below
  }
  const Opened mark = OpenFile(name, O_CLOEXEC);
  if (!mark.problem.empty()) {
    return mark.problem;
  }
  const std::string line = text + "\n";
  if (!WriteText(mark.file.Get(), line) || ::fsync(mark.file.Get()) != 0) {
    return Failure("write", PathOf(name), errno);
  }
  return SyncFolder();
}

std::string StateFolder::Unmark(unsigned module) {
  const std::string name = MarkName(module);
  return Persistently([&] {
    if (::unlinkat(Folder(), name.c_str(), 0) != 0 && errno != ENOENT) {
      return Failure("remove", PathOf(name), errno);
    }
    return SyncFolder();
  });
}

}  // namespace companion
