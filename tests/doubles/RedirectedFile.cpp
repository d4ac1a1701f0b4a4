#include "tests/doubles/RedirectedFile.h"

#include <dlfcn.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <utility>

namespace {

struct Redirection {
  std::string path;
  std::optional<std::string> contents;
  int openings = 0;
};

std::optional<Redirection> redirection;

/// A stream with a descriptor behind it, as the C++ library reads from that.
std::FILE* OpenContents(const std::string& contents) {
  std::FILE* const file = ::fdopen(::memfd_create("redirected", 0), "w+");
  if (file == nullptr ||
      std::fwrite(contents.data(), 1, contents.size(), file) != contents.size()) {
    std::abort();
  }
  std::rewind(file);
  return file;
}

std::FILE* Open(const char* path, const char* mode, const char* symbol) {
  if (!redirection.has_value() || redirection->path != path) {
    using Fopen = std::FILE* (*)(const char*, const char*);
    return reinterpret_cast<Fopen>(::dlsym(RTLD_NEXT, symbol))(path, mode);
  }
  ++redirection->openings;
  if (!redirection->contents.has_value() || std::strcmp(mode, "r") != 0) {
    errno = redirection->contents.has_value() ? EACCES : ENOENT;
    return nullptr;
  }
  return OpenContents(*redirection->contents);
}

}  // namespace

RedirectedFile::RedirectedFile(std::string path, std::string contents) {
  if (redirection.has_value()) {
    throw std::logic_error("one redirected file at a time");
  }
  redirection = Redirection{.path = std::move(path), .contents = std::move(contents)};
}

RedirectedFile::~RedirectedFile() { redirection.reset(); }

void RedirectedFile::Remove() { redirection->contents.reset(); }

int RedirectedFile::Openings() { return redirection->openings; }

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library's are reserved
extern "C" std::FILE* fopen(const char* path, const char* mode) {
  return Open(path, mode, "fopen");
}

extern "C" std::FILE* fopen64(const char* path, const char* mode) {
  return Open(path, mode, "fopen64");
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
