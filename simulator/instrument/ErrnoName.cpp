#include "simulator/instrument/ErrnoName.h"

#include <cstring>

namespace orvane {

namespace {

constexpr int kHighestErrno = 4095;  // of what the kernel can return

}  // namespace

std::string ErrnoName(int error) {
  const char* const name = ::strerrorname_np(error);
  return name == nullptr ? std::to_string(error) : name;
}

std::optional<int> ErrnoFromName(std::string_view name) {
  for (int error = 1; error <= kHighestErrno; ++error) {
    const char* const known = ::strerrorname_np(error);
    if (known != nullptr && name == known) {
      return error;
    }
  }
  return std::nullopt;
}

}  // namespace orvane
