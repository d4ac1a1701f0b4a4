#pragma once

#include <cstddef>
#include <string>

namespace orvane {

/// An image for a module of a type: other bytes, and another stamp or date, for each year.
/// @param type  "wend", "dax", "pyx1" or "pyx2"
std::string ModuleImage(const std::string& type, int year, std::size_t bytes);

}  // namespace orvane
