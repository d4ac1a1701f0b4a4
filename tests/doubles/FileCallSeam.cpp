#include "tests/doubles/FileCallSeam.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/types.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <sstream>
#include <string_view>
#include <utility>

// The linker's --wrap fixes these names.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" {
int __real_open(const char* path, int flags, ...);
int __real_close(int fd);
ssize_t __real_read(int fd, void* buffer, size_t size);
ssize_t __real_write(int fd, const void* buffer, size_t size);
off_t __real_lseek(int fd, off_t offset, int whence);
unsigned __real_sleep(unsigned seconds);
int __real_usleep(unsigned microseconds);
}

namespace {

/// Above any descriptor that the kernel hands out to a test.
constexpr int kFirstControlDescriptor = 100'000;

std::string FlagNames(int flags) {
  constexpr struct {
    int bits;
    const char* name;
  } kNames[] = {{O_CREAT, "O_CREAT"},
                {O_EXCL, "O_EXCL"},
                {O_TRUNC, "O_TRUNC"},
                {O_APPEND, "O_APPEND"},
                {O_NONBLOCK, "O_NONBLOCK"},
                {O_SYNC, "O_SYNC"},
                {O_CLOEXEC, "O_CLOEXEC"}};
  const int access = flags & O_ACCMODE;
  int rest = flags & ~O_ACCMODE;
  std::ostringstream names;
  names << (access == O_RDONLY ? "O_RDONLY" : access == O_WRONLY ? "O_WRONLY" : "O_RDWR");
  for (const auto& row : kNames) {
    if ((rest & row.bits) == row.bits) {
      names << '|' << row.name;
      rest &= ~row.bits;
    }
  }
  if (rest != 0) {
    names << "|0x" << std::hex << rest;
  }
  return names.str();
}

std::string Bytes(long count) { return std::to_string(count) + " bytes"; }

}  // namespace

FileCallSeam* FileCallSeam::current = nullptr;

FileCallSeam::FileCallSeam(EventLog& log)
    : log_(log), nextControlDescriptor_(kFirstControlDescriptor) {
  current = this;
}

FileCallSeam::~FileCallSeam() {
  current = nullptr;
  for (const auto& [fd, path] : open_) {
    if (fd < kFirstControlDescriptor) {
      __real_close(fd);
    }
  }
}

void FileCallSeam::AddControlFile(const std::string& path, std::vector<std::string> values) {
  std::reverse(values.begin(), values.end());  // the next one is at the back
  controlFiles_[path] = std::move(values);
}

void FileCallSeam::AllowFile(const std::string& path) { allowed_.insert(path); }

void FileCallSeam::Fail(const std::string& call, const std::string& path, int error) {
  faults_[call + " " + path] = error;
}

std::vector<std::string> FileCallSeam::OpenFiles() const {
  std::vector<std::string> paths;
  for (const auto& [fd, path] : open_) {
    paths.push_back(path);
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

bool FileCallSeam::Fails(const std::string& call,
                         const std::string& path,
                         const std::string& details) {
  const auto fault = faults_.find(call + " " + path);
  std::string event = call;
  event.append(" ").append(path).append(details.empty() ? "" : " " + details);
  if (fault == faults_.end()) {
    log_.Add(event);
    return false;
  }
  log_.Add(event + " -> " + std::strerror(fault->second));
  errno = fault->second;
  return true;
}

std::string FileCallSeam::PathOf(const char* call, int fd) {
  const auto found = open_.find(fd);
  if (found == open_.end()) {
    ADD_FAILURE() << call << " of descriptor " << fd << ", which is not open here";
    return "";
  }
  return found->second;
}

int FileCallSeam::Open(const char* path, int flags, unsigned mode) {
  std::ostringstream details;
  details << FlagNames(flags);
  if ((flags & O_CREAT) != 0) {
    details << " 0" << std::oct << mode;
  }
  if (Fails("open", path, details.str())) {
    return -1;
  }
  int fd = -1;
  if (controlFiles_.contains(path)) {
    fd = nextControlDescriptor_++;
  } else if (allowed_.contains(path)) {
    fd = __real_open(path, flags, mode);
  } else {
    ADD_FAILURE() << "open of " << path << ", which the test has not allowed";
    errno = ENOENT;
  }
  if (fd >= 0) {
    open_[fd] = path;
  }
  return fd;
}

int FileCallSeam::Close(int fd) {
  if (fd < 0) {
    log_.Add("close " + std::to_string(fd));
    errno = EBADF;
    return -1;
  }
  const std::string path = PathOf("close", fd);
  open_.erase(fd);
  if (Fails("close", path, "")) {
    return -1;
  }
  return fd < kFirstControlDescriptor ? __real_close(fd) : 0;
}

long FileCallSeam::Read(int fd, void* buffer, std::size_t size) {
  const std::string path = PathOf("read", fd);
  const std::string asked = Bytes(static_cast<long>(size));
  if (fd < kFirstControlDescriptor) {
    const long count = __real_read(fd, buffer, size);
    return Fails("read", path, asked + ", got " + std::to_string(count)) ? -1 : count;
  }
  std::vector<std::string>& values = controlFiles_[path];
  if (values.empty()) {
    ADD_FAILURE() << "read of " << path << ", which has no value";
    return 0;
  }
  const std::string value = values.back();
  if (values.size() > 1) {
    values.pop_back();
  }
  const std::size_t count = std::min(size, value.size());
  if (Fails("read", path, asked + ", got " + Quoted(std::string_view(value).substr(0, count)))) {
    return -1;
  }
  std::memcpy(buffer, value.data(), count);
  return static_cast<long>(count);
}

long FileCallSeam::Write(int fd, const void* buffer, std::size_t size) {
  const std::string path = PathOf("write", fd);
  const std::string_view text(static_cast<const char*>(buffer), size);
  if (Fails("write", path, Quoted(text))) {
    return -1;
  }
  return fd < kFirstControlDescriptor ? __real_write(fd, buffer, size) : static_cast<long>(size);
}

long FileCallSeam::Seek(int fd, long offset, int whence) {
  const std::string path = PathOf("lseek", fd);
  const char* const from = whence == SEEK_SET ? " from the start" : " from elsewhere";
  if (Fails("lseek", path, "to " + std::to_string(offset) + from)) {
    return -1;
  }
  return __real_lseek(fd, offset, whence);
}

void FileCallSeam::Sleep(const std::string& event) { log_.Add(event); }

extern "C" {

int __wrap_open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned) : 0;
  va_end(arguments);
  FileCallSeam* const seam = FileCallSeam::current;
  return seam == nullptr ? __real_open(path, flags, mode) : seam->Open(path, flags, mode);
}

int __wrap_close(int fd) {
  FileCallSeam* const seam = FileCallSeam::current;
  return seam == nullptr ? __real_close(fd) : seam->Close(fd);
}

ssize_t __wrap_read(int fd, void* buffer, size_t size) {
  FileCallSeam* const seam = FileCallSeam::current;
  return seam == nullptr ? __real_read(fd, buffer, size) : seam->Read(fd, buffer, size);
}

ssize_t __wrap_write(int fd, const void* buffer, size_t size) {
  FileCallSeam* const seam = FileCallSeam::current;
  return seam == nullptr ? __real_write(fd, buffer, size) : seam->Write(fd, buffer, size);
}

off_t __wrap_lseek(int fd, off_t offset, int whence) {
  FileCallSeam* const seam = FileCallSeam::current;
  return seam == nullptr ? __real_lseek(fd, offset, whence) : seam->Seek(fd, offset, whence);
}

unsigned __wrap_sleep(unsigned seconds) {
  FileCallSeam* const seam = FileCallSeam::current;
  if (seam == nullptr) {
    return __real_sleep(seconds);
  }
  seam->Sleep("sleep " + std::to_string(seconds) + " s");
  return 0;
}

int __wrap_usleep(unsigned microseconds) {
  FileCallSeam* const seam = FileCallSeam::current;
  if (seam == nullptr) {
    return __real_usleep(microseconds);
  }
  seam->Sleep("sleep " + std::to_string(microseconds) + " us");
  return 0;
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)
