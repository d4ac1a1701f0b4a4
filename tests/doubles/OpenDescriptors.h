#pragma once

#include <string>
#include <vector>

/// @return the target of each open descriptor of this process, sorted, as /proc/self/fd shows it
std::vector<std::string> OpenDescriptors();
