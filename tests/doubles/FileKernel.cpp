#include "tests/doubles/FileKernel.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <utility>

#include "tests/doubles/FakeClock.h"
#include "tests/doubles/KernelCall.h"
#include "tests/doubles/Require.h"

namespace {

constexpr int kFirstDescriptor = 100;  // no descriptor that the process has

int Fail(int error) {
  errno = error;
  return -1;
}

}  // namespace

FileKernel::FileKernel(EventLog* log, Decide decideFate)
    : decide(std::move(decideFate)), log_(log), next_(kFirstDescriptor) {}

std::vector<std::string> FileKernel::OpenFiles() const {
  std::vector<std::string> paths;
  for (const auto& [fd, position] : open_) {
    paths.push_back(position.path);
  }
  return paths;
}

std::size_t FileKernel::OpenCount(const std::string& path) const {
  const std::vector<std::string> paths = OpenFiles();
  return static_cast<std::size_t>(std::count(paths.begin(), paths.end(), path));
}

template <typename Call>
void FileKernel::Log(Call call) {
  if (log_ != nullptr) {
    log_->Add(call().text);
  }
}

FileKernel::Fate FileKernel::NextFate(const char* call,
                                      const std::string& path,
                                      std::size_t length) {
  const Fate fate = decide ? decide(call, path) : Fate{};
  disturbed_ = disturbed_ || fate.error != 0 || fate.most < length;
  return fate;
}

FileKernel::Position& FileKernel::At(int fd) {
  const auto found = open_.find(fd);
  Require(found != open_.end(), "only open descriptors are used");
  return found->second;
}

bool FileKernel::Owns(int fd) const { return fd < 0 || fd >= kFirstDescriptor; }

int FileKernel::Open(const char* path, int flags, mode_t mode) {
  Log([&] { return kernel::Open(path, flags, mode); });
  if (const Fate fate = NextFate("open", path); fate.error != 0) {
    return Fail(fate.error);
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

int FileKernel::Close(int fd) {
  Log([&] { return kernel::Close(fd); });
  if (fd < 0) {
    return Fail(EBADF);
  }
  const std::string path = At(fd).path;
  open_.erase(fd);  // also by a close that fails
  const Fate fate = decide ? decide("close", path) : Fate{};
  return fate.error == 0 ? 0 : Fail(fate.error);
}

ssize_t FileKernel::Read(int fd, void* buffer, std::size_t length) {
  Log([&] { return kernel::Read(fd, kernel::Bytes(length)); });
  if (fd < 0) {
    return Fail(EBADF);
  }
  Position& position = At(fd);
  const std::string& contents = files[position.path];
  const auto available = [&] {
    return std::min(length, contents.size() - std::min(position.at, contents.size()));
  };
  const Fate fate = NextFate("read", position.path, available());
  if (fate.error != 0) {
    return Fail(fate.error);
  }
  const std::size_t count = std::min(available(), fate.most);  // deciding may change the contents
  std::copy_n(contents.data() + position.at, count, static_cast<char*>(buffer));
  position.at += count;
  return static_cast<ssize_t>(count);
}

ssize_t FileKernel::Write(int fd, const void* buffer, std::size_t length) {
  const auto* const bytes = static_cast<const std::uint8_t*>(buffer);
  Log([&] { return kernel::Write(fd, {bytes, bytes + length}); });
  if (fd < 0) {
    return Fail(EBADF);
  }
  Position& position = At(fd);
  const Fate fate = NextFate("write", position.path, length);
  if (fate.error != 0) {
    return Fail(fate.error);
  }
  std::string& contents = files[position.path];
  const std::size_t count = std::min(length, fate.most);
  contents.resize(std::max(contents.size(), position.at + count));
  std::copy_n(bytes, count, contents.data() + position.at);
  position.at += count;
  return static_cast<ssize_t>(count);
}

off_t FileKernel::Seek(int fd, off_t offset, int whence) {
  Log([&] { return kernel::Seek(fd, offset, whence); });
  Require(whence == SEEK_SET && offset >= 0, "seeks count from the start of the file");
  Position& position = At(fd);
  if (const Fate fate = NextFate("lseek", position.path); fate.error != 0) {
    return Fail(fate.error);
  }
  position.at = static_cast<std::size_t>(offset);
  return offset;
}

int FileKernel::Ioctl(int fd, unsigned long request, void* /*argument*/) {
  Log([&] { return kernel::UnknownIoctl(fd, request); });
  return Fail(fd < 0 ? EBADF : ENOTTY);
}

int FileKernel::Usleep(useconds_t microseconds) {
  Log([&] { return kernel::Usleep(microseconds); });
  FakeClock::Advance(std::chrono::microseconds(microseconds));
  return 0;
}

unsigned FileKernel::Sleep(unsigned seconds) {
  Log([&] { return kernel::Sleep(seconds); });
  FakeClock::Advance(std::chrono::seconds(seconds));
  return 0;
}

int FileKernel::Nanosleep(const timespec* duration, timespec* left) {
  const std::chrono::nanoseconds time =
      std::chrono::seconds(duration->tv_sec) + std::chrono::nanoseconds(duration->tv_nsec);
  Log([&] { return kernel::Nanosleep(time); });
  const Fate fate = decide ? decide("nanosleep", "") : Fate{};
  FakeClock::Advance(fate.error == 0 ? time : time / 2);
  if (fate.error == 0) {
    return 0;
  }
  if (left != nullptr) {
    *left = {.tv_sec = static_cast<time_t>(time / 2 / std::chrono::seconds(1)),
             .tv_nsec = static_cast<long>((time / 2 % std::chrono::seconds(1)).count())};
  }
  return Fail(fate.error);
}
