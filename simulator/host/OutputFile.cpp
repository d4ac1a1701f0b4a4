#include "simulator/host/OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace orvane {

OutputFile::OutputFile(const std::string& kind, std::string path)
    : path_(std::move(path)),
      failing_("cannot write " + kind + " '" + path_ + "'"),
      place_(path_, failing_) {
  if (!place_.OwnDescriptor()) {
    return;
  }
  own_.emplace(::fcntl(*place_.OwnDescriptor(), F_DUPFD_CLOEXEC, 0));
  const int flags = own_->IsOpen() ? ::fcntl(own_->Get(), F_GETFL) : -1;
  if (flags == -1) {
    Fail();
  }
  if ((flags & O_PATH) != 0 || (flags & O_ACCMODE) == O_RDONLY) {
    errno = EBADF;  // as write() would say
    Fail();
  }
}

bool OutputFile::IsOrdinary() const {
  struct stat status {};
  return !own_ && (::stat(path_.c_str(), &status) != 0 || S_ISREG(status.st_mode));
}

FileDescriptor OutputFile::Open() {
  if (own_) {
    return std::move(*own_);
  }
  constexpr int kFlags = O_WRONLY | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  constexpr mode_t kMode = 0666;
  FileDescriptor file(::open(path_.c_str(), kFlags, kMode));
  const int flags = file.IsOpen() ? ::fcntl(file.Get(), F_GETFL) : -1;
  if (flags == -1 || ::fcntl(file.Get(), F_SETFL, flags & ~O_NONBLOCK) != 0) {
    Fail();
  }
  return file;
}

void OutputFile::Fail() const { throw std::system_error(errno, std::generic_category(), failing_); }

}  // namespace orvane
