#include "tests/doubles/TemporaryDirectory.h"

#include <stdlib.h>

#include <cerrno>
#include <fstream>
#include <system_error>

TemporaryDirectory::TemporaryDirectory(const std::string& parent)
    : path_(parent + "/tarnwick-test-XXXXXX") {
  if (::mkdtemp(path_.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), path_);
  }
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;  // a directory that cannot be removed has no effect on the test
  std::filesystem::remove_all(path_, ignored);
}

std::string TemporaryDirectory::File(const std::string& name, const std::string& contents) const {
  const std::filesystem::path file = std::filesystem::path(path_) / name;
  std::filesystem::create_directories(file.parent_path());
  std::ofstream stream(file, std::ios::binary);
  stream.exceptions(std::ios::failbit | std::ios::badbit);
  stream << contents;
  stream.close();
  return file;
}
