#pragma once

#include <string>

namespace companion {

/// What is in a small file.
struct SysfsText {
  std::string text;  ///< at most 64 bytes, without the newline at the end
  int error = 0;     ///< the errno of the call that failed; 0: none
};

SysfsText ReadSysfsText(const std::string& path);

}  // namespace companion
