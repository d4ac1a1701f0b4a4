#include "simulator/host/FilePlace.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstddef>
#include <string_view>
#include <system_error>
#include <utility>

namespace orvane {

namespace {

constexpr int kMostLinks = 40;  // as many as the kernel follows
constexpr const char* kOwnDescriptors = "/proc/self/fd";

std::optional<int> ParseDescriptor(std::string_view name) {
  int number = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
  return error == std::errc() && end == name.data() + name.size() ? std::optional(number)
                                                                  : std::nullopt;
}

bool IsFolderOfOwnDescriptors(int folder) {
  struct stat ours {};
  struct stat here {};
  return ::stat(kOwnDescriptors, &ours) == 0 && ::fstat(folder, &here) == 0 &&
         IsSameFile(ours, here);
}

}  // namespace

FilePlace::FilePlace(const std::string& path, const std::string& failing) {
  if (!Follow(path)) {
    throw std::system_error(errno, std::generic_category(), failing);
  }
}

/// @return false, with errno set, when the path does not lead to a place
bool FilePlace::Follow(const std::string& path) {
  // The kernel follows the path first: it knows which links must not be followed.
  struct stat ignored {};
  if (::stat(path.c_str(), &ignored) != 0 && errno != ENOENT) {
    return false;
  }
  std::string rest = path;
  for (int links = 0; links <= kMostLinks; ++links) {
    if (!Enter(rest)) {
      return ownDescriptor_.has_value();  // its file may have no place any more
    }
    std::array<char, PATH_MAX> target{};
    const ssize_t length = ::readlinkat(Folder(), name_.c_str(), target.data(), target.size());
    if (length < 0) {
      return errno == EINVAL || errno == ENOENT;  // no link, or no file
    }
    if (IsFolderOfOwnDescriptors(Folder())) {
      ownDescriptor_ = ParseDescriptor(name_);
    }
    rest.assign(target.data(), static_cast<std::size_t>(length));
  }
  errno = ELOOP;
  return false;
}

/// Goes to the folder of a path that starts at the present one.
bool FilePlace::Enter(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::size_t nameAt = slash == std::string::npos ? 0 : slash + 1;
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, nameAt);
  const int start = folder_ ? folder_->Get() : AT_FDCWD;
  FileDescriptor next(::openat(start, folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!next.IsOpen()) {
    return false;
  }
  folder_.emplace(std::move(next));
  name_ = nameAt == path.size() ? "." : path.substr(nameAt);
  return true;
}

std::optional<struct stat> FilePlace::Status() const {
  struct stat status {};
  const int result = ::fstatat(Folder(), name_.c_str(), &status, AT_SYMLINK_NOFOLLOW);
  return result == 0 ? std::optional(status) : std::nullopt;
}

std::optional<struct stat> FilePlace::StatusOfFile() const {
  if (!ownDescriptor_) {
    return Status();
  }
  struct stat status {};
  return ::fstat(*ownDescriptor_, &status) == 0 ? std::optional(status) : std::nullopt;
}

bool FilePlace::IsSameAs(const FilePlace& other) const {
  const std::optional<struct stat> mine = StatusOfFile();
  const std::optional<struct stat> others = other.StatusOfFile();
  if (mine || others) {
    return mine && others && IsSameFile(*mine, *others);
  }
  struct stat folder {};
  struct stat othersFolder {};
  return name_ == other.name_ && ::fstat(Folder(), &folder) == 0 &&
         ::fstat(other.Folder(), &othersFolder) == 0 && IsSameFile(folder, othersFolder);
}

bool IsSameFile(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

}  // namespace orvane
