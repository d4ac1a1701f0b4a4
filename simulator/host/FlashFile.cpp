#include "simulator/host/FlashFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <stdexcept>
#include <system_error>

#include "base/FileDescriptor.h"
#include "simulator/chips/NorFlashModel.h"

namespace orvane {

namespace {

[[noreturn]] void Fail(const char* what, const std::string& path) {
  throw std::system_error(
      errno, std::generic_category(), std::string("cannot ") + what + " flash file '" + path + "'");
}

}  // namespace

std::vector<std::uint8_t> LoadFlashFile(const std::string& path) {
  // Opened for writing too: otherwise a run could end with contents that cannot be saved.
  const FileDescriptor file(::open(path.c_str(), O_RDWR | O_CLOEXEC));
  if (!file.IsOpen()) {
    Fail("open", path);
  }
  std::vector<std::uint8_t> contents;
  std::array<std::uint8_t, 1 << 16> piece;
  for (;;) {
    const ssize_t count = ::read(file.Get(), piece.data(), piece.size());
    if (count < 0) {
      Fail("read", path);
    }
    if (count == 0) {
      return contents;
    }
    contents.insert(contents.end(), piece.begin(), piece.begin() + count);
    if (contents.size() > NorFlashModel::kBytes) {
      throw std::runtime_error("flash file '" + path + "' is larger than 16 MiB");
    }
  }
}

void SaveFlashFile(const std::string& path, std::span<const std::uint8_t> contents) {
  FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  if (!file.IsOpen()) {
    Fail("open", path);
  }
  while (!contents.empty()) {
    const ssize_t count = ::write(file.Get(), contents.data(), contents.size());
    if (count < 0) {
      Fail("write", path);
    }
    contents = contents.subspan(static_cast<std::size_t>(count));
  }
  if (file.Close() < 0) {
    Fail("write", path);
  }
}

}  // namespace orvane
