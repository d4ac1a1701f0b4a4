#include "programmers/BootHeader.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <iostream>
#include <stdexcept>
#include <string_view>

#include "base/FileDescriptor.h"

namespace {

constexpr off_t kFieldOffset = 0x4C;
constexpr std::size_t kFieldBytes = 76;
constexpr char kDelimiter = '#';

constexpr const char* kNoDelimiter = "ERROR: Can't find delimiter # in BOOTHEADER";

/// The open file, and the field read from it.
class UserDefinedField {
 public:
  explicit UserDefinedField(const std::string& path) : file_(::open(path.c_str(), O_RDONLY)) {
    if (!file_.IsOpen()) {
      std::cerr << "ERROR: Can't open file '" << path << "'" << std::endl;
      Fail();
    }
    if (::lseek(file_.Get(), kFieldOffset, SEEK_SET) < 0) {
      std::cerr << "ERROR: Can't seek file" << std::endl;
      Fail();
    }
    if (::read(file_.Get(), bytes_.data(), bytes_.size()) != ssize_t{kFieldBytes}) {
      std::cerr << "ERROR: Can't read file" << std::endl;
      Fail();
    }
  }

  [[nodiscard]] std::string_view Text() const { return {bytes_.data(), bytes_.size()}; }

  /// Leaves the file open until the process ends.
  // Deliberate: not only after a failure, also when there is no delimiter and the run goes on;
  // fixed and observable; do not change.
  void LeaveOpen() { static_cast<void>(file_.Release()); }

 private:
  // Deliberate: a header that cannot be read has no result to return. Nobody catches the exception:
  // the process ends, before anything is erased or, in the comparison that verifies a wend, after
  // the write. The text is fixed and observable; do not change.
  [[noreturn]] void Fail() {
    LeaveOpen();
    throw std::logic_error("basic_string::_M_construct null not valid");
  }

  FileDescriptor file_;
  std::array<char, kFieldBytes> bytes_{};
};

/// @return the position of the first delimiter; npos, after the message, when there is none
std::size_t FindDelimiter(UserDefinedField& field, const char* noDelimiterMessage) {
  const std::size_t delimiter = field.Text().find(kDelimiter);
  if (delimiter == std::string_view::npos) {
    std::cerr << noDelimiterMessage << std::endl;
    field.LeaveOpen();
  }
  return delimiter;
}

/// Prints the label and the text found, or the error line when the text is empty.
/// @return the text, or the fallback
std::string ReportOrFallBack(const std::string& found,
                             const char* label,
                             const char* missingMessage,
                             const char* fallback) {
  if (found.empty()) {
    std::cerr << missingMessage << std::endl;
    return fallback;
  }
  std::cout << label << found << std::endl;
  return found;
}

}  // namespace

namespace boot_header {

std::string FindBuildDate(const std::string& file, const char* noDelimiterMessage) {
  UserDefinedField field(file);
  const std::size_t delimiter = FindDelimiter(field, noDelimiterMessage);
  if (delimiter == std::string_view::npos) {
    return "";
  }
  const std::string_view rest = field.Text().substr(delimiter + 1);
  return std::string(rest.substr(0, rest.find(kDelimiter)));
}

bool ReportBuildDates(const std::string& dump,
                      const std::string& image,
                      const std::function<std::string(std::string file)>& findBuildDate) {
  // The fallback dates differ, so a missing date requires an upgrade.
  const std::string dumpDate = ReportOrFallBack(findBuildDate(dump),
                                                "Flash header build date: ",
                                                "ERROR: Can't find uboot build date in dumpfile",
                                                "date1");
  const std::string imageDate = ReportOrFallBack(findBuildDate(image),
                                                 "Binary  file build date: ",
                                                 "ERROR: Can't find uboot build date in BIN file",
                                                 "date2");
  return dumpDate != imageDate;
}

}  // namespace boot_header

std::string SearchFilenameInUDFHeader(std::string file) {
  UserDefinedField field(file);
  const std::size_t delimiter = FindDelimiter(field, kNoDelimiter);
  if (delimiter == std::string_view::npos) {
    return "";
  }
  return std::string(field.Text().substr(0, delimiter));
}

std::string SearchBuildDateInUDFHeader(std::string file) {
  return boot_header::FindBuildDate(file, kNoDelimiter);
}

bool IsFlashUpgradeRequired(std::string dump, std::string image) {
  std::cout << std::endl;
  static_cast<void>(ReportOrFallBack(SearchFilenameInUDFHeader(dump),
                                     "Flash header binary filename: ",
                                     "ERROR: Can't find uboot filename in dumpfile",
                                     "u-boot-vexa.bin"));  // reported only
  return boot_header::ReportBuildDates(dump, image, SearchBuildDateInUDFHeader);
}
