#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

/// The build time stamp of a bitstream: the word after a write of one word to USR_ACCESS (type-1
/// packet header 0x3001A001, configuration user guide UG470, "Configuration Packets"), big-endian,
/// at an offset that is a multiple of 4. It holds day (bits 31..27), month (26..23), year - 2000
/// (22..17), hour (16..12), minute (11..6) and second (5..0).
///
/// The bytes are taken as they are, never decompressed. A last word of 1 to 3 bytes replaces the
/// first bytes of the word before it, whose other bytes stay.
namespace user_access {

/// @param fd  borrowed; read from its offset to the end of the file. A read that fails is made
///            again, without end on a directory.
/// @return the first time stamp; nothing when there is none
std::optional<std::uint32_t> Find(int fd);

/// The same search over the bytes of a whole file.
/// @param bytes  borrowed for the call
std::optional<std::uint32_t> Find(std::span<const std::uint8_t> bytes);

/// @param flashStamp,imageStamp  time stamps; 0 for none
/// @return true when flash and image count as the same build, so that the image is not written
bool IsSameBuild(std::uint32_t flashStamp, std::uint32_t imageStamp);

/// @return "DD/MM/YYYY hh:mm:ss"; no field is checked for its range
std::string Describe(std::uint32_t stamp);

}  // namespace user_access
