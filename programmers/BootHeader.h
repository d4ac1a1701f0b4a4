#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

/// Reads the text that the build puts into the user-defined field of a Zynq boot image header (76
/// bytes at offset 0x4C, Zynq-7000 Technical Reference Manual, "Boot Image Format"):
///   file name # build date # ignored
/// The second '#' may be missing: the date then runs to the end of the field. The bytes are taken
/// as they are. The file is opened and read as it is, never decompressed.
///
/// All of these throw std::logic_error, after one line on standard error, when the file cannot be
/// opened or read, or is shorter than 152 bytes.

/// @return the file name; empty, after one line on standard error, when the field has no '#'
std::string SearchFilenameInUDFHeader(std::string file);

/// @return the build date; empty when there is none, after one line on standard error when the
///         field has no '#'
std::string SearchBuildDateInUDFHeader(std::string file);

/// Ends the caller's progress line, reports the header of both files on standard output and
/// compares their build dates; the file name takes no part.
/// @param dump   file with the head of the flash
/// @param image  file with the image
/// @return true when the flash must be rewritten: boot_header::IsUpgradeRequired()
bool IsFlashUpgradeRequired(std::string dump, std::string image);

/// What the functions above consist of, also for bytes that are in memory.
namespace boot_header {

inline constexpr std::size_t kUserFieldOffset = 0x4C;
inline constexpr std::size_t kUserFieldBytes = 76;
inline constexpr std::size_t kHeaderBytes = kUserFieldOffset + kUserFieldBytes;  ///< 152

/// @param field  the user-defined field, kUserFieldBytes long; borrowed for the call
/// @return the build date, which may be empty; nothing when the field has no '#'
std::optional<std::string> BuildDateIn(std::string_view field);

/// @param field  as for BuildDateIn()
/// @return the file name, which may be empty; nothing when the field has no '#'
std::optional<std::string> FileNameIn(std::string_view field);

/// Compares two build dates as texts. A missing one counts as "date1" in the flash and as "date2"
/// in the image.
/// @param flashDate,imageDate  build dates; empty for none
/// @return true when the flash must be rewritten
bool IsUpgradeRequired(const std::string& flashDate, const std::string& imageDate);

/// SearchBuildDateInUDFHeader() with the given line for a field without '#'.
std::string FindBuildDate(const std::string& file, const char* noDelimiterMessage);

/// Reports and compares the build dates as IsFlashUpgradeRequired() does, without the file name.
/// @param findBuildDate  called with `dump`, then with `image`
/// @return what IsUpgradeRequired() makes of them
bool ReportBuildDates(const std::string& dump,
                      const std::string& image,
                      const std::function<std::string(std::string file)>& findBuildDate);

}  // namespace boot_header
