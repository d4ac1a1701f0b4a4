#include "companion/report/OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

#include "companion/image/Quoted.h"

namespace companion {

namespace {

constexpr mode_t kFileMode = 0666;  // less the umask
constexpr mode_t kPrivateMode = 0600;
constexpr mode_t kAccess = 0777;
/// How often something is tried before it counts as failed.
constexpr int kAttempts = 3;
/// How many names for the file beside its place are tried.
constexpr int kNames = 100;

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

bool WriteAll(int file, std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(file, bytes.data(), bytes.size());
    if (count < 0) {
      return false;
    }
    bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
  return true;
}

void CloseIfOpen(int& descriptor) {
  const FileDescriptor closing(std::exchange(descriptor, FileDescriptor::kClosed));
}

}  // namespace

OutputFile::OutputFile(const std::string& path) : path_(path) {
  const std::size_t slash = path.rfind('/');
  name_ = slash == std::string::npos ? path : path.substr(slash + 1);
  folderPath_ = slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

OutputFile::~OutputFile() {
  if (!temporary_.empty()) {
    ::unlinkat(folder_, temporary_.c_str(), 0);
  }
  CloseIfOpen(file_);
  CloseIfOpen(folder_);
}

std::string OutputFile::Failure(const char* verb, int error) const {
  return std::string("cannot ") + verb + " " + Quoted(path_) + ": " +
         std::generic_category().message(error) + ".";
}

std::string OutputFile::Prepare() {
  if (std::string problem = Persistently([this] { return OpenFolder(); }); !problem.empty()) {
    return problem;
  }
  if (std::string problem = Persistently([this] { return RefuseOther(); }); !problem.empty()) {
    return problem;
  }
  return Persistently([this] { return Create(); });
}

std::string OutputFile::OpenFolder() {
  if (name_.empty() || name_ == "." || name_ == "..") {
    return Failure("write", EISDIR);
  }
  folder_ = ::open(folderPath_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  return folder_ >= 0 ? "" : Failure("write", errno);
}

/// A device or a pipe would be replaced by a file, and so would a link.
std::string OutputFile::RefuseOther() {
  struct stat found {};
  if (::fstatat(folder_, name_.c_str(), &found, AT_SYMLINK_NOFOLLOW) != 0) {
    return errno == ENOENT ? "" : Failure("look at", errno);
  }
  if (!S_ISREG(found.st_mode)) {
    return Quoted(path_) + " is not a regular file.";
  }
  former_ = {.owner = found.st_uid, .group = found.st_gid, .mode = found.st_mode & kAccess};
  return "";
}

/// Who could not read the former file cannot read the new one. What cannot be kept stays with its
/// owner alone.
void OutputFile::KeepAccess() const {
  const bool isKept = ::fchown(file_, former_->owner, former_->group) == 0;
  static_cast<void>(::fchmod(file_, isKept ? former_->mode : former_->mode & ~mode_t{S_IRWXG}));
}

std::string OutputFile::Create() {
  for (int i = 0; i < kNames; ++i) {
    std::string name = ".tarnwickctl-" + std::to_string(::getpid()) + "-" + std::to_string(i);
    file_ = ::openat(folder_,
                     name.c_str(),
                     O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                     former_ ? kPrivateMode : kFileMode);
    if (file_ >= 0) {
      temporary_ = std::move(name);
      if (former_) {
        KeepAccess();
      }
      return "";
    }
    if (errno != EEXIST) {
      break;
    }
  }
  return Failure("write", errno);
}

std::string OutputFile::Write(std::span<const std::uint8_t> contents) const {
  if (::lseek(file_, 0, SEEK_SET) != 0 || !WriteAll(file_, contents) || ::fsync(file_) != 0) {
    return Failure("write", errno);
  }
  return "";
}

std::string OutputFile::Store(std::span<const std::uint8_t> contents) {
  if (std::string problem = Persistently([&] { return Write(contents); }); !problem.empty()) {
    return problem;
  }
  std::string problem = Persistently([this] {
    const bool isRenamed = ::renameat(folder_, temporary_.c_str(), folder_, name_.c_str()) == 0;
    return isRenamed ? std::string() : Failure("write", errno);
  });
  if (!problem.empty()) {
    return problem;
  }
  temporary_.clear();
  return Persistently([this] {
    return ::fsync(folder_) == 0 ? std::string() : Failure("synchronise the folder of", errno);
  });
}

}  // namespace companion
