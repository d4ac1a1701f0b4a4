#pragma once

#include <functional>
#include <string>

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
/// @return true when the flash must be rewritten: the dates differ, or one is missing
bool IsFlashUpgradeRequired(std::string dump, std::string image);

/// What the functions above share with a programmer that prints other messages.
namespace boot_header {

/// SearchBuildDateInUDFHeader() with the given line for a field without '#'.
std::string FindBuildDate(const std::string& file, const char* noDelimiterMessage);

/// Reports and compares the build dates as IsFlashUpgradeRequired() does, without the file name.
/// @param findBuildDate  called with `dump`, then with `image`
/// @return true when they differ, or one is missing
bool ReportBuildDates(const std::string& dump,
                      const std::string& image,
                      const std::function<std::string(std::string file)>& findBuildDate);

}  // namespace boot_header
