#include "tests/doubles/RedirectedFile.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>
#include <vector>

#include "tests/doubles/Require.h"

namespace {

std::vector<RedirectedFile*> redirected;

/// Not through the link seams, which are for the calls of the code under test.
int OpenAround(const char* path, int flags) {
  return static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path, flags));
}

std::FILE* OpenStream(const char* path, const char* mode, const char* symbol) {
  if (RedirectedFile* const file = RedirectedFile::Find(path); file != nullptr) {
    return file->OpenOnce(mode);
  }
  using Fopen = std::FILE* (*)(const char*, const char*);
  return reinterpret_cast<Fopen>(::dlsym(RTLD_NEXT, symbol))(path, mode);
}

}  // namespace

RedirectedFile::RedirectedFile(std::string path, const std::string& contents)
    : path_(std::move(path)),
      memory_(::memfd_create("redirected", 0)),
      open_([this](const char* mode) { return OpenMemory(mode); }) {
  std::string bytes = contents;
  const iovec piece = {.iov_base = bytes.data(), .iov_len = bytes.size()};
  Require(memory_ >= 0 && ::pwritev(memory_, &piece, 1, 0) == static_cast<ssize_t>(bytes.size()),
          "there is memory for a file");
  redirected.push_back(this);
}

RedirectedFile::RedirectedFile(std::string path, Open open)
    : path_(std::move(path)), open_(std::move(open)) {
  redirected.push_back(this);
}

RedirectedFile::~RedirectedFile() {
  std::erase(redirected, this);
  static_cast<void>(::syscall(SYS_close, memory_));
}

void RedirectedFile::Remove() {
  open_ = [](const char* /*mode*/) -> std::FILE* {
    errno = ENOENT;
    return nullptr;
  };
}

std::string RedirectedFile::Contents() const {
  std::string contents(static_cast<std::size_t>(::lseek64(memory_, 0, SEEK_END)), '\0');
  Require(::pread(memory_, contents.data(), contents.size(), 0) ==
              static_cast<ssize_t>(contents.size()),
          "a file in memory can be read");
  return contents;
}

RedirectedFile* RedirectedFile::Find(const std::string& path) {
  const auto found = std::find_if(
      redirected.begin(), redirected.end(), [&](const auto* file) { return file->path_ == path; });
  return found == redirected.end() ? nullptr : *found;
}

std::FILE* RedirectedFile::OpenOnce(const char* mode) {
  ++openings_;
  return open_(mode);
}

/// Opens the file anew, with a real descriptor, because the C++ library uses the descriptor.
std::FILE* RedirectedFile::OpenMemory(const char* mode) const {
  const std::string path = "/proc/self/fd/" + std::to_string(memory_);
  return ::fdopen(OpenAround(path.c_str(), mode[0] == 'w' ? O_RDWR | O_TRUNC : O_RDWR), mode);
}

std::FILE* OpenFullDevice() { return ::fdopen(OpenAround("/dev/full", O_WRONLY), "w"); }

// By their link names: with _FILE_OFFSET_BITS, the C library's header gives fopen the other one.
extern "C" {
std::FILE* Fopen(const char* path, const char* mode) __asm__("fopen");
std::FILE* Fopen64(const char* path, const char* mode) __asm__("fopen64");

std::FILE* Fopen(const char* path, const char* mode) { return OpenStream(path, mode, "fopen"); }

std::FILE* Fopen64(const char* path, const char* mode) { return OpenStream(path, mode, "fopen64"); }
}
