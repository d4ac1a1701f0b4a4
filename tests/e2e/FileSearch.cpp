#include "tests/e2e/FileSearch.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>

namespace program_test {

using run_log::Lines;

namespace {

constexpr std::ptrdiff_t kFieldStart = 76;
constexpr std::ptrdiff_t kFieldBytes = 76;

/// What a search says.
struct SearchLines {
  std::string found;        // in front of the text
  std::string missing;      // when there is none
  std::string noDelimiter;  // when there is no '#'
};

Lines Search(const std::string& path,
             bool hasDelimiter,
             const std::string& text,
             const SearchLines& lines) {
  const Lines missing = run_log::ErrorLine(lines.missing);
  if (!hasDelimiter) {  // the file stays open
    return run_log::Join(
        {{"open " + path + " O_RDONLY"}, run_log::ErrorLine(lines.noDelimiter), missing});
  }
  return run_log::Join({{"open " + path + " O_RDONLY", "close " + path},
                        text.empty() ? missing : run_log::Console(lines.found + text)});
}

}  // namespace

HeaderText TextInHeader(const Bytes& file) {
  const auto first = file.begin() + kFieldStart;
  const auto last = first + kFieldBytes;
  const auto delimiter = std::find(first, last, '#');
  if (delimiter == last) {
    return {};
  }
  return {.isThere = true,
          .name = std::string(first, delimiter),
          .date = std::string(delimiter + 1, std::find(delimiter + 1, last, '#'))};
}

bool SameDate(const Bytes& dump, const Bytes& image) {
  const std::string date = TextInHeader(dump).date;
  return !date.empty() && date == TextInHeader(image).date;
}

Lines SearchName(const std::string& path, const Bytes& dump) {
  const HeaderText text = TextInHeader(dump);
  return Search(path,
                text.isThere,
                text.name,
                {.found = "Flash header binary filename: ",
                 .missing = "ERROR: Can't find uboot filename in dumpfile",
                 .noDelimiter = kNoDelimiter});
}

Lines SearchDumpDate(const std::string& path, const Bytes& dump, const std::string& noDelimiter) {
  const HeaderText text = TextInHeader(dump);
  return Search(path,
                text.isThere,
                text.date,
                {.found = "Flash header build date: ",
                 .missing = "ERROR: Can't find uboot build date in dumpfile",
                 .noDelimiter = noDelimiter});
}

Lines SearchImageDate(const std::string& path, const Bytes& image, const std::string& noDelimiter) {
  const HeaderText text = TextInHeader(image);
  return Search(path,
                text.isThere,
                text.date,
                {.found = "Binary  file build date: ",
                 .missing = "ERROR: Can't find uboot build date in BIN file",
                 .noDelimiter = noDelimiter});
}

std::uint32_t StampIn(const Bytes& file) {
  const Bytes header = {0x30, 0x01, 0xA0, 0x01};
  for (std::size_t at = 0; at + 8 <= file.size(); at += 4) {
    const auto word = file.begin() + static_cast<std::ptrdiff_t>(at);
    if (std::equal(header.begin(), header.end(), word)) {
      return static_cast<std::uint32_t>(word[4]) << 24 | static_cast<std::uint32_t>(word[5]) << 16 |
             static_cast<std::uint32_t>(word[6]) << 8 | word[7];
    }
  }
  return 0;
}

std::string StampText(std::uint32_t stamp) {
  char text[64];
  static_cast<void>(std::snprintf(text,
                                  sizeof text,
                                  "%02u/%02u/%04u %02u:%02u:%02u",
                                  stamp >> 27,
                                  stamp >> 23 & 0xFU,
                                  2000 + (stamp >> 17 & 0x3FU),
                                  stamp >> 12 & 0x1FU,
                                  stamp >> 6 & 0x3FU,
                                  stamp & 0x3FU));
  return text;
}

}  // namespace program_test
