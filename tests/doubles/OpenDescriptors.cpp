#include "tests/doubles/OpenDescriptors.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

std::vector<std::string> OpenDescriptors() {
  std::vector<std::string> targets;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    const std::filesystem::path target = std::filesystem::read_symlink(entry, gone);
    targets.push_back(target);
  }
  std::sort(targets.begin(), targets.end());
  return targets;
}
