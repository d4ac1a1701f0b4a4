#include "tests/fuzz/MemoryFiles.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "tests/fuzz/Require.h"

namespace {

constexpr std::uint8_t kNothing = 0;
constexpr std::uint8_t kFails = 0xFF;

int Fail(int error) {
  errno = error;
  return -1;
}

}  // namespace

MemoryFiles* MemoryFiles::Current() { return dynamic_cast<MemoryFiles*>(Kernel::Current()); }

std::size_t MemoryFiles::OpenCount(const std::string& path) const {
  const auto count = std::count_if(
      open_.begin(), open_.end(), [&](const auto& entry) { return entry.second.path == path; });
  return static_cast<std::size_t>(count);
}

bool MemoryFiles::Fails() {
  if (disturbances_.Byte() != kFails) {
    return false;
  }
  disturbed_ = true;
  errno = EIO;
  return true;
}

ssize_t MemoryFiles::Moved(std::size_t length) {
  const std::uint8_t disturbance = disturbances_.Byte();
  if (disturbance == kFails) {
    disturbed_ = true;
    return Fail(EIO);
  }
  if (disturbance == kNothing || disturbance >= length) {
    return static_cast<ssize_t>(length);
  }
  disturbed_ = true;
  return disturbance;
}

MemoryFiles::Position& MemoryFiles::At(int fd) {
  const auto found = open_.find(fd);
  Require(found != open_.end(), "only open descriptors are used");
  return found->second;
}

const std::string& MemoryFiles::PathOf(int fd) { return At(fd).path; }

int MemoryFiles::Open(const char* path, int flags, mode_t /*mode*/) {
  if (Fails()) {
    return -1;
  }
  if (!files.contains(path)) {
    if ((flags & O_CREAT) == 0) {
      return Fail(ENOENT);
    }
    files[path] = "";
  }
  open_[next_] = Position{.path = path};
  return next_++;
}

int MemoryFiles::Close(int fd) {
  if (fd < 0) {
    return Fail(EBADF);
  }
  static_cast<void>(At(fd));
  open_.erase(fd);  // also by a close that fails, which harms nothing
  return disturbances_.Byte() == kFails ? Fail(EIO) : 0;
}

ssize_t MemoryFiles::Read(int fd, void* buffer, std::size_t length) {
  Position& position = At(fd);
  const std::string& contents = files[position.path];
  const std::size_t left = contents.size() - std::min(position.at, contents.size());
  const ssize_t count = Moved(std::min(length, left));
  if (count > 0) {
    std::memcpy(buffer, contents.data() + position.at, static_cast<std::size_t>(count));
    position.at += static_cast<std::size_t>(count);
  }
  return count;
}

ssize_t MemoryFiles::Write(int fd, const void* buffer, std::size_t length) {
  Position& position = At(fd);
  const ssize_t count = Moved(length);
  if (count > 0) {
    std::string& contents = files[position.path];
    const auto moved = static_cast<std::size_t>(count);
    contents.resize(std::max(contents.size(), position.at + moved));
    std::memcpy(contents.data() + position.at, buffer, moved);
    position.at += moved;
  }
  return count;
}

off_t MemoryFiles::Seek(int fd, off_t offset, int whence) {
  Position& position = At(fd);
  Require(whence == SEEK_SET && offset >= 0, "seeks count from the start of the file");
  if (Fails()) {
    return -1;
  }
  position.at = static_cast<std::size_t>(offset);
  return offset;
}

int MemoryFiles::Ioctl(int fd, unsigned long /*request*/, void* /*argument*/) {
  static_cast<void>(At(fd));
  return Fail(ENOTTY);
}

int MemoryFiles::Usleep(useconds_t /*microseconds*/) { return 0; }

unsigned MemoryFiles::Sleep(unsigned /*seconds*/) { return 0; }

int MemoryFiles::Nanosleep(const timespec* /*duration*/, timespec* /*left*/) { return 0; }
