#include "programmers/BootHeader.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <iostream>
#include <stdexcept>
#include <utility>

#include "base/FileDescriptor.h"

namespace {

constexpr char kDelimiter = '#';

// What a missing build date counts as.
constexpr const char* kNoFlashDate = "date1";
constexpr const char* kNoImageDate = "date2";

constexpr const char* kNoDelimiter = "ERROR: Can't find delimiter # in BOOTHEADER";

/// The open file, and the field read from it.
class UserDefinedField {
 public:
  explicit UserDefinedField(const std::string& path) : file_(::open(path.c_str(), O_RDONLY)) {
    if (!file_.IsOpen()) {
      std::cerr << "ERROR: Can't open file '" << path << "'" << std::endl;
      Fail();
    }
    if (::lseek(file_.Get(), off_t{boot_header::kUserFieldOffset}, SEEK_SET) < 0) {
      std::cerr << "ERROR: Can't seek file" << std::endl;
      Fail();
    }
    if (::read(file_.Get(), bytes_.data(), bytes_.size()) !=
        ssize_t{boot_header::kUserFieldBytes}) {
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
  std::array<char, boot_header::kUserFieldBytes> bytes_{};
};

/// @param find  finds a text in the field
/// @return what it finds; empty, after the message, when the field has no delimiter
std::string FindText(const std::string& file,
                     std::optional<std::string> (*find)(std::string_view field),
                     const char* noDelimiterMessage) {
  UserDefinedField field(file);
  std::optional<std::string> text = find(field.Text());
  if (!text) {
    std::cerr << noDelimiterMessage << std::endl;
    field.LeaveOpen();
    return "";
  }
  return *std::move(text);
}

/// Prints the label and the text found, or the error line when the text is empty.
void Report(const std::string& found, const char* label, const char* missingMessage) {
  if (found.empty()) {
    std::cerr << missingMessage << std::endl;
    return;
  }
  std::cout << label << found << std::endl;
}

}  // namespace

namespace boot_header {

std::optional<std::string> BuildDateIn(std::string_view field) {
  const std::size_t delimiter = field.find(kDelimiter);
  if (delimiter == std::string_view::npos) {
    return std::nullopt;
  }
  const std::string_view rest = field.substr(delimiter + 1);
  return std::string(rest.substr(0, rest.find(kDelimiter)));
}

std::optional<std::string> FileNameIn(std::string_view field) {
  const std::size_t delimiter = field.find(kDelimiter);
  if (delimiter == std::string_view::npos) {
    return std::nullopt;
  }
  return std::string(field.substr(0, delimiter));
}

bool IsUpgradeRequired(const std::string& flashDate, const std::string& imageDate) {
  // Deliberate: a date that is the other one's fallback counts as equal to the missing one; fixed
  // and observable; do not change. The fallbacks differ, so two missing dates require an upgrade.
  return (flashDate.empty() ? kNoFlashDate : flashDate) !=
         (imageDate.empty() ? kNoImageDate : imageDate);
}

std::string FindBuildDate(const std::string& file, const char* noDelimiterMessage) {
  return FindText(file, BuildDateIn, noDelimiterMessage);
}

bool ReportBuildDates(const std::string& dump,
                      const std::string& image,
                      const std::function<std::string(std::string file)>& findBuildDate) {
  const std::string dumpDate = findBuildDate(dump);
  Report(dumpDate, "Flash header build date: ", "ERROR: Can't find uboot build date in dumpfile");
  const std::string imageDate = findBuildDate(image);
  Report(imageDate, "Binary  file build date: ", "ERROR: Can't find uboot build date in BIN file");
  return IsUpgradeRequired(dumpDate, imageDate);
}

}  // namespace boot_header

std::string SearchFilenameInUDFHeader(std::string file) {
  return FindText(file, boot_header::FileNameIn, kNoDelimiter);
}

std::string SearchBuildDateInUDFHeader(std::string file) {
  return boot_header::FindBuildDate(file, kNoDelimiter);
}

bool IsFlashUpgradeRequired(std::string dump, std::string image) {
  std::cout << std::endl;
  // A missing file name stands for "u-boot-vexa.bin", which nothing reads: the dates alone decide.
  Report(SearchFilenameInUDFHeader(dump),
         "Flash header binary filename: ",
         "ERROR: Can't find uboot filename in dumpfile");
  return boot_header::ReportBuildDates(dump, image, SearchBuildDateInUDFHeader);
}
