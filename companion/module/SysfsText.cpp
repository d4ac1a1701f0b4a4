#include "companion/module/SysfsText.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "base/FileDescriptor.h"

namespace companion {

SysfsText ReadSysfsText(const std::string& path) {
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.IsOpen()) {
    return {.error = errno};
  }
  std::array<char, 64> buffer;
  const ssize_t count = ::read(file.Get(), buffer.data(), buffer.size());
  if (count < 0) {
    return {.error = errno};
  }
  std::string text(buffer.data(), static_cast<std::size_t>(count));
  if (text.ends_with('\n')) {
    text.pop_back();
  }
  return {.text = std::move(text)};
}

}  // namespace companion
