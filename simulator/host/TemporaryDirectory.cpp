#include "simulator/host/TemporaryDirectory.h"

#include <stdlib.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace orvane {

namespace {

constexpr const char* kFallback = "/tmp";
constexpr std::size_t kMaxBytes = 40;  // leaves room for the longest name of a socket below it
constexpr const char* kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._-";

std::string Parent() {
  const char* const wanted = std::getenv("TMPDIR");
  const std::string parent = wanted == nullptr ? "" : wanted;
  const bool suits = parent.starts_with('/') && parent.size() <= kMaxBytes &&
                     parent.find_first_not_of(kPlain) == std::string::npos;
  return suits ? parent : kFallback;
}

}  // namespace

TemporaryDirectory::TemporaryDirectory() : path_(Parent() + "/orvane-sim.XXXXXX") {
  if (::mkdtemp(path_.data()) == nullptr) {
    throw std::system_error(
        errno, std::generic_category(), "cannot create a directory in " + Parent());
  }
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;  // an error here has no consequence for the run
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace orvane
