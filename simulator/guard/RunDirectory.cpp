#include "simulator/guard/RunDirectory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>
#include <vector>

namespace orvane {

namespace {

namespace fs = std::filesystem;

constexpr const char* kFallback = "/tmp";
constexpr const char* kPrefix = "orvane-sim.";
constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyz234567";
constexpr std::size_t kRandomLetters = 12;
constexpr useconds_t kPauseMicroseconds = 1000;
constexpr std::size_t kMaxBytes = 40;  // leaves room for the longest name of a socket below it
constexpr const char* kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._-";

std::string Parent() {
  const char* const wanted = std::getenv("TMPDIR");
  const std::string parent = wanted == nullptr ? "" : wanted;
  const bool suits = parent.starts_with('/') && parent.size() <= kMaxBytes &&
                     parent.find_first_not_of(kPlain) == std::string::npos;
  return suits ? parent : kFallback;
}

/// @return the descriptor of a directory of this user that nobody else has locked, now locked;
///         nothing, with errno set, when there is no such directory
std::optional<int> Lock(const std::string& path) {
  FileDescriptor directory(
      ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (!directory.IsOpen() || ::fstat(directory.Get(), &status) != 0) {
    return std::nullopt;
  }
  if (status.st_uid != ::geteuid()) {
    errno = EPERM;
    return std::nullopt;
  }
  if (::flock(directory.Get(), LOCK_EX | LOCK_NB) != 0) {
    return std::nullopt;
  }
  return directory.Release();
}

bool LeadsTo(const std::string& path, int descriptor) {
  struct stat named {};
  struct stat open {};
  return ::lstat(path.c_str(), &named) == 0 && ::fstat(descriptor, &open) == 0 &&
         named.st_dev == open.st_dev && named.st_ino == open.st_ino;
}

/// Deletes what killed runs have left. Whatever goes wrong, it stays for the next run.
void Sweep(const std::string& parent) {
  std::error_code ignored;
  for (fs::directory_iterator entry(parent, ignored), end; !ignored && entry != end;
       entry.increment(ignored)) {
    if (!entry->path().filename().string().starts_with(kPrefix)) {
      continue;
    }
    const std::string path = entry->path().string();
    if (const FileDescriptor lock(Lock(path).value_or(FileDescriptor::kClosed)); lock.IsOpen()) {
      RunDirectory::Remove(path);
    }
  }
}

}  // namespace

RunDirectory::RunDirectory() {
  const std::string parent = Parent();
  Sweep(parent);
  std::array<std::uint8_t, kRandomLetters> random{};
  if (::getrandom(random.data(), random.size(), 0) != ssize_t{random.size()}) {
    throw std::system_error(errno, std::generic_category(), "cannot choose a name");
  }
  path_ = parent + "/" + kPrefix;
  for (const std::uint8_t byte : random) {
    path_ += kLetters[byte % kLetters.size()];
  }
}

RunDirectory::~RunDirectory() { Remove(path_); }

RunDirectory::Contents::Contents(const RunDirectory& directory)
    : path_(directory.Path()), lock_(Create(path_)) {}

/// @return what keeps it locked
FileDescriptor RunDirectory::Create(const std::string& path) {
  for (;;) {
    if (::mkdir(path.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
      throw std::system_error(errno,
                              std::generic_category(),
                              "cannot create a directory in " + path.substr(0, path.rfind('/')));
    }
    // Until it is locked, another run that starts may take it for an abandoned one.
    FileDescriptor lock(Lock(path).value_or(FileDescriptor::kClosed));
    if (lock.IsOpen() && LeadsTo(path, lock.Get())) {
      return lock;
    }
    if (!lock.IsOpen() && errno != EWOULDBLOCK && errno != ENOENT) {
      throw std::system_error(errno, std::generic_category(), "cannot lock " + path);
    }
    ::usleep(kPauseMicroseconds);  // the other run deletes it, unless it is killed before
  }
}

void RunDirectory::Remove(const std::string& path) {
  std::error_code ignored;  // an error here has no consequence for the run
  std::vector<fs::path> entries;
  for (fs::directory_iterator entry(path, ignored), end; !ignored && entry != end;
       entry.increment(ignored)) {
    entries.push_back(entry->path());
  }
  for (const fs::path& entry : entries) {
    if (fs::symlink_status(entry, ignored).type() == fs::file_type::directory) {
      Remove(entry);
    } else {
      fs::remove(entry, ignored);
    }
  }
  fs::remove(path, ignored);
}

}  // namespace orvane
