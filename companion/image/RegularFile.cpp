#include "companion/image/RegularFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "companion/image/Quoted.h"

namespace companion {

namespace {

constexpr std::size_t kPieceBytes = std::size_t{64} * 1024;

const char* NameOf(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFDIR:
      return "a directory";
    case S_IFIFO:
      return "a pipe";
    case S_IFCHR:
    case S_IFBLK:
      return "a device";
    default:
      return "a socket";
  }
}

}  // namespace

RegularFile::RegularFile(const std::string& path) : name_(Quoted(path)), file_(Open(path)) {}

int RegularFile::Open(const std::string& path) {
  struct stat status {};
  // Looked at before it is opened: the opening of a device or a pipe can do something to it.
  if (::stat(path.c_str(), &status) != 0) {
    RefuseForErrno("cannot open ");
    return FileDescriptor::kClosed;
  }
  if (!S_ISREG(status.st_mode)) {
    refusal_ = name_ + " is no regular file but " + NameOf(status.st_mode);
    return FileDescriptor::kClosed;
  }
  FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!file.IsOpen()) {
    RefuseForErrno("cannot open ");
    return FileDescriptor::kClosed;
  }
  if (::fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    refusal_ = name_ + " was replaced meanwhile";
    return FileDescriptor::kClosed;
  }
  size_ = static_cast<std::uint64_t>(status.st_size);
  return file.Release();
}

void RegularFile::ReadUpTo(std::size_t total, std::vector<std::uint8_t>& bytes) {
  while (bytes.size() < total) {
    const std::size_t held = bytes.size();
    const std::size_t piece = std::min(kPieceBytes, total - held);
    bytes.resize(held + piece);
    const ssize_t count = ::read(file_.Get(), bytes.data() + held, piece);
    bytes.resize(held + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    if (count < 0) {
      RefuseForErrno("cannot read ");
    }
    if (count <= 0) {
      return;
    }
  }
}

void RegularFile::RefuseForErrno(const char* what) {
  const int error = errno;
  refusal_ = what + name_ + ": " + std::strerror(error);
}

}  // namespace companion
