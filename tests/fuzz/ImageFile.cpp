#include "tests/fuzz/ImageFile.h"

#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <string_view>

#include "tests/doubles/Require.h"

extern "C" {
gzFile RealGzopen(const char* path, const char* mode) __asm__("__real_gzopen");
gzFile WrapGzopen(const char* path, const char* mode) __asm__("__wrap_gzopen");
int RealGzread(gzFile file, voidp buffer, unsigned length) __asm__("__real_gzread");
int WrapGzread(gzFile file, voidp buffer, unsigned length) __asm__("__wrap_gzread");
int RealGzclose(gzFile file) __asm__("__real_gzclose");
int WrapGzclose(gzFile file) __asm__("__wrap_gzclose");

gzFile WrapGzopen(const char* path, const char* mode) {
  ImageFile* const image = ImageFile::Current();
  return image == nullptr ? RealGzopen(path, mode) : image->Open(path);
}

int WrapGzread(gzFile file, voidp buffer, unsigned length) {
  ImageFile* const image = ImageFile::Current();
  return image == nullptr ? RealGzread(file, buffer, length) : image->Read(file, buffer, length);
}

int WrapGzclose(gzFile file) {
  ImageFile* const image = ImageFile::Current();
  return image == nullptr ? RealGzclose(file) : image->Close(file);
}
}

namespace {

constexpr int kMaxFailures = 3;

ImageFile* current = nullptr;

/// Not through the link seams, which are for the program's own calls.
int DescriptorOf(const std::string& contents) {
  const int fd = ::memfd_create("image", 0);
  std::string bytes = contents;
  const iovec piece = {.iov_base = bytes.data(), .iov_len = bytes.size()};
  Require(fd >= 0 && ::pwritev(fd, &piece, 1, 0) == static_cast<ssize_t>(bytes.size()),
          "there is memory for the image");
  return fd;
}

void AppendLittleEndian(std::string& text, std::uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) {
    text += static_cast<char>(value >> (8 * i) & 0xFFU);
  }
}

}  // namespace

ImageFile::ImageFile(std::string path, std::optional<std::string> contents)
    : path_(std::move(path)), contents_(std::move(contents)) {
  Require(current == nullptr, "one image at a time");
  current = this;
}

ImageFile::~ImageFile() {
  current = nullptr;
  for (gzFile_s* const file : open_) {
    RealGzclose(file);
  }
}

ImageFile* ImageFile::Current() { return current; }

gzFile_s* ImageFile::Open(const char* path) {
  Require(path_ == path, "no file but the image is opened with zlib");
  if (!contents_) {
    errno = ENOENT;
    return nullptr;
  }
  gzFile_s* const file = ::gzdopen(DescriptorOf(*contents_), "rb");
  Require(file != nullptr, "zlib has memory for the image");
  open_.push_back(file);
  return file;
}

int ImageFile::Read(gzFile_s* file, void* buffer, unsigned length) {
  Require(std::find(open_.begin(), open_.end(), file) != open_.end(), "only open images are read");
  const int count = RealGzread(file, buffer, length);
  if (count >= 0) {
    return count;
  }
  ++failures_;
  return failures_ % kMaxFailures == 0 ? 0 : count;
}

int ImageFile::Close(gzFile_s* file) {
  Require(std::erase(open_, file) == 1, "only open images are closed");
  return RealGzclose(file);
}

std::string InGzip(const std::string& bytes) {
  constexpr std::size_t kMaxBlock = 0xFFFF;
  std::string file("\x1f\x8b\x08\0\0\0\0\0\0\x03", 10);
  std::string_view rest = bytes;
  do {
    const std::string_view block = rest.substr(0, kMaxBlock);
    rest.remove_prefix(block.size());
    file += static_cast<char>(rest.empty() ? 1 : 0);  // the last block; stored
    AppendLittleEndian(file, block.size(), 2);
    AppendLittleEndian(file, ~block.size(), 2);
    file += block;
  } while (!rest.empty());
  AppendLittleEndian(
      file,
      ::crc32(0, reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(bytes.size())),
      4);
  AppendLittleEndian(file, bytes.size(), 4);
  return file;
}
