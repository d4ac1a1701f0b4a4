#include "tests/doubles/ScratchDirectory.h"

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

ScratchDirectory::ScratchDirectory() : former_(std::filesystem::current_path()) {
  std::filesystem::current_path(directory_.Path());
}

ScratchDirectory::~ScratchDirectory() {
  std::error_code ignored;  // a failure has no effect on the test
  std::filesystem::current_path(former_, ignored);
}

void WriteFile(const std::string& path, std::string_view contents) {
  std::filesystem::remove(path);  // faster than truncating, which waits for the disk
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
