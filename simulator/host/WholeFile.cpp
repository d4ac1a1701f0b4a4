#include "simulator/host/WholeFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include "simulator/host/WriteAll.h"

namespace orvane {

namespace {

constexpr mode_t kModeBits = 07777;
constexpr mode_t kModeOfNewFile = 0666;  // less the umask
constexpr mode_t kModeUntilTakenOver = 0600;

/// ".NAME.orvane-sim-", with as much of the name as leaves room for the number of a process.
std::string TemporaryPrefix(const FilePlace& place) {
  constexpr std::string_view kMark = ".orvane-sim-";
  constexpr std::size_t kLongestNumber = 10;
  const long limit = ::fpathconf(place.Folder(), _PC_NAME_MAX);
  const std::size_t longest = limit > 0 ? static_cast<std::size_t>(limit) : NAME_MAX;
  const std::size_t room = longest - std::min(longest, 1 + kMark.size() + kLongestNumber);
  std::size_t length = std::min(place.Name().size(), room);
  // Not in the middle of a UTF-8 character, which some file systems do not take.
  while (length > 0 && length < place.Name().size() &&
         (static_cast<unsigned char>(place.Name()[length]) & 0xC0U) == 0x80U) {
    --length;
  }
  return "." + place.Name().substr(0, length).append(kMark);
}

std::string TemporaryName(const FilePlace& place, pid_t writer) {
  return TemporaryPrefix(place) + std::to_string(writer);
}

/// Whether the failed open() says that there are no files without a name here.
bool NeedsName() { return errno == EOPNOTSUPP || errno == EISDIR || errno == ENOENT; }

int OpenUnnamed(int folder, mode_t mode) {
  return ::openat(folder, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, mode);
}

/// A name that is removed again, unless what it stands for has been renamed.
class NameRemoved {
 public:
  NameRemoved(int folder, const std::string& name) : folder_(folder), name_(name) {}
  NameRemoved(const NameRemoved&) = delete;
  NameRemoved& operator=(const NameRemoved&) = delete;
  ~NameRemoved() {
    if (isThere_) {
      ::unlinkat(folder_, name_.c_str(), 0);
    }
  }
  void SetThere(bool isThere) { isThere_ = isThere; }

 private:
  int folder_;
  const std::string& name_;
  bool isThere_ = false;
};

/// Whether `name` is `prefix` and the number of a process that does not exist.
bool IsLeftover(std::string_view name, std::string_view prefix) {
  if (!name.starts_with(prefix)) {
    return false;
  }
  const std::string_view digits = name.substr(prefix.size());
  pid_t writer = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), writer);
  return error == std::errc() && end == digits.data() + digits.size() && writer > 0 &&
         ::kill(writer, 0) != 0 && errno == ESRCH;
}

/// Owner and group, or only the group; not what may not be given away.
void TakeOwner(int file, const struct stat& old) {
  constexpr uid_t kUnchanged = static_cast<uid_t>(-1);
  if (::fchown(file, old.st_uid, old.st_gid) != 0 && ::fchown(file, kUnchanged, old.st_gid) != 0) {
    return;
  }
}

bool Synchronise(int descriptor) {
  int result = 0;
  do {
    result = ::fsync(descriptor);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

struct CloseFolder {
  void operator()(DIR* folder) const { ::closedir(folder); }
};

}  // namespace

WholeFile::WholeFile(FilePlace place, std::string failing)
    : place_(std::move(place)), failing_(std::move(failing)) {}

void WholeFile::Fail() const { throw std::system_error(errno, std::generic_category(), failing_); }

void WholeFile::Check() const {
  if (place_.Status()) {
    CheckTarget();
  }
  CheckFolder();
}

void WholeFile::CheckTarget() const {
  constexpr int kFlags = O_WRONLY | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW | O_CLOEXEC;
  const FileDescriptor file(::openat(place_.Folder(), place_.Name().c_str(), kFlags));
  struct stat status {};
  if (!file.IsOpen() || ::fstat(file.Get(), &status) != 0) {
    Fail();
  }
  if (!S_ISREG(status.st_mode)) {
    errno = EINVAL;
    Fail();
  }
  struct statx more {};
  if (::statx(file.Get(), "", AT_EMPTY_PATH, STATX_BASIC_STATS, &more) == 0 &&
      (more.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0) {
    errno = EBUSY;  // as rename() would say
    Fail();
  }
  struct stat folder {};
  if (::fstat(place_.Folder(), &folder) != 0) {
    Fail();
  }
  const uid_t user = ::geteuid();
  if ((folder.st_mode & S_ISVTX) != 0 && user != 0 && user != folder.st_uid &&
      user != status.st_uid) {
    errno = EPERM;  // as rename() would say
    Fail();
  }
}

void WholeFile::CheckFolder() const {
  // The file is gone when it is closed. It shows more than the permissions: limits, the file system.
  const FileDescriptor file(OpenUnnamed(place_.Folder(), kModeUntilTakenOver));
  if (file.IsOpen()) {
    return;
  }
  if (!NeedsName() || ::faccessat(place_.Folder(), ".", W_OK | X_OK, AT_EACCESS) != 0) {
    Fail();
  }
}

/// @param isNamed  set to whether it has the name already
FileDescriptor WholeFile::Create(const std::string& temporary, bool& isNamed) const {
  const mode_t mode = place_.Status() ? kModeUntilTakenOver : kModeOfNewFile;
  FileDescriptor unnamed(OpenUnnamed(place_.Folder(), mode));
  isNamed = !unnamed.IsOpen();
  if (!isNamed) {
    return unnamed;
  }
  if (!NeedsName()) {
    Fail();
  }
  constexpr int kFlags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  FileDescriptor named(::openat(place_.Folder(), temporary.c_str(), kFlags, mode));
  if (!named.IsOpen()) {
    Fail();
  }
  return named;
}

void WholeFile::Fill(const FileDescriptor& file, std::span<const std::uint8_t> contents) const {
  const std::string_view bytes(reinterpret_cast<const char*>(contents.data()), contents.size());
  if (!WriteAll(file.Get(), bytes)) {
    Fail();
  }
  if (const std::optional<struct stat> old = place_.Status()) {
    TakeOwner(file.Get(), *old);
    if (::fchmod(file.Get(), old->st_mode & kModeBits) != 0) {
      Fail();
    }
  }
  if (!Synchronise(file.Get())) {
    Fail();
  }
}

void WholeFile::Name(const FileDescriptor& file, const std::string& temporary) const {
  const std::string unnamed = "/proc/self/fd/" + std::to_string(file.Get());
  if (::linkat(AT_FDCWD, unnamed.c_str(), place_.Folder(), temporary.c_str(), AT_SYMLINK_FOLLOW) !=
      0) {
    Fail();
  }
}

void WholeFile::Write(std::span<const std::uint8_t> contents,
                      const std::function<void()>& lastCheck) const {
  const std::string temporary = TemporaryName(place_, ::getpid());
  // One of that name is from a process that had our number and was killed.
  ::unlinkat(place_.Folder(), temporary.c_str(), 0);
  NameRemoved name(place_.Folder(), temporary);
  bool isNamed = false;
  const FileDescriptor file = Create(temporary, isNamed);
  name.SetThere(isNamed);
  Fill(file, contents);
  if (lastCheck) {
    lastCheck();
  }
  if (!isNamed) {
    Name(file, temporary);
    name.SetThere(true);
  }
  if (::renameat(place_.Folder(), temporary.c_str(), place_.Folder(), place_.Name().c_str()) != 0) {
    Fail();
  }
  name.SetThere(false);
  SynchroniseFolder();
}

void WholeFile::SynchroniseFolder() const {
  const FileDescriptor folder(::openat(place_.Folder(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  // A folder may be writable and not readable, and a file system may not synchronise folders.
  if (folder.IsOpen() && !Synchronise(folder.Get()) && errno != EINVAL) {
    Fail();
  }
}

void WholeFile::RemoveTemporary(const std::string& path, pid_t writer) {
  try {
    const FilePlace place(path, "");
    ::unlinkat(place.Folder(), TemporaryName(place, writer).c_str(), 0);
  } catch (const std::system_error&) {
    // No folder: nothing was written there.
  }
}

void WholeFile::RemoveLeftovers() const {
  FileDescriptor descriptor(::openat(place_.Folder(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const std::unique_ptr<DIR, CloseFolder> folder(descriptor.IsOpen() ? ::fdopendir(descriptor.Get())
                                                                     : nullptr);
  if (!folder) {
    return;
  }
  static_cast<void>(descriptor.Release());  // it is the stream's
  const std::string prefix = TemporaryPrefix(place_);
  while (const dirent* const entry = ::readdir(folder.get())) {
    if (IsLeftover(entry->d_name, prefix)) {
      ::unlinkat(place_.Folder(), entry->d_name, 0);
    }
  }
}

}  // namespace orvane
