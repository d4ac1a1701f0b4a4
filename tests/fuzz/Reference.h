#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

/// The rules for data from outside, written as simply as possible. The targets compare the program
/// with them.
namespace reference {

/// The texts of a boot header's user-defined field. A file too short for the field has none.
struct BootHeader {
  bool hasDelimiter;
  std::string filename;
  std::string buildDate;
};
std::optional<BootHeader> FindBootHeader(const std::string& file);

/// Whether an upgrade is required for the build dates of two headers.
bool BuildDatesDiffer(const BootHeader& dump, const BootHeader& image);

/// The word after 30 01 A0 01, looked for in 4-byte steps. A short last step replaces only the
/// first bytes of the word before.
std::optional<std::uint32_t> FindTimeStamp(const std::string& file);

/// The buffer size that the first line of the module parameter stands for: a number, as the C
/// library reads an unsigned one; or 4096, also for an empty line.
struct BufsizText {
  std::string line;
  bool isNumber;  // or empty
  std::size_t bytes;
};
BufsizText ReadBufsiz(const std::string& text);

}  // namespace reference
