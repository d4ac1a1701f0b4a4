#include "tests/fuzz/Reference.h"

#include <array>
#include <limits>

namespace reference {

std::optional<BootHeader> FindBootHeader(const std::string& file) {
  if (file.size() < 0x4C + 76) {
    return std::nullopt;
  }
  BootHeader header = {};
  int delimiters = 0;
  for (std::size_t i = 0x4C; i < 0x4C + 76; ++i) {
    if (file[i] == '#') {
      ++delimiters;
    } else if (delimiters == 0) {
      header.filename += file[i];
    } else if (delimiters == 1) {
      header.buildDate += file[i];
    }
  }
  header.hasDelimiter = delimiters != 0;
  if (!header.hasDelimiter) {
    header.filename.clear();
  }
  return header;
}

bool BuildDatesDiffer(const BootHeader& dump, const BootHeader& image) {
  // A missing date counts as one of two texts, which a header can contain, too.
  const std::string dumpDate = dump.buildDate.empty() ? "date1" : dump.buildDate;
  const std::string imageDate = image.buildDate.empty() ? "date2" : image.buildDate;
  return dumpDate != imageDate;
}

std::optional<std::uint32_t> FindTimeStamp(const std::string& file) {
  constexpr std::array<unsigned char, 4> kHeader = {0x30, 0x01, 0xA0, 0x01};
  std::array<unsigned char, 4> previous = {};
  std::array<unsigned char, 4> word = {};
  for (std::size_t at = 0; at < file.size(); at += 4) {
    for (std::size_t i = 0; i < 4 && at + i < file.size(); ++i) {
      word[i] = static_cast<unsigned char>(file[at + i]);
    }
    if (previous == kHeader) {
      return word[0] * 0x1000000U + word[1] * 0x10000U + word[2] * 0x100U + word[3];
    }
    previous = word;
  }
  return std::nullopt;
}

BufsizText ReadBufsiz(const std::string& text) {
  constexpr std::size_t kMax = std::numeric_limits<std::size_t>::max();
  const std::string line = text.substr(0, text.find('\n'));
  BufsizText noNumber = {.line = line, .isNumber = line.empty(), .bytes = 4096};
  std::size_t at = 0;
  while (at < line.size() && std::string(" \t\v\f\r").find(line[at]) != std::string::npos) {
    ++at;
  }
  bool negative = false;
  if (at < line.size() && (line[at] == '+' || line[at] == '-')) {
    negative = line[at] == '-';
    ++at;
  }
  std::size_t value = 0;
  bool digits = false;
  for (; at < line.size() && line[at] >= '0' && line[at] <= '9'; ++at) {
    const auto digit = static_cast<std::size_t>(line[at] - '0');
    if (value > (kMax - digit) / 10) {
      return noNumber;  // out of range
    }
    value = value * 10 + digit;
    digits = true;
  }
  if (!digits) {
    return noNumber;
  }
  // A minus sign negates, modulo the range.
  return {
      .line = line, .isNumber = true, .bytes = negative && value != 0 ? kMax - value + 1 : value};
}

}  // namespace reference
