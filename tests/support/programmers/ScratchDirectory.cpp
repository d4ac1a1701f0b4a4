#include "tests/support/programmers/ScratchDirectory.h"

#include <stdlib.h>

#include <cerrno>
#include <fstream>
#include <iterator>
#include <system_error>

ScratchDirectory::ScratchDirectory() : former_(std::filesystem::current_path()) {
  std::string name = std::filesystem::temp_directory_path() / "tarnwick-test-XXXXXX";
  if (::mkdtemp(name.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), name);
  }
  path_ = name;
  std::filesystem::current_path(path_);
}

ScratchDirectory::~ScratchDirectory() {
  std::error_code ignored;  // nothing to do about it at the end of a test
  std::filesystem::current_path(former_, ignored);
  std::filesystem::remove_all(path_, ignored);
}

void WriteFile(const std::string& path, std::string_view contents) {
  std::ofstream file(path, std::ios::binary);
  file << contents << std::flush;
  if (!file) {
    throw std::runtime_error("cannot write " + path);
  }
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    return "(cannot be opened)";
  }
  return {std::istreambuf_iterator<char>(file), {}};
}
