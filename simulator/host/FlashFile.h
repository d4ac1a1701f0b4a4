#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace orvane {

/// Reads the contents of a flash from a file that will be written back.
/// @throw std::system_error or std::runtime_error, with a text for the user, when the file cannot
///        be read, will not be writable, or is larger than a flash
std::vector<std::uint8_t> LoadFlashFile(const std::string& path);

/// Writes the contents of a flash to a file, over what it held.
/// @throw std::system_error, with a text for the user
void SaveFlashFile(const std::string& path, std::span<const std::uint8_t> contents);

}  // namespace orvane
