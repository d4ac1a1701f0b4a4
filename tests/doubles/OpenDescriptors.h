#pragma once

#include <string>
#include <vector>

/// @return what each open descriptor of this process stands for, sorted, as /proc/self/fd shows it
std::vector<std::string> OpenDescriptors();
