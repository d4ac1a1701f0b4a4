#pragma once

#include <cstddef>
#include <cstring>

namespace orvane {

/// The longest path that the system takes, with the zero at its end.
inline constexpr std::size_t kMaxPathBytes = 4096;

namespace plain_path {

/// The end of the component that starts here.
inline const char* ComponentEnd(const char* at) {
  while (*at != '\0' && *at != '/') {
    ++at;
  }
  return at;
}

inline bool Is(const char* text, const char* start, std::size_t bytes) {
  return std::strlen(text) == bytes && std::memcmp(start, text, bytes) == 0;
}

}  // namespace plain_path

/// A path without "//", "/./" and "/../". Only absolute paths are changed: nodes and attributes have
/// these. "/.." is removed with the component before it, as if that were no symbolic link.
/// @param buffer  where the result is built
/// @return `path` itself when nothing is to be changed or it is too long, else `buffer`
inline const char* PlainPath(const char* path, char (&buffer)[kMaxPathBytes]) {
  using namespace plain_path;
  std::size_t length = 0;
  const char* at = path;
  while (*at == '/') {
    const char* const start = at + 1;
    const char* const end = ComponentEnd(start);
    const auto bytes = static_cast<std::size_t>(end - start);
    const bool isUp = Is("..", start, bytes);
    const bool isNamed = bytes > 0 && !isUp && !Is(".", start, bytes);
    at = end;
    if (isNamed) {
      if (length + bytes + 3 > kMaxPathBytes) {
        return path;
      }
      buffer[length] = '/';
      std::memcpy(buffer + length + 1, start, bytes);
      length += 1 + bytes;
    }
    while (isUp && length > 0 && buffer[--length] != '/') {
    }
    if (*at == '\0' && !isNamed) {
      buffer[length++] = '/';  // what names a directory goes on to do so
    }
  }
  buffer[length] = '\0';
  return path[0] != '/' || std::strcmp(buffer, path) == 0 ? path : buffer;
}

}  // namespace orvane
